// SPDX-License-Identifier: Apache-2.0
/*
 * Internals of the component trace records shared between the record code
 * (CLogWrapper.cpp) and configuration discovery (TraceConfig.cpp): the
 * process-wide properties path, the trace-file check, the method-text
 * helpers, and the front end's debugging assertion.  None of this is
 * exported from the library.
 */
#ifndef ARDEL_CLOGWRAPPERINT_H
#define ARDEL_CLOGWRAPPERINT_H

#include <ardel/CLogWrapper.h>
#include <ardel/export.h>
#include "util/CxHot.h"

ARDEL_BEGIN_C

/* Room of the properties path and of the trace-file names, terminator included. */
#define CLOGWRAPPER_PATH_SIZE 1024

/* Fills w for the named logger: starts the toolkit, checks the trace file,
   fetches the logger and caches its level.  On any failure w stays empty. */
void CLogWrapper_init(CLogWrapper* w, const char* loggerName);

/* The properties path settled by initializeWrapper ("" until then). */
const char* CLogWrapper_configPath(void);

/* Makes sure the file of "handlers.traceFile" can be appended to, moving it
   to the home directory under its base name when it cannot. */
void CLogWrapper_checkTraceFile(void);

/* Trims leading and trailing white space in place. */
void CLogWrapper_trim(char* text);

/* prefix followed by name (name may be null), XML-escaped when it holds a
   special character.  New heap string (QlgMem_free). */
char* CLogWrapper_prefixName(const char* prefix, const char* name);

/* New heap string (QlgMem_free) with the five XML specials replaced by
   their entities; null for null. */
char* CLogWrapper_escapeXml(const char* s);

/* Reports a violated contract on standard error and returns: the caller
   carries on. */
CX_COLD void CLogWrapper_assertFailed(const char* expression, const char* file, int line);

ARDEL_END_C

#define CLOGWRAPPER_ASSERT(expr) \
  ((expr) ? (void)0 : CLogWrapper_assertFailed(#expr, __FILE__, __LINE__))

#endif
