// SPDX-License-Identifier: Apache-2.0
/*
 * CxThread: the identity of the calling thread, as the operating system
 * numbers it, so that trace lines can be matched with system tools.
 */
#ifndef ARDEL_CXTHREAD_H
#define ARDEL_CXTHREAD_H

#include <stdint.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

/* The kernel's id of the calling thread (equal to the process id on the
   main thread). */
uint32_t CxThread_getId(void);

ARDEL_END_C

#endif
