/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Toolkit start-up, the process-wide recursive lock, and the internal-message
 * reporter.  Every public toolkit operation brackets its work with
 * QlgToolkit_enter / QlgToolkit_leave; code running under the lock (a
 * handler, the reporter) may call public operations again on the same thread.
 */
#ifndef ARDEL_QLGTOOLKIT_H
#define ARDEL_QLGTOOLKIT_H

#include <stdint.h>
#include <ardel/export.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgParm.h>

ARDEL_BEGIN_C

/* Reads the properties file (path may be null), registers the built-in
   classes and creates ardel.errorLogger -> ardel.stderrHandler ->
   ardel.defaultFormatter.  1 on success, also when already initialised. */
ARDEL_API int QlgToolkit_initialize(const char* propertiesPath);
ARDEL_API int QlgToolkit_enter(void);
ARDEL_API void QlgToolkit_leave(void);
ARDEL_API QlgObject* QlgToolkit_getErrorLogger(void);
ARDEL_API void QlgToolkit_registerClasses(void);
ARDEL_API void QlgToolkit_shutdown(void);

/* Reports an internal problem through ardel.errorLogger as message key of
   catalog "qlgmsg", set 1; the tagged parameters end with 0. */
ARDEL_API void QlgMisc_report(int level, uint32_t key, const char* defaultText, ...);

ARDEL_END_C

#endif
