// SPDX-License-Identifier: Apache-2.0
/*
 * Test hooks of the toolkit allocator: count allocations and make one chosen
 * allocation fail, so that tests can sweep every failure point of an
 * operation.  Not part of the public interface.
 */
#ifndef ARDEL_QLGMEMTEST_H
#define ARDEL_QLGMEMTEST_H

#include <ardel/export.h>

ARDEL_BEGIN_C

/* Number of allocation attempts (alloc, realloc, strdup) since the last reset. */
long QlgMem_allocCount(void);
/* Reset the counter and arm a failure: the n-th attempt from now (1-based)
   fails once; n <= 0 disarms. */
void QlgMem_failAt(long n);
/* 1 once the armed failure has been delivered. */
int QlgMem_failed(void);

ARDEL_END_C

#endif
