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

/* Local broken-down time and the zone west of UTC in seconds: the only
   clock facts the stamp needs from the runtime library.  The zone is read
   afresh for every stamp (localtime_r alone would keep the first one), so
   both answers come from the same rules. */
void localTime(int64_t seconds, struct tm* out) {
  time_t t = static_cast<time_t>(seconds);
  memset(out, 0, sizeof *out);
  tzset();
  localtime_r(&t, out);
}

/* Valid after localTime. */
long zoneSecondsWest(void) { return timezone; }

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
  int64_t seconds = ms / 1000; /* towards zero, also for times before 1970 */
  struct tm tm;
  localTime(seconds, &tm);
  char stamp[kStampSize];

  const char* pattern = isFormatter(formatter) ? formatter->field2.text : nullptr;
  if (pattern) {
    formatDateTime(pattern, &tm, stamp);
    return QlgMem_strdup(stamp);
  }

  int32_t millis = static_cast<int32_t>(ms - seconds * 1000);
  long tz = zoneSecondsWest();
  int32_t hours = static_cast<int32_t>(tz / -3600);
  if (tm.tm_isdst > 0) hours += 1;
  int32_t minutes = static_cast<int32_t>(labs((tz / 60) % 60));

  if (strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm) == 0) stamp[0] = '\0';
  CxStringBuff buf;
  memset(&buf, 0, sizeof buf);
  if (!appendText(&buf, stamp) ||
      QlgPrintf_format(nullptr, &buf, ".%03.3d%+02.2d:%02.2d", millis, hours, minutes) == 0) {
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
  char* stamp = QlgBasicFormatter_timeStamp(formatter, QlgEvent_getTime(event));
  bool ok = stamp && appendText(&line, stamp) && appendText(&line, sep);
  QlgMem_free(stamp);
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
