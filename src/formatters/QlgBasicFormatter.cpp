// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_basicformatter: one event as one line.  The line is the time stamp,
 * then each source-location and identity property the event carries, then
 * the rendered message, every field but the message followed by the
 * separator, and a line feed.  The formatter keeps no state between events;
 * its three fields (separator, date-time format, locale) come from its
 * properties.
 */
#include "formatters/QlgBasicFormatter.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <ardel/QlgMem.h>
#include "msg/QlgPrintf.h"
#include "nls/QlgLocale.h"
#include "util/CxChars.h"
#include "util/CxStringBuff.h"
#include "util/QlgStringToStringMap.h"
#include "util/CxHot.h"

namespace {

/* Size of the buffers of the time stamp, terminator included. */
const size_t kStampSize = 128;

/* The event properties printed between time stamp and message, in order. */
const char* const kPrefixProps[] = {
    QLG_PROP_SRCFILE, QLG_PROP_SRCFUNCTION, QLG_PROP_SRCLINE,
    "organization",   "product",            "component",
    "client",         "server",
};

bool isFormatter(const QlgObject* obj) {
  return obj && obj->cls && obj->cls->kind == QLG_KIND_FORMATTER;
}

/* Replaces a text field with the property's current value (null if absent). */
void reloadText(QlgObject* formatter, const char* key, char** field) {
  QlgMem_free(*field);
  *field = QlgObject_getString(formatter, key, nullptr);
}

/* Where TZ stood in the environment when the zone rules were last read: the
   array, the entry (or, when TZ is unset, the entry count and the last
   entry).  setenv, putenv and unsetenv replace or move entries, so a change
   shows as a different pointer without a getenv per record. */
struct EnvMark {
  char** env;
  int index;         /* of the "TZ=" entry, -1 when unset */
  const char* entry; /* that entry */
  int count;         /* entries, when unset */
  const char* last;  /* last entry, when unset */
};

/* The clock facts of one second: local broken-down time, the zone west
   of UTC and the built-in stamp's date part.  Consecutive events mostly fall
   in the same second, so each thread keeps the last one.  The zone rules are
   re-read (tzset) whenever TZ differs from the value they were read for;
   localtime_r alone would keep the first rules for ever. */
struct SecondCache {
  bool valid;
  int64_t seconds;
  struct tm tm;
  long zoneWest;
  char date[kStampSize]; /* "%Y-%m-%d %H:%M:%S", or "" */
  size_t dateLen;
  char tz[256];          /* TZ the rules were read for; "\x01" for unset */
  EnvMark mark;
  int32_t hours;         /* the printed UTC offset of this second */
  int32_t minutes;
};
thread_local SecondCache t_second QLG_TLS_IE;

EnvMark markEnvironment() {
  EnvMark m = {environ, -1, nullptr, 0, nullptr};
  if (!environ) return m;
  int i = 0;
  for (; environ[i]; i++)
    if (environ[i][0] == 'T' && environ[i][1] == 'Z' && environ[i][2] == '=' && m.index < 0) {
      m.index = i;
      m.entry = environ[i];
    }
  m.count = i;
  m.last = i > 0 ? environ[i - 1] : nullptr;
  return m;
}

/* True while TZ is certainly what the cache read it as. */
bool sameEnvironment(const SecondCache& c) {
  const EnvMark& m = c.mark;
  if (environ != m.env) return false;
  if (!environ) return true;
  if (m.index >= 0)
    return environ[m.index] == m.entry && strncmp(m.entry + 3, c.tz, sizeof c.tz) == 0;
  return environ[m.count] == nullptr && (m.count == 0 || environ[m.count - 1] == m.last);
}

/* Once a second, or when TZ changed. */
CX_COLD void refreshSecond(SecondCache& c, int64_t seconds) {
  const char* tz = getenv("TZ");
  const char* key = tz ? tz : "\x01";
  bool sameZone = c.valid && strncmp(c.tz, key, sizeof c.tz) == 0;
  if (!sameZone) {
    tzset();
    snprintf(c.tz, sizeof c.tz, "%s", key);
  }
  c.mark = markEnvironment();
  time_t t = static_cast<time_t>(seconds);
  memset(&c.tm, 0, sizeof c.tm);
  localtime_r(&t, &c.tm);
  c.zoneWest = timezone;
  if (strftime(c.date, sizeof c.date, "%Y-%m-%d %H:%M:%S", &c.tm) == 0) c.date[0] = '\0';
  c.dateLen = strlen(c.date);
  long west = c.zoneWest;
  c.hours = static_cast<int32_t>(west / -3600) + (c.tm.tm_isdst > 0 ? 1 : 0);
  c.minutes = static_cast<int32_t>(labs((west / 60) % 60));
  c.seconds = seconds;
  c.valid = true;
}

inline const SecondCache& localSecond(int64_t seconds) {
  SecondCache& c = t_second;
  if (!(c.valid && c.seconds == seconds && sameEnvironment(c))) refreshSecond(c, seconds);
  return c;
}

/* Appends n bytes; the common case is a copy into room already there. */
inline bool put(CxStringBuff* b, const char* text, size_t n) {
  if (n == 0) return true;
  if (b->data && static_cast<size_t>(b->capacity - b->length) > n) {
    CxChars_shortCopy(b->data + b->length, text, n);
    b->length += static_cast<int32_t>(n);
    b->data[b->length] = '\0';
    return true;
  }
  return n <= static_cast<size_t>(INT32_MAX) && CxStringBuff_appendN(b, text, static_cast<int>(n)) != 0;
}

/* Signed decimal of v; 0 appends nothing, as the buffer's appendInt does. */
bool putInt(CxStringBuff* b, int32_t v) {
  if (v == 0) return true;
  char digits[16];
  char* end = digits + sizeof digits;
  char* p = end;
  int64_t x = v;
  bool negative = x < 0;
  if (negative) x = -x;
  while (x > 0) {
    *--p = static_cast<char>('0' + x % 10);
    x /= 10;
  }
  if (negative) *--p = '-';
  return put(b, p, static_cast<size_t>(end - p));
}

/* n as exactly two digits (0..99). */
char* twoDigits(char* p, int n) {
  *p++ = static_cast<char>('0' + n / 10);
  *p++ = static_cast<char>('0' + n % 10);
  return p;
}

/* ".%03.3d%+02.2d:%02.2d" of millis, hours and minutes.  The usual ranges
   are written directly; anything else (a negative millisecond part, say)
   goes through the printf engine, which defines the format. */
bool appendStampSuffix(CxStringBuff* line, int32_t millis, int32_t hours, int32_t minutes) {
  if (millis >= 0 && millis <= 999 && hours > -100 && hours < 100 && minutes >= 0 && minutes <= 99) {
    char text[16];
    char* p = text;
    *p++ = '.';
    *p++ = static_cast<char>('0' + millis / 100);
    p = twoDigits(p, millis % 100);
    *p++ = hours < 0 ? '-' : '+';
    p = twoDigits(p, hours < 0 ? -hours : hours);
    *p++ = ':';
    p = twoDigits(p, minutes);
    return put(line, text, static_cast<size_t>(p - text));
  }
  return QlgPrintf_format(nullptr, line, ".%03.3d%+02.2d:%02.2d", millis, hours, minutes) != 0;
}

/* Length of text cut to at most max bytes without splitting a UTF-8
   sequence. */
size_t cutAtCharacter(const char* text, size_t len, size_t max) {
  if (len <= max) return len;
  size_t n = max;
  while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) --n;
  return n;
}

/* strftime of the user's pattern into out (kStampSize bytes).  Output that
   does not fit is cut rather than lost: it is formatted into a larger
   scratch area and truncated.  The pattern and result are taken to be in
   the toolkit's UTF-8; the codeset-aware variant (pattern converted to the
   native codeset and the result back) replaces only this function. */
void formatDateTime(const char* pattern, const struct tm* tm, char* out) {
  out[0] = '\0';
  if (!*pattern) return;
  if (strftime(out, kStampSize, pattern, tm) > 0) return;
  /* Either the output is empty or it needs more room. */
  for (size_t size = kStampSize * 4; size <= kStampSize * 64; size *= 4) {
    char* scratch = static_cast<char*>(QlgMem_alloc(size));
    if (!scratch) return;
    size_t len = strftime(scratch, size, pattern, tm);
    if (len > 0) {
      size_t n = cutAtCharacter(scratch, len, kStampSize - 1);
      memcpy(out, scratch, n);
      out[n] = '\0';
      QlgMem_free(scratch);
      return;
    }
    QlgMem_free(scratch);
  }
}

/* Appends text; an empty text is a success that appends nothing. */
bool appendText(CxStringBuff* line, const char* text) {
  return put(line, text, CxChars_shortLength(text));
}

const char* peekSet(const QlgEvent* event, const char* name) {
  return event->props ? QlgStringToStringMap_peek(event->props, name) : nullptr;
}

/* A text field and the separator when the event has it. */
CX_HOT bool appendField(CxStringBuff* line, const char* value, const char* sep, size_t sepLen) {
  if (!value) return true;
  return appendText(line, value) && put(line, sep, sepLen);
}

/* The fields between stamp and message.  The source location is read from
   the event's own fields when a trace call set them there, else from its
   property set; the identity properties exist only in the set. */
bool appendProperties(CxStringBuff* line, QlgEvent* event, const char* sep, size_t sepLen) {
  bool file = (event->srcFlags & QLG_EVENT_SRC_FILE) != 0;
  bool function = (event->srcFlags & QLG_EVENT_SRC_FUNCTION) != 0;
  if (!appendField(line, file ? event->srcFile : peekSet(event, QLG_PROP_SRCFILE), sep, sepLen) ||
      !appendField(line, function ? event->srcFunction : peekSet(event, QLG_PROP_SRCFUNCTION), sep,
                   sepLen))
    return false;
  int found = file ? 1 : 0;
  int32_t value = file ? event->srcLine
                       : (event->props ? QlgProps_getInt(event->props, QLG_PROP_SRCLINE, &found) : 0);
  /* 0 writes no digits, so line 0 leaves an empty field: intended. */
  if (found && !(putInt(line, value) && put(line, sep, sepLen))) return false;
  if (!event->props) return true;
  for (size_t i = 3; i < sizeof kPrefixProps / sizeof kPrefixProps[0]; ++i)
    if (!appendField(line, peekSet(event, kPrefixProps[i]), sep, sepLen)) return false;
  return true;
}

/* The message text.  A trace text without "%" and without parameters or
   catalog renders as itself, so the printf engine is skipped for it when
   the class renders the standard way. */
bool appendMessage(CxStringBuff* line, QlgObject* formatter, QlgEvent* event) {
  QlgFormatMessageFn render = formatter->cls->slots.formatter.formatMessage;
  const QlgI18Msg* msg = event->message;
  if (render == QlgBasicFormatter_renderMessage && msg && !msg->catalog && !msg->parms &&
      msg->defaultText) {
    const char* end = CxChars_shortFind(msg->defaultText, '%');
    if (!*end) {
      if (event->locale) QlgI18Msg_setLocale(event->message, event->locale);
      return put(line, msg->defaultText, static_cast<size_t>(end - msg->defaultText));
    }
  }
  char* text = QlgEvent_render(event, render);
  if (!text) return true;
  bool ok = appendText(line, text);
  QlgMem_free(text);
  return ok;
}

/* The stamp of ms appended to line: the user's dateTimeFormat alone, or
   the built-in date, milliseconds and UTC offset. */
CX_HOT bool appendTimeStamp(CxStringBuff* line, const QlgObject* formatter, int64_t ms) {
  int64_t seconds = ms / 1000; /* towards zero, also for times before 1970 */
  const SecondCache& second = localSecond(seconds);
  const char* pattern = isFormatter(formatter) ? formatter->field2.text : nullptr;
  if (pattern) {
    char stamp[kStampSize];
    formatDateTime(pattern, &second.tm, stamp);
    return appendText(line, stamp);
  }
  int32_t millis = static_cast<int32_t>(ms - seconds * 1000);
  return put(line, second.date, second.dateLen) &&
         appendStampSuffix(line, millis, second.hours, second.minutes);
}

}  // namespace

extern "C" {

void QlgBasicFormatter_propertyChanged(QlgObject* formatter, const char* key) {
  if (!formatter || !formatter->cls || !key) return;
  if (!isFormatter(formatter)) {
    QlgObject_basePropertyChanged(formatter, key);
    return;
  }
  if (strcmp(key, "separator") == 0) {
    reloadText(formatter, key, &formatter->field1.text);
  } else if (strcmp(key, "dateTimeFormat") == 0) {
    reloadText(formatter, key, &formatter->field2.text);
  } else if (strcmp(key, "locale") == 0) {
    QlgLocale_release(formatter->field3.locale);
    char* value = QlgObject_getString(formatter, key, nullptr);
    formatter->field3.locale = QlgLocale_normalize(value);
    QlgMem_free(value);
  } else {
    QlgObject_basePropertyChanged(formatter, key);
  }
}

char* QlgBasicFormatter_timeStamp(const QlgObject* formatter, int64_t ms) {
  CxStringBuff buf;
  memset(&buf, 0, sizeof buf);
  if (!appendTimeStamp(&buf, formatter, ms) || !CxStringBuff_reserve(&buf, 0)) {
    CxStringBuff_free(&buf);
    return nullptr;
  }
  return CxStringBuff_detach(&buf);
}

char* QlgBasicFormatter_renderMessage(const QlgI18Msg* msg, const QlgLocale*) {
  return QlgI18Msg_render(msg);
}

CX_HOT int QlgBasicFormatter_formatInto(QlgObject* formatter, QlgEvent* event, CxStringBuff* out) {
  if (!isFormatter(formatter) || !event || !out || !formatter->cls->slots.formatter.formatMessage)
    return 0;
  /* The default on the stack: a constant would be one more page to walk. */
  const char space[2] = {' ', '\0'};
  const char* sep = formatter->field1.text ? formatter->field1.text : space;
  size_t sepLen = CxChars_shortLength(sep);
  int32_t start = out->length;
  bool ok = appendTimeStamp(out, formatter, QlgEvent_getTime(event)) && put(out, sep, sepLen) &&
            appendProperties(out, event, sep, sepLen);
  if (ok) {
    /* The formatter's locale becomes the event's: handlers that format the
       same event after this one render in it too. */
    if (formatter->field3.locale) QlgEvent_setLocale(event, formatter->field3.locale);
    ok = appendMessage(out, formatter, event) && put(out, "\n", 1);
  }
  if (!ok) {
    out->length = start;
    if (out->data) out->data[start] = '\0';
    return 0;
  }
  return 1;
}

char* QlgBasicFormatter_format(QlgObject* formatter, QlgEvent* event) {
  CxStringBuff line;
  memset(&line, 0, sizeof line);
  if (!QlgBasicFormatter_formatInto(formatter, event, &line)) {
    CxStringBuff_free(&line);
    return nullptr;
  }
  return CxStringBuff_detach(&line);
}

}  // extern "C"
