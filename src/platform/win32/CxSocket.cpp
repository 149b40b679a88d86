// SPDX-License-Identifier: Apache-2.0
/*
 * CxSocket on Windows: UDP and TCP through Windows Sockets.  Windows has
 * no local datagram socket of a system log, so that kind is refused and
 * the caller reports the collector as unreachable.  The connect is bounded
 * by a non-blocking start and select; sends by SO_SNDTIMEO.
 */
#include "platform/CxSocket.h"
#include "platform/win32/CxWin32.h"
#include <ws2tcpip.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>

namespace {

CxStatus wsaStatus() {
  int e = WSAGetLastError();
  if (e == WSAETIMEDOUT || e == WSAEWOULDBLOCK) return CxStatus_make('p', EAGAIN);
  if (e == WSAECONNREFUSED) return CxStatus_make('p', ECONNREFUSED);
  return CxStatus_make('w', (int32_t)e);
}

CxStatus connectBounded(SOCKET s, const sockaddr* addr, int len, int timeoutMs) {
  u_long nb = 1;
  ioctlsocket(s, FIONBIO, &nb);
  if (connect(s, addr, len) != 0 && WSAGetLastError() != WSAEWOULDBLOCK) return wsaStatus();
  fd_set w, x;
  FD_ZERO(&w);
  FD_ZERO(&x);
  FD_SET(s, &w);
  FD_SET(s, &x);
  timeval tv;
  tv.tv_sec = timeoutMs / 1000;
  tv.tv_usec = (timeoutMs % 1000) * 1000;
  int r = select(0, nullptr, &w, &x, &tv);
  if (r == 0) return CxStatus_make('p', ETIMEDOUT);
  if (r < 0) return wsaStatus();
  int err = 0;
  int errLen = sizeof err;
  getsockopt(s, SOL_SOCKET, SO_ERROR, (char*)&err, &errLen);
  if (FD_ISSET(s, &x) || err != 0) return CxStatus_make('w', err ? err : WSAECONNREFUSED);
  nb = 0;
  ioctlsocket(s, FIONBIO, &nb);
  return CxStatus_ok();
}

}  // namespace

extern "C" {

size_t CxSocket_maxPathLength(void) { return 0; }

CxStatus CxSocket_open(int* fd, CxSocketKind kind, const char* host, unsigned port, const char* path,
                       int timeoutMs, int sendTimeoutMs) {
  (void)path;
  if (!fd) return CxStatus_make('p', EINVAL);
  *fd = -1;
  if (kind == CX_SOCKET_LOCAL_DGRAM) return CxStatus_make('p', EAFNOSUPPORT);
  if ((kind != CX_SOCKET_UDP && kind != CX_SOCKET_TCP) || !host || !*host || port == 0 || port > 65535)
    return CxStatus_make('p', EINVAL);
  if (!cxwin::startSockets()) return CxStatus_make('p', ENETDOWN);
  addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = kind == CX_SOCKET_TCP ? SOCK_STREAM : SOCK_DGRAM;
  char service[8];
  snprintf(service, sizeof service, "%u", port);
  addrinfo* list = nullptr;
  if (getaddrinfo(host, service, &hints, &list) != 0 || !list) return CxStatus_make('p', EHOSTUNREACH);
  CxStatus s = CxStatus_make('p', EHOSTUNREACH);
  for (addrinfo* a = list; a; a = a->ai_next) {
    SOCKET sock = socket(a->ai_family, a->ai_socktype, a->ai_protocol);
    if (sock == INVALID_SOCKET) {
      s = wsaStatus();
      continue;
    }
    SetHandleInformation((HANDLE)sock, HANDLE_FLAG_INHERIT, 0);
    s = kind == CX_SOCKET_TCP ? connectBounded(sock, a->ai_addr, (int)a->ai_addrlen, timeoutMs)
                              : (connect(sock, a->ai_addr, (int)a->ai_addrlen) == 0 ? CxStatus_ok() : wsaStatus());
    if (CxStatus_isOk(s)) {
      DWORD t = sendTimeoutMs > 0 ? (DWORD)sendTimeoutMs : 0;
      setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, (const char*)&t, sizeof t);
      *fd = (int)sock;
      break;
    }
    closesocket(sock);
  }
  freeaddrinfo(list);
  return s;
}

CxStatus CxSocket_send(int fd, const void* data, size_t len, size_t* sent) {
  if (sent) *sent = 0;
  if (fd < 0 || !data || !sent || len > 0x7fffffff) return CxStatus_make('p', EINVAL);
  int r = send((SOCKET)fd, (const char*)data, (int)len, 0);
  if (r < 0) return wsaStatus();
  *sent = (size_t)r;
  return CxStatus_ok();
}

int CxSocket_peerClosed(int fd) {
  if (fd < 0) return 1;
  fd_set r;
  FD_ZERO(&r);
  FD_SET((SOCKET)fd, &r);
  timeval tv = {0, 0};
  int n = select(0, &r, nullptr, nullptr, &tv);
  if (n < 0) return 1;
  return n > 0 ? 1 : 0;
}

void CxSocket_close(int* fd) {
  if (!fd || *fd < 0) return;
  closesocket((SOCKET)*fd);
  *fd = -1;
}

}  // extern "C"
