// SPDX-License-Identifier: Apache-2.0
/*
 * POSIX sockets for the collector connections.  Name resolution happens in
 * CxSocket_open only, which the syslog handler calls on its sender thread,
 * never on the caller's path.
 */
#include "platform/CxSocket.h"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

CxStatus ok() { return CxStatus_make('-', 0); }
CxStatus fail(int code) { return CxStatus_make('p', code); }

void setSendTimeout(int fd, int ms) {
  struct timeval tv;
  tv.tv_sec = ms / 1000;
  tv.tv_usec = (ms % 1000) * 1000;
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
}

/* connect() bounded by timeoutMs through a non-blocking attempt. */
int connectTimed(int fd, const struct sockaddr* addr, socklen_t len, int timeoutMs) {
  int flags = fcntl(fd, F_GETFL, 0);
  if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) return errno;
  int rc = connect(fd, addr, len);
  int err = rc == 0 ? 0 : errno;
  if (err == EINPROGRESS) {
    struct pollfd p = {fd, POLLOUT, 0};
    rc = poll(&p, 1, timeoutMs);
    if (rc == 0) {
      err = ETIMEDOUT;
    } else if (rc < 0) {
      err = errno;
    } else {
      socklen_t l = sizeof err;
      if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &l) < 0) err = errno;
    }
  }
  if (err == 0 && fcntl(fd, F_SETFL, flags) < 0) err = errno;
  return err;
}

CxStatus openLocal(int* fd, const char* path, int sendTimeoutMs) {
  struct sockaddr_un addr;
  if (!path || !*path || strlen(path) >= sizeof addr.sun_path) return fail(22);
  memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  strcpy(addr.sun_path, path);
  int s = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (s < 0) return fail(errno);
  if (connect(s, reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) < 0) {
    int err = errno;
    close(s);
    return fail(err);
  }
  setSendTimeout(s, sendTimeoutMs);
  *fd = s;
  return ok();
}

CxStatus openInet(int* fd, bool stream, const char* host, unsigned port, int timeoutMs,
                  int sendTimeoutMs) {
  if (!host || !*host || port == 0 || port > 65535) return fail(22);
  char service[8];
  snprintf(service, sizeof service, "%u", port);
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_socktype = stream ? SOCK_STREAM : SOCK_DGRAM;
  struct addrinfo* list = nullptr;
  if (getaddrinfo(host, service, &hints, &list) != 0 || !list) return fail(EHOSTUNREACH);
  int err = EHOSTUNREACH;
  for (struct addrinfo* a = list; a; a = a->ai_next) {
    int s = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
    if (s < 0) {
      err = errno;
      continue;
    }
    err = connectTimed(s, a->ai_addr, a->ai_addrlen, timeoutMs);
    if (err == 0) {
      setSendTimeout(s, sendTimeoutMs);
      *fd = s;
      break;
    }
    close(s);
  }
  freeaddrinfo(list);
  return err == 0 ? ok() : fail(err);
}

}  // namespace

extern "C" {

size_t CxSocket_maxPathLength(void) { return sizeof(((struct sockaddr_un*)nullptr)->sun_path) - 1; }

CxStatus CxSocket_open(int* fd, CxSocketKind kind, const char* host, unsigned port,
                       const char* path, int timeoutMs, int sendTimeoutMs) {
  if (!fd) return fail(22);
  *fd = -1;
  switch (kind) {
    case CX_SOCKET_LOCAL_DGRAM: return openLocal(fd, path, sendTimeoutMs);
    case CX_SOCKET_UDP: return openInet(fd, false, host, port, timeoutMs, sendTimeoutMs);
    case CX_SOCKET_TCP: return openInet(fd, true, host, port, timeoutMs, sendTimeoutMs);
  }
  return fail(22);
}

CxStatus CxSocket_send(int fd, const void* data, size_t len, size_t* sent) {
  if (sent) *sent = 0;
  if (fd < 0 || (!data && len)) return fail(22);
  ssize_t n;
  do n = send(fd, data, len, MSG_NOSIGNAL);
  while (n < 0 && errno == EINTR);
  if (n < 0) return fail(errno == EWOULDBLOCK ? EAGAIN : errno);
  if (sent) *sent = (size_t)n;
  return ok();
}

int CxSocket_peerClosed(int fd) {
  if (fd < 0) return 1;
  struct pollfd p = {fd, POLLIN, 0};
  if (poll(&p, 1, 0) <= 0) return 0;
  if (p.revents & (POLLERR | POLLHUP | POLLNVAL)) return 1;
  char c;
  ssize_t n = recv(fd, &c, 1, MSG_DONTWAIT | MSG_PEEK);
  return n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) || n > 0;
}

void CxSocket_close(int* fd) {
  if (!fd || *fd < 0) return;
  close(*fd);
  *fd = -1;
}

}  // extern "C"
