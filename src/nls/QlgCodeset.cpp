// SPDX-License-Identifier: Apache-2.0
/*
 * QlgCodeset: codeset converters between the toolkit's internal UTF-8 and
 * other codesets.  Three kinds:
 *   - the built-in "UTF8", which only checks that text is well formed;
 *   - single-byte codesets: a byte-to-code-point table and its sorted
 *     reverse, filled once at open time by asking the C library's converter
 *     about each of the 256 bytes ("INTERNAL37" is the built-in one whose
 *     table is the identity, so it needs no table at all);
 *   - multi-byte codesets (UTF-16, GB18030, Shift-JIS, ...), converted by
 *     the C library on every call.
 * No table is written by hand: where the C library knows a codeset, its
 * mapping is the one used.
 */
#include "nls/QlgCodeset.h"

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <ardel/QlgMem.h>
#include "nls/QlgNls.h"
#include "platform/CxCharset.h"

namespace {

enum Kind { kUtf8, kSingle, kMulti };

const uint32_t kNoChar = 0xFFFFFFFFu;

struct Pair {
  uint32_t cp;
  unsigned char byte;
};

}  // namespace

struct QlgCodeset {
  int kind;
  int builtin;
  char name[64];
  uint32_t* decode;     /* single-byte: 256 code points, kNoChar when unmapped; null: identity */
  Pair* encode;         /* single-byte: sorted by code point */
  int16_t* low;         /* single-byte: byte of each code point below 256, -1 none */
  int encodeCount;
  CxCharset* toCs;      /* multi-byte: UTF-8 -> codeset */
  CxCharset* fromCs;    /* multi-byte: codeset -> UTF-8 */
  char replacement[8];  /* "?" in the codeset */
  int replacementLen;
};

namespace {

QlgCodeset g_utf8 = {kUtf8, 1, "UTF8", nullptr, nullptr, nullptr, 0, nullptr, nullptr, "?", 1};
QlgCodeset g_fallback = {kSingle, 1, "INTERNAL37", nullptr, nullptr, nullptr, 0, nullptr, nullptr, "?", 1};

/* Standard UTF-8 of one code point into out; -1 for a surrogate or a value
   beyond U+10FFFF, which have no UTF-8 form. */
int encodeUtf8(uint32_t wc, char* out) {
  if (wc < 0x80) {
    out[0] = static_cast<char>(wc);
    return 1;
  }
  if (wc < 0x800) {
    out[0] = static_cast<char>(0xC0 | (wc >> 6));
    out[1] = static_cast<char>(0x80 | (wc & 0x3F));
    return 2;
  }
  if (wc >= 0xD800 && wc <= 0xDFFF) return -1;
  if (wc < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (wc >> 12));
    out[1] = static_cast<char>(0x80 | ((wc >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (wc & 0x3F));
    return 3;
  }
  if (wc > 0x10FFFF) return -1;
  out[0] = static_cast<char>(0xF0 | (wc >> 18));
  out[1] = static_cast<char>(0x80 | ((wc >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((wc >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (wc & 0x3F));
  return 4;
}

/* Length of the well-formed UTF-8 sequence at s (at most n bytes) with its
   code point in *cp, or 0 when it is malformed, overlong, a surrogate or
   beyond U+10FFFF. */
int decodeUtf8(const unsigned char* s, size_t n, uint32_t* cp) {
  unsigned char c = s[0];
  if (c < 0x80) {
    *cp = c;
    return 1;
  }
  int len;
  uint32_t v;
  if ((c & 0xE0) == 0xC0) {
    len = 2;
    v = c & 0x1F;
  } else if ((c & 0xF0) == 0xE0) {
    len = 3;
    v = c & 0x0F;
  } else if ((c & 0xF8) == 0xF0) {
    len = 4;
    v = c & 0x07;
  } else {
    return 0;
  }
  if (static_cast<size_t>(len) > n) return 0;
  for (int i = 1; i < len; i++) {
    if ((s[i] & 0xC0) != 0x80) return 0;
    v = (v << 6) | (s[i] & 0x3F);
  }
  static const uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
  if (v < kMin[len] || v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) return 0;
  *cp = v;
  return len;
}

int pairLess(const void* a, const void* b) {
  const Pair* x = static_cast<const Pair*>(a);
  const Pair* y = static_cast<const Pair*>(b);
  if (x->cp != y->cp) return x->cp < y->cp ? -1 : 1;
  return x->byte < y->byte ? -1 : x->byte > y->byte;
}

/* The byte of a code point in a single-byte codeset, -1 when it has none. */
int singleByteOf(const QlgCodeset* cs, uint32_t cp) {
  if (!cs->decode) return cp < 256 ? static_cast<int>(cp) : -1;
  if (cp < 256) return cs->low[cp];
  int lo = 0, hi = cs->encodeCount - 1;
  while (lo <= hi) {
    int mid = (lo + hi) / 2;
    if (cs->encode[mid].cp == cp) return cs->encode[mid].byte;
    if (cs->encode[mid].cp < cp)
      lo = mid + 1;
    else
      hi = mid - 1;
  }
  return -1;
}

uint32_t singleCharOf(const QlgCodeset* cs, unsigned char b) { return cs->decode ? cs->decode[b] : b; }

/* One code point into the bytes of a table-free or table codeset; -1 when
   it has no mapping. */
int encodeChar(const QlgCodeset* cs, uint32_t cp, char* out) {
  if (cs->kind == kUtf8) return encodeUtf8(cp, out);
  int b = singleByteOf(cs, cp);
  if (b < 0) return -1;
  out[0] = static_cast<char>(b);
  return 1;
}

/* Asks the C library what one byte means in the codeset: its code point,
   kNoChar when it means nothing, or false when the byte does not stand for
   one character alone (a multi-byte or stateful codeset). */
bool probeByte(CxCharset* fromCs, unsigned char b, uint32_t* cp) {
  CxCharset_reset(fromCs, nullptr, nullptr);
  char in[1] = {static_cast<char>(b)};
  const char* ip = in;
  size_t inLeft = 1;
  char utf[16];
  char* op = utf;
  size_t outLeft = sizeof utf;
  int r = CxCharset_convert(fromCs, &ip, &inLeft, &op, &outLeft);
  if (r == CX_CHARSET_INVALID) {
    *cp = kNoChar;
    return true;
  }
  if (r != CX_CHARSET_DONE) return false;
  size_t n = sizeof utf - outLeft;
  uint32_t v = 0;
  return n > 0 && decodeUtf8(reinterpret_cast<unsigned char*>(utf), n, &v) == static_cast<int>(n) &&
         (*cp = v, true);
}

/* Turns an opened multi-byte converter into tables when every byte stands
   for at most one character; the C library's handles are then closed. */
void makeSingleByte(QlgCodeset* cs) {
  uint32_t table[256];
  for (int b = 0; b < 256; b++)
    if (!probeByte(cs->fromCs, static_cast<unsigned char>(b), &table[b])) return;
  uint32_t* decode = static_cast<uint32_t*>(QlgMem_alloc(sizeof table));
  Pair* encode = static_cast<Pair*>(QlgMem_alloc(256 * sizeof(Pair)));
  int16_t* low = static_cast<int16_t*>(QlgMem_alloc(256 * sizeof(int16_t)));
  if (!decode || !encode || !low) {
    QlgMem_free(decode);
    QlgMem_free(encode);
    QlgMem_free(low);
    return;
  }
  memcpy(decode, table, sizeof table);
  int n = 0;
  for (int b = 0; b < 256; b++)
    if (table[b] != kNoChar) encode[n++] = Pair{table[b], static_cast<unsigned char>(b)};
  qsort(encode, static_cast<size_t>(n), sizeof(Pair), pairLess);
  /* Two bytes of one character: the lower byte encodes it. */
  int kept = 0;
  for (int i = 0; i < n; i++)
    if (kept == 0 || encode[kept - 1].cp != encode[i].cp) encode[kept++] = encode[i];
  /* Most text is below U+0100: those characters skip the search. */
  for (int c = 0; c < 256; c++) low[c] = -1;
  for (int i = 0; i < kept && encode[i].cp < 256; i++) low[encode[i].cp] = encode[i].byte;
  cs->decode = decode;
  cs->encode = encode;
  cs->low = low;
  cs->encodeCount = kept;
  cs->kind = kSingle;
  CxCharset_close(cs->toCs);
  CxCharset_close(cs->fromCs);
  cs->toCs = cs->fromCs = nullptr;
}

/* "?" in the codeset, asked of the C library (two bytes in UTF-16).  A
   converter of its own answers, twice: the first answer may carry a byte
   order mark, which must not end up in the middle of a text. */
void setReplacement(QlgCodeset* cs, const char* systemName) {
  cs->replacement[0] = '?';
  cs->replacementLen = 1;
  CxCharset* probe = CxCharset_open(systemName, "UTF-8");
  if (!probe) return;
  for (int round = 0; round < 2; round++) {
    const char* ip = "?";
    size_t inLeft = 1;
    char bytes[sizeof cs->replacement];
    char* op = bytes;
    size_t outLeft = sizeof bytes;
    if (CxCharset_convert(probe, &ip, &inLeft, &op, &outLeft) != CX_CHARSET_DONE ||
        CxCharset_reset(probe, &op, &outLeft) != CX_CHARSET_DONE || outLeft == sizeof bytes)
      break;
    if (round == 1) {
      cs->replacementLen = static_cast<int>(sizeof bytes - outLeft);
      memcpy(cs->replacement, bytes, static_cast<size_t>(cs->replacementLen));
    }
  }
  CxCharset_close(probe);
}

QlgCodeset* openSystem(const char* systemName, const char* canonical) {
  CxCharset* to = CxCharset_open(systemName, "UTF-8");
  CxCharset* from = to ? CxCharset_open("UTF-8", systemName) : nullptr;
  QlgCodeset* cs = from ? static_cast<QlgCodeset*>(QlgMem_alloc(sizeof(QlgCodeset))) : nullptr;
  if (!cs) {
    CxCharset_close(to);
    CxCharset_close(from);
    return nullptr;
  }
  memset(cs, 0, sizeof *cs);
  cs->kind = kMulti;
  cs->toCs = to;
  cs->fromCs = from;
  strncpy(cs->name, canonical, sizeof cs->name - 1);
  setReplacement(cs, systemName);
  makeSingleByte(cs);
  return cs;
}


/* One pass of the converter over in[*pos..n) into out[*used..size),
   advancing both positions by what it took and gave. */
int convertStep(CxCharset* c, const char* in, size_t n, size_t* pos, char* out, size_t size, size_t* used) {
  const char* ip = in + *pos;
  size_t inLeft = n - *pos;
  char* op = out + *used;
  size_t outLeft = size - *used;
  int r = CxCharset_convert(c, &ip, &inLeft, &op, &outLeft);
  *pos = static_cast<size_t>(ip - in);
  *used = static_cast<size_t>(op - out);
  return r;
}

/* Outcome of the shared encoder. */
struct Encoded {
  int written;
  bool complete; /* every input byte converted */
  bool malformed;
};

/* UTF-8 into the codeset, character by character for the table kinds and
   in runs for the C library, stopping at the last whole character that
   fits.  strict: malformed input stops the conversion (else it shows "?"). */
Encoded encodeText(QlgCodeset* cs, const char* in, size_t n, char* out, size_t size, bool strict) {
  Encoded e = {0, true, false};
  const unsigned char* s = reinterpret_cast<const unsigned char*>(in);
  size_t pos = 0, used = 0;
  if (cs->kind == kMulti) CxCharset_reset(cs->toCs, nullptr, nullptr);
  while (pos < n) {
    if (cs->kind == kMulti) {
      int r = convertStep(cs->toCs, in, n, &pos, out, size, &used);
      if (r == CX_CHARSET_DONE) break;
      if (r == CX_CHARSET_FULL) {
        e.complete = false;
        break;
      }
    }
    if (cs->kind == kUtf8) {
      /* Plain ASCII runs are copied as they are. */
      while (pos < n && s[pos] < 0x80 && used < size) out[used++] = static_cast<char>(s[pos++]);
      if (pos == n) break;
    } else if (cs->kind == kSingle) {
      /* ASCII runs through the direct table, without decoding. */
      for (int b; pos < n && s[pos] < 0x80 && used < size && (b = singleByteOf(cs, s[pos])) >= 0; pos++)
        out[used++] = static_cast<char>(b);
      if (pos == n) break;
    }
    uint32_t cp = 0;
    int len = decodeUtf8(s + pos, n - pos, &cp);
    char bytes[8];
    int k = -1;
    if (len == 0) {
      if (strict) {
        e.malformed = true;
        break;
      }
      len = 1;
    } else if (cs->kind != kMulti) {
      k = encodeChar(cs, cp, bytes);
    }
    if (k < 0) {
      /* Unmappable (or, when not strict, malformed): the codeset's "?". */
      memcpy(bytes, cs->replacement, static_cast<size_t>(cs->replacementLen));
      k = cs->replacementLen;
    }
    if (used + static_cast<size_t>(k) > size) {
      e.complete = false;
      break;
    }
    memcpy(out + used, bytes, static_cast<size_t>(k));
    used += static_cast<size_t>(k);
    pos += static_cast<size_t>(len);
  }
  if (cs->kind == kMulti && e.complete && !e.malformed) {
    char* op = out + used;
    size_t outLeft = size - used;
    if (CxCharset_reset(cs->toCs, &op, &outLeft) != CX_CHARSET_DONE) e.complete = false;
    used = static_cast<size_t>(op - out);
  }
  e.written = static_cast<int>(used);
  return e;
}

size_t textLength(const char* in, int inLen) { return inLen < 0 ? strlen(in) : static_cast<size_t>(inLen); }

}  // namespace

extern "C" {

void QlgCodeset_normalizeName(const char* name, char* out, size_t size) {
  if (!out || size == 0) return;
  out[0] = '\0';
  if (!name) return;
  char upper[16];
  size_t i = 0;
  for (; name[i] && i < sizeof upper - 1; i++) upper[i] = static_cast<char>(toupper(static_cast<unsigned char>(name[i])));
  upper[i] = '\0';
  if (!name[i] && (strcmp(upper, "DOS") == 0 || strcmp(upper, "WIN") == 0 || strcmp(upper, "OS") == 0)) {
    char local[64];
    /* The console and the system both speak the locale's codeset here. */
    if (CxCharset_localeCodeset(local, sizeof local) && strcmp(local, "OS") != 0)
      QlgCodeset_normalizeName(local, out, size);
    return;
  }
  const char* p = name;
  if (strncmp(upper, "ORX", 3) == 0) p += 3;
  size_t n = 0;
  for (; *p && n < size - 1; p++) {
    unsigned char c = static_cast<unsigned char>(*p);
    if (isalnum(c)) out[n++] = static_cast<char>(toupper(c));
  }
  out[n] = '\0';
}

QlgCodeset* QlgCodeset_open(const char* name) {
  if (!name || !*name || strchr(name, '/') || strchr(name, '\\')) return nullptr;
  char canonical[64];
  QlgCodeset_normalizeName(name, canonical, sizeof canonical);
  if (!canonical[0]) return nullptr;
  if (strcmp(canonical, "UTF8") == 0) return &g_utf8;
  if (strcmp(canonical, "INTERNAL37") == 0) return &g_fallback;
  char system[64];
  const char* given = name;
  if (strcasecmp(name, "DOS") == 0 || strcasecmp(name, "WIN") == 0 || strcasecmp(name, "OS") == 0) {
    if (!CxCharset_localeCodeset(system, sizeof system)) return nullptr;
    given = system;
  }
  /* The C library knows the usual spellings ("ISO-8859-1", "latin1");
     the canonical form covers the rest ("ISO88591" from "iso_8859_1"). */
  QlgCodeset* cs = openSystem(given, canonical);
  if (!cs) cs = openSystem(canonical, canonical);
  if (!cs && strspn(canonical, "0123456789") == strlen(canonical)) {
    /* A bare number is a code page ("ORX-943", "1252"). */
    char prefixed[sizeof canonical + 8];
    snprintf(prefixed, sizeof prefixed, "CP%s", canonical);
    cs = openSystem(prefixed, canonical);
    if (!cs) {
      snprintf(prefixed, sizeof prefixed, "IBM%s", canonical);
      cs = openSystem(prefixed, canonical);
    }
  }
  return cs;
}

void QlgCodeset_close(QlgCodeset* cs) {
  if (!cs || cs->builtin) return;
  CxCharset_close(cs->toCs);
  CxCharset_close(cs->fromCs);
  QlgMem_free(cs->decode);
  QlgMem_free(cs->encode);
  QlgMem_free(cs->low);
  QlgMem_free(cs);
}

const char* QlgCodeset_name(const QlgCodeset* cs) { return cs ? cs->name : nullptr; }

QlgCodeset* QlgCodeset_utf8(void) { return &g_utf8; }

QlgCodeset* QlgCodeset_fallback(void) { return &g_fallback; }

int QlgCodeset_fromWide(QlgCodeset* cs, uint32_t wc, char* out, int outSize) {
  if (!cs || !out) return -1;
  char utf[4];
  int n = encodeUtf8(wc, utf);
  if (n < 0) return -1;
  char bytes[16];
  int k;
  if (cs->kind != kMulti) {
    k = encodeChar(cs, wc, bytes);
  } else {
    /* Strictly one character: a replacement "?" would hide the failure. */
    const char* ip = utf;
    size_t inLeft = static_cast<size_t>(n);
    char* op = bytes;
    size_t outLeft = sizeof bytes;
    CxCharset_reset(cs->toCs, nullptr, nullptr);
    k = CxCharset_convert(cs->toCs, &ip, &inLeft, &op, &outLeft) == CX_CHARSET_DONE &&
                CxCharset_reset(cs->toCs, &op, &outLeft) == CX_CHARSET_DONE
            ? static_cast<int>(sizeof bytes - outLeft)
            : -1;
  }
  if (k < 0) return -1;
  if (k > outSize) return -2;
  memcpy(out, bytes, static_cast<size_t>(k));
  return k;
}

int QlgCodeset_fromUtf8(QlgCodeset* cs, const char* in, int inLen, char* out, int outSize) {
  if (!cs || inLen < 0 || outSize < 0 || (!in && inLen > 0) || (!out && inLen > 0)) return -1;
  if (inLen == 0) return 0;
  Encoded e = encodeText(cs, in, static_cast<size_t>(inLen), out, static_cast<size_t>(outSize), true);
  return e.complete && !e.malformed ? e.written : -1;
}

int QlgCodeset_convert(QlgCodeset* cs, const char* in, int inLen, char* out, int outSize) {
  if (!out || outSize <= 0) return 0;
  out[0] = '\0';
  if (!in) return 0;
  if (!cs) cs = QlgNls_defaultCodeset();
  if (!cs) return 0;
  Encoded e = encodeText(cs, in, textLength(in, inLen), out, static_cast<size_t>(outSize - 1), false);
  out[e.written] = '\0';
  return e.written;
}

int QlgCodeset_toUtf8(QlgCodeset* cs, const char* in, int inLen, char* out, int outSize) {
  if (!out || outSize <= 0) return 0;
  out[0] = '\0';
  if (!in) return 0;
  if (!cs) cs = QlgNls_defaultCodeset();
  if (!cs) return 0;
  size_t n = textLength(in, inLen);
  size_t size = static_cast<size_t>(outSize - 1), used = 0, pos = 0;
  const unsigned char* s = reinterpret_cast<const unsigned char*>(in);
  if (cs->kind == kMulti) CxCharset_reset(cs->fromCs, nullptr, nullptr);
  while (pos < n) {
    char bytes[4] = {'?'};
    int k = 1;
    size_t len = 1;
    if (cs->kind == kMulti) {
      int r = convertStep(cs->fromCs, in, n, &pos, out, size, &used);
      if (r == CX_CHARSET_DONE || r == CX_CHARSET_FULL) break;
      if (r == CX_CHARSET_INCOMPLETE) len = n - pos;
    } else if (cs->kind == kUtf8) {
      uint32_t cp;
      int l = decodeUtf8(s + pos, n - pos, &cp);
      if (l > 0) {
        len = static_cast<size_t>(l);
        k = l;
        memcpy(bytes, in + pos, len);
      }
    } else {
      uint32_t cp = singleCharOf(cs, s[pos]);
      if (cp != kNoChar) k = encodeUtf8(cp, bytes);
      if (k < 0) k = (bytes[0] = '?', 1);
    }
    if (used + static_cast<size_t>(k) > size) break;
    memcpy(out + used, bytes, static_cast<size_t>(k));
    used += static_cast<size_t>(k);
    pos += len;
  }
  out[used] = '\0';
  return static_cast<int>(used);
}

int QlgCodeset_toWide(QlgCodeset* cs, const char* in, int inLen, uint32_t* out, int outCount) {
  if (!out || outCount <= 0) return 0;
  out[0] = 0;
  if (!in) return 0;
  size_t n = textLength(in, inLen);
  if (n > (1u << 26)) return 0;
  /* Through UTF-8: four bytes hold any character of any codeset. */
  size_t room = n * 4 + 1;
  char* utf = static_cast<char*>(QlgMem_alloc(room));
  if (!utf) return 0;
  int len = QlgCodeset_toUtf8(cs, in, static_cast<int>(n), utf, static_cast<int>(room));
  const unsigned char* s = reinterpret_cast<unsigned char*>(utf);
  int count = 0;
  for (int pos = 0; pos < len && count < outCount - 1;) {
    uint32_t cp = '?';
    int l = decodeUtf8(s + pos, static_cast<size_t>(len - pos), &cp);
    pos += l > 0 ? l : 1;
    out[count++] = cp;
  }
  out[count] = 0;
  QlgMem_free(utf);
  return count;
}

}  // extern "C"
