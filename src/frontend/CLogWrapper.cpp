// SPDX-License-Identifier: Apache-2.0
/*
 * Component trace records and the exported trace calls.  The eight records
 * are static and filled once, on first request: the toolkit is started, the
 * component's logger fetched and its level turned into the cached trcLevel
 * (4 maximum, 2 middle, 1 minimum, 0 none).  A trace call gates on that
 * cached level alone, formats into a fixed stack buffer and hands the text
 * to the toolkit logger as an already finished message.
 */
#include <ardel/CLogWrapper.h>

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>

#include <ardel/QlgLevel.h>
#include <ardel/QlgLogger.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>

#include "frontend/CLogWrapperInt.h"
#include "frontend/Published.h"
#include "util/CxChars.h"
#include "util/CxHot.h"

namespace {

/* The component table; the row is the type number of createWrapper.  The
   "Sw" row serves the vital-product-data logger and the "Xse" row the
   signature evaluator; these pairings are fixed. */
const char* const kLoggerNames[] = {
    "hw.loggers.trcLogger",      "vpd.loggers.trcLogger",    "common.loggers.trcLogger",
    "sigeval.loggers.trcLogger", "fscanner.loggers.trcLogger", "plugin.loggers.trcLogger",
    "use.loggers.trcLogger",     "net.loggers.trcLogger",
};
const int kComponents = sizeof(kLoggerNames) / sizeof(kLoggerNames[0]);

CLogWrapper s_records[kComponents];
int32_t s_filled[kComponents];

/* Room of the formatted text: at most 1,023 characters and the terminator. */
const size_t kTextSize = 1024;

typedef void (*LogCall)(QlgObject* logger, const char* sourceFile, const char* sourceFunction,
                        uint32_t sourceLine, const char* format, ...);

bool isXmlSpecial(char c) {
  return c == '"' || c == '&' || c == '\'' || c == '<' || c == '>';
}

/* Room for a method text on the stack; a longer one goes to the heap. */
const size_t kMethodSize = 512;

/* Writes c at out[j], as its entity when it is special; the next index. */
size_t putEscaped(char* out, size_t j, char c) {
  const char* entity;
  switch (c) {
    case '"': entity = "&quot;"; break;
    case '&': entity = "&amp;"; break;
    case '\'': entity = "&apos;"; break;
    case '<': entity = "&lt;"; break;
    case '>': entity = "&gt;"; break;
    default: out[j] = c; return j + 1;
  }
  size_t n = strlen(entity);
  memcpy(out + j, entity, n);
  return j + n;
}

/* prefix + name, escaped for XML as CLogWrapper_prefixName does it, into
   room (kMethodSize bytes) when it fits: a record then allocates nothing.
   Null when it does not fit; the caller then asks CLogWrapper_prefixName.
   A null prefix is none: a statement without one then reads no constant of
   the library (one page fewer to walk per record). */
CX_HOT const char* prefixNameInto(const char* prefix, const char* name, char* room) {
  /* The usual case, a plain function name and no prefix, in one scan. */
  if (!prefix && name) {
    size_t plain = 0;
    while (name[plain] && !isXmlSpecial(name[plain])) plain++;
    if (!name[plain]) return plain < kMethodSize ? name : nullptr;
  }
  if (!prefix) prefix = "";
  size_t escapedLen = 0;
  bool special = false;
  for (const char* p = prefix; *p; ++p) {
    bool s = isXmlSpecial(*p);
    special |= s;
    escapedLen += s ? 6 : 1;
  }
  for (const char* p = name ? name : ""; *p; ++p) {
    bool s = isXmlSpecial(*p);
    special |= s;
    escapedLen += s ? 6 : 1;
    if (escapedLen >= kMethodSize) return nullptr;
  }
  if (escapedLen >= kMethodSize) return nullptr;
  if (!special && !*prefix && name) return name; /* nothing to add or change */
  size_t j = 0;
  for (int part = 0; part < 2; ++part) {
    for (const char* p = part == 0 ? prefix : (name ? name : ""); *p; ++p) {
      j = putEscaped(room, j, *p);
    }
  }
  room[j] = '\0';
  return room;
}

/* Length modifier of a simple conversion: none, l, ll or z. */
enum Width { kInt, kLong, kLongLong, kSize };

/* Writes the digits of v in base (10 or 16) backwards from end. */
CX_HOT char* digitsOf(unsigned long long v, unsigned base, bool upper, char* end) {
  if (base == 10) { /* a constant divisor: a multiply, not a division */
    do {
      *--end = static_cast<char>('0' + v % 10);
      v /= 10;
    } while (v);
    return end;
  }
  const char* set = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  do {
    *--end = set[v % base];
    v /= base;
  } while (v);
  return end;
}

/* vsnprintf for d i u x X s c and %% with at most an l, ll or z modifier
   and no flags, width, precision or argument position, into size bytes (the
   text is cut to size - 1 and terminated).  The printf engine is the
   larger part of a trace record's cost, and these formats are what trace
   statements mostly use.  False, having read part of args, when format
   holds anything else. */
CX_HOT bool formatSimple(char* out, size_t size, const char* format, va_list args) {
  size_t j = 0;
  const size_t room = size - 1;
  auto put = [&](const char* t, size_t n) {
    if (j >= room) return;
    if (n > room - j) n = room - j;
    CxChars_shortCopy(out + j, t, n);
    j += n;
  };
  const char* p = format;
  while (*p && j < room) {
    const char* pct = CxChars_shortFind(p, '%');
    put(p, (size_t)(pct - p));
    if (!*pct) break;
    p = pct + 1;
    if (*p == '%') {
      put("%", 1);
      ++p;
      continue;
    }
    Width w = kInt;
    if (*p == 'l') {
      ++p;
      w = kLong;
      if (*p == 'l') {
        ++p;
        w = kLongLong;
      }
    } else if (*p == 'z') {
      ++p;
      w = kSize;
    }
    /* %ls and %lc take wide characters: left to vsnprintf. */
    switch (*p) {
      case 'd': case 'i': case 'u': case 'x': case 'X': break;
      case 's': case 'c': if (w == kInt) break; return false;
      default: return false;
    }
    char conv = *p++;
    char num[24];
    char* end = num + sizeof num;
    if (conv == 's') {
      const char* t = va_arg(args, const char*);
      if (!t) t = "(null)";
      put(t, CxChars_shortLength(t));
    } else if (conv == 'c') {
      char c = static_cast<char>(va_arg(args, int));
      put(&c, 1);
    } else if (conv == 'd' || conv == 'i') {
      long long v = w == kInt ? va_arg(args, int)
                  : w == kLong ? va_arg(args, long)
                  : w == kLongLong ? va_arg(args, long long)
                  : static_cast<long long>(va_arg(args, ssize_t));
      unsigned long long mag = v < 0 ? 0ULL - static_cast<unsigned long long>(v)
                                     : static_cast<unsigned long long>(v);
      char* b = digitsOf(mag, 10, false, end);
      if (v < 0) *--b = '-';
      put(b, (size_t)(end - b));
    } else {
      unsigned long long v = w == kInt ? va_arg(args, unsigned)
                           : w == kLong ? va_arg(args, unsigned long)
                           : w == kLongLong ? va_arg(args, unsigned long long)
                           : va_arg(args, size_t);
      char* b = digitsOf(v, conv == 'u' ? 10 : 16, conv == 'X', end);
      put(b, (size_t)(end - b));
    }
  }
  out[j] = '\0';
  return true;
}

/* The rare ways of the trace calls, kept out of their hot stretch. */
CX_COLD char* prefixNameOnHeap(const char* prefix, const char* name) {
  return CLogWrapper_prefixName(prefix ? prefix : "", name);
}

CX_COLD void formatWithPrintf(char* text, const char* format, va_list args) {
  vsnprintf(text, kTextSize, format, args);
  text[kTextSize - 1] = '\0';
}

/* The shape shared by the five trace calls.  The method text and the
   formatted text live on the stack. */
CX_HOT void emit(CLogWrapper* w, int gate, const char* prefix, LogCall log, int line,
                 const char* sourceFile, const char* methodName, const char* format,
                 va_list args) {
  CLOGWRAPPER_ASSERT(w != NULL);
  if (!w || w->active != 1 || w->trcLevel < gate) return;
  char methodRoom[kMethodSize];
  char* methodHeap = nullptr;
  const char* methodText = prefixNameInto(prefix, methodName, methodRoom);
  if (!methodText) methodText = methodHeap = prefixNameOnHeap(prefix, methodName);
  char text[kTextSize];
  if (!format) {
    text[0] = '\0';
  } else {
    /* A format without "%" comes out of formatSimple as it is, read once. */
    va_list again;
    va_copy(again, args);
    if (!formatSimple(text, sizeof text, format, again)) formatWithPrintf(text, format, args);
    va_end(again);
  }
  /* The finished text travels as the message format with an empty tagged
     list, so a "%" in it can never reach for an argument. */
  log(w->logger, sourceFile, methodText, static_cast<uint32_t>(line), text, 0);
  QlgMem_free(methodHeap);
}

}  // namespace

extern "C" {

void CLogWrapper_assertFailed(const char* expression, const char* file, int line) {
  fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", expression ? expression : "?",
          file ? file : "?", line);
  fflush(stderr);
}

char* CLogWrapper_escapeXml(const char* s) {
  if (!s) return nullptr;
  size_t len = strlen(s);
  /* Every special character reserves 6 bytes, even those whose entity is
     shorter; the buffer may be larger than needed, which is intended. */
  size_t escapedLen = 0;
  for (const char* p = s; *p; ++p) escapedLen += isXmlSpecial(*p) ? 6 : 1;
  CLOGWRAPPER_ASSERT(escapedLen >= len);
  char* out = static_cast<char*>(QlgMem_alloc(escapedLen + 1));
  if (!out) return nullptr;
  if (escapedLen == len) {
    memcpy(out, s, len + 1);
    return out;
  }
  size_t j = 0;
  for (const char* p = s; *p; ++p) {
    CLOGWRAPPER_ASSERT(j < escapedLen);
    j = putEscaped(out, j, *p);
  }
  CLOGWRAPPER_ASSERT(j <= escapedLen);
  out[j] = '\0';
  return out;
}

char* CLogWrapper_prefixName(const char* prefix, const char* name) {
  CLOGWRAPPER_ASSERT(prefix != NULL);
  if (!prefix) prefix = "";
  size_t prefixLen = strlen(prefix);
  size_t nameLen = name ? strlen(name) : 0;
  char* text = static_cast<char*>(QlgMem_alloc(prefixLen + nameLen + 1));
  if (!text) return nullptr;
  memcpy(text, prefix, prefixLen);
  if (name) memcpy(text + prefixLen, name, nameLen);
  text[prefixLen + nameLen] = '\0';
  bool special = false;
  for (const char* p = text; *p && !special; ++p) special = isXmlSpecial(*p);
  if (!special) return text;
  char* escaped = CLogWrapper_escapeXml(text);
  QlgMem_free(text);
  return escaped;
}

void CLogWrapper_init(CLogWrapper* w, const char* loggerName) {
  if (!w) return;
  w->logger = nullptr;
  w->trcLevel = 0;
  w->active = 0;
  if (!QlgToolkit_initialize(CLogWrapper_configPath())) return;
  CLogWrapper_checkTraceFile();
  QlgObject* logger = QlgObject_create(loggerName, nullptr);
  if (!logger) return;
  w->logger = logger;
  if (QlgLogger_isLoggable(logger, QLG_LEVEL_DEBUG_MAX))
    w->trcLevel = ARDEL_TRC_MAX;
  else if (QlgLogger_isLoggable(logger, QLG_LEVEL_DEBUG_MID))
    w->trcLevel = ARDEL_TRC_MID;
  else if (QlgLogger_isLoggable(logger, QLG_LEVEL_DEBUG_MIN))
    w->trcLevel = ARDEL_TRC_MIN;
  else
    w->trcLevel = ARDEL_TRC_NONE;
  /* Active also at level 0: the logger exists, it just wants no trace. */
  w->active = 1;
}

CLogWrapper* createWrapper(int type) {
  if (type < 0 || type >= kComponents) return nullptr;
  CLogWrapper* w = &s_records[type];
  if (loadPublished(s_filled[type]) == 0) {
    /* Once only: a second fill would clear the record while the first
       filler already traces through it.  The toolkit's lock (recursive,
       and taken by the fill anyway) keeps fillers apart; the flag is
       published after the record is complete, so a thread that sees it set
       reads a finished record without any lock. */
    int locked = QlgToolkit_enter();
    if (loadPublished(s_filled[type]) == 0) {
      CLogWrapper_init(w, kLoggerNames[type]);
      /* Set whatever the outcome: a failed fill is not retried. */
      publish(s_filled[type], 1);
    }
    if (locked) QlgToolkit_leave();
  }
  return w;
}

CLogWrapper* getCLogHw(void) { return createWrapper(0); }
CLogWrapper* getCLogSw(void) { return createWrapper(1); }
CLogWrapper* getCLogCom(void) { return createWrapper(2); }
CLogWrapper* getCLogXse(void) { return createWrapper(3); }
CLogWrapper* getCLogFs(void) { return createWrapper(4); }
CLogWrapper* getCLogPlugin(void) { return createWrapper(5); }
CLogWrapper* getCLogUse(void) { return createWrapper(6); }
CLogWrapper* getCLogNet(void) { return createWrapper(7); }

int istraceActive(CLogWrapper* w, int level) {
  CLOGWRAPPER_ASSERT(w != NULL);
  /* Equality, not "at least": unlike the trace calls' gate; intended. */
  return w && w->trcLevel == level ? 1 : 0;
}

int getTrcLevel(CLogWrapper* w) {
  CLOGWRAPPER_ASSERT(w != NULL);
  return w ? w->trcLevel : 0;
}

#define CLOGWRAPPER_DEFINE_TRACE(fn, gate, prefix, log)                                    \
  CX_HOT void fn(CLogWrapper* w, int line, const char* sourceFile, const char* methodName, \
                 const char* format, ...) {                                               \
    va_list args;                                                                         \
    va_start(args, format);                                                               \
    emit(w, gate, prefix, log, line, sourceFile, methodName, format, args);               \
    va_end(args);                                                                         \
  }

CLOGWRAPPER_DEFINE_TRACE(traceEntry, ARDEL_TRC_MAX, "Entry ", QlgLogger_logMax)
CLOGWRAPPER_DEFINE_TRACE(traceExit, ARDEL_TRC_MAX, "Exit ", QlgLogger_logMax)
CLOGWRAPPER_DEFINE_TRACE(traceMAX, ARDEL_TRC_MAX, nullptr, QlgLogger_logMax)
CLOGWRAPPER_DEFINE_TRACE(traceMID, ARDEL_TRC_MID, nullptr, QlgLogger_logMid)
CLOGWRAPPER_DEFINE_TRACE(traceMIN, ARDEL_TRC_MIN, nullptr, QlgLogger_logMin)

}  // extern "C"
