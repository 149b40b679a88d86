// SPDX-License-Identifier: Apache-2.0
/*
 * CxFileRead on Windows: files from elsewhere are opened read-only in
 * binary mode after a check that they are regular files, and read at
 * absolute offsets with positioned ReadFile calls.
 */
#include "platform/CxFileRead.h"
#include "platform/CxFilePath.h"
#include "platform/win32/CxWin32.h"
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <string.h>
#include <sys/stat.h>

namespace {

int kindOf(const char* path, int64_t* size) {
  char native[CX_PATH_MAX + 8];
  if (!path || !*path || !cxwin::anchorPath(path, native, sizeof native)) return EINVAL;
  struct _stat64 st;
  if (_stat64(native, &st) != 0) return errno;
  if (st.st_mode & _S_IFDIR) return EISDIR;
  if (!(st.st_mode & _S_IFREG)) return EINVAL;
  if (size) *size = (int64_t)st.st_size;
  return 0;
}

}  // namespace

extern "C" {

int CxFileRead_isRegular(const char* path) { return kindOf(path, nullptr) == 0 ? 1 : 0; }

CxStatus CxFileRead_open(int* fd, const char* path, int64_t* size) {
  if (!fd || !size) return CxStatus_make('p', EINVAL);
  *fd = -1;
  int e = kindOf(path, size);
  if (e != 0) return CxStatus_make('p', e);
  char native[CX_PATH_MAX + 8];
  cxwin::anchorPath(path, native, sizeof native);
  int r = -1;
  e = cxwin::openDescriptor(native, _O_RDONLY, _S_IREAD, &r);
  if (e != 0) return CxStatus_make('p', e);
  struct _stat64 st;
  if (_fstat64(r, &st) != 0 || !(st.st_mode & _S_IFREG)) {
    _close(r);
    return CxStatus_make('p', EINVAL);
  }
  *size = (int64_t)st.st_size;
  *fd = r;
  return CxStatus_ok();
}

CxStatus CxFileRead_at(int fd, int64_t offset, void* buf, size_t size) {
  if (!buf || offset < 0) return CxStatus_make('p', EINVAL);
  intptr_t h = fd >= 0 ? _get_osfhandle(fd) : -1;
  if (h == -1) return CxStatus_make('p', EBADF);
  char* p = (char*)buf;
  while (size > 0) {
    OVERLAPPED at;
    memset(&at, 0, sizeof at);
    at.Offset = (DWORD)((uint64_t)offset & 0xffffffffu);
    at.OffsetHigh = (DWORD)((uint64_t)offset >> 32);
    DWORD want = size > 0x40000000u ? 0x40000000u : (DWORD)size;
    DWORD got = 0;
    if (!ReadFile((HANDLE)h, p, want, &got, &at)) {
      return GetLastError() == ERROR_HANDLE_EOF ? CxStatus_make('p', EIO) : cxwin::lastError();
    }
    if (got == 0) return CxStatus_make('p', EIO);
    p += got;
    offset += got;
    size -= got;
  }
  return CxStatus_ok();
}

int CxFileRead_moduleDirectory(char* buf, size_t size) {
  if (!buf || size == 0) return 0;
  buf[0] = '\0';
  HMODULE self = nullptr;
  if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          (LPCSTR)(void*)&CxFileRead_moduleDirectory, &self))
    return 0;
  char path[MAX_PATH + 1];
  DWORD n = GetModuleFileNameA(self, path, sizeof path);
  if (n == 0 || n >= sizeof path) return 0;
  path[n] = '\0';
  char* sep = strrchr(path, '\\');
  if (!sep) return 0;
  *sep = '\0';
  size_t len = strlen(path);
  if (len >= size) return 0;
  for (size_t i = 0; i <= len; i++) buf[i] = path[i] == '\\' ? '/' : path[i];
  return 1;
}

}  // extern "C"
