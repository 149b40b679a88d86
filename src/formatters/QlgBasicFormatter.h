// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_basicformatter: one event as one line of text: a local time stamp
 * with milliseconds and UTC offset, the source location and identity
 * properties that the event carries, the rendered message, and a line end.
 * It is the formatter every handler starts with (ardel.defaultFormatter).
 */
#ifndef ARDEL_QLGBASICFORMATTER_H
#define ARDEL_QLGBASICFORMATTER_H

#include <stdint.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgEvent.h>

ARDEL_BEGIN_C

struct CxStringBuff;
struct QlgLocale;

/* propertyChanged slot: "separator", "dateTimeFormat" and "locale" fill the
   formatter's three fields; every other key goes to the generic handling. */
void QlgBasicFormatter_propertyChanged(QlgObject* formatter, const char* key);
/* format slot (also the default of every formatter class): new text ending
   in "\n", or null for a missing formatter, event, kind or formatMessage. */
char* QlgBasicFormatter_format(QlgObject* formatter, QlgEvent* event);
/* The same line appended to out, whose storage a caller keeps from record
   to record.  1 when a line was appended; 0 where the format slot gives
   null, out then as it was. */
int QlgBasicFormatter_formatInto(QlgObject* formatter, QlgEvent* event, struct CxStringBuff* out);
/* The standard formatMessage slot: the message rendered with
   QlgI18Msg_render (catalog text or default, then its parameters). */
char* QlgBasicFormatter_renderMessage(const QlgI18Msg* msg, const struct QlgLocale* locale);
/* The time stamp of ms (milliseconds since 1970 UTC) in local time: the
   formatter's dateTimeFormat when it has one, else
   "YYYY-MM-DD hh:mm:ss.mmm+hh:mm".  New text, null when out of memory. */
char* QlgBasicFormatter_timeStamp(const QlgObject* formatter, int64_t ms);

ARDEL_END_C

#endif
