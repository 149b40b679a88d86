// SPDX-License-Identifier: Apache-2.0
/*
 * Helpers shared by the Windows platform files: path anchoring and
 * separator conversion, opening descriptors, Windows error codes, and the
 * one start of Windows Sockets.
 */
#ifndef ARDEL_CXWIN32_H
#define ARDEL_CXWIN32_H

#include <winsock2.h>
#include <windows.h>
#include <stddef.h>
#include "platform/CxStatus.h"

namespace cxwin {

/* Native form of a path: "/" turned into "\", and a path that begins with
   "/" anchored at the system drive ("%s\%s", so /logs/a gives C:\\logs\a).
   false (errno 22) when SystemDrive is not set or the result does not fit. */
bool anchorPath(const char* path, char* out, size_t size);
/* The same conversion without anchoring. */
bool nativePath(const char* path, char* out, size_t size);
/* Opens a native path as a runtime-library descriptor (never inherited,
   binary) with the _O_* flags, shared for reading, writing and deleting:
   other processes roll the same log files over, and other programs may
   remove or rename them, while this one has them open.  A created file is
   read-only when mode lacks the owner-write bit.  0 or an errno value. */
int openDescriptor(const char* native, int flags, int mode, int* fd);
/* 'w' with GetLastError(). */
inline CxStatus lastError() { return CxStatus_make('w', (int32_t)GetLastError()); }
/* Starts Windows Sockets (version 1.1 and up) once per process. */
bool startSockets();

}  // namespace cxwin

#endif
