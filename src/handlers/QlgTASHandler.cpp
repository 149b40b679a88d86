// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_tashandler and its IPC channel.
 *
 * The ring header lives in memory that the server process writes, so no
 * value read from it is trusted: the ring size must fit the mapping and
 * the read and write indexes must lie inside the ring, else the packet is
 * refused (QLGWH0090E) and nothing outside the mapping is touched.  Each
 * header word is read once into a local and only the checked local is
 * used afterwards.
 *
 * Cost per record: the rendered text (the formatter's own allocation), the
 * packet built in a buffer that the handler keeps and grows, the channel
 * mutex taken and released around the copy into the ring.  Properties are
 * read only when they change.
 */
#include "handlers/QlgTASHandler.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <ardel/QlgHandler.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgParm.h>
#include <ardel/QlgToolkit.h>
#include "core/QlgMisc.h"
#include "handlers/QlgHandler.h"
#include "msg/QlgMsgTable.h"
#include "platform/CxSystem.h"
#include "util/QlgStringToStringMap.h"

namespace {

enum { kMsgNotSent = 90, kMsgOpenFailed = 91, kMsgDiscarded = 95 };

const char* const kDefaultLoggerName = "Ardel";
const char* const kDefaultIpcId = "QLG_TAS_HANDLER_IPC";
const int kRoomTries = 100;
const int32_t kRoomPauseMs = 5;
const int32_t kUnleveledSent = 3000; /* level sent for an event without one */
const int32_t kHighestLevel = 7000;
const size_t kTruncatedLength = sizeof QLG_TAS_TRUNCATED - 1;

/* One sequence for every handler of the class; publishes run under the
   toolkit lock, so a plain counter suffices. */
long g_sequence = 0;

QlgTASHandlerData* tasData(const QlgObject* obj) {
  if (!QlgHandler_isHandler(obj) || obj->cls->createData != QlgTASHandler_create) return nullptr;
  return static_cast<QlgTASHandlerData*>(obj->data);
}

/* A failure met while publishing a report of this very handler (the error
   logger may write here) is not reported again: that could recurse without end. */
bool reporting(const QlgTASHandlerData* data) { return data->logInternalErrs && data->depth <= 1; }

void reportCode(const QlgTASHandlerData* data, uint32_t key, int code) {
  if (reporting(data))
    QlgMisc_report(QLG_LEVEL_ERROR, key, QlgMsgTable_text(key), QLG_PARM_INT, code, 0);
}

/* A copy with every "_" turned into "-"; null when memory runs out. */
char* dashed(const char* s) {
  char* out = QlgMem_strdup(s);
  for (char* p = out; p && *p; p++)
    if (*p == '_') *p = '-';
  return out;
}

void replaceString(char** field, char* value) {
  if (!value) return;
  QlgMem_free(*field);
  *field = value;
}

unsigned char* put32(unsigned char* p, uint32_t v) {
  p[0] = (unsigned char)(v >> 24);
  p[1] = (unsigned char)(v >> 16);
  p[2] = (unsigned char)(v >> 8);
  p[3] = (unsigned char)v;
  return p + 4;
}

unsigned char* putBytes(unsigned char* p, const char* s, size_t n) {
  p = put32(p, (uint32_t)n);
  memcpy(p, s, n);
  return p + n;
}

/* A component tag such as #scan_agent# at the start of the text is sent
   as #scan-agent#. */
void dashTag(char* text, size_t len) {
  if (len == 0 || text[0] != '#') return;
  char* end = static_cast<char*>(memchr(text + 1, '#', len - 1));
  if (!end) return;
  for (char* p = text; p < end; p++)
    if (*p == '_') *p = '-';
}

/* The ring size of an open channel when the ring fits inside the mapping,
   else 0 (nothing can be sent). */
uint32_t usableRingSize(QlgIpcChannel* ch) {
  if (!ch->data) return 0;
  uint32_t n = CxSharedMem_loadWord(ch->data - QLG_IPC_HEADER_SIZE + QLG_IPC_OFF_SIZE);
  ch->ringSize = n;
  uint64_t needed = (uint64_t)QLG_IPC_HEADER_SIZE + n;
  return needed <= CxSharedMem_size(ch->mapping) ? n : 0;
}

bool reservePacket(QlgTASHandlerData* data, size_t size) {
  if (size <= data->packetCapacity) return true;
  size_t cap = data->packetCapacity ? data->packetCapacity : 256;
  while (cap < size) cap *= 2;
  void* p = QlgMem_realloc(data->packet, cap);
  if (!p) return false;
  data->packet = static_cast<unsigned char*>(p);
  data->packetCapacity = cap;
  return true;
}

/* Waits for room under the channel mutex and copies the packet in,
   wrapping at the end of the ring. */
int writeRing(QlgTASHandlerData* data, uint32_t n, size_t size) {
  QlgIpcChannel* ch = &data->channel;
  unsigned char* header = ch->data - QLG_IPC_HEADER_SIZE;
  CxStatus st = CxMutex_lockTimed(ch->mutex, CX_MUTEX_WAIT_MS);
  if (!CxStatus_isOk(st)) {
    if (st.code != CX_MUTEX_TIMED_OUT) return QLG_TAS_NOT_SENT;
    /* A server holding its mutex this long is stuck: drop as for a full ring. */
    if (reporting(data)) QlgMisc_report(QLG_LEVEL_WARN, kMsgDiscarded, QlgMsgTable_text(kMsgDiscarded), 0);
    return 0;
  }
  uint32_t w = CxSharedMem_loadWord(header + QLG_IPC_OFF_WRITE);
  int result = w < n ? 1 : QLG_TAS_NOT_SENT;
  for (int i = 0; result == 1 && i < kRoomTries; i++) {
    uint32_t r = CxSharedMem_loadWord(header + QLG_IPC_OFF_READ);
    if (r >= n) {
      result = QLG_TAS_NOT_SENT;
      break;
    }
    uint64_t room = r > w ? (uint64_t)r - w : (uint64_t)r + n - w;
    if (size + QLG_IPC_RESERVE <= room) result = 0;
    else CxSystem_sleepMillis(kRoomPauseMs); /* keeping the mutex: other writers wait too */
  }
  if (result == 0) {
    size_t first = n - w < size ? n - w : size;
    memcpy(ch->data + w, data->packet, first);
    memcpy(ch->data, data->packet + first, size - first);
    CxSharedMem_storeWord(header + QLG_IPC_OFF_WRITE, (uint32_t)(((uint64_t)w + size) % n));
  }
  CxMutex_unlock(ch->mutex);
  if (result == 1) {
    if (reporting(data)) QlgMisc_report(QLG_LEVEL_WARN, kMsgDiscarded, QlgMsgTable_text(kMsgDiscarded), 0);
    result = 0;
  }
  return result;
}

void openChannel(QlgTASHandlerData* data) {
  if (data->channelOpen) return;
  int code = QlgIpcChannel_open(data->ipcId, &data->channel);
  data->channelOpen = code == 0;
  if (code != 0) reportCode(data, kMsgOpenFailed, code);
}

/* The message text by the formatMessage slot of the handler's formatter. */
char* renderText(QlgObject* handler, QlgTASHandlerData* data, QlgEvent* event) {
  QlgObject* formatter = handler->field2.formatter;
  if (!formatter || !formatter->cls || formatter->cls->kind != QLG_KIND_FORMATTER)
    return QlgEvent_render(event, nullptr);
  /* Intended: a reference to the formatter is taken and never given back.
     One per formatter, not one per event, so the count cannot overflow. */
  if (data->heldFormatter != formatter) data->heldFormatter = QlgObject_addRef(formatter);
  return QlgEvent_render(event, formatter->cls->slots.formatter.formatMessage);
}

const char* eventProperty(const QlgEvent* event, const char* name) {
  return QlgEvent_peekString(event, name);
}

void publishEvent(QlgObject* handler, QlgTASHandlerData* data, QlgEvent* event) {
  if (!data->channelOpen) {
    openChannel(data);
    if (!data->channelOpen) {
      QlgObject_forwardToListeners(handler, event);
      return;
    }
  }
  uint32_t level;
  if (event->level == QLG_LEVEL_NONE) {
    if (handler->field3.value > kUnleveledSent) return;
    level = kUnleveledSent;
  } else {
    level = (uint32_t)(event->level < kHighestLevel ? event->level : kHighestLevel);
  }
  char* text = renderText(handler, data, event);
  char sequence[32] = "";
  if (data->traceEnabled) snprintf(sequence, sizeof sequence, " seq#=<%ld>", g_sequence++);
  int lineFound = 0;
  int32_t line = QlgEvent_peekInt(event, QLG_PROP_SRCLINE, &lineFound);
  int code = QlgTASHandler_send(handler, level, text ? text : "",
                                eventProperty(event, QLG_PROP_SRCFUNCTION),
                                eventProperty(event, QLG_PROP_SRCFILE),
                                lineFound ? (uint32_t)line : 0, event->time,
                                sequence);
  QlgMem_free(text);
  if (code != 0) reportCode(data, kMsgNotSent, code);
  QlgObject_forwardToListeners(handler, event);
}

void boolProperty(QlgObject* handler, const char* key, unsigned char* field) {
  int found = 0;
  int v = QlgObject_getBool(handler, key, &found);
  if (found) *field = v ? 1 : 0;
}

}  // namespace

extern "C" {

int QlgIpcChannel_open(const char* ipcId, QlgIpcChannel* channel) {
  if (!ipcId || !channel || strlen(ipcId) > QLG_IPC_ID_MAX) return QLG_IPC_OPEN_FAILED;
  memset(channel, 0, sizeof *channel);
  strcpy(channel->name, ipcId);
  char lockName[QLG_IPC_ID_MAX + 3];
  snprintf(lockName, sizeof lockName, "%s.s", ipcId);
  if (!CxStatus_isOk(CxMutex_openNamed(&channel->mutex, lockName))) return QLG_IPC_OPEN_FAILED;
  if (!CxStatus_isOk(CxSharedMem_open(&channel->mapping, ipcId)) ||
      CxSharedMem_size(channel->mapping) < QLG_IPC_HEADER_SIZE) {
    if (channel->mapping) CxSharedMem_close(&channel->mapping);
    CxMutex_close(&channel->mutex);
    return QLG_IPC_OPEN_FAILED;
  }
  channel->data = CxSharedMem_address(channel->mapping) + QLG_IPC_HEADER_SIZE;
  channel->ringSize = CxSharedMem_loadWord(CxSharedMem_address(channel->mapping));
  return 0;
}

int QlgIpcChannel_close(QlgIpcChannel* channel) {
  if (!channel) return 0;
  if (channel->mapping) CxSharedMem_close(&channel->mapping);
  channel->data = nullptr;
  /* Intended: the mutex handle is dropped, not closed; it lives until the
     process ends. */
  channel->mutex = nullptr;
  return 0;
}

void* QlgTASHandler_create(void) {
  QlgTASHandlerData* data = static_cast<QlgTASHandlerData*>(QlgMem_alloc(sizeof(QlgTASHandlerData)));
  if (!data) return nullptr;
  memset(data, 0, sizeof *data);
  data->loggerName = QlgMem_strdup(kDefaultLoggerName);
  data->ipcId = QlgMem_strdup(kDefaultIpcId);
  data->version = 1;
  data->logInternalErrs = 1;
  if (!data->loggerName || !data->ipcId) {
    QlgTASHandler_destroy(data);
    return nullptr;
  }
  return data;
}

void QlgTASHandler_destroy(void* p) {
  QlgTASHandlerData* data = static_cast<QlgTASHandlerData*>(p);
  if (!data) return;
  /* The object model closes first; a channel still open here (toolkit
     shutdown) is unmapped rather than left behind. */
  if (data->channelOpen) QlgIpcChannel_close(&data->channel);
  QlgMem_free(data->loggerName);
  QlgMem_free(data->ipcId);
  QlgMem_free(data->packet);
  QlgMem_free(data);
}

void QlgTASHandler_propertyChanged(QlgObject* handler, const char* key) {
  QlgTASHandlerData* data = tasData(handler);
  if (!data || !key) {
    QlgHandler_propertyChanged(handler, key);
    return;
  }
  if (strcmp(key, "tasLoggerName") == 0) {
    char* value = QlgObject_getString(handler, key, nullptr);
    if (value) replaceString(&data->loggerName, dashed(value));
    QlgMem_free(value);
  } else if (strcmp(key, "IPCID") == 0) {
    char* value = QlgObject_getString(handler, key, nullptr);
    if (!value) return;
    replaceString(&data->ipcId, value);
    if (data->channelOpen) QlgIpcChannel_close(&data->channel);
    data->channelOpen = QlgIpcChannel_open(data->ipcId, &data->channel) == 0;
  } else if (strcmp(key, "traceEnabled") == 0) {
    boolProperty(handler, key, &data->traceEnabled);
  } else if (strcmp(key, "logInternalErrs") == 0) {
    boolProperty(handler, key, &data->logInternalErrs);
  } else {
    QlgHandler_propertyChanged(handler, key);
  }
}

void QlgTASHandler_open(QlgObject* handler) {
  QlgTASHandlerData* data = tasData(handler);
  if (data) openChannel(data);
}

void QlgTASHandler_close(QlgObject* handler) {
  QlgTASHandlerData* data = tasData(handler);
  if (!data) return;
  if (data->channelOpen) QlgIpcChannel_close(&data->channel);
  data->channelOpen = 0;
}

void QlgTASHandler_publish(QlgObject* handler, QlgEvent* event) {
  if (!handler || !event || !handler->logging) return;
  QlgTASHandlerData* data = tasData(handler);
  if (!data) return;
  data->depth++;
  publishEvent(handler, data, event);
  data->depth--;
}

int QlgTASHandler_send(QlgObject* handler, uint32_t level, const char* text, const char* function,
                       const char* file, uint32_t line, int64_t time, const char* sequence) {
  QlgTASHandlerData* data = tasData(handler);
  if (!data) return QLG_TAS_NOT_SENT;
  if (!text) text = "";
  if (!function) function = "";
  if (!file) file = "";
  if (!sequence) sequence = "";
  uint32_t n = usableRingSize(&data->channel);
  size_t t = strlen(text), q = strlen(sequence);
  bool cut = false;
  if (n != 0 && (int64_t)t > (int64_t)n - QLG_TAS_TEXT_MARGIN - (int64_t)q) {
    int64_t room = (int64_t)n - QLG_TAS_TEXT_MARGIN - (int64_t)q;
    t = room > 0 ? (size_t)room : 0;
    cut = true;
  }
  size_t m = t + (cut ? kTruncatedLength : 0) + q;
  size_t l = strlen(data->loggerName), f = strlen(function), g = strlen(file);
  uint64_t size = (uint64_t)QLG_TAS_PACKET_FIXED + l + m + f + (g ? g + 4 : 0);
  /* Larger than any ring: refused below without building it. */
  if (size > UINT32_MAX) return QLG_TAS_NOT_SENT;
  if (!reservePacket(data, (size_t)size)) return QLG_TAS_NO_MEMORY;

  unsigned char* p = put32(data->packet, (uint32_t)size);
  p = put32(p, data->version);
  p = put32(p, level);
  p = putBytes(p, data->loggerName, l);
  p = put32(p, (uint32_t)((uint64_t)time >> 32));
  p = put32(p, (uint32_t)time);
  p = put32(p, (uint32_t)m);
  char* message = reinterpret_cast<char*>(p);
  memcpy(p, text, t);
  p += t;
  if (cut) {
    memcpy(p, QLG_TAS_TRUNCATED, kTruncatedLength);
    p += kTruncatedLength;
  }
  memcpy(p, sequence, q);
  p += q;
  dashTag(message, t);
  p = putBytes(p, function, f);
  p = putBytes(p, file, g);
  if (g) put32(p, line);

  if (!data->channel.data || size + QLG_IPC_RESERVE > n) return QLG_TAS_NOT_SENT;
  return writeRing(data, n, (size_t)size);
}

}  // extern "C"
