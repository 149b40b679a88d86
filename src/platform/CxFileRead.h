// SPDX-License-Identifier: Apache-2.0
/*
 * CxFileRead: reading files that come from elsewhere (message catalogs found
 * along a search path).  Such a file is opened without blocking (a FIFO
 * planted on the path must not hang the caller), must be a regular file,
 * and is read at absolute offsets so that a lazy reader never depends on a
 * shared file position.
 */
#ifndef ARDEL_CXFILEREAD_H
#define ARDEL_CXFILEREAD_H

#include <stddef.h>
#include <stdint.h>
#include <ardel/export.h>
#include "platform/CxStatus.h"

ARDEL_BEGIN_C

/* 1 when path names an existing regular file (links followed), else 0. */
int CxFileRead_isRegular(const char* path);
/* Opens a regular file read-only; *size receives its size.  'p' 21 for a
   directory and 'p' 22 for any other non-regular object; *fd is -1 then. */
CxStatus CxFileRead_open(int* fd, const char* path, int64_t* size);
/* Reads exactly size bytes at offset; 'p' 5 (EIO) when fewer are there. */
CxStatus CxFileRead_at(int fd, int64_t offset, void* buf, size_t size);
/* Directory of the binary (shared library or program) that holds this code,
   without a trailing separator; 0 when it cannot be told. */
int CxFileRead_moduleDirectory(char* buf, size_t size);

ARDEL_END_C

#endif
