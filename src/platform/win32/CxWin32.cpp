// SPDX-License-Identifier: Apache-2.0
/*
 * Path anchoring, descriptors shared for deleting, and the socket
 * library's start, shared by the Windows platform files.
 */
#include "platform/win32/CxWin32.h"
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

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

namespace {

/* The errno value of a failed CreateFileA, as the runtime library maps it. */
int errnoOf(DWORD e) {
  switch (e) {
    case ERROR_FILE_NOT_FOUND: case ERROR_PATH_NOT_FOUND: case ERROR_INVALID_DRIVE: case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME: case ERROR_FILENAME_EXCED_RANGE: return ENOENT;
    case ERROR_ACCESS_DENIED: case ERROR_SHARING_VIOLATION: case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT: case ERROR_CURRENT_DIRECTORY: return EACCES;
    case ERROR_FILE_EXISTS: case ERROR_ALREADY_EXISTS: return EEXIST;
    case ERROR_TOO_MANY_OPEN_FILES: return EMFILE;
    case ERROR_DISK_FULL: case ERROR_HANDLE_DISK_FULL: return ENOSPC;
    case ERROR_NOT_ENOUGH_MEMORY: case ERROR_OUTOFMEMORY: return ENOMEM;
    default: return EINVAL;
  }
}

}  // namespace

int openDescriptor(const char* native, int flags, int mode, int* fd) {
  *fd = -1;
  DWORD access = (flags & _O_RDWR) ? GENERIC_READ | GENERIC_WRITE : (flags & _O_WRONLY) ? GENERIC_WRITE : GENERIC_READ;
  DWORD how = OPEN_EXISTING;
  if (flags & _O_CREAT)
    how = (flags & _O_EXCL) ? CREATE_NEW : (flags & _O_TRUNC) ? CREATE_ALWAYS : OPEN_ALWAYS;
  else if (flags & _O_TRUNC)
    how = TRUNCATE_EXISTING;
  DWORD attrs = (mode & _S_IWRITE) ? FILE_ATTRIBUTE_NORMAL : FILE_ATTRIBUTE_READONLY;
  HANDLE h = CreateFileA(native, access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, how,
                         attrs, nullptr);
  if (h == INVALID_HANDLE_VALUE) return errnoOf(GetLastError());
  int r = _open_osfhandle((intptr_t)h, flags & (_O_APPEND | _O_RDONLY | _O_WRONLY | _O_RDWR));
  if (r < 0) {
    CloseHandle(h);
    return EMFILE;
  }
  *fd = r;
  return 0;
}

bool startSockets() {
  static const bool started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(1, 1), &data) == 0;
  }();
  return started;
}

}  // namespace cxwin
