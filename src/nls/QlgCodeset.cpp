/*
 * QlgCodeset: codeset converters.  This holds the built-in "UTF8" converter,
 * which is always available and never freed: converting the toolkit's
 * internal UTF-8 into UTF-8 only checks that the text is well formed, and a
 * wide character becomes its standard UTF-8 encoding.
 */
#include "nls/QlgCodeset.h"

#include <cstring>
#include <strings.h>

struct QlgCodeset {
  const char* name;
  int builtin; /* built-in converters are shared and never freed */
};

namespace {

QlgCodeset g_utf8 = {"UTF8", 1};

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

/* Length of the well-formed UTF-8 sequence at s (at most n bytes), or 0
   when it is malformed, overlong, a surrogate or beyond U+10FFFF. */
int sequenceLength(const unsigned char* s, int n) {
  unsigned char c = s[0];
  if (c < 0x80) return 1;
  int len;
  uint32_t cp;
  if ((c & 0xE0) == 0xC0) {
    len = 2;
    cp = c & 0x1F;
  } else if ((c & 0xF0) == 0xE0) {
    len = 3;
    cp = c & 0x0F;
  } else if ((c & 0xF8) == 0xF0) {
    len = 4;
    cp = c & 0x07;
  } else {
    return 0;
  }
  if (len > n) return 0;
  for (int i = 1; i < len; i++) {
    if ((s[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (s[i] & 0x3F);
  }
  static const uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
  if (cp < kMin[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

}  // namespace

extern "C" {

QlgCodeset* QlgCodeset_open(const char* name) {
  if (!name) return nullptr;
  if (strcasecmp(name, "UTF8") == 0 || strcasecmp(name, "UTF-8") == 0) return &g_utf8;
  return nullptr;
}

void QlgCodeset_close(QlgCodeset* cs) {
  /* Only built-in converters exist so far, and they are never freed. */
  (void)cs;
}

const char* QlgCodeset_name(const QlgCodeset* cs) { return cs ? cs->name : nullptr; }

int QlgCodeset_fromWide(QlgCodeset* cs, uint32_t wc, char* out, int outSize) {
  if (!cs || !out) return -1;
  char bytes[4];
  int n = encodeUtf8(wc, bytes);
  if (n < 0) return -1;
  if (n > outSize) return -2;
  std::memcpy(out, bytes, static_cast<size_t>(n));
  return n;
}

int QlgCodeset_fromUtf8(QlgCodeset* cs, const char* in, int inLen, char* out, int outSize) {
  if (!cs || inLen < 0 || (!in && inLen > 0) || (!out && inLen > 0)) return -1;
  if (inLen > outSize) return -1;
  const unsigned char* s = reinterpret_cast<const unsigned char*>(in);
  for (int i = 0; i < inLen;) {
    int len = sequenceLength(s + i, inLen - i);
    if (len == 0) return -1;
    i += len;
  }
  if (inLen > 0) std::memcpy(out, in, static_cast<size_t>(inLen));
  return inLen;
}

}  // extern "C"
