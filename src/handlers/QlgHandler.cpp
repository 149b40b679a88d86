/*
 * Handler base: the handler's link to its formatter and the formatter slots
 * reached through it, shared by every handler class.  A handler holds one
 * counted reference to its formatter; the shared ardel.defaultFormatter
 * therefore lives as long as any handler still uses it.
 */
#include "handlers/QlgHandler.h"

#include <string.h>

#include <ardel/QlgMem.h>

namespace {

/* The handler's formatter when it is a formatter object; not referenced. */
QlgObject* formatterOf(const QlgObject* handler) {
  if (!QlgHandler_isHandler(handler)) return nullptr;
  QlgObject* fmt = handler->field2.formatter;
  if (!fmt || !fmt->cls || fmt->cls->kind != QLG_KIND_FORMATTER) return nullptr;
  return fmt;
}

}  // namespace

extern "C" {

int QlgHandler_isHandler(const QlgObject* obj) {
  return obj && obj->cls && obj->cls->kind == QLG_KIND_HANDLER;
}

char* QlgHandler_format(QlgObject* handler, QlgEvent* event) {
  QlgObject* fmt = formatterOf(handler);
  if (!fmt || !fmt->cls->slots.formatter.format) return nullptr;
  return fmt->cls->slots.formatter.format(fmt, event);
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

}  // extern "C"
