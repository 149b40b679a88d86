// SPDX-License-Identifier: Apache-2.0
/*
 * CxSystem on POSIX: gethostname plus a canonical-name lookup, the
 * realtime clock, and nanosleep.
 */
#include "platform/CxSystem.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <netdb.h>
#include <string.h>
#include <time.h>
#include <unistd.h>
#include "util/CxHot.h"

namespace {
const int32_t kNameNotFound = 40;
}

extern "C" {

CxStatus CxSystem_qualifyHostName(char* buf, size_t size) {
  if (!buf || size == 0) return CxStatus_make('p', EINVAL);
  if (!buf[0]) return CxStatus_make('p', kNameNotFound);
  if (strchr(buf, '.')) return CxStatus_ok();
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_CANONNAME;
  struct addrinfo* res = nullptr;
  if (getaddrinfo(buf, nullptr, &hints, &res) != 0 || !res) return CxStatus_make('p', kNameNotFound);
  const char* canon = res->ai_canonname;
  if (canon && strchr(canon, '.')) {
    size_t n = strlen(canon);
    if (n >= size) n = size - 1;
    memcpy(buf, canon, n);
    buf[n] = '\0';
  }
  freeaddrinfo(res);
  return CxStatus_ok();
}

CxStatus CxSystem_getHostName(char* buf, size_t size) {
  if (!buf || size == 0) return CxStatus_make('p', EINVAL);
  buf[0] = '\0';
  if (gethostname(buf, size) != 0) {
    buf[0] = '\0';
    return CxStatus_make('p', kNameNotFound);
  }
  /* gethostname may fill the buffer without a terminator when it is cut. */
  buf[size - 1] = '\0';
  return CxSystem_qualifyHostName(buf, size);
}

CX_HOT int64_t CxSystem_currentTimeMillis(void) {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return (int64_t)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

CX_HOT int64_t CxSystem_steadyMillis(void) {
  struct timespec ts;
#ifdef CLOCK_MONOTONIC_COARSE
  clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
#else
  clock_gettime(CLOCK_MONOTONIC, &ts);
#endif
  return (int64_t)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

void CxSystem_sleepMillis(int32_t ms) {
  if (ms <= 0) return;
  struct timespec left;
  left.tv_sec = ms / 1000;
  left.tv_nsec = (long)(ms % 1000) * 1000000L;
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

int CxSystem_suiteIniPath(char* out, size_t size) {
  if (!out || size == 0) return 0;
  const char* root = getenv("systemroot");
  if (!root) root = getenv("SystemRoot");
  int n = root ? snprintf(out, size, "%s/tyx/tyx.ini", root) : snprintf(out, size, "/etc/tyx/tyx.ini");
  if (n < 0 || (size_t)n >= size) {
    out[0] = '\0';
    return 0;
  }
  return 1;
}

int CxSystem_userHome(char* out, size_t size) {
  if (!out || size == 0) return 0;
  out[0] = '\0';
  const char* home = getenv("HOME");
  if (!home) return 0;
  int n = snprintf(out, size, "%s", home);
  if (n < 0 || (size_t)n >= size) {
    out[0] = '\0';
    return 0;
  }
  return 1;
}

}  // extern "C"
