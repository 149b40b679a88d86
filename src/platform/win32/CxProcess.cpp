// SPDX-License-Identifier: Apache-2.0
/*
 * CxProcess on Windows: CreateProcessA with one command line made of the
 * program and each argument after a single space, without quoting, and
 * the caller's start-up information, environment and directory.  The
 * handle record keeps the process handle; an ended child's exit code is
 * kept in it so it can be asked for again.
 */
#include "platform/CxProcess.h"
#include "platform/CxFilePath.h"
#include "platform/win32/CxWin32.h"
#include <ardel/QlgMem.h>
#include <errno.h>
#include <process.h>
#include <stdio.h>
#include <string.h>

namespace {

CxStatus invalid() { return CxStatus_make('p', EINVAL); }
const DWORD kStillActive = 259;

HANDLE handleOf(const CxProcess* p) { return (HANDLE)(intptr_t)p->id; }

}  // namespace

extern "C" {

CxStatus CxProcess_start(CxProcess* handle, const char* program, char* const args[]) {
  if (!handle) return invalid();
  memset(handle, 0, sizeof *handle);
  if (!program || !*program) return invalid();
  size_t len = strlen(program) + 1;
  for (size_t i = 0; args && args[i]; i++) len += strlen(args[i]) + 1;
  char* line = (char*)QlgMem_alloc(len);
  if (!line) return CxStatus_make('p', ENOMEM);
  char* at = line;
  size_t n = strlen(program);
  memcpy(at, program, n);
  at += n;
  for (size_t i = 0; args && args[i]; i++) {
    *at++ = ' ';
    n = strlen(args[i]);
    memcpy(at, args[i], n);
    at += n;
  }
  *at = '\0';
  STARTUPINFOA si;
  memset(&si, 0, sizeof si);
  si.cb = sizeof si;
  GetStartupInfoA(&si);
  PROCESS_INFORMATION pi;
  memset(&pi, 0, sizeof pi);
  BOOL ok = CreateProcessA(nullptr, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi);
  DWORD e = GetLastError();
  QlgMem_free(line);
  if (!ok) return CxStatus_make('w', (int32_t)e);
  CloseHandle(pi.hThread);
  handle->id = (int64_t)(intptr_t)pi.hProcess;
  return CxStatus_ok();
}

CxStatus CxProcess_waitTimed(CxProcess* handle, CxExitInfo* out, int32_t timeoutMs) {
  if (!handle || handle->id == 0 || !out) return invalid();
  memset(out, 0, sizeof *out);
  if (!handle->ended) {
    DWORD r = WaitForSingleObject(handleOf(handle), timeoutMs < 0 ? INFINITE : (DWORD)timeoutMs);
    if (r == WAIT_TIMEOUT) return CxStatus_make('w', 258);
    if (r != WAIT_OBJECT_0) return cxwin::lastError();
    DWORD code = 0;
    if (!GetExitCodeProcess(handleOf(handle), &code)) return cxwin::lastError();
    handle->ended = 1;
    handle->exitCode = (int32_t)code;
  }
  out->exited = 1;
  out->exitCode = handle->exitCode;
  return CxStatus_ok();
}

CxStatus CxProcess_wait(CxProcess* handle, CxExitInfo* out, int waitFlag) {
  if (!handle || handle->id == 0 || !out) return invalid();
  if (waitFlag) return CxProcess_waitTimed(handle, out, -1);
  memset(out, 0, sizeof *out);
  if (!handle->ended) {
    DWORD code = 0;
    if (!GetExitCodeProcess(handleOf(handle), &code)) return cxwin::lastError();
    if (code == kStillActive && WaitForSingleObject(handleOf(handle), 0) == WAIT_TIMEOUT) return CxStatus_ok();
    handle->ended = 1;
    handle->exitCode = (int32_t)code;
  }
  out->exited = 1;
  out->exitCode = handle->exitCode;
  return CxStatus_ok();
}

CxStatus CxProcess_kill(CxProcess* handle) {
  if (!handle || handle->id == 0) return invalid();
  if (handle->ended) return CxStatus_ok();
  /* 137 mirrors the code a killed child has elsewhere (128 + 9). */
  if (!TerminateProcess(handleOf(handle), 137) && WaitForSingleObject(handleOf(handle), 0) != WAIT_OBJECT_0)
    return cxwin::lastError();
  CxExitInfo info;
  return CxProcess_waitTimed(handle, &info, -1);
}

CxStatus CxProcess_close(CxProcess* handle) {
  if (!handle) return invalid();
  if (handle->id != 0) CloseHandle(handleOf(handle));
  memset(handle, 0, sizeof *handle);
  return CxStatus_ok();
}

int32_t CxProcess_getpid(void) { return (int32_t)_getpid(); }

CxStatus CxProcess_getcwd(char* buf) {
  if (!buf) return invalid();
  DWORD n = GetCurrentDirectoryA(CX_PATH_MAX, buf);
  if (n == 0 || n >= CX_PATH_MAX) {
    CxStatus s = n == 0 ? cxwin::lastError() : CxStatus_make('p', ERANGE);
    buf[0] = '\0';
    return s;
  }
  return CxStatus_ok();
}

void CxProcess_getProgramName(char* buf, size_t size) {
  if (!buf || size == 0) return;
  buf[0] = 0;
  char path[MAX_PATH + 1];
  DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
  if (n == 0 || n >= sizeof path) return;
  path[n] = 0;
  const char* base = strrchr(path, '\\');
  base = base ? base + 1 : path;
  snprintf(buf, size, "%s", base);
}

/* Windows starts processes afresh; nothing is ever forked. */
CxStatus CxProcess_atFork(void (*)(void), void (*)(void), void (*)(void)) { return CxStatus_ok(); }

}  // extern "C"
