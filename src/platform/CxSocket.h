// SPDX-License-Identifier: Apache-2.0
/*
 * Sockets to a log collector: a local datagram socket (the system log's
 * /dev/log), UDP and TCP.  Every call is bounded in time, so that a dead
 * or stalled peer can hold up the caller for at most the given timeout;
 * nothing here ever raises SIGPIPE.  A socket is a plain descriptor, -1
 * when there is none.
 */
#ifndef ARDEL_CXSOCKET_H
#define ARDEL_CXSOCKET_H

#include <stddef.h>
#include <ardel/export.h>
#include "platform/CxStatus.h"

ARDEL_BEGIN_C

typedef enum CxSocketKind {
  CX_SOCKET_LOCAL_DGRAM = 1, /* path names a local datagram socket */
  CX_SOCKET_UDP = 2,         /* host and port; connected, so refusals are seen */
  CX_SOCKET_TCP = 3
} CxSocketKind;

/* Longest local socket path that fits the platform's address record. */
size_t CxSocket_maxPathLength(void);

/* Opens and connects a socket: host (a name or a numeric address) and port
   for UDP and TCP, path for a local socket.  A TCP connect waits at most
   timeoutMs; sends later wait at most sendTimeoutMs.  'p' 22 for bad
   arguments, 'p' errno otherwise (*fd then -1). */
CxStatus CxSocket_open(int* fd, CxSocketKind kind, const char* host, unsigned port,
                       const char* path, int timeoutMs, int sendTimeoutMs);

/* Sends up to len bytes; *sent receives the count written (a stream socket
   may take part).  'p' errno on failure, with EAGAIN for a send that timed out. */
CxStatus CxSocket_send(int fd, const void* data, size_t len, size_t* sent);

/* 1 when a stream peer has closed its end or the socket is in error.  A
   log collector never sends anything, so any readable data means the same. */
int CxSocket_peerClosed(int fd);

/* Closes and sets *fd to -1; nothing for -1. */
void CxSocket_close(int* fd);

ARDEL_END_C

#endif
