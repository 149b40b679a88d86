// SPDX-License-Identifier: Apache-2.0
/*
 * CxChars: null-safe text helpers.  A null text behaves as the smallest and
 * shortest text there is: it has length 0, copies to null and sorts before
 * every other text.  Case-insensitive comparison folds ASCII letters only,
 * so the result never depends on the process locale.
 */
#ifndef ARDEL_CXCHARS_H
#define ARDEL_CXCHARS_H

#include <stddef.h>
#include <stdint.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

/* New copy (QlgMem_free); null for null or when out of memory. */
char* CxChars_dup(const char* text);
/* strcmp order; null sorts before any text, two nulls are equal. */
int CxChars_compare(const char* a, const char* b);
/* As CxChars_compare, ignoring the case of ASCII letters. */
int CxChars_compareNoCase(const char* a, const char* b);
/* As CxChars_compareNoCase over at most n bytes. */
int CxChars_compareNoCaseN(const char* a, const char* b, size_t n);
/* 1 when text begins with prefix, ignoring case; a null prefix never matches. */
int CxChars_startsWithNoCase(const char* text, const char* prefix);
/* strlen; 0 for null. */
size_t CxChars_length(const char* text);
/* Copies src into dst of size bytes, always terminated when size > 0.
   1 when the whole text fitted, 0 when it was cut or on a null dst/zero size.
   A null src copies as "". */
int CxChars_copy(char* dst, size_t size, const char* src);
/* Appends src to the text in dst (size bytes in all), always terminated.
   1 when the whole text fitted, 0 when it was cut or dst holds no terminator. */
int CxChars_concat(char* dst, size_t size, const char* src);
/* Reads a decimal integer at the start of text as scanf's "%d" does
   (leading blanks, an optional sign, the digits; what follows is ignored)
   into *out.  A number outside [min, max] cannot be read, like text without
   digits: 0 is returned and *out is left alone.  1 when read. */
int CxChars_scanInteger(const char* text, int64_t min, int64_t max, int64_t* out);

/* For the per-record path, where texts are short: inline scans and copies
   that make no call into the C library, whose string functions each sit on
   a code page of their own (a page walk each after a system call, where
   the kernel flushes the TLB).  The copies move 8 or 4 bytes at a time with
   overlapping ends, which the compiler does not turn back into calls. */

/* strlen of a non-null text. */
static inline size_t CxChars_shortLength(const char* text) {
  size_t n = 0;
  while (text[n]) n++;
  return n;
}

/* The first c or the terminator of a non-null text (strchrnul). */
static inline const char* CxChars_shortFind(const char* text, char c) {
  while (*text && *text != c) text++;
  return text;
}

/* memcpy of n bytes between areas that do not overlap. */
static inline void CxChars_shortCopy(char* dst, const char* src, size_t n) {
  if (n >= 8) {
    const char* last = src + n - 8;
    for (; src < last; src += 8, dst += 8) {
      uint64_t w;
      __builtin_memcpy(&w, src, 8);
      __builtin_memcpy(dst, &w, 8);
    }
    uint64_t w;
    __builtin_memcpy(&w, last, 8);
    __builtin_memcpy(dst - (src - last), &w, 8);
  } else if (n >= 4) {
    uint32_t a, b;
    __builtin_memcpy(&a, src, 4);
    __builtin_memcpy(&b, src + n - 4, 4);
    __builtin_memcpy(dst, &a, 4);
    __builtin_memcpy(dst + n - 4, &b, 4);
  } else if (n > 0) {
    dst[0] = src[0];
    dst[n / 2] = src[n / 2];
    dst[n - 1] = src[n - 1];
  }
}

ARDEL_END_C

#endif
