// SPDX-License-Identifier: Apache-2.0
/*
 * QlgReadProps: the properties-file reader, a table-driven state machine
 * over the bytes of the file.  Each byte falls into one of six classes; the
 * table gives, per state and class, what to do with the byte and where to
 * go next.  The escape states (key and value backslashes, four-digit Unicode
 * escapes) are handled beside the table.
 *
 * Two behaviours look odd but are intended and kept:
 *  - the key and value buffers are reused for the whole read and have no
 *    storage until their first byte; a value still without storage when its
 *    entry is stored counts as missing and fails the read, so "x.y=" fails
 *    as the first entry of a file but is filed empty after an entry with a
 *    non-empty value;
 *  - the Unicode accumulator is set to 0 once per read, never between
 *    escapes, so a second escape adds to the first one's code point.
 */
#include "core/QlgReadProps.h"

#include <ardel/QlgI18Msg.h>
#include <ardel/QlgMem.h>
#include <cstdio>
#include <cstring>

#include "core/QlgMisc.h"
#include "core/QlgObjConfig.h"
#include "msg/QlgMsgTable.h"
#include "platform/CxFile.h"
#include "util/CxStringBuff.h"

namespace {

enum CharClass { kSpace, kLineEnd, kComment, kSeparator, kBackslash, kOther, kClassCount };

enum State {
  kLineStart = 1,
  kLeadingSpace,
  kCommentLine,
  kKey,
  kKeyEscape,
  kAfterKey,
  kAfterSeparator,
  kValue,
  kValueEscape,
  kContinuation,
  kHex1,
  kHex2,
  kHex3,
  kHex4
};

enum Action {
  kNone,     /* drop the byte */
  kToKey,    /* key += byte */
  kToValue,  /* value += byte */
  kStore,    /* file the pending entry */
  kFail,     /* end the read with failure */
  kSpecial   /* decided in code: value escapes */
};

struct Step {
  Action action;
  State next;
};

/* Rows are states 1..10 (index state - 1), columns the byte classes. */
const Step kTable[10][kClassCount] = {
    /* line start */
    {{kNone, kLeadingSpace}, {kNone, kLineStart}, {kNone, kCommentLine},
     {kToKey, kKey}, {kToKey, kKey}, {kToKey, kKey}},
    /* leading space */
    {{kNone, kLeadingSpace}, {kNone, kLineStart}, {kNone, kCommentLine},
     {kFail, kLineStart}, {kToKey, kKey}, {kToKey, kKey}},
    /* comment */
    {{kNone, kCommentLine}, {kNone, kLineStart}, {kNone, kCommentLine},
     {kNone, kCommentLine}, {kNone, kCommentLine}, {kNone, kCommentLine}},
    /* key */
    {{kNone, kAfterKey}, {kFail, kLineStart}, {kToKey, kKey},
     {kNone, kAfterSeparator}, {kNone, kKeyEscape}, {kToKey, kKey}},
    /* key escape: only a backslash, white space, ":" or "=" may follow */
    {{kToKey, kKey}, {kFail, kLineStart}, {kFail, kLineStart},
     {kToKey, kKey}, {kToKey, kKey}, {kFail, kLineStart}},
    /* after key */
    {{kNone, kAfterKey}, {kFail, kLineStart}, {kToValue, kValue},
     {kNone, kAfterSeparator}, {kNone, kValueEscape}, {kToValue, kValue}},
    /* after separator */
    {{kNone, kAfterSeparator}, {kStore, kLineStart}, {kToValue, kValue},
     {kToValue, kValue}, {kNone, kValueEscape}, {kToValue, kValue}},
    /* value */
    {{kToValue, kValue}, {kStore, kLineStart}, {kToValue, kValue},
     {kToValue, kValue}, {kNone, kValueEscape}, {kToValue, kValue}},
    /* value escape: the "other" class is sorted out in code */
    {{kToValue, kValue}, {kNone, kContinuation}, {kFail, kLineStart},
     {kFail, kLineStart}, {kToValue, kValue}, {kSpecial, kValue}},
    /* continuation: the next line's leading white space is skipped */
    {{kNone, kContinuation}, {kStore, kLineStart}, {kToValue, kValue},
     {kToValue, kValue}, {kNone, kValueEscape}, {kToValue, kValue}},
};

CharClass classOf(unsigned char c) {
  switch (c) {
    case ' ': case '\t': case '\v': case '\f': return kSpace;
    case '\r': case '\n': return kLineEnd;
    case '!': case '#': return kComment;
    case ':': case '=': return kSeparator;
    case '\\': return kBackslash;
    default: return kOther;
  }
}

inline bool isLineEnd(unsigned char c) { return c == '\r' || c == '\n'; }

int hexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

struct Reader {
  QlgProps* target;
  QlgReadPropsVisitFn visit; /* checking mode: every entry and every error */
  void* visitContext;
  const char* error;         /* why the last byte failed, for the visitor */
  int line;                  /* 1-based line of the byte being read */
  int entryLine;             /* line where the pending key began */
  CxStringBuff key;
  CxStringBuff value;
  State state;
  int32_t unicode; /* set to 0 once per read; intended, see the file comment */
  unsigned char prev;
  bool havePrev;
};

/* Message 52 goes straight to standard error: while the file is read the
   error logger does not exist yet. */
void reportBadEscape(const char* key) {
  QlgI18Msg* msg = QlgI18Msg_create(QLG_MSG_CATALOG, 1, 52, QlgMsgTable_text(52));
  if (!msg) return;
  QlgI18Msg_addString(msg, key ? key : "");
  char* text = QlgI18Msg_render(msg);
  if (text) {
    QlgI18Msg_print(stderr, text);
    QlgI18Msg_print(stderr, "\n");
  }
  QlgMem_free(text);
  QlgI18Msg_free(msg);
}

/* Files the pending entry.  A value without storage is missing (see the
   file comment) unless emptyIfMissing, the end-of-file rule for a key
   alone on the last line. */
bool store(Reader* r, bool emptyIfMissing) {
  const char* value = r->value.data;
  if (!value && emptyIfMissing) value = "";
  if (!value || !r->key.data) {
    r->error = "the value is missing (an empty value is only accepted after a non-empty one)";
    return false;
  }
  if (r->target) return QlgProps_setString(r->target, r->key.data, value) != 0;

  char* dot = std::strrchr(r->key.data, '.');
  if (!dot || dot == r->key.data || dot[1] == '\0') {
    r->error = "the key is not of the form object.property";
    return false;
  }
  if (r->visit) {
    r->visit(r->visitContext, r->entryLine, r->key.data, value, nullptr);
    return true;
  }
  *dot = '\0'; /* split in place; restored below */
  int ok = QlgObjConfig_define(r->key.data, dot + 1, value);
  *dot = '.';
  return ok != 0;
}

/* Entering line start clears key and value, keeping their storage. */
void enter(Reader* r, State next) {
  if (next == kLineStart) {
    if (r->key.data) CxStringBuff_clear(&r->key);
    if (r->value.data) CxStringBuff_clear(&r->value);
  }
  r->state = next;
}

const char* failureReason(State state, CharClass cls) {
  if (state == kLeadingSpace) return "a line starts with a separator and has no key";
  if (state == kKeyEscape) return "a backslash in a key may only escape a backslash, white space, ':' or '='";
  if (state == kValueEscape) return "a backslash in a value may only escape a backslash, white space, a quote, a line end or u";
  if (cls == kLineEnd) return "the line ends after the key, without a separator";
  return "the line cannot be read";
}

/* One byte through the machine; false ends the read with failure. */
bool feed(Reader* r, unsigned char c) {
  /* A line end right after another line-end byte never reaches the
     machine: CR LF, blank lines and runs of line ends act as one. */
  bool skip = isLineEnd(c) && r->havePrev && isLineEnd(r->prev);
  /* Lines are counted for the checker's reports only: LF, or CR not
     followed by LF. */
  if (r->havePrev && (r->prev == '\n' || (r->prev == '\r' && c != '\n'))) r->line++;
  r->prev = c;
  r->havePrev = true;
  if (skip) return true;

  if (r->state >= kHex1) {
    int h = hexValue(c);
    if (h < 0) {
      r->error = "a Unicode escape needs four hexadecimal digits";
      return false;
    }
    static const uint32_t kWeight[4] = {4096, 256, 16, 1};
    /* Never reset, so enough escapes carry the sum past 32 bits: it wraps. */
    r->unicode = static_cast<int32_t>(static_cast<uint32_t>(r->unicode) +
                                      static_cast<uint32_t>(h) * kWeight[r->state - kHex1]);
    if (r->state != kHex4) {
      r->state = static_cast<State>(r->state + 1);
      return true;
    }
    r->state = kValue;
    return CxStringBuff_appendUtf8(&r->value, r->unicode) != 0;
  }

  const Step& step = kTable[r->state - 1][classOf(c)];
  switch (step.action) {
    case kNone:
      break;
    case kToKey:
      if (r->key.length == 0) r->entryLine = r->line;
      if (!CxStringBuff_appendChar(&r->key, static_cast<char>(c))) return false;
      break;
    case kToValue:
      if (!CxStringBuff_appendChar(&r->value, static_cast<char>(c))) return false;
      break;
    case kStore:
      if (!store(r, false)) return false;
      break;
    case kFail:
      r->error = failureReason(r->state, classOf(c));
      return false;
    case kSpecial:
      if (c == '"' || c == '\'') {
        if (!CxStringBuff_appendChar(&r->value, static_cast<char>(c))) return false;
      } else if (c == 'u' || c == 'U') {
        r->state = kHex1;
        return true;
      } else {
        r->error = "a backslash in a value may only escape a backslash, white space, a quote, a line end or u";
        if (!r->visit) reportBadEscape(r->key.data);
        return false;
      }
      break;
  }
  enter(r, step.next);
  return true;
}

/* End of file: an empty key means nothing is pending.  A key alone (no
   separator seen) is filed with an empty value; once a separator was seen
   the value follows the storage rule like any other entry. */
bool finish(Reader* r) {
  if (r->key.length == 0) return true;
  bool keyAlone = r->state == kKey || r->state == kKeyEscape || r->state == kAfterKey;
  return store(r, keyAlone);
}

}  // namespace

namespace {

int readFile(const char* path, QlgProps* target, QlgReadPropsVisitFn visit, void* ctx) {
  int fd = -1;
  CxStatus st = CxFile_open(&fd, path, CX_O_RDONLY);
  if (!CxStatus_isOk(st)) {
    if (!visit) QlgMisc_reportStatus(st);
    return 0;
  }

  Reader r;
  std::memset(&r, 0, sizeof(r));
  r.target = target;
  r.visit = visit;
  r.visitContext = ctx;
  r.state = kLineStart;
  r.unicode = 0;
  r.line = 1;

  static const size_t kChunk = 4096;
  unsigned char buf[kChunk];
  bool ok = true;
  for (;;) {
    int n = 0;
    st = CxFile_read(fd, buf, kChunk, &n);
    if (!CxStatus_isOk(st)) {
      if (!visit) QlgMisc_reportStatus(st);
      ok = false;
      break;
    }
    if (n <= 0) {
      if (!finish(&r) && visit) {
        visit(ctx, r.entryLine, r.key.data, nullptr, r.error);
        ok = false;
      }
      break;
    }
    for (int i = 0; i < n && (ok || visit); ++i) {
      if (feed(&r, buf[i])) continue;
      ok = false;
      if (!visit) break;
      /* Checking mode reports the line and goes on with the next one. */
      visit(ctx, r.line, r.key.data, nullptr, r.error ? r.error : "the line cannot be read");
      r.error = nullptr;
      enter(&r, isLineEnd(buf[i]) ? kLineStart : kCommentLine);
      if (r.key.data) CxStringBuff_clear(&r.key);
      if (r.value.data) CxStringBuff_clear(&r.value);
    }
    if (!ok && !visit) break;
  }

  CxFile_close(&fd);
  CxStringBuff_free(&r.key);
  CxStringBuff_free(&r.value);
  return ok ? 1 : 0;
}

}  // namespace

extern "C" int QlgReadProps_read(const char* path, QlgProps* target) {
  return readFile(path, target, nullptr, nullptr);
}

extern "C" int QlgReadProps_check(const char* path, QlgReadPropsVisitFn visit, void* context) {
  if (!visit) return 0;
  return readFile(path, nullptr, visit, context);
}
