// SPDX-License-Identifier: Apache-2.0
/*
 * CxFileRead on POSIX: O_NONBLOCK on open so that a FIFO cannot block,
 * fstat on the open descriptor so that the type test and the read see the
 * same object, and pread so that readers need no seek.
 */
#include "platform/CxFileRead.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {

int CxFileRead_isRegular(const char* path) {
  struct stat st;
  return path && *path && stat(path, &st) == 0 && S_ISREG(st.st_mode);
}

CxStatus CxFileRead_open(int* fd, const char* path, int64_t* size) {
  if (!fd) return CxStatus_make('p', EINVAL);
  *fd = -1;
  if (!path || !*path) return CxStatus_make('p', EINVAL);
  int f;
  do {
    f = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  } while (f < 0 && errno == EINTR);
  if (f < 0) return CxStatus_make('p', errno);
  struct stat st;
  int e = 0;
  if (fstat(f, &st) != 0)
    e = errno;
  else if (!S_ISREG(st.st_mode))
    e = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
  if (e) {
    close(f);
    return CxStatus_make('p', e);
  }
  if (size) *size = static_cast<int64_t>(st.st_size);
  *fd = f;
  return CxStatus_ok();
}

CxStatus CxFileRead_at(int fd, int64_t offset, void* buf, size_t size) {
  if (fd < 0 || offset < 0 || (!buf && size > 0)) return CxStatus_make('p', EINVAL);
  char* p = static_cast<char*>(buf);
  while (size > 0) {
    ssize_t n = pread(fd, p, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return CxStatus_make('p', errno);
    if (n == 0) return CxStatus_make('p', EIO);
    p += n;
    offset += n;
    size -= static_cast<size_t>(n);
  }
  return CxStatus_ok();
}

int CxFileRead_moduleDirectory(char* buf, size_t size) {
  Dl_info info;
  if (!buf || size == 0) return 0;
  if (!dladdr(reinterpret_cast<void*>(&CxFileRead_moduleDirectory), &info) || !info.dli_fname)
    return 0;
  const char* slash = strrchr(info.dli_fname, '/');
  if (!slash) return 0;
  size_t n = static_cast<size_t>(slash - info.dli_fname);
  if (n + 1 > size) return 0;
  memcpy(buf, info.dli_fname, n);
  buf[n] = '\0';
  return 1;
}

}  // extern "C"
