/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * QlgEvent: one log call on its way through the chain.  It carries the level,
 * the time, the message (trace text with printf parameters, or a catalogued
 * message), a cached message ID, the locale to render in, and named
 * properties such as the source location.  An event lives for one call:
 * nobody downstream may keep a pointer to it.
 */
#ifndef ARDEL_QLGEVENT_H
#define ARDEL_QLGEVENT_H

#include <stdarg.h>
#include <stdint.h>
#include <ardel/export.h>
#include <ardel/QlgProps.h>
#include <ardel/QlgI18Msg.h>

ARDEL_BEGIN_C

struct QlgLocale;

typedef struct QlgEvent {
  unsigned char isMessage;          /* 1: catalogued message; 0: trace text */
  int64_t time;                     /* milliseconds since 1970 UTC */
  int32_t level;
  QlgI18Msg* message;               /* owned */
  char* messageId;                  /* owned cache; null until computed */
  const struct QlgLocale* locale;   /* not owned */
  QlgProps* props;                  /* owned; null until the first property */
  /* Source location of a trace call, borrowed from the caller for the
     call's duration and read back as the qlg_prop_src* properties: a trace
     record does not pay for copying them into the property set unless
     somebody asks for the set itself.  Read them through the getters or
     QlgEvent_peekString/QlgEvent_peekInt, never through props directly. */
  const char* srcFile;
  const char* srcFunction;
  int32_t srcLine;
  unsigned char srcFlags;           /* QLG_EVENT_SRC_* bits of what is set */
} QlgEvent;

#define QLG_EVENT_SRC_FILE 1        /* srcFile and srcLine */
#define QLG_EVENT_SRC_FUNCTION 2    /* srcFunction */

/* Property names of the source location of trace calls. */
#define QLG_PROP_SRCFILE "qlg_prop_srcfile"
#define QLG_PROP_SRCLINE "qlg_prop_srcline"
#define QLG_PROP_SRCFUNCTION "qlg_prop_srcfunction"

/* Builds an event from a tagged argument list (tag, value pairs ended by 0).
   Null when out of memory. */
ARDEL_API QlgEvent* QlgEvent_create(int32_t level, const char* catalog, uint32_t set,
                                    uint32_t key, const char* text, va_list args);
ARDEL_API QlgEvent* QlgEvent_createTagged(int32_t level, const char* catalog, uint32_t set,
                                          uint32_t key, const char* text, ...);
ARDEL_API void QlgEvent_free(QlgEvent* event);
ARDEL_API int32_t QlgEvent_getLevel(const QlgEvent* event);
ARDEL_API int64_t QlgEvent_getTime(const QlgEvent* event);
ARDEL_API int QlgEvent_isMessage(const QlgEvent* event);
ARDEL_API void QlgEvent_markMessage(QlgEvent* event, int flag);
ARDEL_API char* QlgEvent_getMessageId(const QlgEvent* event);
ARDEL_API void QlgEvent_setMessageId(QlgEvent* event, const char* id);
ARDEL_API void QlgEvent_setLocale(QlgEvent* event, const struct QlgLocale* locale);
/* Renders the message (in the event's locale, when set) with render, or with
   QlgI18Msg_render when render is null.  New text owned by the caller. */
ARDEL_API char* QlgEvent_render(QlgEvent* event,
    char* (*render)(const QlgI18Msg* msg, const struct QlgLocale* locale));
ARDEL_API void QlgEvent_addStringProperty(QlgEvent* event, const char* name, const char* text);
ARDEL_API void QlgEvent_addIntProperty(QlgEvent* event, const char* name, int value);
ARDEL_API void QlgEvent_addLongProperty(QlgEvent* event, const char* name, long value);
ARDEL_API char* QlgEvent_getStringProperty(const QlgEvent* event, const char* name, int* found);
ARDEL_API int32_t QlgEvent_getIntProperty(const QlgEvent* event, const char* name, int* found);
ARDEL_API int64_t QlgEvent_getInt64Property(const QlgEvent* event, const char* name, int* found);
/* The text of a string property without a copy (null when absent); valid
   while the event lives and the property is not replaced. */
ARDEL_API const char* QlgEvent_peekString(const QlgEvent* event, const char* name);
/* An integer property without a copy. */
ARDEL_API int32_t QlgEvent_peekInt(const QlgEvent* event, const char* name, int* found);
/* The property set with the source location filed in, in the order file,
   line, function; for code that walks every property. */
ARDEL_API QlgProps* QlgEvent_props(QlgEvent* event);
/* A trace event in caller-provided storage (an event and its message on the
   caller's stack): the message text is borrowed, not copied.  Release it
   with QlgEvent_release, never QlgEvent_free. */
ARDEL_API void QlgEvent_initTrace(QlgEvent* event, QlgI18Msg* message, int32_t level,
                                  const char* text);
/* Reads a tagged argument list into event (level tags, typed parameters,
   named properties); what QlgEvent_create does after building the event. */
ARDEL_API void QlgEvent_addTagged(QlgEvent* event, va_list args);
/* Frees what an event made by QlgEvent_initTrace owns. */
ARDEL_API void QlgEvent_release(QlgEvent* event);

ARDEL_END_C

#endif
