// SPDX-License-Identifier: Apache-2.0
/*
 * CxSystem on Windows: the host name through Windows Sockets, the time
 * from the system clock in 100 ns steps since 1601, and Sleep.
 */
#include "platform/CxSystem.h"
#include "platform/win32/CxWin32.h"
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {
const int32_t kNameUnavailable = 40;
/* 1601-01-01 to 1970-01-01 in 100 ns steps. */
const uint64_t kEpochShift = 116444736000000000ULL;
}  // namespace

extern "C" {

CxStatus CxSystem_qualifyHostName(char* buf, size_t size) {
  if (!buf || size == 0) return CxStatus_make('p', EINVAL);
  if (strchr(buf, '.')) return CxStatus_ok();
  if (!cxwin::startSockets()) return CxStatus_make('p', kNameUnavailable);
  struct hostent* h = gethostbyname(buf);
  if (!h || !h->h_name) return CxStatus_make('p', kNameUnavailable);
  if (strchr(h->h_name, '.')) {
    size_t n = strlen(h->h_name);
    if (n >= size) n = size - 1;
    memcpy(buf, h->h_name, n);
    buf[n] = '\0';
  }
  return CxStatus_ok();
}

CxStatus CxSystem_getHostName(char* buf, size_t size) {
  if (!buf || size == 0) return CxStatus_make('p', EINVAL);
  buf[0] = '\0';
  if (!cxwin::startSockets()) return CxStatus_make('p', kNameUnavailable);
  if (gethostname(buf, (int)size) != 0) {
    buf[0] = '\0';
    return CxStatus_make('p', kNameUnavailable);
  }
  buf[size - 1] = '\0';
  return CxSystem_qualifyHostName(buf, size);
}

int64_t CxSystem_currentTimeMillis(void) {
  FILETIME ft;
  GetSystemTimeAsFileTime(&ft);
  uint64_t t = ((uint64_t)ft.dwHighDateTime << 32) | ft.dwLowDateTime;
  return (int64_t)((t - kEpochShift) / 10000);
}

int64_t CxSystem_steadyMillis(void) { return (int64_t)GetTickCount64(); }

void CxSystem_sleepMillis(int32_t ms) {
  if (ms > 0) Sleep((DWORD)ms);
}

/* The runtime's getenv ignores case, as Windows names do. */
int CxSystem_suiteIniPath(char* out, size_t size) {
  if (!out || size == 0) return 0;
  out[0] = '\0';
  const char* root = getenv("systemroot");
  if (!root) return 0;
  int n = snprintf(out, size, "%s\\tyx\\tyx.ini", root);
  if (n < 0 || (size_t)n >= size) {
    out[0] = '\0';
    return 0;
  }
  return 1;
}

int CxSystem_userHome(char* out, size_t size) {
  if (!out || size == 0) return 0;
  out[0] = '\0';
  const char* drive = getenv("HOMEDRIVE");
  const char* path = getenv("HOMEPATH");
  if (!drive || !path) return 0;
  int n = snprintf(out, size, "%s%s", drive, path);
  if (n < 0 || (size_t)n >= size) {
    out[0] = '\0';
    return 0;
  }
  return 1;
}

}  // extern "C"
