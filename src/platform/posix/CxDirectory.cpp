// SPDX-License-Identifier: Apache-2.0
/*
 * CxDirectory on POSIX: opendir/readdir.  The directory stream is opened
 * lazily by the first CxDirectory_next, so an opened record that is never
 * walked holds no system resource.
 */
#include "platform/CxDirectory.h"
#include "platform/CxFile.h"

#include <dirent.h>
#include <errno.h>
#include <string.h>

extern "C" {

CxStatus CxDirectory_open(CxDirectory* dir, const char* path) {
  if (!dir) return CxStatus_make('p', EINVAL);
  dir->pattern[0] = '\0';
  dir->walk = nullptr;
  CxFilePath p;
  if (!CxFilePath_set(&p, path) || CxFile_isDirectory(&p) != 0) return CxStatus_make('p', EINVAL);
  memcpy(dir->pattern, p.text, (size_t)p.length + 1);
  return CxStatus_ok();
}

CxStatus CxDirectory_next(CxDirectory* dir, char* name, size_t size) {
  if (!name || size == 0) return CxStatus_make('p', EINVAL);
  name[0] = '\0';
  if (!dir || !dir->pattern[0]) return CxStatus_make('p', EINVAL);
  if (!dir->walk) {
    DIR* d = opendir(dir->pattern);
    if (!d) return CxStatus_make('p', errno);
    dir->walk = d;
  }
  errno = 0;
  struct dirent* e = readdir((DIR*)dir->walk);
  if (!e) {
    if (errno != 0) return CxStatus_make('p', errno);
    return CxStatus_ok(); /* end of the listing: success, empty name */
  }
  size_t n = strlen(e->d_name);
  if (n >= size) n = size - 1;
  memcpy(name, e->d_name, n);
  name[n] = '\0';
  return CxStatus_ok();
}

CxStatus CxDirectory_close(CxDirectory* dir) {
  if (!dir) return CxStatus_make('p', EINVAL);
  /* A failure to close the stream is of no use to the caller. */
  if (dir->walk) closedir((DIR*)dir->walk);
  dir->walk = nullptr;
  return CxStatus_ok();
}

}  // extern "C"
