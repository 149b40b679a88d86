// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_sysloghandler.  Properties are checked and settled when they change;
 * a publish then only renders the message, writes the record into a queue
 * slot and commits it.  Nothing per record allocates besides the message
 * rendering that every handler shares, and no handler property is looked
 * up by name on that path.
 *
 * A record for a stream collector is framed by the sender thread (octet
 * counting, "LEN SP" in front), so the same slot content serves every
 * transport.
 */
#include "handlers/QlgSyslogHandler.h"

#include <ctype.h>
#include <new>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <ardel/QlgHandler.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgParm.h>
#include <ardel/QlgToolkit.h>
#include "formatters/QlgXmlFormatter.h"
#include "handlers/QlgHandler.h"
#include "handlers/QlgSyslogSender.h"
#include "platform/CxProcess.h"
#include "platform/CxSocket.h"
#include "platform/CxSystem.h"
#include "platform/CxThread.h"
#include "util/QlgStringToStringMap.h"

using ardel::SyslogSender;
using ardel::SyslogTarget;

namespace {

/* Internal messages of this handler (catalog qlgmsg, set 1). */
const uint32_t kMsgBadValue = 170;
const char* const kTextBadValue =
    "QLGSH0170W Property '%1$s' will be ignored for syslog handler '%2$s', because the value "
    "'%3$s' is not valid. Expected: %4$s.\r";
const uint32_t kMsgDropping = 171;
const char* const kTextDropping =
    "QLGSH0171W The syslog handler '%1$s' is dropping records: its queue of %2$d records is "
    "full.\r";
const uint32_t kMsgDropped = 172;
const char* const kTextDropped =
    "QLGSH0172W The syslog handler '%1$s' dropped %2$ld records while its collector did not "
    "take them.\r";
const uint32_t kMsgLinkDown = 173;
const char* const kTextLinkDown =
    "QLGSH0173W The syslog handler '%1$s' cannot deliver to %2$s: %3$s. Records wait in its "
    "queue.\r";
const uint32_t kMsgLinkUp = 174;
const char* const kTextLinkUp = "QLGSH0174I The syslog handler '%1$s' delivers to %2$s again.\r";
const uint32_t kMsgNoMemory = 20;
const char* const kTextNoMemory = "QLGBC0020E Out of memory.\r";

const int kDrainMs = 1000;
const size_t kAppNameMax = 48;
const size_t kMsgIdMax = 32;
const size_t kHostNameMax = 255;

const char* const kFacilities[] = {"kern",   "user",   "mail",   "daemon", "auth",  "syslog",
                                   "lpr",    "news",   "uucp",   "cron",   "authpriv", "ftp",
                                   "ntp",    "security", "console", "solaris-cron", "local0",
                                   "local1", "local2", "local3", "local4", "local5", "local6",
                                   "local7"};

QlgSyslogHandlerData* syslogData(const QlgObject* obj) {
  if (!QlgHandler_isHandler(obj) || obj->cls->createData != QlgSyslogHandler_create) return nullptr;
  return static_cast<QlgSyslogHandlerData*>(obj->data);
}

SyslogSender* senderOf(const QlgSyslogHandlerData* data) {
  return static_cast<SyslogSender*>(data->sender);
}

/* A failure met while publishing a report of this very handler (the error
   logger may write here) is not reported again: that could recurse. */
bool reporting(const QlgSyslogHandlerData* data) {
  return data->logInternalErrs && data->depth <= 1;
}

/* ---- Record writing ---- */

struct Out {
  char* p;
  size_t len;
  size_t cap;
};

void put(Out& o, const char* s, size_t n) {
  if (n > o.cap - o.len) n = o.cap - o.len;
  memcpy(o.p + o.len, s, n);
  o.len += n;
}
void putStr(Out& o, const char* s) { put(o, s, strlen(s)); }
void putChar(Out& o, char c) {
  if (o.len < o.cap) o.p[o.len++] = c;
}
void putDigits(Out& o, uint64_t v, int width) {
  char buf[24];
  int n = 0;
  do {
    buf[n++] = (char)('0' + v % 10);
    v /= 10;
  } while (v || n < width);
  while (n) putChar(o, buf[--n]);
}

bool printable(unsigned char c) { return c >= 33 && c <= 126; }

/* A header field: printable ASCII only (others become "_"), at most max
   characters, "-" when empty. */
void putField(Out& o, const char* s, size_t max) {
  size_t n = 0;
  for (; s && s[n] && n < max; n++) putChar(o, printable((unsigned char)s[n]) ? s[n] : '_');
  if (n == 0) putChar(o, '-');
}

/* Length of the UTF-8 sequence at s (at most n bytes), 0 when invalid. */
size_t utf8Length(const unsigned char* s, size_t n) {
  unsigned char c = s[0];
  size_t len;
  uint32_t min;
  if (c < 0x80) return 1;
  if (c >= 0xC2 && c <= 0xDF) len = 2, min = 0x80;
  else if (c >= 0xE0 && c <= 0xEF) len = 3, min = 0x800;
  else if (c >= 0xF0 && c <= 0xF4) len = 4, min = 0x10000;
  else return 0;
  if (len > n) return 0;
  uint32_t cp = c & (0x3F >> (len - 1));
  for (size_t i = 1; i < len; i++) {
    if ((s[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (s[i] & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

/* A structured-data value: UTF-8 with '"', '\' and ']' escaped; bytes that
   are not UTF-8 become '?'.  A character is written whole or not at all. */
void putParamValue(Out& o, const char* s) {
  const unsigned char* u = reinterpret_cast<const unsigned char*>(s);
  size_t n = strlen(s);
  for (size_t i = 0; i < n;) {
    size_t len = utf8Length(u + i, n - i);
    if (len == 0) {
      putChar(o, '?');
      i++;
      continue;
    }
    bool esc = u[i] == '"' || u[i] == '\\' || u[i] == ']';
    if (o.cap - o.len < len + (esc ? 1 : 0)) {
      o.len = o.cap;  // no room: stop here, the record is full anyway
      return;
    }
    if (esc) putChar(o, '\\');
    put(o, s + i, len);
    i += len;
  }
}

/* An event property; a trace call's source location is read where the
   event keeps it, the line written into buf. */
const char* eventProperty(const QlgEvent* event, const char* name, char (&buf)[16]) {
  if (strcmp(name, QLG_PROP_SRCLINE) == 0) {
    int found = 0;
    int32_t line = QlgEvent_peekInt(event, name, &found);
    if (!found) return nullptr;
    snprintf(buf, sizeof buf, "%d", (int)line);
    return buf;
  }
  return QlgEvent_peekString(event, name);
}

/* One SD element with the given parameters (name, event property) that
   the event carries; nothing when it carries none.  Returns whether written. */
bool putElement(Out& o, const QlgEvent* event, const char* id, const char* const (*params)[2],
                size_t count) {
  bool open = false;
  char buf[16];
  for (size_t i = 0; i < count; i++) {
    const char* v = eventProperty(event, params[i][1], buf);
    if (!v) continue;
    if (!open) {
      putChar(o, '[');
      putStr(o, id);
      open = true;
    }
    putChar(o, ' ');
    putStr(o, params[i][0]);
    putStr(o, "=\"");
    putParamValue(o, v);
    putChar(o, '"');
  }
  if (open) putChar(o, ']');
  return open;
}

const char* const kSourceParams[][2] = {
    {"file", QLG_PROP_SRCFILE}, {"func", QLG_PROP_SRCFUNCTION}, {"line", QLG_PROP_SRCLINE}};
const char* const kIdentityParams[][2] = {
    {"organization", "organization"}, {"product", "product"},
    {"component", "component"},       {"client", "client"},
    {"server", "server"},             {"serverFormat", "serverFormat"},
    {"productInstance", "productInstance"}, {"processId", "processId"},
    {"threadId", "threadId"}};

/* Civil date of a day count since 1970-01-01 (proleptic Gregorian). */
void civilFromDays(int64_t z, int64_t* y, unsigned* m, unsigned* d) {
  z += 719468;
  int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  unsigned doe = (unsigned)(z - era * 146097);
  unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  unsigned mp = (5 * doy + 2) / 153;
  *d = doy - (153 * mp + 2) / 5 + 1;
  *m = mp < 10 ? mp + 3 : mp - 9;
  *y = (int64_t)yoe + era * 400 + (*m <= 2);
}

/* RFC 3339 in UTC with milliseconds; "-" (NILVALUE) outside years 0..9999. */
void putTimestamp(Out& o, int64_t ms) {
  int64_t secs = ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
  int64_t millis = ms - secs * 1000;
  int64_t days = secs >= 0 ? secs / 86400 : -((-secs + 86399) / 86400);
  int64_t rest = secs - days * 86400;
  int64_t y;
  unsigned m, d;
  civilFromDays(days, &y, &m, &d);
  if (y < 0 || y > 9999) {
    putChar(o, '-');
    return;
  }
  putDigits(o, (uint64_t)y, 4);
  putChar(o, '-');
  putDigits(o, m, 2);
  putChar(o, '-');
  putDigits(o, d, 2);
  putChar(o, 'T');
  putDigits(o, (uint64_t)(rest / 3600), 2);
  putChar(o, ':');
  putDigits(o, (uint64_t)(rest / 60 % 60), 2);
  putChar(o, ':');
  putDigits(o, (uint64_t)(rest % 60), 2);
  putChar(o, '.');
  putDigits(o, (uint64_t)millis, 3);
  putChar(o, 'Z');
}

/* The message text: trailing line ends dropped, a BOM in front when the
   text is UTF-8 beyond ASCII, cut at a character boundary when full. */
void putMessage(Out& o, const char* text) {
  size_t n = strlen(text);
  while (n && (text[n - 1] == '\r' || text[n - 1] == '\n')) n--;
  if (n == 0) return;
  const unsigned char* u = reinterpret_cast<const unsigned char*>(text);
  bool ascii = true, utf8 = true;
  for (size_t i = 0; i < n && utf8;) {
    size_t len = utf8Length(u + i, n - i);
    if (len == 0) utf8 = false;
    if (len > 1) ascii = false;
    i += len ? len : 1;
  }
  putChar(o, ' ');
  if (!utf8) {  // MSG-ANY: the bytes as they are
    put(o, text, n);
    return;
  }
  if (!ascii) put(o, "\xEF\xBB\xBF", 3);
  size_t room = o.cap - o.len;
  if (n > room) {
    n = room;
    while (n && (u[n] & 0xC0) == 0x80) n--;  // back to the start of a character
  }
  put(o, text, n);
}

/* ---- Journal datagrams ---- */

/* One journal field, whole or not at all (a cut one would make the journal
   refuse the datagram); n bytes of value. */
bool putJournalField(Out& o, const char* name, const char* value, size_t n) {
  size_t nameLen = strlen(name);
  bool binary = memchr(value, '\n', n) != nullptr;
  if (o.cap - o.len < nameLen + n + (binary ? 10 : 2)) return false;
  put(o, name, nameLen);
  if (binary) {
    putChar(o, '\n');
    for (int i = 0; i < 8; i++) putChar(o, (char)((uint64_t)n >> (8 * i)));
  } else {
    putChar(o, '=');
  }
  put(o, value, n);
  putChar(o, '\n');
  return true;
}

void putJournalNumber(Out& o, const char* name, int64_t v) {
  char buf[24];
  int n = snprintf(buf, sizeof buf, "%lld", (long long)v);
  putJournalField(o, name, buf, (size_t)n);
}

const char* const kJournalIdentity[][2] = {
    {"ARDEL_ORGANIZATION", "organization"}, {"ARDEL_PRODUCT", "product"},
    {"ARDEL_COMPONENT", "component"},       {"ARDEL_CLIENT", "client"},
    {"ARDEL_SERVER", "server"},             {"ARDEL_PRODUCT_INSTANCE", "productInstance"},
    {"ARDEL_PROCESS_ID", "processId"},      {"ARDEL_THREAD_ID", "threadId"}};

/* The message goes last so that a long one is cut, at a character boundary,
   to the room the other fields leave. */
size_t formatJournal(const QlgSyslogHandlerData* data, const QlgEvent* event, const char* text,
                     const char* id, Out& o) {
  putJournalNumber(o, "PRIORITY", QlgSyslogHandler_severity(event->level));
  putJournalNumber(o, "SYSLOG_FACILITY", data->facility);
  putJournalField(o, "SYSLOG_IDENTIFIER", data->appName, strlen(data->appName));
  if (id) putJournalField(o, "MESSAGE_ID", id, strlen(id));
  const char* file = QlgEvent_peekString(event, QLG_PROP_SRCFILE);
  if (file) putJournalField(o, "CODE_FILE", file, strlen(file));
  int found = 0;
  int32_t line = QlgEvent_peekInt(event, QLG_PROP_SRCLINE, &found);
  if (found) putJournalNumber(o, "CODE_LINE", line);
  const char* func = QlgEvent_peekString(event, QLG_PROP_SRCFUNCTION);
  if (func) putJournalField(o, "CODE_FUNC", func, strlen(func));
  for (const auto& f : kJournalIdentity)
    if (const char* v = QlgEvent_peekString(event, f[1])) putJournalField(o, f[0], v, strlen(v));
  size_t n = text ? strlen(text) : 0;
  while (n && (text[n - 1] == '\r' || text[n - 1] == '\n')) n--;
  size_t room = o.cap - o.len;
  room = room > 18 ? room - 18 : 0;  // "MESSAGE", a binary length, "\n"
  if (n > room) {
    n = room;
    while (n && (((const unsigned char*)text)[n] & 0xC0) == 0x80) n--;
  }
  putJournalField(o, "MESSAGE", text ? text : "", n);
  return o.len;
}

/* ---- Properties ---- */

void reportBadValue(QlgObject* handler, const QlgSyslogHandlerData* data, const char* key,
                    const char* value, const char* expected) {
  if (!data->logInternalErrs) return;
  QlgMisc_report(QLG_LEVEL_WARN, kMsgBadValue, kTextBadValue, QLG_PARM_STRING, key,
                 QLG_PARM_STRING, handler->name, QLG_PARM_STRING, value ? value : "",
                 QLG_PARM_STRING, expected, 0);
}

int parseFacility(const char* s) {
  long n;
  if (QlgHandler_parseRange(s, 0, 23, &n)) return (int)n;
  for (size_t i = 0; s && i < sizeof kFacilities / sizeof kFacilities[0]; i++)
    if (strcasecmp(s, kFacilities[i]) == 0) return (int)i;
  return -1;
}

bool allPrintable(const char* s) {
  for (; *s; s++)
    if (!printable((unsigned char)*s)) return false;
  return true;
}

/* The local socket: the journal's own unless the user named one. */
const char* localPath(const QlgSyslogHandlerData* data) {
  return data->transport == QLG_SYSLOG_JOURNALD && !data->socketPathSet ? QLG_JOURNAL_SOCKET
                                                                         : data->socketPath;
}

SyslogTarget targetOf(const QlgSyslogHandlerData* data) {
  SyslogTarget t{};
  t.kind = data->transport == QLG_SYSLOG_UNIX || data->transport == QLG_SYSLOG_JOURNALD
               ? CX_SOCKET_LOCAL_DGRAM
           : data->transport == QLG_SYSLOG_UDP ? CX_SOCKET_UDP
                                               : CX_SOCKET_TCP;
  t.port = data->port;
  strcpy(t.host, data->host);
  strcpy(t.path, localPath(data));
  return t;
}

/* Where records go, for the reports: "tcp:127.0.0.1:514", "unix:/dev/log". */
void describeTarget(const QlgSyslogHandlerData* data, char* buf, size_t size) {
  if (data->transport == QLG_SYSLOG_UNIX || data->transport == QLG_SYSLOG_JOURNALD)
    snprintf(buf, size, "%s:%s", data->transport == QLG_SYSLOG_UNIX ? "unix" : "journald",
             localPath(data));
  else
    snprintf(buf, size, "%s:%s:%u", data->transport == QLG_SYSLOG_UDP ? "udp" : "tcp",
             data->host, data->port);
}

/* Applies one property; false when the value was refused (and reported). */
bool applyProperty(QlgObject* handler, QlgSyslogHandlerData* data, const char* key,
                   const char* value, bool* targetChanged) {
  long n;
  if (strcmp(key, "transport") == 0) {
    QlgSyslogTransport t;
    if (value && strcasecmp(value, "unix") == 0) t = QLG_SYSLOG_UNIX;
    else if (value && strcasecmp(value, "udp") == 0) t = QLG_SYSLOG_UDP;
    else if (value && strcasecmp(value, "tcp") == 0) t = QLG_SYSLOG_TCP;
    else if (value && strcasecmp(value, "journald") == 0) t = QLG_SYSLOG_JOURNALD;
    else return reportBadValue(handler, data, key, value, "unix, udp, tcp or journald"), false;
    *targetChanged = t != data->transport;
    data->transport = t;
  } else if (strcmp(key, "host") == 0) {
    if (!value || !*value || strlen(value) > kHostNameMax || !allPrintable(value))
      return reportBadValue(handler, data, key, value, "a host name or address"), false;
    *targetChanged = strcmp(data->host, value) != 0;
    strcpy(data->host, value);
  } else if (strcmp(key, "port") == 0) {
    if (!QlgHandler_parseRange(value, 1, 65535, &n))
      return reportBadValue(handler, data, key, value, "a port number from 1 to 65535"), false;
    *targetChanged = (unsigned)n != data->port;
    data->port = (unsigned)n;
  } else if (strcmp(key, "socketPath") == 0) {
    if (!value || !*value || strlen(value) > CxSocket_maxPathLength())
      return reportBadValue(handler, data, key, value, "the path of a local socket"), false;
    *targetChanged = strcmp(data->socketPath, value) != 0;
    strcpy(data->socketPath, value);
    data->socketPathSet = 1;
  } else if (strcmp(key, "facility") == 0) {
    int f = parseFacility(value);
    if (f < 0)
      return reportBadValue(handler, data, key, value, "a facility name such as user or local0, or 0 to 23"), false;
    data->facility = f;
  } else if (strcmp(key, "appName") == 0) {
    if (!value || !*value || strlen(value) > kAppNameMax || !allPrintable(value))
      return reportBadValue(handler, data, key, value, "1 to 48 printable ASCII characters without blanks"), false;
    strcpy(data->appName, value);
  } else if (strcmp(key, "maxBlockMs") == 0) {
    if (!QlgHandler_parseRange(value, 0, 60000, &n))
      return reportBadValue(handler, data, key, value, "milliseconds from 0 to 60000"), false;
    data->maxBlockMs = (int)n;
  } else if (strcmp(key, "queueSize") == 0) {
    if (!QlgHandler_parseRange(value, 1, 1048576, &n))
      return reportBadValue(handler, data, key, value, "a number of records from 1 to 1048576"), false;
    data->queueSize = (int)n;
  } else if (strcmp(key, "maxRecordBytes") == 0) {
    if (!QlgHandler_parseRange(value, 480, 65000, &n))
      return reportBadValue(handler, data, key, value, "a number of bytes from 480 to 65000"), false;
    data->maxRecordBytes = (int)n;
  } else if (strcmp(key, "logInternalErrs") == 0) {
    if (!value || (strcasecmp(value, "true") != 0 && strcasecmp(value, "false") != 0))
      return reportBadValue(handler, data, key, value, "true or false"), false;
    data->logInternalErrs = strcasecmp(value, "true") == 0;
  }
  return true;
}

bool ownsKey(const char* key) {
  static const char* const kKeys[] = {"transport", "host",       "port",       "socketPath",
                                      "facility",  "appName",    "maxBlockMs", "queueSize",
                                      "maxRecordBytes", "logInternalErrs"};
  for (const char* k : kKeys)
    if (strcmp(k, key) == 0) return true;
  return false;
}

/* ---- Publishing ---- */

/* Reports each outage the sender has met since the last publish, even one
   already over, and the return of the link after a reported outage. */
void reportLink(QlgObject* handler, QlgSyslogHandlerData* data, SyslogSender* sender) {
  uint32_t outages = sender->outages();
  bool newOutage = outages != data->reportedOutages;
  bool back = sender->linkState() == ardel::kLinkUp && (newOutage || data->linkReportedDown);
  if (!newOutage && !back) return;
  data->reportedOutages = outages;
  data->linkReportedDown = !back;
  if (!reporting(data)) return;
  char where[300];
  describeTarget(data, where, sizeof where);
  if (newOutage)
    QlgMisc_report(QLG_LEVEL_WARN, kMsgLinkDown, kTextLinkDown, QLG_PARM_STRING, handler->name,
                   QLG_PARM_STRING, where, QLG_PARM_STRING, strerror(sender->lastError()), 0);
  if (back)
    QlgMisc_report(QLG_LEVEL_INFO, kMsgLinkUp, kTextLinkUp, QLG_PARM_STRING, handler->name,
                   QLG_PARM_STRING, where, 0);
}

void reportDropped(QlgObject* handler, QlgSyslogHandlerData* data) {
  if (!data->droppedUnreported) return;
  long n = (long)data->droppedUnreported;
  data->droppedUnreported = 0;
  if (reporting(data))
    QlgMisc_report(QLG_LEVEL_WARN, kMsgDropped, kTextDropped, QLG_PARM_STRING, handler->name,
                   QLG_PARM_LONG, n, 0);
}

bool ensureStarted(QlgSyslogHandlerData* data) {
  SyslogSender* sender = senderOf(data);
  if (sender->running()) return true;
  if (data->startFailed) return false;
  if (!sender->start(targetOf(data), (size_t)data->queueSize, (size_t)data->maxRecordBytes)) {
    data->startFailed = 1;
    if (reporting(data)) QlgMisc_report(QLG_LEVEL_ERROR, kMsgNoMemory, kTextNoMemory, 0);
    return false;
  }
  return true;
}

/* The message text by the formatMessage slot of the handler's formatter. */
char* renderText(QlgObject* handler, QlgEvent* event) {
  QlgObject* formatter = handler->field2.formatter;
  if (!formatter || !formatter->cls || formatter->cls->kind != QLG_KIND_FORMATTER)
    return QlgEvent_render(event, nullptr);
  return QlgEvent_render(event, formatter->cls->slots.formatter.formatMessage);
}

void publishEvent(QlgObject* handler, QlgSyslogHandlerData* data, QlgEvent* event) {
  if (!ensureStarted(data)) return;
  SyslogSender* sender = senderOf(data);
  reportLink(handler, data, sender);
  /* While the queue stays full, later records do not wait again: one stall
     per outage, not one per record. */
  char* slot = sender->reserve(data->dropping ? 0 : data->maxBlockMs);
  if (!slot) {
    data->dropped++;
    data->droppedUnreported++;
    if (!data->dropping && reporting(data))
      QlgMisc_report(QLG_LEVEL_WARN, kMsgDropping, kTextDropping, QLG_PARM_STRING, handler->name,
                     QLG_PARM_INT, data->queueSize, 0);
    data->dropping = 1;
    return;
  }
  char* text = renderText(handler, event);
  sender->commit(QlgSyslogHandler_formatRecord(data, event, text, slot,
                                               (size_t)data->maxRecordBytes));
  QlgMem_free(text);
  if (data->dropping) {
    data->dropping = 0;
    reportDropped(handler, data);
  }
}

}  // namespace

extern "C" {

int QlgSyslogHandler_severity(int32_t level) {
  if (level == QLG_LEVEL_NONE) return 5;
  if (level >= QLG_LEVEL_FATAL) return 2;
  if (level >= QLG_LEVEL_ERROR) return 3;
  if (level >= QLG_LEVEL_WARN) return 4;
  if (level >= QLG_LEVEL_INFO) return 6;
  return 7;
}

size_t QlgSyslogHandler_formatRecord(const QlgSyslogHandlerData* data, const QlgEvent* event,
                                     const char* text, char* out, size_t cap) {
  if (!data || !event || !out) return 0;
  Out o{out, 0, cap};
  char parsed[11];
  const char* id = event->messageId && *event->messageId
                       ? event->messageId
                       : QlgXmlFormatter_idOfText(text, parsed);
  if (id && strcmp(id, "None") == 0) id = nullptr;
  if (data->transport == QLG_SYSLOG_JOURNALD) return formatJournal(data, event, text, id, o);
  putChar(o, '<');
  putDigits(o, (uint64_t)(data->facility * 8 + QlgSyslogHandler_severity(event->level)), 1);
  putStr(o, ">1 ");
  putTimestamp(o, event->time);
  putChar(o, ' ');
  putField(o, data->hostName, kHostNameMax);
  putChar(o, ' ');
  putField(o, data->appName, kAppNameMax);
  putChar(o, ' ');
  putDigits(o, (uint64_t)CxProcess_getpid(), 1);
  putChar(o, ' ');
  putField(o, id, kMsgIdMax);
  putChar(o, ' ');
  bool sd = putElement(o, event, "src@" QLG_SYSLOG_SD_PEN, kSourceParams, 3);
  sd = putElement(o, event, "pd@" QLG_SYSLOG_SD_PEN, kIdentityParams, 9) || sd;
  if (!sd) putChar(o, '-');
  if (text) putMessage(o, text);
  return o.len;
}

void* QlgSyslogHandler_create(void) {
  QlgSyslogHandlerData* data =
      static_cast<QlgSyslogHandlerData*>(QlgMem_alloc(sizeof(QlgSyslogHandlerData)));
  void* room = QlgMem_alloc(sizeof(SyslogSender));
  if (!data || !room) {
    QlgMem_free(data);
    QlgMem_free(room);
    return nullptr;
  }
  memset(data, 0, sizeof *data);
  data->sender = new (room) SyslogSender();
  data->transport = QLG_SYSLOG_UNIX;
  data->port = 514;
  strcpy(data->host, "127.0.0.1");
  strcpy(data->socketPath, "/dev/log");
  data->facility = 1;
  data->maxBlockMs = 10;
  data->queueSize = 1024;
  data->maxRecordBytes = 2048;
  data->logInternalErrs = 1;
  CxProcess_getProgramName(data->appName, sizeof data->appName);
  for (char* p = data->appName; *p; p++)
    if (!printable((unsigned char)*p)) *p = '_';
  /* The qualified name when the resolver knows one, as RFC 5424 prefers;
     the short name otherwise (kept in the buffer on a failed lookup). */
  CxSystem_getHostName(data->hostName, sizeof data->hostName);
  return data;
}

void QlgSyslogHandler_destroy(void* p) {
  QlgSyslogHandlerData* data = static_cast<QlgSyslogHandlerData*>(p);
  if (!data) return;
  SyslogSender* sender = senderOf(data);
  sender->stop(kDrainMs);
  sender->~SyslogSender();
  QlgMem_free(sender);
  QlgMem_free(data);
}

void QlgSyslogHandler_propertyChanged(QlgObject* handler, const char* key) {
  QlgSyslogHandlerData* data = syslogData(handler);
  if (!data || !key || !ownsKey(key)) {
    QlgHandler_propertyChanged(handler, key);
    return;
  }
  char* value = QlgObject_getString(handler, key, nullptr);
  bool targetChanged = false;
  if (applyProperty(handler, data, key, value, &targetChanged) && targetChanged &&
      senderOf(data)->running())
    senderOf(data)->retarget(targetOf(data));
  QlgMem_free(value);
}

void QlgSyslogHandler_open(QlgObject* handler) {
  QlgSyslogHandlerData* data = syslogData(handler);
  if (data) ensureStarted(data);
}

void QlgSyslogHandler_close(QlgObject* handler) {
  QlgSyslogHandlerData* data = syslogData(handler);
  if (!data) return;
  senderOf(data)->stop(kDrainMs);
  data->dropping = 0;
  data->depth++;
  reportLink(handler, data, senderOf(data));
  reportDropped(handler, data);
  data->depth--;
}

void QlgSyslogHandler_publish(QlgObject* handler, QlgEvent* event) {
  if (!handler || !event || !handler->logging) return;
  QlgSyslogHandlerData* data = syslogData(handler);
  if (!data) return;
  data->depth++;
  publishEvent(handler, data, event);
  data->depth--;
  QlgObject_forwardToListeners(handler, event);
}

uint64_t QlgSyslogHandler_droppedCount(const QlgObject* handler) {
  const QlgSyslogHandlerData* data = syslogData(handler);
  return data ? data->dropped : 0;
}

uint64_t QlgSyslogHandler_sentCount(const QlgObject* handler) {
  const QlgSyslogHandlerData* data = syslogData(handler);
  return data ? senderOf(data)->sentCount() : 0;
}

}  // extern "C"
