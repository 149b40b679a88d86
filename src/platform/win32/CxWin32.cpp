// SPDX-License-Identifier: Apache-2.0
/*
 * Path anchoring and the socket library's start, shared by the Windows
 * platform files.
 */
#include "platform/win32/CxWin32.h"
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace cxwin {

bool nativePath(const char* path, char* out, size_t size) {
  if (!path || !out || size == 0) return false;
  size_t n = strlen(path);
  if (n >= size) return false;
  for (size_t i = 0; i <= n; i++) out[i] = path[i] == '/' ? '\\' : path[i];
  return true;
}

bool anchorPath(const char* path, char* out, size_t size) {
  if (!path || !*path || !out || size == 0) return false;
  if (path[0] != '/') return nativePath(path, out, size);
  const char* drive = getenv("SystemDrive");
  if (!drive || !*drive) return false;
  char joined[MAX_PATH + 1];
  int n = snprintf(joined, sizeof joined, "%s\\%s", drive, path);
  if (n < 0) return false;
  /* Cut to the Windows path limit like the rest of the path handling. */
  joined[MAX_PATH - 1 < (size_t)n ? MAX_PATH - 1 : (size_t)n] = '\0';
  return nativePath(joined, out, size);
}

bool startSockets() {
  static const bool started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(1, 1), &data) == 0;
  }();
  return started;
}

}  // namespace cxwin
