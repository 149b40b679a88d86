// SPDX-License-Identifier: Apache-2.0
/*
 * CxDirectory: a walk over the entries of one directory.  Every entry is
 * returned, "." and ".." included, in the order the file system gives
 * them.  The end of the listing is not an error: it is a success with an
 * empty name, so a loop ends on name[0] == 0.
 */
#ifndef ARDEL_CXDIRECTORY_H
#define ARDEL_CXDIRECTORY_H

#include <stddef.h>
#include <ardel/export.h>
#include "platform/CxStatus.h"
#include "platform/CxFilePath.h"

ARDEL_BEGIN_C

typedef struct CxDirectory {
  char pattern[CX_PATH_MAX]; /* what the walk searches (here: the directory's path) */
  void* walk;                /* platform walk state; null before the first entry */
} CxDirectory;

/* Prepares a walk over path, which must name an existing directory
   ('p' 22 otherwise).  The walk state is reset without being released:
   close a walk in progress before opening the record again. */
CxStatus CxDirectory_open(CxDirectory* dir, const char* path);
/* Copies the next entry's name into name (cut to size - 1 bytes).  At the
   end of the listing: success with name empty.  On failure name is empty. */
CxStatus CxDirectory_next(CxDirectory* dir, char* name, size_t size);
/* Ends the walk; the record can be opened again.  'p' 22 for null. */
CxStatus CxDirectory_close(CxDirectory* dir);

ARDEL_END_C

#endif
