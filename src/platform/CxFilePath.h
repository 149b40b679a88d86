// SPDX-License-Identifier: Apache-2.0
/*
 * CxFilePath: a bounded path record used by the existence tests, directory
 * creation and directory listing.  The text always uses "/" as separator
 * (a "\" given by the caller is turned into "/"), so the same code walks
 * paths written in either style.  The record keeps the length and the
 * position of the last separator so that the parent of a path can be cut
 * off without scanning it again.
 */
#ifndef ARDEL_CXFILEPATH_H
#define ARDEL_CXFILEPATH_H

#include <stdint.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

/* Room for a path, terminator included. */
#define CX_PATH_MAX 260

typedef struct CxFilePath {
  char text[CX_PATH_MAX];
  int32_t length;  /* bytes of text, terminator not counted */
  int32_t lastSep; /* index of the last "/" in text, -1 when there is none */
} CxFilePath;

/* Copies text into path, turning "\" into "/".  Returns 1, or 0 when path
   or text is null or the text does not fit in CX_PATH_MAX bytes; the
   record is then left empty (length 0), never holding a cut-off path. */
int CxFilePath_set(CxFilePath* path, const char* text);

ARDEL_END_C

#endif
