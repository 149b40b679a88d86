// SPDX-License-Identifier: Apache-2.0
/*
 * CxDirectory on Windows: FindFirstFileA / FindNextFileA over the pattern
 * "<directory>\*".  The search is started by the first CxDirectory_next,
 * so an opened record that is never walked holds no handle.
 */
#include "platform/CxDirectory.h"
#include "platform/CxFile.h"
#include "platform/win32/CxWin32.h"
#include <errno.h>
#include <string.h>

namespace {

void copyName(const char* from, char* name, size_t size) {
  size_t n = strlen(from);
  if (n >= size) n = size - 1;
  memcpy(name, from, n);
  name[n] = '\0';
}

}  // namespace

extern "C" {

CxStatus CxDirectory_open(CxDirectory* dir, const char* path) {
  if (!dir) return CxStatus_make('p', EINVAL);
  dir->pattern[0] = '\0';
  dir->walk = nullptr;
  CxFilePath p;
  if (!CxFilePath_set(&p, path) || CxFile_isDirectory(&p) != 0) return CxStatus_make('p', EINVAL);
  char native[CX_PATH_MAX + 8];
  if (!cxwin::anchorPath(p.text, native, sizeof native)) return CxStatus_make('p', EINVAL);
  size_t n = strlen(native);
  const char* tail = (n > 0 && native[n - 1] == '\\') ? "*" : "\\*";
  if (n + strlen(tail) >= sizeof dir->pattern) return CxStatus_make('p', EINVAL);
  memcpy(dir->pattern, native, n);
  memcpy(dir->pattern + n, tail, strlen(tail) + 1);
  return CxStatus_ok();
}

CxStatus CxDirectory_next(CxDirectory* dir, char* name, size_t size) {
  if (!name || size == 0) return CxStatus_make('p', EINVAL);
  name[0] = '\0';
  if (!dir || !dir->pattern[0]) return CxStatus_make('p', EINVAL);
  WIN32_FIND_DATAA data;
  if (!dir->walk) {
    HANDLE h = FindFirstFileA(dir->pattern, &data);
    if (h == INVALID_HANDLE_VALUE) {
      DWORD e = GetLastError();
      return e == ERROR_NO_MORE_FILES || e == ERROR_FILE_NOT_FOUND ? CxStatus_ok() : CxStatus_make('w', (int32_t)e);
    }
    dir->walk = h;
  } else if (dir->walk == INVALID_HANDLE_VALUE) {
    return CxStatus_ok();
  } else if (!FindNextFileA((HANDLE)dir->walk, &data)) {
    DWORD e = GetLastError();
    /* The end of the listing (error 18) is success with an empty name. */
    return e == ERROR_NO_MORE_FILES ? CxStatus_ok() : CxStatus_make('w', (int32_t)e);
  }
  copyName(data.cFileName, name, size);
  return CxStatus_ok();
}

CxStatus CxDirectory_close(CxDirectory* dir) {
  if (!dir) return CxStatus_make('p', EINVAL);
  if (dir->walk && dir->walk != INVALID_HANDLE_VALUE) FindClose((HANDLE)dir->walk);
  dir->walk = nullptr;
  return CxStatus_ok();
}

}  // extern "C"
