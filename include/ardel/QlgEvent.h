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
} QlgEvent;

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

ARDEL_END_C

#endif
