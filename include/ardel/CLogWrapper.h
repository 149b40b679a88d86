/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Component trace records: the plain C entry point of ardel.  Each of the
 * suite's eight components has one process-wide CLogWrapper that holds its
 * toolkit logger and the debug level in force when the record was filled.
 * A trace call decides from that cached level alone whether the statement is
 * wanted, so a suppressed statement costs two integer compares.  Usable from
 * C and C++; the records are static and never freed.
 *
 * Typical use:
 *
 * @code
 *   initializeWrapper(NULL);            (optional, once, before any getter)
 *   CLogWrapper* log = getCLogHw();
 *   ARDEL_TRACE_MIN(log, "scanned %d devices", count);
 * @endcode
 */
#ifndef ARDEL_CLOGWRAPPER_H
#define ARDEL_CLOGWRAPPER_H

#include <stdint.h>
#include <ardel/export.h>

/* Lets the compiler check a trace call's arguments against its format. */
#if defined(__GNUC__) || defined(__clang__)
#  define ARDEL_PRINTF_LIKE(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#  define ARDEL_PRINTF_LIKE(fmt, first)
#endif

ARDEL_BEGIN_C

struct QlgObject;

typedef struct CLogWrapper {
  struct QlgObject* logger; /* the component's toolkit logger; null when unavailable */
  int32_t trcLevel;         /* 0 none, 1 minimum, 2 middle, 4 maximum */
  int32_t active;           /* 1 when logger was obtained */
} CLogWrapper;

/* Debug levels as held in trcLevel. */
#define ARDEL_TRC_NONE 0
#define ARDEL_TRC_MIN 1
#define ARDEL_TRC_MID 2
#define ARDEL_TRC_MAX 4

/* Settles the path of the properties file: path as given, else from the
   TYX_TEST home or the suite's ini file, with "/config/TyxTrace.properties"
   appended; backslashes become "/".  Returns the path's length.  Does not
   start the toolkit: the first record fill does. */
ARDEL_API int initializeWrapper(const char* path);

/* The record of component type 0..7 (the order of the getters below),
   filled on first request; null for any other type.  A fill is tried once:
   when the toolkit cannot start or the logger cannot be had, the record
   stays inactive and every trace call through it does nothing. */
ARDEL_API CLogWrapper* createWrapper(int type);
ARDEL_API CLogWrapper* getCLogHw(void);     /* 0: hw.loggers.trcLogger */
ARDEL_API CLogWrapper* getCLogSw(void);     /* 1: vpd.loggers.trcLogger */
ARDEL_API CLogWrapper* getCLogCom(void);    /* 2: common.loggers.trcLogger */
ARDEL_API CLogWrapper* getCLogXse(void);    /* 3: sigeval.loggers.trcLogger */
ARDEL_API CLogWrapper* getCLogFs(void);     /* 4: fscanner.loggers.trcLogger */
ARDEL_API CLogWrapper* getCLogPlugin(void); /* 5: plugin.loggers.trcLogger */
ARDEL_API CLogWrapper* getCLogUse(void);    /* 6: use.loggers.trcLogger */
ARDEL_API CLogWrapper* getCLogNet(void);    /* 7: net.loggers.trcLogger */

/* 1 when the record's level equals level exactly (not "at least"). */
ARDEL_API int istraceActive(CLogWrapper* w, int level);
ARDEL_API int getTrcLevel(CLogWrapper* w);

/* The trace calls.  Entry, exit and MAX are emitted at level 4 only (toolkit
   level 1000, entry and exit with the prefix "Entry " / "Exit " before the
   method name), MID at level 2 or more (2000), MIN at 1 or more (3000).
   The text is cut at 1,023 characters; the method name is XML-escaped. */
ARDEL_API void traceEntry(CLogWrapper* w, int line, const char* sourceFile, const char* methodName,
                          const char* format, ...) ARDEL_PRINTF_LIKE(5, 6);
ARDEL_API void traceExit(CLogWrapper* w, int line, const char* sourceFile, const char* methodName,
                         const char* format, ...) ARDEL_PRINTF_LIKE(5, 6);
ARDEL_API void traceMAX(CLogWrapper* w, int line, const char* sourceFile, const char* methodName,
                        const char* format, ...) ARDEL_PRINTF_LIKE(5, 6);
ARDEL_API void traceMID(CLogWrapper* w, int line, const char* sourceFile, const char* methodName,
                        const char* format, ...) ARDEL_PRINTF_LIKE(5, 6);
ARDEL_API void traceMIN(CLogWrapper* w, int line, const char* sourceFile, const char* methodName,
                        const char* format, ...) ARDEL_PRINTF_LIKE(5, 6);

ARDEL_END_C

/* Convenience forms: fill in line, file and function, and test the cached
   level before the call, so the arguments of a suppressed statement are not
   even evaluated.  The level is tested first: a suppressed statement then
   reads one field of the record.  The first variadic argument is the format. */
#if defined(__GNUC__) || defined(__clang__)
#define ARDEL_UNLIKELY_(x) __builtin_expect(!!(x), 0)
#else
#define ARDEL_UNLIKELY_(x) (x)
#endif
#define ARDEL_TRACE_IF_(w, gate, fn, ...)                                  \
  do {                                                                     \
    CLogWrapper* ardel_w_ = (w);                                           \
    if (ardel_w_ && ARDEL_UNLIKELY_(ardel_w_->trcLevel >= (gate)) &&     \
        ardel_w_->active == 1)                                           \
      fn(ardel_w_, __LINE__, __FILE__, __func__, __VA_ARGS__);             \
  } while (0)

#define ARDEL_TRACE_ENTRY(w, ...) ARDEL_TRACE_IF_(w, ARDEL_TRC_MAX, traceEntry, __VA_ARGS__)
#define ARDEL_TRACE_EXIT(w, ...) ARDEL_TRACE_IF_(w, ARDEL_TRC_MAX, traceExit, __VA_ARGS__)
#define ARDEL_TRACE_MAX(w, ...) ARDEL_TRACE_IF_(w, ARDEL_TRC_MAX, traceMAX, __VA_ARGS__)
#define ARDEL_TRACE_MID(w, ...) ARDEL_TRACE_IF_(w, ARDEL_TRC_MID, traceMID, __VA_ARGS__)
#define ARDEL_TRACE_MIN(w, ...) ARDEL_TRACE_IF_(w, ARDEL_TRC_MIN, traceMIN, __VA_ARGS__)

#endif
