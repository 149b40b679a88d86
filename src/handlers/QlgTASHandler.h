// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_tashandler: hands events to a co-located Tervane Application Server
 * through the server's shared-memory ring (the IPC channel).  The server
 * creates the ring and its mutex and reads packets from it; this handler
 * only opens them and writes packets.
 *
 * Ring layout (header words in the host's byte order):
 *   0 ring size N, 4 read index R (the server's), 8 write index W (ours),
 *   12..63 reserved, 64.. the ring of N bytes.
 * Packet (every integer 32-bit, network byte order):
 *   S, version, level, L, logger name, time high, time low, M, message,
 *   F, function, G, file [, line when G > 0];  S = 36 + L + M + F (+ G + 4).
 * At least 1024 bytes of the ring are always left free.
 */
#ifndef ARDEL_QLGTASHANDLER_H
#define ARDEL_QLGTASHANDLER_H

#include <stddef.h>
#include <stdint.h>
#include <ardel/export.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>
#include "platform/CxMutex.h"
#include "platform/CxSharedMem.h"

ARDEL_BEGIN_C

/* Layout of the shared block. */
#define QLG_IPC_HEADER_SIZE 64
#define QLG_IPC_OFF_SIZE 0
#define QLG_IPC_OFF_READ 4
#define QLG_IPC_OFF_WRITE 8
/* Bytes of the ring that a writer never fills. */
#define QLG_IPC_RESERVE 1024
/* Fixed bytes of a packet: the ten length and number fields. */
#define QLG_TAS_PACKET_FIXED 36
/* Room kept for those fields and a logger name when the text is cut. */
#define QLG_TAS_TEXT_MARGIN 143
#define QLG_TAS_TRUNCATED " (truncated)..."
/* Longest IPCID: the channel name "Global\<IPCID>" holds 125 characters. */
#define QLG_IPC_ID_MAX 118

/* Results of QlgIpcChannel_open and QlgTASHandler_send. */
#define QLG_IPC_OPEN_FAILED (-252)
#define QLG_TAS_NOT_SENT (-1)
#define QLG_TAS_NO_MEMORY (-20)

typedef struct QlgIpcChannel {
  CxMutex* mutex;          /* the server's mutex "<IPCID>.s" */
  char name[QLG_IPC_ID_MAX + 1];
  CxSharedMem* mapping;    /* the server's ring "<IPCID>" */
  unsigned char* data;     /* ring start (mapping + 64); null when closed */
  uint32_t ringSize;       /* N as last read from the header */
} QlgIpcChannel;

typedef struct QlgTASHandlerData {
  unsigned char channelOpen;
  char* loggerName;        /* "_" already turned into "-" */
  char* ipcId;
  unsigned char traceEnabled;
  uint32_t version;
  unsigned char logInternalErrs;
  QlgIpcChannel channel;
  unsigned char* packet;   /* reused for every packet, grown as needed */
  size_t packetCapacity;
  QlgObject* heldFormatter; /* the formatter a reference was taken on */
  int depth;               /* publishes of this handler in progress */
} QlgTASHandlerData;

/* Slots. */
void* QlgTASHandler_create(void);
void QlgTASHandler_destroy(void* data);
void QlgTASHandler_propertyChanged(QlgObject* handler, const char* key);
void QlgTASHandler_publish(QlgObject* handler, QlgEvent* event);
void QlgTASHandler_open(QlgObject* handler);
void QlgTASHandler_close(QlgObject* handler);

/* Writes one packet into the ring: 0 when written or dropped for lack of
   room (QLGWH0094W), QLG_TAS_NOT_SENT when the channel is closed, the
   packet too large or the ring header unusable, QLG_TAS_NO_MEMORY. */
int QlgTASHandler_send(QlgObject* handler, uint32_t level, const char* text, const char* function,
                       const char* file, uint32_t line, int64_t time, const char* sequence);

/* Opens the server's mutex and ring: 0 or QLG_IPC_OPEN_FAILED, with
   nothing left open on failure. */
int QlgIpcChannel_open(const char* ipcId, QlgIpcChannel* channel);
/* Unmaps the ring; 0. */
int QlgIpcChannel_close(QlgIpcChannel* channel);

ARDEL_END_C

#endif
