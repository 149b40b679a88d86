// SPDX-License-Identifier: Apache-2.0
/*
 * CxMutex on Windows: kernel mutexes, which are recursive for their owning
 * thread.  The unnamed one has no name; a named one lives in the global
 * namespace as "Global\<name>", so processes of every session share it.
 * When a holder dies the kernel hands the mutex on as abandoned: the next
 * waiter owns it and carries on, so a crashed writer blocks nobody.
 */
#include "platform/CxMutex.h"
#include "platform/win32/CxWin32.h"
#include <ardel/QlgMem.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>

struct CxMutex {
  HANDLE handle;
};

namespace {

CxStatus invalid() { return CxStatus_make('p', EINVAL); }

bool validName(const char* name) {
  return name && *name && !strpbrk(name, "/\\") && strlen(name) <= CX_MUTEX_NAME_MAX;
}

CxStatus wrap(CxMutex** out, HANDLE h) {
  CxMutex* m = (CxMutex*)QlgMem_alloc(sizeof(CxMutex));
  if (!m) {
    CloseHandle(h);
    return CxStatus_make('p', ENOMEM);
  }
  m->handle = h;
  *out = m;
  return CxStatus_ok();
}

CxStatus openNamed(CxMutex** out, const char* name, bool create) {
  if (!out) return invalid();
  *out = nullptr;
  if (!validName(name)) return invalid();
  char global[CX_MUTEX_NAME_MAX + 16];
  snprintf(global, sizeof global, "Global\\%s", name);
  HANDLE h = create ? CreateMutexA(nullptr, FALSE, global) : OpenMutexA(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, global);
  if (!h) {
    DWORD e = GetLastError();
    return e == ERROR_FILE_NOT_FOUND ? CxStatus_make('p', ENOENT) : CxStatus_make('w', (int32_t)e);
  }
  return wrap(out, h);
}

CxStatus waitFor(CxMutex* m, DWORD ms) {
  switch (WaitForSingleObject(m->handle, ms)) {
    case WAIT_OBJECT_0:
    case WAIT_ABANDONED: /* the holder died: the lock is ours now */
      return CxStatus_ok();
    case WAIT_TIMEOUT:
      return CxStatus_make('w', CX_MUTEX_TIMED_OUT);
    default:
      return cxwin::lastError();
  }
}

}  // namespace

extern "C" {

CxStatus CxMutex_create(CxMutex** out) {
  if (!out) return invalid();
  *out = nullptr;
  HANDLE h = CreateMutexA(nullptr, FALSE, nullptr);
  if (!h) return cxwin::lastError();
  return wrap(out, h);
}

CxStatus CxMutex_createNamed(CxMutex** out, const char* name) { return openNamed(out, name, true); }
CxStatus CxMutex_openNamed(CxMutex** out, const char* name) { return openNamed(out, name, false); }

/* A kernel object's name goes with its last handle; there is nothing to
   remove while handles are open, and nothing left once they are closed. */
CxStatus CxMutex_removeNamed(const char* name) {
  return validName(name) ? CxStatus_ok() : invalid();
}

CxStatus CxMutex_createKeyed(CxMutex** out, int32_t key) {
  char name[32];
  snprintf(name, sizeof name, "CX_SEM_KEY_%x", (unsigned)key);
  return CxMutex_createNamed(out, name);
}

CxStatus CxMutex_close(CxMutex** m) {
  if (!m || !*m) return invalid();
  CxMutex* mx = *m;
  *m = nullptr;
  CxStatus s = CloseHandle(mx->handle) ? CxStatus_ok() : cxwin::lastError();
  QlgMem_free(mx);
  return s;
}

CxStatus CxMutex_lock(CxMutex* m) {
  if (!m) return invalid();
  return waitFor(m, INFINITE);
}

CxStatus CxMutex_lockTimed(CxMutex* m, int32_t ms) {
  if (!m) return invalid();
  return waitFor(m, ms < 0 ? 0 : (DWORD)ms);
}

CxStatus CxMutex_tryLock(CxMutex* m) {
  if (!m) return invalid();
  return waitFor(m, 0);
}

CxStatus CxMutex_unlock(CxMutex* m) {
  if (!m) return invalid();
  if (!ReleaseMutex(m->handle)) {
    return GetLastError() == ERROR_NOT_OWNER ? CxStatus_make('p', EPERM) : cxwin::lastError();
  }
  return CxStatus_ok();
}

/* A kernel mutex comes with no memory of its own. */
void* CxMutex_shared(CxMutex*) { return nullptr; }

}  // extern "C"
