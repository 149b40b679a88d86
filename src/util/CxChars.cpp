// SPDX-License-Identifier: Apache-2.0
/*
 * CxChars: null-safe text helpers (see CxChars.h).
 */
#include "util/CxChars.h"

#include <ardel/QlgMem.h>
#include <cstring>

namespace {

/* ASCII folding only: the toolkit never depends on the process locale. */
inline unsigned char foldCase(unsigned char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}

int compareFolded(const char* a, const char* b, size_t n) {
  if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
  for (size_t i = 0; i < n; ++i) {
    unsigned char ca = foldCase(static_cast<unsigned char>(a[i]));
    unsigned char cb = foldCase(static_cast<unsigned char>(b[i]));
    if (ca != cb) return ca < cb ? -1 : 1;
    if (ca == 0) break;
  }
  return 0;
}

}  // namespace

extern "C" {

char* CxChars_dup(const char* text) { return QlgMem_strdup(text); }

int CxChars_compare(const char* a, const char* b) {
  if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
  int r = std::strcmp(a, b);
  return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

int CxChars_compareNoCase(const char* a, const char* b) {
  return compareFolded(a, b, static_cast<size_t>(-1));
}

int CxChars_compareNoCaseN(const char* a, const char* b, size_t n) {
  return compareFolded(a, b, n);
}

int CxChars_startsWithNoCase(const char* text, const char* prefix) {
  if (!text || !prefix) return 0;
  return compareFolded(text, prefix, std::strlen(prefix)) == 0;
}

size_t CxChars_length(const char* text) { return text ? std::strlen(text) : 0; }

int CxChars_copy(char* dst, size_t size, const char* src) {
  if (!dst || size == 0) return 0;
  dst[0] = '\0';
  return CxChars_concat(dst, size, src);
}

int CxChars_concat(char* dst, size_t size, const char* src) {
  if (!dst || size == 0) return 0;
  const char* end = static_cast<const char*>(std::memchr(dst, '\0', size));
  if (!end) return 0;
  size_t used = static_cast<size_t>(end - dst);
  size_t add = CxChars_length(src);
  size_t room = size - used - 1;
  size_t n = add < room ? add : room;
  if (n) std::memcpy(dst + used, src, n);
  dst[used + n] = '\0';
  return n == add;
}

int CxChars_scanInteger(const char* text, int64_t min, int64_t max, int64_t* out) {
  if (!text || min > max) return 0;
  const char* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
  bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  if (*p < '0' || *p > '9') return 0;
  /* The magnitude is gathered unsigned and compared with the limit of its
     sign, so no value of any length can overflow on the way. */
  uint64_t limit;
  if (negative)
    limit = min < 0 ? static_cast<uint64_t>(-(min + 1)) + 1 : 0;
  else
    limit = max < 0 ? 0 : static_cast<uint64_t>(max);
  uint64_t magnitude = 0;
  bool outside = false;
  for (; *p >= '0' && *p <= '9'; ++p) {
    unsigned digit = static_cast<unsigned>(*p - '0');
    if (outside || magnitude > (limit - digit) / 10 || digit > limit) {
      outside = true; /* scanf reads every digit; so do we */
      continue;
    }
    magnitude = magnitude * 10 + digit;
  }
  if (outside) return 0;
  int64_t value;
  if (!negative)
    value = static_cast<int64_t>(magnitude);
  else if (magnitude == 0)
    value = 0;
  else
    value = -static_cast<int64_t>(magnitude - 1) - 1;
  if (value < min || value > max) return 0;
  *out = value;
  return 1;
}

}  // extern "C"
