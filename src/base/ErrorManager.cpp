// SPDX-License-Identifier: Apache-2.0
/*
 * ErrorManager: the empty error record of this base library.  The getters
 * keep the protocol of the suite's error manager (size query, then copy)
 * so trace statements work unchanged against either.
 */
#include <ardel/base/ErrorManager.h>

#include <string.h>

namespace {
const char kEmptyDump[] = "";
}

long ErrorManager::getStackDump(char* buffer, long* size) {
  if (!size) return 0;
  long needed = static_cast<long>(sizeof kEmptyDump);
  if (!buffer) {
    *size = needed;
    return 0;
  }
  if (*size <= 0) return 0;
  size_t room = static_cast<size_t>(*size) - 1;
  size_t n = strlen(kEmptyDump) < room ? strlen(kEmptyDump) : room;
  memcpy(buffer, kEmptyDump, n);
  buffer[n] = '\0';
  return 0;
}

long ErrorManager::getError(long* error) {
  if (error) *error = 0;
  return 0;
}

long ErrorManager::getFile(const char** file) {
  if (file) *file = nullptr;
  return 0;
}

long ErrorManager::getLine(int* line) {
  if (line) *line = 0;
  return 0;
}
