// SPDX-License-Identifier: Apache-2.0
/*
 * CxPrintUtil: integer conversion and digit grouping for the printf engine.
 * The whole conversion is measured first and appended with one reserve, so
 * a failed allocation leaves the buffer untouched.
 */
#include "util/CxPrintUtil.h"

#include <climits>
#include <cstring>

namespace {

const char kLowerDigits[] = "0123456789abcdef";
const char kUpperDigits[] = "0123456789ABCDEF";

/* Large enough for 20 decimal digits with a separator of up to 15 bytes
   between every pair. */
const int kGroupWork = 320;

/* A group size byte that ends grouping: CHAR_MAX as localeconv() marks it,
   or 255 where char is unsigned. */
bool endsGrouping(unsigned char size) {
  return size == static_cast<unsigned char>(CHAR_MAX) || size == 255;
}

char* fill(char* out, char c, int n) {
  if (n > 0) std::memset(out, c, static_cast<size_t>(n));
  return out + (n > 0 ? n : 0);
}

}  // namespace

extern "C" {

int CxPrintUtil_groupDigits(const char* digits, int count, const CxGrouping* grouping,
                            char* work, int workSize) {
  if (!digits || !grouping || !work || count <= 0) return -1;
  const char* sep = grouping->separator;
  const unsigned char* sizes = reinterpret_cast<const unsigned char*>(grouping->grouping);
  if (!sep || !*sep || !sizes || !*sizes) return -1;
  if (sizes[0] < 1 || sizes[0] > 254 || endsGrouping(sizes[0])) return -1;
  int sepLen = static_cast<int>(std::strlen(sep));
  int group = sizes[0];
  bool grouping_on = true;
  int left = group;
  char* out = work + workSize;
  for (int i = count - 1; i >= 0; i--) {
    if (out == work) return -1;
    *--out = digits[i];
    if (!grouping_on || i == 0) continue;
    if (--left > 0) continue;
    /* A group is complete and more digits follow: separator in front. */
    if (out - work < sepLen) return -1;
    out -= sepLen;
    std::memcpy(out, sep, static_cast<size_t>(sepLen));
    if (sizes[1] != 0) sizes++; /* else the last size repeats */
    if (endsGrouping(sizes[0])) {
      grouping_on = false;
    } else {
      group = sizes[0];
      left = group;
    }
  }
  return static_cast<int>(work + workSize - out);
}

int CxPrintUtil_formatInteger(CxStringBuff* b, char conversion, int flags, int width,
                              int precision, uint64_t value, const CxGrouping* grouping,
                              int* error) {
  int dummy = 0;
  if (!error) error = &dummy;
  if (*error) return 0;
  if (!b) {
    *error = 1;
    return 0;
  }
  if (conversion == 'p') conversion = 'x';
  unsigned base = conversion == 'o' ? 8 : (conversion == 'x' || conversion == 'X') ? 16 : 10;

  if (precision >= 0) {
    flags &= ~CX_PRINT_ZERO;
    /* Intended: precision 0 with value 0 prints nothing, not even padding. */
    if (precision == 0 && value == 0) return 0;
  } else {
    precision = 1;
  }

  char prefix[2];
  int prefixLen = 0;
  uint64_t magnitude = value;
  if (conversion == 'd') {
    if (static_cast<int64_t>(value) < 0) {
      prefix[prefixLen++] = '-';
      magnitude = 0 - value;
    } else if (flags & CX_PRINT_PLUS) {
      prefix[prefixLen++] = '+';
    } else if (flags & CX_PRINT_SPACE) {
      prefix[prefixLen++] = ' ';
    }
  }

  /* Digits fill raw[] from its end, so they read most significant first. */
  const char* table = conversion == 'X' ? kUpperDigits : kLowerDigits;
  char raw[32];
  char* digits = raw + sizeof raw;
  /* Constant divisors and shifts: a division by a variable base costs far
     more than the rest of the conversion. */
  if (base == 10) {
    for (uint64_t v = magnitude; v != 0; v /= 10) *--digits = table[v % 10];
  } else {
    unsigned shift = base == 16 ? 4 : 3;
    for (uint64_t v = magnitude; v != 0; v >>= shift) *--digits = table[v & (base - 1)];
  }
  int digitCount = static_cast<int>(raw + sizeof raw - digits);
  int textLen = digitCount;

  char work[kGroupWork];
  if ((flags & CX_PRINT_GROUP) && (conversion == 'd' || conversion == 'u') && grouping) {
    int len = CxPrintUtil_groupDigits(digits, digitCount, grouping, work, kGroupWork);
    if (len > 0) {
      digits = work + kGroupWork - len;
      textLen = len;
    }
  }

  int zeros = precision - digitCount;
  if (zeros < 0) zeros = 0;
  if ((flags & CX_PRINT_ALT) && digitCount > 0) {
    if (conversion == 'o' && zeros < 1) zeros = 1;
    if (base == 16) {
      prefix[0] = '0';
      prefix[1] = conversion;
      prefixLen = 2;
    }
  }

  int64_t pad = static_cast<int64_t>(width) - zeros - textLen - prefixLen;
  if (pad < 0) pad = 0;
  int64_t lead = 0, trail = 0;
  if (flags & CX_PRINT_LEFT) {
    trail = pad;
  } else if (flags & CX_PRINT_ZERO) {
    zeros += static_cast<int>(pad);
  } else {
    lead = pad;
  }

  int64_t total = lead + prefixLen + zeros + textLen + trail;
  if (total > INT_MAX || !CxStringBuff_reserve(b, static_cast<uint32_t>(total))) {
    *error = 1;
    return 0;
  }
  char* out = b->data + b->length;
  out = fill(out, ' ', static_cast<int>(lead));
  std::memcpy(out, prefix, static_cast<size_t>(prefixLen));
  out += prefixLen;
  out = fill(out, '0', zeros);
  std::memcpy(out, digits, static_cast<size_t>(textLen));
  out += textLen;
  fill(out, ' ', static_cast<int>(trail));
  b->length += static_cast<int32_t>(total);
  b->data[b->length] = 0;
  return static_cast<int>(total);
}

}  // extern "C"
