/* SPDX-License-Identifier: Apache-2.0 */
/*
 * ErrorManager: the process's record of the last error (code, source file,
 * line) and its stack dump, as trace statements report it.  This base
 * library records nothing of its own, so the record reads error 0, no
 * file, line 0 and an empty dump.  Every operation returns 0.
 */
#ifndef BASE_ERRORMANAGER_H
#define BASE_ERRORMANAGER_H

#include <ardel/base/export.h>

class BASE_API ErrorManager {
 public:
  /* With a null buffer, stores in *size the room the dump needs
     (terminator included); else copies at most *size - 1 characters of the
     dump and a terminator into buffer. */
  static long getStackDump(char* buffer, long* size);
  static long getError(long* error);
  static long getFile(const char** file);
  static long getLine(int* line);
};

#endif
