// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_zarvotraceformatter.  The class has a format slot only: without a
 * propertyChanged slot its objects never take a separator, date-time
 * format or locale, so the stamp is always the built-in one and the event's
 * locale is left alone.  Fields are never left out: an absent one leaves
 * its two separators side by side.
 */
#include "formatters/QlgZarvoTraceFormatter.h"

#include <stdio.h>
#include <string.h>

#include <ardel/QlgLevel.h>
#include <ardel/QlgMem.h>
#include "formatters/QlgBasicFormatter.h"
#include "formatters/QlgRecordBuffer.h"
#include "formatters/QlgXmlFormatter.h"
#include "util/QlgStringToStringMap.h"

namespace {

const char kSep[] = " - ";


/* The properties the line shows, picked out in one walk. */
struct LineFields {
  const char* server;
  const char* processId;
  const char* threadId;
  const char* file;
  const char* function;
  const char* line;
  char lineText[16];  /* a trace call's line, which the event holds as a number */
};

void collectFields(const QlgEvent* event, LineFields* f) {
  memset(f, 0, sizeof *f);
  for (const QlgStringToStringMapEntry* e = QlgStringToStringMap_first(event->props); e; e = e->next) {
    const char* k = e->key;
    const char* v = e->value ? e->value : "";
    if (k[0] == 's' && strcmp(k, "server") == 0) f->server = v;
    else if (k[0] == 'p' && strcmp(k, "processId") == 0) f->processId = v;
    else if (k[0] == 't' && strcmp(k, "threadId") == 0) f->threadId = v;
    else if (k[0] == 'q' && strcmp(k, QLG_PROP_SRCFILE) == 0) f->file = v;
    else if (k[0] == 'q' && strcmp(k, QLG_PROP_SRCFUNCTION) == 0) f->function = v;
    else if (k[0] == 'q' && strcmp(k, QLG_PROP_SRCLINE) == 0) f->line = v;
  }
  /* A trace call's source location is kept beside the property set. */
  if (event->srcFlags & QLG_EVENT_SRC_FILE) {
    f->file = event->srcFile ? event->srcFile : "";
    snprintf(f->lineText, sizeof f->lineText, "%d", static_cast<int>(event->srcLine));
    f->line = f->lineText;
  }
  if (event->srcFlags & QLG_EVENT_SRC_FUNCTION) f->function = event->srcFunction ? event->srcFunction : "";
}

/* Unsigned decimal of a numeric property text ("%d" rules); 0 and a text
   that is no number give no digits at all: intended. */
bool appendUnsigned(CxStringBuff* b, const char* text) {
  const char* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
  bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  uint64_t v = 0;
  for (; *p >= '0' && *p <= '9'; ++p) v = v * 10 + static_cast<uint64_t>(*p - '0');
  /* A number the system gave as negative is its 32-bit unsigned value. */
  if (negative) v = static_cast<uint32_t>(0 - v);
  return CxStringBuff_appendUInt64(b, v) != 0;
}

bool appendLine(CxStringBuff* b, QlgObject* formatter, QlgEvent* event) {
  LineFields f;
  collectFields(event, &f);
  bool ok = QlgRecord_put(b, "\x1E[");
  char* stamp = QlgBasicFormatter_timeStamp(formatter, QlgEvent_getTime(event));
  if (stamp) ok = ok && QlgRecord_putText(b, stamp);
  QlgMem_free(stamp);
  ok = ok && QlgRecord_put(b, "]") && QlgRecord_put(b, kSep) &&
       QlgRecord_putText(b, QlgZarvoTraceFormatter_levelTag(QlgEvent_getLevel(event))) && QlgRecord_put(b, kSep);
  /* The short host name: up to the first "." of a qualified one. */
  if (ok && f.server) ok = QlgRecord_put(b, f.server, strcspn(f.server, "."));
  ok = ok && QlgRecord_put(b, kSep);
  if (ok && f.processId) ok = QlgRecord_put(b, "p") && appendUnsigned(b, f.processId);
  if (ok && f.processId && f.threadId) ok = QlgRecord_put(b, ":");
  if (ok && f.threadId) ok = QlgRecord_put(b, "t") && appendUnsigned(b, f.threadId);
  ok = ok && QlgRecord_put(b, kSep);
  if (ok && f.file) ok = QlgRecord_putText(b, f.file);
  if (ok && f.file && f.function) ok = QlgRecord_put(b, ":");
  if (ok && f.function) ok = QlgRecord_putText(b, f.function);
  if (ok && f.line) ok = QlgRecord_put(b, "(") && appendUnsigned(b, f.line) && QlgRecord_put(b, ")");
  ok = ok && QlgRecord_put(b, kSep);

  char* text = QlgEvent_render(event, nullptr);
  char parsed[11];
  const char* id = event->messageId && *event->messageId ? event->messageId
                                                          : QlgXmlFormatter_idOfText(text, parsed);
  ok = ok && QlgRecord_putText(b, id) && QlgRecord_put(b, kSep) && (!text || QlgRecord_putText(b, text)) && QlgRecord_put(b, "\n");
  QlgMem_free(text);
  return ok;
}

}  // namespace

extern "C" {

const char* QlgZarvoTraceFormatter_levelTag(int32_t level) {
  switch (level) {
    case QLG_LEVEL_DEBUG_MAX: return " MAX ";
    case QLG_LEVEL_DEBUG_MID: return " MID ";
    case QLG_LEVEL_DEBUG_MIN: return " MIN ";
    case QLG_LEVEL_INFO: return "INFO ";
    case QLG_LEVEL_WARN: return "WARN ";
    case QLG_LEVEL_ERROR:
    case QLG_LEVEL_FATAL: return "ERROR";
    default: return "OTHER";
  }
}

char* QlgZarvoTraceFormatter_format(QlgObject* formatter, QlgEvent* event) {
  if (!formatter || !event) return nullptr;
  QlgRecordBuffer record;
  return appendLine(record.get(), formatter, event) ? record.copy() : nullptr;
}

}  // extern "C"
