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

#include <ardel/QlgMem.h>
#include "msg/QlgPrintf.h"
#include "nls/QlgLocale.h"
#include "util/CxStringBuff.h"
#include "util/QlgStringToStringMap.h"

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
  char tz[256];          /* TZ the rules were read for; "\x01" for unset */
};
thread_local SecondCache t_second;

const SecondCache& localSecond(int64_t seconds) {
  SecondCache& c = t_second;
  const char* tz = getenv("TZ");
  const char* key = tz ? tz : "\x01";
  bool sameZone = c.valid && strncmp(c.tz, key, sizeof c.tz) == 0;
  if (sameZone && c.seconds == seconds) return c;
  if (!sameZone) {
    tzset();
    snprintf(c.tz, sizeof c.tz, "%s", key);
  }
  time_t t = static_cast<time_t>(seconds);
  memset(&c.tm, 0, sizeof c.tm);
  localtime_r(&t, &c.tm);
  c.zoneWest = timezone;
  if (strftime(c.date, sizeof c.date, "%Y-%m-%d %H:%M:%S", &c.tm) == 0) c.date[0] = '\0';
  c.seconds = seconds;
  c.valid = true;
  return c;
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
    *p = '\0';
    return CxStringBuff_append(line, text) != 0;
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
  return !*text || CxStringBuff_append(line, text) != 0;
}

/* Appends one property's value and the separator if the event has it.
   Text values are read in place: a copy could fail for want of memory and
   then pass for an absent property. */
bool appendProperty(CxStringBuff* line, QlgEvent* event, const char* name, const char* sep) {
  if (strcmp(name, QLG_PROP_SRCLINE) == 0) {
    int found = 0;
    int32_t value = QlgEvent_getIntProperty(event, name, &found);
    if (!found) return true;
    /* appendInt writes nothing for 0, so line 0 leaves an empty field:
       intended. */
    if (value != 0 && !CxStringBuff_appendInt(line, value)) return false;
  } else {
    const char* value = QlgStringToStringMap_peek(event->props, name);
    if (!value) return true;
    if (!appendText(line, value)) return false;
  }
  return appendText(line, sep);
}

/* The stamp of ms appended to line: the user's dateTimeFormat alone, or
   the built-in date, milliseconds and UTC offset. */
bool appendTimeStamp(CxStringBuff* line, const QlgObject* formatter, int64_t ms) {
  int64_t seconds = ms / 1000; /* towards zero, also for times before 1970 */
  const SecondCache& second = localSecond(seconds);
  const char* pattern = isFormatter(formatter) ? formatter->field2.text : nullptr;
  if (pattern) {
    char stamp[kStampSize];
    formatDateTime(pattern, &second.tm, stamp);
    return appendText(line, stamp);
  }
  int32_t millis = static_cast<int32_t>(ms - seconds * 1000);
  long tz = second.zoneWest;
  int32_t hours = static_cast<int32_t>(tz / -3600);
  if (second.tm.tm_isdst > 0) hours += 1;
  int32_t minutes = static_cast<int32_t>(labs((tz / 60) % 60));
  return appendText(line, second.date) && appendStampSuffix(line, millis, hours, minutes);
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

char* QlgBasicFormatter_format(QlgObject* formatter, QlgEvent* event) {
  if (!isFormatter(formatter) || !event || !formatter->cls->slots.formatter.formatMessage)
    return nullptr;
  const char* sep = formatter->field1.text ? formatter->field1.text : " ";

  CxStringBuff line;
  memset(&line, 0, sizeof line);
  bool ok = appendTimeStamp(&line, formatter, QlgEvent_getTime(event)) && appendText(&line, sep);
  for (size_t i = 0; ok && i < sizeof kPrefixProps / sizeof kPrefixProps[0]; ++i)
    ok = appendProperty(&line, event, kPrefixProps[i], sep);
  if (!ok) {
    CxStringBuff_free(&line);
    return nullptr;
  }

  /* The formatter's locale becomes the event's: handlers that format the
     same event after this one render in it too. */
  if (formatter->field3.locale) QlgEvent_setLocale(event, formatter->field3.locale);
  char* text = QlgEvent_render(event, formatter->cls->slots.formatter.formatMessage);
  if (text) {
    ok = appendText(&line, text);
    QlgMem_free(text);
  }
  if (!ok || !CxStringBuff_append(&line, "\n")) {
    CxStringBuff_free(&line);
    return nullptr;
  }
  return CxStringBuff_detach(&line);
}

}  // extern "C"
