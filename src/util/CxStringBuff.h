// SPDX-License-Identifier: Apache-2.0
/*
 * CxStringBuff: a growable byte string that is always NUL-terminated once it
 * holds storage.  A zero-filled record is a valid empty buffer.  The first
 * allocation is 1024 bytes and growth is by doubling, so every buffer is a
 * power-of-two multiple of 1 KiB.  Every append returns 0 and leaves the
 * buffer exactly as it was when memory runs out.
 */
#ifndef ARDEL_CXSTRINGBUFF_H
#define ARDEL_CXSTRINGBUFF_H

#include <stdint.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

struct QlgCodeset;

typedef struct CxStringBuff {
  int32_t length;   /* bytes of text, terminator not counted */
  int32_t capacity; /* bytes allocated */
  char* data;       /* owned; null until the first append */
} CxStringBuff;

int CxStringBuff_reserve(CxStringBuff* b, uint32_t n);
int CxStringBuff_appendChar(CxStringBuff* b, char c);
int CxStringBuff_append(CxStringBuff* b, const char* text);
/* At most n bytes, stopping at a NUL; n of -1 or -2 means the whole text. */
int CxStringBuff_appendN(CxStringBuff* b, const char* text, int n);
/* Decimal; the value 0 appends nothing at all (an intended quirk). */
int CxStringBuff_appendInt(CxStringBuff* b, int32_t v);
int CxStringBuff_appendInt64(CxStringBuff* b, int64_t v);
int CxStringBuff_appendUInt64(CxStringBuff* b, uint64_t v);
int CxStringBuff_appendUtf8(CxStringBuff* b, int32_t codePoint);
/* Wide text (0-terminated code points) through a converter, stopping before
   the character that would take the running byte count past limit
   (-1: no limit).  0 on a converter failure. */
int CxStringBuff_appendWide(CxStringBuff* b, struct QlgCodeset* cs, const uint32_t* wide, int limit);
/* Inserts text before byte position pos (0 <= pos <= length). */
int CxStringBuff_insert(CxStringBuff* b, const char* text, int pos);
/* Converts the whole UTF-8 content into cs's codeset, replacing it. */
int CxStringBuff_convert(struct QlgCodeset* cs, CxStringBuff* b);
void CxStringBuff_clear(CxStringBuff* b);
void CxStringBuff_free(CxStringBuff* b);
/* Hands the data to the caller (free with QlgMem_free); the buffer is left empty. */
char* CxStringBuff_detach(CxStringBuff* b);

ARDEL_END_C

#endif
