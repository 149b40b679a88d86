// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_msgidfilter: lets events pass or blocks them by their message ID,
 * matched against wildcard patterns, and can hold back repeats of one ID
 * for a set time.  Its receive and forward are the filter defaults, so an
 * event that passes goes on to the filter's own listeners.
 */
#ifndef ARDEL_QLGMSGIDFILTER_H
#define ARDEL_QLGMSGIDFILTER_H

#include <stdint.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>
#include "util/QlgStringToStringMap.h"

ARDEL_BEGIN_C

enum { QLG_MSGID_BLOCK = 1, QLG_MSGID_PASSTHRU = 2 };

/* One pattern, split on "*" when it is configured so that matching needs
   neither allocation nor another scan of the pattern. */
typedef struct QlgMsgIdPattern {
  char* text;            /* owned copy with every "*" turned into a terminator */
  const char** tokens;   /* owned array of the non-empty pieces, pointing into text */
  int count;
  unsigned char leadingStar;
  unsigned char trailingStar;
} QlgMsgIdPattern;

typedef struct QlgMsgIdFilterData {
  int32_t mode;                 /* QLG_MSGID_BLOCK or QLG_MSGID_PASSTHRU */
  QlgMsgIdPattern* patterns;    /* owned, in configuration order */
  int patternCount;
  QlgObject* formatter;         /* the shared "msgFormatter" that computes IDs */
  int64_t repeatTime;           /* milliseconds; below 1 no repeat suppression */
  QlgStringToStringMap* lastPass; /* ID -> event time ("%I64d") it last passed */
} QlgMsgIdFilterData;

void* QlgMsgIdFilter_create(void);
void QlgMsgIdFilter_destroy(void* data);
/* "mode", "msgIds" and "msgIdRepeatTime"; other keys go to the generic
   property handling. */
void QlgMsgIdFilter_propertyChanged(QlgObject* filter, const char* key);
int QlgMsgIdFilter_isLoggable(QlgObject* filter, QlgEvent* event);
/* Whether id matches one pattern text (both may hold anything). */
int QlgMsgIdFilter_matches(const char* pattern, const char* id);

ARDEL_END_C

#endif
