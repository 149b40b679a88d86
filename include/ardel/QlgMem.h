/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The toolkit's allocator.  Every string or record that a toolkit function
 * hands to its caller was allocated here and must be released with
 * QlgMem_free.  A failed allocation returns null; nothing aborts.
 */
#ifndef ARDEL_QLGMEM_H
#define ARDEL_QLGMEM_H

#include <stddef.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

ARDEL_API void* QlgMem_alloc(size_t size);
ARDEL_API void* QlgMem_realloc(void* p, size_t size);
ARDEL_API void  QlgMem_free(void* p);
/* Copy of a NUL-terminated text; null for a null text or when out of memory. */
ARDEL_API char* QlgMem_strdup(const char* s);

ARDEL_END_C

#endif
