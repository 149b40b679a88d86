// SPDX-License-Identifier: Apache-2.0
/* CxThread on Windows: the system's thread id. */
#include "platform/CxThread.h"
#include <windows.h>

extern "C" uint32_t CxThread_getId(void) { return (uint32_t)GetCurrentThreadId(); }
