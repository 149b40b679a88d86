// SPDX-License-Identifier: Apache-2.0
/*
 * Events: built from a log call's tagged argument list, handed down the
 * chain synchronously and freed when the chain returns.
 *
 * The tagged list is walked item by item: a level tag sets the level, a
 * typed item becomes the next positional parameter of the message, tag 201
 * names a property.  A list that runs past 63 tags, or holds an unknown tag,
 * is reported and the event is delivered with what was read so far.
 */
#include <ardel/QlgEvent.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgParm.h>
#include <ardel/QlgToolkit.h>
#include <cstring>

#include "msg/QlgMsgTable.h"
#include "msg/QlgParmList.h"
#include "util/QlgStringToStringMap.h"
#include "platform/CxSystem.h"
#include "util/CxHot.h"

namespace {

const int kMaxTags = 63;

bool isLevelTag(int tag) {
  switch (tag) {
    case 1000: case 2000: case 3000: case 4000: case 5000:
    case 6000: case 7000: case 9999: case -9999:
      return true;
    default:
      return false;
  }
}

/* Reads the value of a typed item; false for a kind outside 501..507. */
bool readParm(int kind, va_list* args, QlgParm* parm) {
  parm->kind = kind;
  switch (kind) {
    case QLG_PARM_CHAR: parm->value.c = static_cast<char>(va_arg(*args, int)); return true;
    case QLG_PARM_INT: parm->value.i = va_arg(*args, int); return true;
    case QLG_PARM_LONG: parm->value.l = va_arg(*args, long); return true;
    case QLG_PARM_FLOAT: parm->value.f = static_cast<float>(va_arg(*args, double)); return true;
    case QLG_PARM_DOUBLE: parm->value.d = va_arg(*args, double); return true;
    case QLG_PARM_UCHAR: parm->value.uc = static_cast<unsigned char>(va_arg(*args, int)); return true;
    case QLG_PARM_STRING: parm->value.s = const_cast<char*>(va_arg(*args, const char*)); return true;
    default: return false;
  }
}

QlgProps* rawProps(QlgEvent* event) {
  if (!event->props) event->props = QlgProps_create();
  return event->props;
}

/* Files the borrowed source location into the property set, in the order
   in which a trace call used to add it, so that whoever reads or changes
   the set sees what it always saw. */
void materialize(QlgEvent* event) {
  unsigned char flags = event->srcFlags;
  if (!flags) return;
  event->srcFlags = 0;
  QlgProps* props = rawProps(event);
  if (flags & QLG_EVENT_SRC_FILE) {
    QlgProps_setString(props, QLG_PROP_SRCFILE, event->srcFile);
    QlgProps_setInt(props, QLG_PROP_SRCLINE, event->srcLine);
  }
  if (flags & QLG_EVENT_SRC_FUNCTION) QlgProps_setString(props, QLG_PROP_SRCFUNCTION, event->srcFunction);
}

QlgProps* ensureProps(QlgEvent* event) {
  materialize(event);
  return rawProps(event);
}

/* The lazy field behind a source-location property name; 0 for others. */
int srcKind(const QlgEvent* event, const char* name) {
  if (!event->srcFlags || !name || name[0] != 'q') return 0;
  if (std::strcmp(name, QLG_PROP_SRCFILE) == 0) return 1;
  if (std::strcmp(name, QLG_PROP_SRCLINE) == 0) return 2;
  if (std::strcmp(name, QLG_PROP_SRCFUNCTION) == 0) return 3;
  return 0;
}

/* A named property is stored as the text its kind renders to. */
void addProperty(QlgEvent* event, const char* name, const QlgParm& p) {
  if (p.kind == QLG_PARM_STRING) {
    QlgProps_setString(ensureProps(event), name, p.value.s);
    return;
  }
  char* text = QlgParm_toString(&p);
  if (text) QlgProps_setString(ensureProps(event), name, text);
  QlgMem_free(text);
}

void reportList(uint32_t key) { QlgMisc_report(6000, key, QlgMsgTable_text(key), 0); }

/* The tagged list of a trace record is empty: only a list that holds
   something is read here, out of the per-record path. */
void addTags(QlgEvent* event, va_list args) {
  va_list ap;
  va_copy(ap, args);
  for (int count = 1;; count++) {
    if (count > kMaxTags) {
      reportList(70);
      break;
    }
    int tag = va_arg(ap, int);
    if (tag == 0) break;
    if (isLevelTag(tag)) {
      event->level = tag;
      continue;
    }
    QlgParm parm;
    if (tag == QLG_PROPERTY) {
      const char* name = va_arg(ap, const char*);
      if (!readParm(va_arg(ap, int), &ap, &parm)) {
        reportList(71);
        break;
      }
      if (name) addProperty(event, name, parm);
      continue;
    }
    if (!readParm(tag, &ap, &parm)) {
      reportList(71);
      break;
    }
    QlgI18Msg_addParm(event->message, &parm);
  }
  va_end(ap);
}

}  // namespace

extern "C" {

QlgEvent* QlgEvent_create(int32_t level, const char* catalog, uint32_t set, uint32_t key,
                          const char* text, va_list args) {
  QlgEvent* event = static_cast<QlgEvent*>(QlgMem_alloc(sizeof(QlgEvent)));
  if (!event) return nullptr;
  std::memset(event, 0, sizeof(QlgEvent));
  event->time = CxSystem_currentTimeMillis();
  event->message = QlgI18Msg_create(catalog, set, key, text ? text : "");
  if (!event->message) {
    QlgMem_free(event);
    return nullptr;
  }
  event->level = level;
  event->isMessage = catalog != nullptr;
  QlgEvent_addTagged(event, args);
  return event;
}

CX_HOT void QlgEvent_addTagged(QlgEvent* event, va_list args) {
  if (!event) return;
  va_list ap;
  va_copy(ap, args);
  int first = va_arg(ap, int);
  va_end(ap);
  if (first != 0) addTags(event, args);
}

CX_HOT void QlgEvent_initTrace(QlgEvent* event, QlgI18Msg* message, int32_t level,
                               const char* text) {
  if (!event || !message) return;
  std::memset(event, 0, sizeof(QlgEvent));
  std::memset(message, 0, sizeof(QlgI18Msg));
  message->defaultText = const_cast<char*>(text ? text : "");
  event->time = CxSystem_currentTimeMillis();
  event->message = message;
  event->level = level;
}

CX_HOT void QlgEvent_release(QlgEvent* event) {
  if (!event) return;
  if (event->message) QlgParmList_free(event->message->parms);
  QlgProps_destroy(event->props);
  QlgMem_free(event->messageId);
  event->props = nullptr;
  event->messageId = nullptr;
}

QlgEvent* QlgEvent_createTagged(int32_t level, const char* catalog, uint32_t set, uint32_t key,
                                const char* text, ...) {
  va_list ap;
  va_start(ap, text);
  QlgEvent* event = QlgEvent_create(level, catalog, set, key, text, ap);
  va_end(ap);
  return event;
}

void QlgEvent_free(QlgEvent* event) {
  if (!event) return;
  QlgI18Msg_free(event->message);
  QlgProps_destroy(event->props);
  QlgMem_free(event->messageId);
  QlgMem_free(event);
}

int32_t QlgEvent_getLevel(const QlgEvent* event) { return event ? event->level : QLG_LEVEL_NONE; }
CX_HOT int64_t QlgEvent_getTime(const QlgEvent* event) { return event ? event->time : 0; }
int QlgEvent_isMessage(const QlgEvent* event) { return event ? event->isMessage : 0; }
void QlgEvent_markMessage(QlgEvent* event, int flag) {
  if (event) event->isMessage = flag ? 1 : 0;
}

char* QlgEvent_getMessageId(const QlgEvent* event) {
  return event ? QlgMem_strdup(event->messageId) : nullptr;
}

void QlgEvent_setMessageId(QlgEvent* event, const char* id) {
  if (!event) return;
  char* copy = QlgMem_strdup(id);
  if (id && !copy) return;
  QlgMem_free(event->messageId);
  event->messageId = copy;
}

void QlgEvent_setLocale(QlgEvent* event, const QlgLocale* locale) {
  if (event) event->locale = locale;
}

char* QlgEvent_render(QlgEvent* event, char* (*render)(const QlgI18Msg*, const QlgLocale*)) {
  if (!event) return nullptr;
  if (event->locale) QlgI18Msg_setLocale(event->message, event->locale);
  if (render) return render(event->message, event->locale);
  return QlgI18Msg_render(event->message);
}

void QlgEvent_addStringProperty(QlgEvent* event, const char* name, const char* text) {
  if (event && name) QlgProps_setString(ensureProps(event), name, text);
}
void QlgEvent_addIntProperty(QlgEvent* event, const char* name, int value) {
  if (event && name) QlgProps_setInt(ensureProps(event), name, value);
}
void QlgEvent_addLongProperty(QlgEvent* event, const char* name, long value) {
  if (event && name) QlgProps_setLong(ensureProps(event), name, value);
}

/* The getters answer from the set, so lazy fields are filed first; the
   event is the caller's own for the call's duration. */
char* QlgEvent_getStringProperty(const QlgEvent* event, const char* name, int* found) {
  if (event && event->srcFlags) materialize(const_cast<QlgEvent*>(event));
  return QlgProps_getString(event ? event->props : nullptr, name, found);
}
int32_t QlgEvent_getIntProperty(const QlgEvent* event, const char* name, int* found) {
  if (event && event->srcFlags) materialize(const_cast<QlgEvent*>(event));
  return QlgProps_getInt(event ? event->props : nullptr, name, found);
}
int64_t QlgEvent_getInt64Property(const QlgEvent* event, const char* name, int* found) {
  if (event && event->srcFlags) materialize(const_cast<QlgEvent*>(event));
  return QlgProps_getInt64(event ? event->props : nullptr, name, found);
}

const char* QlgEvent_peekString(const QlgEvent* event, const char* name) {
  if (!event) return nullptr;
  switch (srcKind(event, name)) {
    case 1: if (event->srcFlags & QLG_EVENT_SRC_FILE) return event->srcFile; break;
    case 3: if (event->srcFlags & QLG_EVENT_SRC_FUNCTION) return event->srcFunction; break;
    case 2: if (event->srcFlags & QLG_EVENT_SRC_FILE) {
        materialize(const_cast<QlgEvent*>(event)); /* the line as text lives in the set */
      }
      break;
    default: break;
  }
  return event->props ? QlgStringToStringMap_peek(event->props, name) : nullptr;
}

int32_t QlgEvent_peekInt(const QlgEvent* event, const char* name, int* found) {
  if (event && srcKind(event, name) == 2 && (event->srcFlags & QLG_EVENT_SRC_FILE)) {
    if (found) *found = 1;
    return event->srcLine;
  }
  return QlgEvent_getIntProperty(event, name, found);
}

QlgProps* QlgEvent_props(QlgEvent* event) {
  if (!event) return nullptr;
  materialize(event);
  return event->props;
}

}  // extern "C"
