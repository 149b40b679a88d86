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
  if (!value || !r->key.data) return false;
  if (r->target) return QlgProps_setString(r->target, r->key.data, value) != 0;

  char* dot = std::strrchr(r->key.data, '.');
  if (!dot || dot == r->key.data || dot[1] == '\0') return false;
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

/* One byte through the machine; false ends the read with failure. */
bool feed(Reader* r, unsigned char c) {
  /* A line end right after another line-end byte never reaches the
     machine: CR LF, blank lines and runs of line ends act as one. */
  bool skip = isLineEnd(c) && r->havePrev && isLineEnd(r->prev);
  r->prev = c;
  r->havePrev = true;
  if (skip) return true;

  if (r->state >= kHex1) {
    int h = hexValue(c);
    if (h < 0) return false;
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
      if (!CxStringBuff_appendChar(&r->key, static_cast<char>(c))) return false;
      break;
    case kToValue:
      if (!CxStringBuff_appendChar(&r->value, static_cast<char>(c))) return false;
      break;
    case kStore:
      if (!store(r, false)) return false;
      break;
    case kFail:
      return false;
    case kSpecial:
      if (c == '"' || c == '\'') {
        if (!CxStringBuff_appendChar(&r->value, static_cast<char>(c))) return false;
      } else if (c == 'u' || c == 'U') {
        r->state = kHex1;
        return true;
      } else {
        reportBadEscape(r->key.data);
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

extern "C" int QlgReadProps_read(const char* path, QlgProps* target) {
  int fd = -1;
  CxStatus st = CxFile_open(&fd, path, CX_O_RDONLY);
  if (!CxStatus_isOk(st)) {
    QlgMisc_reportStatus(st);
    return 0;
  }

  Reader r;
  std::memset(&r, 0, sizeof(r));
  r.target = target;
  r.state = kLineStart;
  r.unicode = 0;

  static const size_t kChunk = 4096;
  unsigned char buf[kChunk];
  bool ok = true;
  for (;;) {
    int n = 0;
    st = CxFile_read(fd, buf, kChunk, &n);
    if (!CxStatus_isOk(st)) {
      QlgMisc_reportStatus(st);
      ok = false;
      break;
    }
    if (n <= 0) {
      ok = finish(&r);
      break;
    }
    for (int i = 0; i < n && ok; ++i) ok = feed(&r, buf[i]);
    if (!ok) break;
  }

  CxFile_close(&fd);
  CxStringBuff_free(&r.key);
  CxStringBuff_free(&r.value);
  return ok ? 1 : 0;
}
