// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_sysloghandler: ships events to a log collector as RFC 5424 records,
 * over the local system log socket, UDP, or TCP with octet-counting
 * framing (RFC 6587).  Records are built on the caller's thread straight
 * into a slot of a bounded queue and sent by one sender thread of the
 * handler, which reconnects when the collector restarts; a record that
 * finds the queue full waits at most maxBlockMs and is then dropped,
 * counted and reported.
 *
 * Record: <PRI>1 TIMESTAMP HOSTNAME APP-NAME PROCID MSGID SD [BOM]MSG
 *   PRI       facility * 8 + severity (QlgSyslogHandler_severity)
 *   TIMESTAMP UTC with milliseconds, 2026-11-23T09:35:05.123Z
 *   MSGID     the event's message ID, or the one the text starts with, or "-"
 *   SD        [src@32473 file= func= line=] for the source location and
 *             [pd@32473 organization= ... threadId=] for the
 *             problem-determination identity, each only when present
 *   MSG       the rendered text without its trailing line end; a BOM
 *             precedes it when it holds non-ASCII UTF-8
 * 32473 is the enterprise number set aside for documentation (RFC 5612);
 * a site with a number of its own changes QLG_SYSLOG_SD_PEN.
 *
 * With transport=journald the slot holds a datagram of the journal's native
 * protocol instead: MESSAGE, PRIORITY, SYSLOG_FACILITY, SYSLOG_IDENTIFIER,
 * MESSAGE_ID, CODE_FILE, CODE_LINE, CODE_FUNC and the identity fields as
 * ARDEL_<NAME>, each "NAME=value\n", or "NAME\n", a 64-bit little-endian
 * length, the bytes and "\n" for a value that holds a line end.
 */
#ifndef ARDEL_QLGSYSLOGHANDLER_H
#define ARDEL_QLGSYSLOGHANDLER_H

#include <stddef.h>
#include <stdint.h>
#include <ardel/export.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>

ARDEL_BEGIN_C

#define QLG_SYSLOG_SD_PEN "32473"

typedef enum QlgSyslogTransport {
  QLG_SYSLOG_UNIX = 1,
  QLG_SYSLOG_UDP = 2,
  QLG_SYSLOG_TCP = 3,
  QLG_SYSLOG_JOURNALD = 4   /* systemd journal's native protocol on its local socket */
} QlgSyslogTransport;

/* Where the journal listens when socketPath is not set. */
#define QLG_JOURNAL_SOCKET "/run/systemd/journal/socket"

typedef struct QlgSyslogHandlerData {
  QlgSyslogTransport transport;
  unsigned port;
  char host[256];
  char socketPath[256];
  unsigned char socketPathSet; /* socketPath given by the user, not the default */
  int facility;               /* 0..23 */
  char appName[49];           /* printable ASCII, "-" when none */
  char hostName[256];         /* this machine, printable ASCII */
  int maxBlockMs;
  int queueSize;
  int maxRecordBytes;
  unsigned char logInternalErrs;
  unsigned char startFailed;  /* the queue or thread could not be had */
  unsigned char dropping;     /* the last record found the queue full */
  unsigned char linkReportedDown; /* an outage was reported, its end not yet */
  uint32_t reportedOutages;   /* the sender's outage count last reported */
  int depth;                  /* publishes of this handler in progress */
  uint64_t dropped;           /* records given up since creation */
  uint64_t droppedUnreported;
  void* sender;               /* the queue and its thread */
} QlgSyslogHandlerData;

/* Slots. */
void* QlgSyslogHandler_create(void);
void QlgSyslogHandler_destroy(void* data);
void QlgSyslogHandler_propertyChanged(QlgObject* handler, const char* key);
void QlgSyslogHandler_publish(QlgObject* handler, QlgEvent* event);
void QlgSyslogHandler_open(QlgObject* handler);
void QlgSyslogHandler_close(QlgObject* handler);

/* Severity of a level: 7000 and above 2 (critical), 6000 3 (error), 5000
   4 (warning), 4000 6 (informational), the debug levels and below 7
   (debug); an event without a level (-9999) 5 (notice). */
int QlgSyslogHandler_severity(int32_t level);

/* Writes the record for event (a journal datagram when the transport is
   journald), whose rendered message is text (may be
   null), into out (at most cap bytes, no terminator); returns its length.
   A record longer than cap is cut inside MSG at a character boundary. */
size_t QlgSyslogHandler_formatRecord(const QlgSyslogHandlerData* data, const QlgEvent* event,
                                     const char* text, char* out, size_t cap);

/* Records dropped for a full queue, and records sent, since creation. */
uint64_t QlgSyslogHandler_droppedCount(const QlgObject* handler);
uint64_t QlgSyslogHandler_sentCount(const QlgObject* handler);

ARDEL_END_C

#endif
