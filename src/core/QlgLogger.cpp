// SPDX-License-Identifier: Apache-2.0
/*
 * Loggers: the entry of the event chain.  The threshold is tested before the
 * toolkit lock is taken, with relaxed atomic loads of the switch and the
 * threshold: a suppressed call costs two comparisons, allocates nothing,
 * locks nothing and calls nothing.  Everything from event creation to the
 * last handler runs under the lock.
 */
#include <ardel/QlgLogger.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgParm.h>
#include <ardel/QlgToolkit.h>
#include <cstring>

#include "handlers/QlgFileHandler.h"
#include "msg/QlgMsgTable.h"
#include "util/CxHot.h"

namespace {

inline bool passesThreshold(const QlgObject* logger, int level) {
  if (!logger || !__atomic_load_n(&logger->logging, __ATOMIC_RELAXED)) return false;
  int32_t threshold = __atomic_load_n(&logger->field1.level, __ATOMIC_RELAXED);
  return threshold == QLG_LEVEL_NONE || threshold <= level;
}

inline bool canLog(const QlgObject* logger) {
  return logger && logger->logging && logger->cls && logger->cls->kind == QLG_KIND_LOGGER &&
         logger->cls->slots.logger.log;
}

/* A file handler that finds other threads waiting for the lock leaves its
   record to the next holder (group commit); whatever is still left when
   this call has the lock back is written then, so the record has reached
   the file before the call returns. */
CX_HOT __attribute__((noinline)) void logAt(QlgObject* logger, int level, const char* file,
                                            const char* function, uint32_t line,
                                            const char* format, va_list args) {
  if (!QlgToolkit_enter()) return;
  QlgFileHandler_allowGroupCommit(1);
  QlgLogger_logEvent(logger, level, file, function, line, format, args);
  QlgFileHandler_allowGroupCommit(0);
  QlgToolkit_leave();
  if (QlgFileHandler_leftRecords() && QlgToolkit_enter()) {
    QlgFileHandler_writeLeftRecords();
    QlgToolkit_leave();
  }
}

}  // namespace

extern "C" {

int QlgLogger_isLoggable(const QlgObject* logger, int level) {
  if (!logger || !__atomic_load_n(&logger->logging, __ATOMIC_RELAXED)) return 0;
  if (level == QLG_LEVEL_NONE) return 1;
  return passesThreshold(logger, level);
}

#define QLG_DEFINE_LOG_CALL(fn, level)                                                         \
  CX_HOT void fn(QlgObject* logger, const char* file, const char* function, uint32_t line,     \
                 const char* format, ...) {                                                    \
    if (!passesThreshold(logger, level)) return;                                               \
    va_list ap;                                                                                \
    va_start(ap, format);                                                                      \
    logAt(logger, level, file, function, line, format, ap);                                    \
    va_end(ap);                                                                                \
  }

QLG_DEFINE_LOG_CALL(QlgLogger_logMax, QLG_LEVEL_DEBUG_MAX)
QLG_DEFINE_LOG_CALL(QlgLogger_logMid, QLG_LEVEL_DEBUG_MID)
QLG_DEFINE_LOG_CALL(QlgLogger_logMin, QLG_LEVEL_DEBUG_MIN)

CX_HOT void QlgLogger_logEvent(QlgObject* logger, int level, const char* file,
                               const char* function, uint32_t line, const char* format,
                               va_list args) {
  if (!canLog(logger)) return;
  /* The event lives exactly as long as this call, so it and its message
     sit on the stack and borrow the caller's texts: a trace record costs no
     allocation unless it carries typed parameters. */
  QlgEvent event;
  QlgI18Msg message;
  QlgEvent_initTrace(&event, &message, level, format);
  QlgEvent_addTagged(&event, args);
  /* The line means nothing without its file. */
  if (file) {
    event.srcFile = file;
    event.srcLine = static_cast<int32_t>(line);
    event.srcFlags |= QLG_EVENT_SRC_FILE;
  }
  if (function) {
    event.srcFunction = function;
    event.srcFlags |= QLG_EVENT_SRC_FUNCTION;
  }
  logger->cls->slots.logger.log(logger, &event);
  QlgEvent_release(&event);
}

void QlgLogger_logMessage(QlgObject* logger, int level, const char* catalog, uint32_t set,
                          uint32_t key, const char* defaultText, va_list args) {
  if (!canLog(logger)) return;
  QlgEvent* event = QlgEvent_create(level, catalog, set, key, defaultText, args);
  if (!event) return;
  QlgEvent_markMessage(event, 1);
  logger->cls->slots.logger.log(logger, event);
  QlgEvent_free(event);
}

/* An empty level does not leave the threshold alone, whatever the message
   says: it sets INFO.  Configurations depend on this. */
void QlgLogger_propertyChanged(QlgObject* obj, const char* key) {
  if (!obj || !key) return;
  if (std::strcmp(key, "level") != 0) {
    QlgObject_basePropertyChanged(obj, key);
    return;
  }
  int found = 0;
  char* value = QlgObject_getString(obj, "level", &found);
  int32_t level;
  if (found && value && value[0]) {
    level = QlgLevel_parse(value);
  } else {
    QlgMisc_report(5000, 4, QlgMsgTable_text(4), QLG_PARM_STRING, "level", QLG_PARM_STRING,
                   obj->name, 0);
    level = QLG_LEVEL_INFO;
  }
  QlgMem_free(value);
  __atomic_store_n(&obj->field1.level, level, __ATOMIC_RELAXED);
}

}  // extern "C"
