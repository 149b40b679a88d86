// SPDX-License-Identifier: Apache-2.0
/*
 * Handler base: the handler's link to its formatter and the formatter slots
 * reached through it, shared by every handler class.  A handler holds one
 * counted reference to its formatter; the shared ardel.defaultFormatter
 * therefore lives as long as any handler still uses it.
 */
#include "handlers/QlgHandler.h"

#include <ctype.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <ardel/QlgMem.h>
#include "formatters/QlgBasicFormatter.h"
#include "util/CxStringBuff.h"
#include "util/CxHot.h"

namespace {

/* The handler's formatter when it is a formatter object; not referenced. */
QlgObject* formatterOf(const QlgObject* handler) {
  if (!QlgHandler_isHandler(handler)) return nullptr;
  QlgObject* fmt = handler->field2.formatter;
  if (!fmt || !fmt->cls || fmt->cls->kind != QLG_KIND_FORMATTER) return nullptr;
  return fmt;
}

/* One record's text per thread.  Trivially destructible so that it stays
   usable while other thread-local destructors run; the guard frees its
   storage when the thread ends. */
thread_local CxStringBuff t_line QLG_TLS_IE;
thread_local bool t_lineBusy QLG_TLS_IE;
struct LineGuard {
  bool armed = false;
  ~LineGuard() { CxStringBuff_free(&t_line); }
};
thread_local LineGuard t_lineGuard QLG_TLS_IE;

}  // namespace

extern "C" {

CX_HOT int QlgHandler_isHandler(const QlgObject* obj) {
  return obj && obj->cls && obj->cls->kind == QLG_KIND_HANDLER;
}

char* QlgHandler_format(QlgObject* handler, QlgEvent* event) {
  QlgObject* fmt = formatterOf(handler);
  if (!fmt || !fmt->cls->slots.formatter.format) return nullptr;
  return fmt->cls->slots.formatter.format(fmt, event);
}

CX_HOT int QlgHandler_formatInto(QlgObject* handler, QlgEvent* event, CxStringBuff* out) {
  QlgObject* fmt = formatterOf(handler);
  if (!fmt || !out || !fmt->cls->slots.formatter.format) return 0;
  if (fmt->cls->slots.formatter.format == QlgBasicFormatter_format)
    return QlgBasicFormatter_formatInto(fmt, event, out);
  char* text = fmt->cls->slots.formatter.format(fmt, event);
  if (!text) return 0;
  int ok = CxStringBuff_append(out, text);
  QlgMem_free(text);
  return ok;
}

CX_HOT CxStringBuff* QlgHandler_acquireBuffer(void) {
  if (t_lineBusy) return nullptr;
  CxStringBuff* b = &t_line;
  if (!b->data) t_lineGuard.armed = true; /* registers the guard's destructor */
  t_lineBusy = true;
  CxStringBuff_clear(b);
  return b;
}

CX_HOT void QlgHandler_releaseBuffer(CxStringBuff* buffer) {
  if (buffer == &t_line) {
    t_lineBusy = false;
    /* A rare huge record must not pin its storage for the thread's life. */
    if (buffer->capacity > 65536) CxStringBuff_free(buffer);
  }
}

char* QlgHandler_getHead(QlgObject* handler) {
  QlgObject* fmt = formatterOf(handler);
  if (!fmt || !fmt->cls->slots.formatter.getHead) return nullptr;
  return fmt->cls->slots.formatter.getHead(fmt);
}

char* QlgHandler_getTail(QlgObject* handler) {
  QlgObject* fmt = formatterOf(handler);
  if (!fmt || !fmt->cls->slots.formatter.getTail) return nullptr;
  return fmt->cls->slots.formatter.getTail(fmt);
}

QlgObject* QlgHandler_getFormatter(QlgObject* handler) {
  if (!QlgHandler_isHandler(handler)) return nullptr;
  return QlgObject_addRef(handler->field2.formatter);
}

void QlgHandler_setFormatter(QlgObject* handler, QlgObject* formatter) {
  if (!QlgHandler_isHandler(handler)) return;
  /* Take the new reference first: installing the formatter the handler
     already holds must not tear it down in between. */
  QlgObject* old = handler->field2.formatter;
  handler->field2.formatter = QlgObject_addRef(formatter);
  QlgObject_release(old);
}

void QlgHandler_propertyChanged(QlgObject* handler, const char* key) {
  if (!handler || !handler->cls || !key) return;
  if (strcmp(key, "formatterName") != 0) {
    QlgObject_basePropertyChanged(handler, key);
    return;
  }
  char* name = QlgObject_getString(handler, key, nullptr);
  if (!name) return;
  /* No class name: a formatter that is not defined yet is created from its
     own configuration. */
  QlgObject* fmt = QlgObject_findOrCreate(name, nullptr);
  QlgMem_free(name);
  if (!fmt) return;
  QlgHandler_setFormatter(handler, fmt);
  QlgObject_release(fmt);
}

int QlgHandler_parseRange(const char* s, long min, long max, long* out) {
  if (!s || !out) return 0;
  while (isspace((unsigned char)*s)) s++;
  char* end = nullptr;
  errno = 0;
  long v = strtol(s, &end, 10);
  if (end == s || errno == ERANGE) return 0;
  while (isspace((unsigned char)*end)) end++;
  if (*end || v < min || v > max) return 0;
  *out = v;
  return 1;
}

}  // extern "C"
