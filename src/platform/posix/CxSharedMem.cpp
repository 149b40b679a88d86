// SPDX-License-Identifier: Apache-2.0
/*
 * CxSharedMem on POSIX: shm_open, fstat for the size, one shared mapping
 * of the whole object.  The descriptor is closed right after mapping; the
 * mapping keeps the object alive.  An object whose size is not a plain
 * file size (a device, a FIFO planted under the name) is refused.
 */
#include "platform/CxSharedMem.h"

#include <ardel/QlgMem.h>

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

struct CxSharedMem {
  unsigned char* base;
  size_t size;
};

namespace {

/* "/" + name; 0 or an errno value. */
int objectName(const char* name, char* out, size_t size) {
  if (!name || !*name || strchr(name, '/') || strlen(name) > CX_SHARED_MEM_NAME_MAX)
    return EINVAL;
  snprintf(out, size, "/%s", name);
  return 0;
}

/* Maps fd (size bytes) into a new record and closes fd in every case. */
CxStatus mapAndClose(CxSharedMem** out, int fd, size_t size) {
  void* base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  int e = base == MAP_FAILED ? errno : 0;
  close(fd);
  if (e != 0) return CxStatus_make('p', e);
  CxSharedMem* m = static_cast<CxSharedMem*>(QlgMem_alloc(sizeof(CxSharedMem)));
  if (!m) {
    munmap(base, size);
    return CxStatus_make('p', ENOMEM);
  }
  m->base = static_cast<unsigned char*>(base);
  m->size = size;
  *out = m;
  return CxStatus_ok();
}

}  // namespace

extern "C" {

CxStatus CxSharedMem_open(CxSharedMem** out, const char* name) {
  if (!out) return CxStatus_make('p', EINVAL);
  *out = nullptr;
  char path[CX_SHARED_MEM_NAME_MAX + 2];
  int e = objectName(name, path, sizeof path);
  if (e != 0) return CxStatus_make('p', e);
  int fd = shm_open(path, O_RDWR, 0);
  if (fd < 0) return CxStatus_make('p', errno);
  struct stat st;
  e = fstat(fd, &st) != 0 ? errno : (S_ISREG(st.st_mode) && st.st_size > 0 ? 0 : EINVAL);
  if (e == 0 && (uint64_t)st.st_size > (uint64_t)SIZE_MAX) e = EFBIG;
  if (e != 0) {
    close(fd);
    return CxStatus_make('p', e);
  }
  return mapAndClose(out, fd, (size_t)st.st_size);
}

CxStatus CxSharedMem_create(CxSharedMem** out, const char* name, size_t size, uint32_t mode) {
  if (!out) return CxStatus_make('p', EINVAL);
  *out = nullptr;
  char path[CX_SHARED_MEM_NAME_MAX + 2];
  int e = objectName(name, path, sizeof path);
  if (e != 0 || size == 0) return CxStatus_make('p', EINVAL);
  int fd = shm_open(path, O_RDWR | O_CREAT | O_EXCL, (mode_t)(mode & 0777));
  if (fd < 0) return CxStatus_make('p', errno);
  /* The umask may have narrowed the mode; the caller asked for this one. */
  if (fchmod(fd, (mode_t)(mode & 0777)) != 0 || ftruncate(fd, (off_t)size) != 0) {
    e = errno;
    close(fd);
    shm_unlink(path);
    return CxStatus_make('p', e);
  }
  CxStatus s = mapAndClose(out, fd, size);
  if (!CxStatus_isOk(s)) shm_unlink(path);
  return s;
}

CxStatus CxSharedMem_close(CxSharedMem** m) {
  if (!m || !*m) return CxStatus_make('p', EINVAL);
  CxSharedMem* sm = *m;
  *m = nullptr;
  CxStatus s = munmap(sm->base, sm->size) == 0 ? CxStatus_ok() : CxStatus_make('p', errno);
  QlgMem_free(sm);
  return s;
}

CxStatus CxSharedMem_remove(const char* name) {
  char path[CX_SHARED_MEM_NAME_MAX + 2];
  int e = objectName(name, path, sizeof path);
  if (e != 0) return CxStatus_make('p', e);
  return shm_unlink(path) == 0 ? CxStatus_ok() : CxStatus_make('p', errno);
}

unsigned char* CxSharedMem_address(const CxSharedMem* m) { return m ? m->base : nullptr; }

size_t CxSharedMem_size(const CxSharedMem* m) { return m ? m->size : 0; }

uint32_t CxSharedMem_loadWord(const void* at) {
  return __atomic_load_n(static_cast<const uint32_t*>(at), __ATOMIC_ACQUIRE);
}

void CxSharedMem_storeWord(void* at, uint32_t value) {
  __atomic_store_n(static_cast<uint32_t*>(at), value, __ATOMIC_RELEASE);
}

}  // extern "C"
