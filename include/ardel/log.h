/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Loggers of your own: any configured logger by its dotted name, and one
 * statement per severity.  The same properties file that configures the
 * component records configures these loggers:
 *
 * @code
 *   myapp.loggers.main.className=qlg_basiclogger
 *   myapp.loggers.main.level=INFO
 *   myapp.loggers.main.listenerNames=myapp.file
 * @endcode
 *
 * @code
 *   ArdelLogger* log = ardel_getLogger("myapp.loggers.main");
 *   ARDEL_INFO(log, "started with %d workers", n);
 *   ARDEL_ERROR(log, "cannot open %s", path);
 * @endcode
 *
 * The statements fill in file, line and function, let the compiler check the
 * format, and test the logger's threshold inline: a suppressed statement
 * evaluates none of its arguments and calls nothing.  A null logger (a name
 * that could not be had) makes every statement a no-op.  Usable from C and C++.
 */
#ifndef ARDEL_LOG_H
#define ARDEL_LOG_H

#include <stdarg.h>
#include <ardel/export.h>
#include <ardel/CLogWrapper.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgObject.h>

ARDEL_BEGIN_C

typedef struct QlgObject ArdelLogger;

/* Settles the properties file exactly as initializeWrapper does (a null path
   searches TYX_TEST, then the suite's ini file).  Optional; returns the
   path's length. */
ARDEL_API int ardel_initialize(const char* path);

/* The logger configured under name, starting the toolkit on first use.  A
   name inherits every property it does not set from its dotted ancestors,
   so "app.db.pool" is a logger of its own as soon as "app" names a logger
   class, and "app.db.level" can still give it another level.  Null (with
   the toolkit's message) when neither the name nor an ancestor gives a
   logger class.  The caller owns one reference; ardel_releaseLogger drops it. */
ARDEL_API ArdelLogger* ardel_getLogger(const char* name);
ARDEL_API void ardel_releaseLogger(ArdelLogger* logger);

/* 1 when a statement at level would reach the logger's listeners. */
ARDEL_API int ardel_isEnabled(const ArdelLogger* logger, int level);

/* Formats with printf rules (text cut at 1,023 characters) and logs at level.
   The statements below call this only when the level is enabled. */
ARDEL_API void ardel_log(ArdelLogger* logger, int level, const char* file, int line,
                         const char* function, const char* format, ...) ARDEL_PRINTF_LIKE(6, 7);
ARDEL_API void ardel_vlog(ArdelLogger* logger, int level, const char* file, int line,
                          const char* function, const char* format, va_list args);

/* Waits until every record queued by an asynchronous handler
   (qlg_asynchandler) before this call has been handed to its listeners.
   Returns at once when nothing is queued.  Usable from any thread. */
ARDEL_API void ardel_flush(void);

ARDEL_END_C

/* The inline threshold test: the same relaxed loads the toolkit makes before
   it takes its lock, so a level changed by configuration is seen at once. */
static inline int ardel_enabled_(const ArdelLogger* logger, int level) {
  int threshold;
  if (!logger || !__atomic_load_n(&logger->logging, __ATOMIC_RELAXED)) return 0;
  threshold = __atomic_load_n(&logger->field1.level, __ATOMIC_RELAXED);
  return threshold == QLG_LEVEL_NONE || threshold <= level;
}

#define ARDEL_LOG(logger, level, ...)                                            \
  do {                                                                           \
    ArdelLogger* ardel_lg_ = (logger);                                           \
    if (ardel_enabled_(ardel_lg_, (level)))                                      \
      ardel_log(ardel_lg_, (level), __FILE__, __LINE__, __func__, __VA_ARGS__);  \
  } while (0)

#define ARDEL_FATAL(logger, ...) ARDEL_LOG(logger, QLG_LEVEL_FATAL, __VA_ARGS__)
#define ARDEL_ERROR(logger, ...) ARDEL_LOG(logger, QLG_LEVEL_ERROR, __VA_ARGS__)
#define ARDEL_WARN(logger, ...) ARDEL_LOG(logger, QLG_LEVEL_WARN, __VA_ARGS__)
#define ARDEL_INFO(logger, ...) ARDEL_LOG(logger, QLG_LEVEL_INFO, __VA_ARGS__)
#define ARDEL_DEBUG_MIN(logger, ...) ARDEL_LOG(logger, QLG_LEVEL_DEBUG_MIN, __VA_ARGS__)
#define ARDEL_DEBUG_MID(logger, ...) ARDEL_LOG(logger, QLG_LEVEL_DEBUG_MID, __VA_ARGS__)
#define ARDEL_DEBUG_MAX(logger, ...) ARDEL_LOG(logger, QLG_LEVEL_DEBUG_MAX, __VA_ARGS__)

#endif
