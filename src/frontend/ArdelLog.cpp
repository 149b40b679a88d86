// SPDX-License-Identifier: Apache-2.0
/*
 * Loggers of your own (<ardel/log.h>).  A thin layer over the toolkit: the
 * logger is an ordinary toolkit logger found by name, and a statement is a
 * trace event at the statement's level whose text is already formatted, so
 * the record looks exactly like a component trace line.
 */
#include <ardel/log.h>

#include <stdio.h>
#include <string.h>

#include <ardel/QlgLogger.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>

#include "frontend/CLogWrapperInt.h"
#include "handlers/QlgAsyncHandler.h"

namespace {

/* Room of the formatted text, as for the component records. */
const size_t kTextSize = 1024;

/* The toolkit takes the finished text as the format with an empty tagged
   list (the trailing 0), so a "%" in it never reaches for an argument. */
void logText(QlgObject* logger, int level, const char* file, const char* function, uint32_t line,
             const char* text, ...) {
  va_list none;
  va_start(none, text);
  if (QlgToolkit_enter()) {
    QlgLogger_logEvent(logger, level, file, function, line, text, none);
    QlgToolkit_leave();
  }
  va_end(none);
}

}  // namespace

extern "C" {

int ardel_initialize(const char* path) { return initializeWrapper(path); }

ArdelLogger* ardel_getLogger(const char* name) {
  if (!name || !*name) return nullptr;
  if (!QlgToolkit_initialize(CLogWrapper_configPath())) return nullptr;
  QlgObject* obj = QlgObject_create(name, nullptr);
  if (obj && (!obj->cls || obj->cls->kind != QLG_KIND_LOGGER)) {
    QlgObject_release(obj);
    return nullptr;
  }
  return obj;
}

void ardel_releaseLogger(ArdelLogger* logger) { QlgObject_release(logger); }

int ardel_isEnabled(const ArdelLogger* logger, int level) { return ardel_enabled_(logger, level); }

void ardel_vlog(ArdelLogger* logger, int level, const char* file, int line, const char* function,
                const char* format, va_list args) {
  if (!ardel_enabled_(logger, level)) return;
  char text[kTextSize];
  if (format)
    vsnprintf(text, sizeof text, format, args);
  else
    text[0] = '\0';
  logText(logger, level, file, function, static_cast<uint32_t>(line), text, 0);
}

void ardel_flush(void) { QlgAsyncHandler_flushAll(); }

void ardel_log(ArdelLogger* logger, int level, const char* file, int line, const char* function,
               const char* format, ...) {
  va_list args;
  va_start(args, format);
  ardel_vlog(logger, level, file, line, function, format, args);
  va_end(args);
}

}  // extern "C"
