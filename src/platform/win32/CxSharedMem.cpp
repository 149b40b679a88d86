// SPDX-License-Identifier: Apache-2.0
/*
 * CxSharedMem on Windows: a file mapping backed by the paging file, named
 * "Global\<name>" so that services and users share it.  The name lives as
 * long as some process keeps a handle; the creator's size is written by the
 * system into the section, and an opener learns it from the view.
 */
#include "platform/CxSharedMem.h"
#include "platform/win32/CxWin32.h"
#include <ardel/QlgMem.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>

struct CxSharedMem {
  HANDLE mapping;
  unsigned char* base;
  size_t size;
};

namespace {

bool globalName(const char* name, char* out, size_t size) {
  if (!name || !*name || strpbrk(name, "/\\") || strlen(name) > CX_SHARED_MEM_NAME_MAX) return false;
  snprintf(out, size, "Global\\%s", name);
  return true;
}

CxStatus finish(CxSharedMem** out, HANDLE mapping, size_t size) {
  void* base = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0);
  if (!base) {
    CxStatus s = cxwin::lastError();
    CloseHandle(mapping);
    return s;
  }
  if (size == 0) {
    MEMORY_BASIC_INFORMATION info;
    if (VirtualQuery(base, &info, sizeof info) == 0 || info.RegionSize == 0) {
      UnmapViewOfFile(base);
      CloseHandle(mapping);
      return CxStatus_make('p', EINVAL);
    }
    size = info.RegionSize;
  }
  CxSharedMem* m = (CxSharedMem*)QlgMem_alloc(sizeof(CxSharedMem));
  if (!m) {
    UnmapViewOfFile(base);
    CloseHandle(mapping);
    return CxStatus_make('p', ENOMEM);
  }
  m->mapping = mapping;
  m->base = (unsigned char*)base;
  m->size = size;
  *out = m;
  return CxStatus_ok();
}

}  // namespace

extern "C" {

CxStatus CxSharedMem_open(CxSharedMem** out, const char* name) {
  if (!out) return CxStatus_make('p', EINVAL);
  *out = nullptr;
  char global[CX_SHARED_MEM_NAME_MAX + 16];
  if (!globalName(name, global, sizeof global)) return CxStatus_make('p', EINVAL);
  HANDLE h = OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, global);
  if (!h) {
    DWORD e = GetLastError();
    return e == ERROR_FILE_NOT_FOUND ? CxStatus_make('p', ENOENT) : CxStatus_make('w', (int32_t)e);
  }
  return finish(out, h, 0);
}

CxStatus CxSharedMem_create(CxSharedMem** out, const char* name, size_t size, uint32_t mode) {
  (void)mode; /* the default security of the caller applies */
  if (!out) return CxStatus_make('p', EINVAL);
  *out = nullptr;
  char global[CX_SHARED_MEM_NAME_MAX + 16];
  if (!globalName(name, global, sizeof global) || size == 0) return CxStatus_make('p', EINVAL);
  HANDLE h = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, (DWORD)((uint64_t)size >> 32),
                                (DWORD)((uint64_t)size & 0xffffffffu), global);
  if (!h) return cxwin::lastError();
  if (GetLastError() == ERROR_ALREADY_EXISTS) {
    CloseHandle(h);
    return CxStatus_make('p', EEXIST);
  }
  return finish(out, h, size);
}

CxStatus CxSharedMem_close(CxSharedMem** m) {
  if (!m || !*m) return CxStatus_make('p', EINVAL);
  CxSharedMem* s = *m;
  *m = nullptr;
  UnmapViewOfFile(s->base);
  CloseHandle(s->mapping);
  QlgMem_free(s);
  return CxStatus_ok();
}

/* The name goes with the last handle; nothing to remove here. */
CxStatus CxSharedMem_remove(const char* name) {
  char global[CX_SHARED_MEM_NAME_MAX + 16];
  return globalName(name, global, sizeof global) ? CxStatus_ok() : CxStatus_make('p', EINVAL);
}

unsigned char* CxSharedMem_address(const CxSharedMem* m) { return m ? m->base : nullptr; }
size_t CxSharedMem_size(const CxSharedMem* m) { return m ? m->size : 0; }

uint32_t CxSharedMem_loadWord(const void* at) { return __atomic_load_n((const uint32_t*)at, __ATOMIC_ACQUIRE); }
void CxSharedMem_storeWord(void* at, uint32_t value) { __atomic_store_n((uint32_t*)at, value, __ATOMIC_RELEASE); }

}  // extern "C"
