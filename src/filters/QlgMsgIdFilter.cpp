// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_msgidfilter.  Patterns are split on "*" when they are configured.
 * Matching takes each piece at its first occurrence, without backtracking,
 * and the last piece must end the ID even when the pattern ends in "*":
 * "*W*" behaves as "*W", and an ID holding an earlier "W" does not match
 * "*W" unless its first "W" is its last character.  Both rules are
 * intended and configurations rely on them.
 */
#include "filters/QlgMsgIdFilter.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>
#include "formatters/QlgXmlFormatter.h"
#include "msg/QlgMsgTable.h"

namespace {

/* msgIds separators: unlike listener names, no form feed or vertical tab. */
const char kSeparators[] = " \t\n\r";
const char kDefaultPatterns[] = "*W *I";

void freePattern(QlgMsgIdPattern* p) {
  QlgMem_free(p->text);
  QlgMem_free(p->tokens);
}

void freePatterns(QlgMsgIdPattern* patterns, int count) {
  for (int i = 0; i < count; ++i) freePattern(&patterns[i]);
  QlgMem_free(patterns);
}

bool compilePattern(const char* text, size_t len, QlgMsgIdPattern* out) {
  memset(out, 0, sizeof *out);
  out->text = static_cast<char*>(QlgMem_alloc(len + 1));
  out->tokens = static_cast<const char**>(QlgMem_alloc((len / 2 + 1) * sizeof(const char*)));
  if (!out->text || !out->tokens) {
    freePattern(out);
    return false;
  }
  memcpy(out->text, text, len);
  out->text[len] = '\0';
  out->leadingStar = len > 0 && text[0] == '*';
  out->trailingStar = len > 0 && text[len - 1] == '*';
  for (size_t i = 0; i < len; ++i) {
    if (out->text[i] == '*') {
      out->text[i] = '\0';
    } else if (i == 0 || out->text[i - 1] == '\0') {
      out->tokens[out->count++] = out->text + i;
    }
  }
  return true;
}

/* Splits list into compiled patterns; false when memory runs out. */
bool compileList(const char* list, QlgMsgIdPattern** patterns, int* count) {
  *patterns = nullptr;
  *count = 0;
  size_t n = 0;
  for (const char* p = list; *p; p += strcspn(p, kSeparators)) {
    p += strspn(p, kSeparators);
    if (*p) ++n;
  }
  if (n == 0) return true;
  QlgMsgIdPattern* out = static_cast<QlgMsgIdPattern*>(QlgMem_alloc(n * sizeof *out));
  if (!out) return false;
  int done = 0;
  for (const char* p = list + strspn(list, kSeparators); *p; p += strspn(p, kSeparators)) {
    size_t len = strcspn(p, kSeparators);
    if (!compilePattern(p, len, &out[done])) {
      freePatterns(out, done);
      return false;
    }
    ++done;
    p += len;
  }
  *patterns = out;
  *count = done;
  return true;
}

bool matchPattern(const QlgMsgIdPattern& p, const char* id) {
  size_t pos = 0;
  size_t idLen = strlen(id);
  for (int i = 0; i < p.count; ++i) {
    const char* token = p.tokens[i];
    size_t len = strlen(token);
    if (i == 0 && !p.leadingStar) {
      if (strncmp(id, token, len) != 0) return false;
      if (p.count == 1 && !p.trailingStar) return idLen == len;
      pos = len;
      continue;
    }
    /* First occurrence only: no backtracking. */
    const char* found = strstr(id + pos, token);
    if (!found) return false;
    pos = static_cast<size_t>(found - id) + len;
    if (i == p.count - 1 && pos != idLen) return false;
  }
  return true;
}

bool parseInt64(const char* text, int64_t* out) {
  long long v = 0;
  if (!text || sscanf(text, "%lld", &v) != 1) return false;
  *out = v;
  return true;
}

/* Repeat suppression: the interval runs from the last time the ID passed,
   not from the last time it was seen. */
bool isRepeat(QlgMsgIdFilterData* d, const char* id, int64_t now) {
  int64_t last = 0;
  if (parseInt64(QlgStringToStringMap_peek(d->lastPass, id), &last)) {
    int64_t until = 0;
    if (__builtin_add_overflow(last, d->repeatTime, &until) || until > now) return true;
  }
  char text[24];
  snprintf(text, sizeof text, "%lld", static_cast<long long>(now));
  QlgStringToStringMap_put(d->lastPass, id, text);
  return false;
}

QlgMsgIdFilterData* dataOf(const QlgObject* filter) {
  return filter ? static_cast<QlgMsgIdFilterData*>(filter->data) : nullptr;
}

void setMode(QlgObject* filter, QlgMsgIdFilterData* d) {
  char* value = QlgObject_getString(filter, "mode", nullptr);
  if (value && strcasecmp(value, "BLOCK") == 0) {
    d->mode = QLG_MSGID_BLOCK;
  } else if (value && strcasecmp(value, "PASSTHRU") == 0) {
    d->mode = QLG_MSGID_PASSTHRU;
  } else {
    QlgMisc_report(5000, 76, QlgMsgTable_text(76), QLG_PARM_STRING, filter->name, QLG_PARM_STRING,
                   value ? value : "", 0);
    d->mode = QLG_MSGID_BLOCK;
  }
  QlgMem_free(value);
}

void setPatterns(QlgObject* filter, QlgMsgIdFilterData* d) {
  char* value = QlgObject_getString(filter, "msgIds", nullptr);
  QlgMsgIdPattern* patterns = nullptr;
  int count = 0;
  if (compileList(value ? value : "", &patterns, &count)) {
    freePatterns(d->patterns, d->patternCount);
    d->patterns = patterns;
    d->patternCount = count;
  } else {
    QlgMisc_report(6000, 20, QlgMsgTable_text(20), 0);
  }
  QlgMem_free(value);
}

}  // namespace

extern "C" {

void* QlgMsgIdFilter_create(void) {
  QlgMsgIdFilterData* d = static_cast<QlgMsgIdFilterData*>(QlgMem_alloc(sizeof(QlgMsgIdFilterData)));
  if (!d) return nullptr;
  memset(d, 0, sizeof *d);
  d->mode = QLG_MSGID_BLOCK;
  d->lastPass = QlgStringToStringMap_create();
  if (!d->lastPass || !compileList(kDefaultPatterns, &d->patterns, &d->patternCount)) {
    QlgMsgIdFilter_destroy(d);
    return nullptr;
  }
  /* Every message-ID filter shares this one formatter object. */
  d->formatter = QlgObject_findOrCreate("msgFormatter", "qlg_xmlformatter");
  return d;
}

void QlgMsgIdFilter_destroy(void* data) {
  QlgMsgIdFilterData* d = static_cast<QlgMsgIdFilterData*>(data);
  if (!d) return;
  freePatterns(d->patterns, d->patternCount);
  QlgObject_release(d->formatter);
  QlgStringToStringMap_destroy(d->lastPass);
  QlgMem_free(d);
}

void QlgMsgIdFilter_propertyChanged(QlgObject* filter, const char* key) {
  if (!filter || !key) return;
  QlgMsgIdFilterData* d = dataOf(filter);
  if (strcmp(key, "mode") == 0) {
    if (d) setMode(filter, d);
  } else if (strcmp(key, "msgIds") == 0) {
    if (d) setPatterns(filter, d);
  } else if (strcmp(key, "msgIdRepeatTime") == 0) {
    /* A value that is no number leaves the previous time. */
    char* value = QlgObject_getString(filter, key, nullptr);
    int64_t t = 0;
    if (d && parseInt64(value, &t)) d->repeatTime = t;
    QlgMem_free(value);
  } else {
    QlgObject_basePropertyChanged(filter, key);
  }
}

int QlgMsgIdFilter_isLoggable(QlgObject* filter, QlgEvent* event) {
  if (!filter || !event) return 0;
  QlgMsgIdFilterData* d = dataOf(filter);
  if (!d) return 1; /* a filter that could not be set up holds nothing back */
  if (!event->messageId) QlgXmlFormatter_cacheMessageId(d->formatter, event);
  const char* id = event->messageId ? event->messageId : "";
  bool matched = false;
  for (int i = 0; !matched && i < d->patternCount; ++i) matched = matchPattern(d->patterns[i], id);
  bool pass = d->mode == QLG_MSGID_PASSTHRU ? matched : !matched;
  if (pass && *id && d->repeatTime >= 1 && isRepeat(d, id, QlgEvent_getTime(event))) return 0;
  return pass;
}

int QlgMsgIdFilter_matches(const char* pattern, const char* id) {
  if (!pattern || !id) return 0;
  QlgMsgIdPattern p;
  if (!compilePattern(pattern, strlen(pattern), &p)) return 0;
  bool matched = matchPattern(p, id);
  freePattern(&p);
  return matched;
}

}  // extern "C"
