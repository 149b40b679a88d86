/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Loggers: the entry of the event chain.  The variadic calls take a printf
 * format followed by a tagged argument list: (QLG_PARM_* kind, value) items,
 * level tags, or QLG_PROPERTY name kind value, always ended by 0.  A call
 * below the logger's threshold returns after two comparisons, before any
 * lock is taken.
 */
#ifndef ARDEL_QLGLOGGER_H
#define ARDEL_QLGLOGGER_H

#include <stdarg.h>
#include <stdint.h>
#include <ardel/export.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgParm.h>

ARDEL_BEGIN_C

ARDEL_API int QlgLogger_isLoggable(const QlgObject* logger, int level);
ARDEL_API void QlgLogger_logMax(QlgObject* logger, const char* sourceFile, const char* sourceFunction,
                                uint32_t sourceLine, const char* format, ...);
ARDEL_API void QlgLogger_logMid(QlgObject* logger, const char* sourceFile, const char* sourceFunction,
                                uint32_t sourceLine, const char* format, ...);
ARDEL_API void QlgLogger_logMin(QlgObject* logger, const char* sourceFile, const char* sourceFunction,
                                uint32_t sourceLine, const char* format, ...);

/* Under the toolkit lock. */
ARDEL_API void QlgLogger_logEvent(QlgObject* logger, int level, const char* sourceFile,
                                  const char* sourceFunction, uint32_t sourceLine,
                                  const char* format, va_list args);
ARDEL_API void QlgLogger_logMessage(QlgObject* logger, int level, const char* catalog, uint32_t set,
                                    uint32_t key, const char* defaultText, va_list args);
ARDEL_API void QlgLogger_propertyChanged(QlgObject* obj, const char* key);

ARDEL_END_C

#endif
