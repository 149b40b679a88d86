// SPDX-License-Identifier: Apache-2.0
/*
 * CxPrintUtil: the number-to-text conversions of the printf engine.  The
 * integer routine turns one 64-bit value into digits of base 8, 10 or 16
 * with printf's sign, prefix, precision and width rules, and regroups
 * decimal digits with a locale's thousands separator.  The locale's
 * separator and grouping are passed in, so the routine itself never reads
 * the process locale.
 */
#ifndef ARDEL_CXPRINTUTIL_H
#define ARDEL_CXPRINTUTIL_H

#include <stdint.h>
#include <ardel/export.h>
#include "util/CxStringBuff.h"

ARDEL_BEGIN_C

/* Directive flags, as the printf engine stores them. */
enum {
  CX_PRINT_LEFT = 1,   /* '-' left-justify */
  CX_PRINT_ZERO = 2,   /* '0' zero-fill */
  CX_PRINT_PLUS = 4,   /* '+' always a sign */
  CX_PRINT_SPACE = 8,  /* ' ' space for a positive sign */
  CX_PRINT_ALT = 16,   /* '#' alternate form */
  CX_PRINT_GROUP = 32  /* '\'' digit grouping */
};

/* A locale's digit grouping, as localeconv() reports it: the separator text
   and the group sizes (one byte each, rightmost group first, 0 repeats the
   last size, CHAR_MAX ends grouping).  Null or empty strings mean none. */
typedef struct CxGrouping {
  const char* separator;
  const char* grouping;
} CxGrouping;

/* Appends one integer conversion ('d', 'u', 'o', 'x', 'X' or 'p') of value to
   b.  width and precision are -1 when not given.  'd' reads value as signed.
   Returns the bytes appended; on a failed append sets *error and appends
   nothing.  Does nothing when *error is already set. */
int CxPrintUtil_formatInteger(CxStringBuff* b, char conversion, int flags, int width,
                              int precision, uint64_t value, const CxGrouping* grouping,
                              int* error);

/* Regroups count decimal digits (most significant first) with the
   separator, right to left into the end of work.  Returns the length of the
   grouped text, which then starts at work + workSize - length; returns -1
   when grouping does not apply (no separator, no grouping, a first group
   size outside 1..254) or the text would not fit. */
int CxPrintUtil_groupDigits(const char* digits, int count, const CxGrouping* grouping,
                            char* work, int workSize);

ARDEL_END_C

#endif
