// SPDX-License-Identifier: Apache-2.0
/*
 * Codeset converters: opaque handles that turn the toolkit's internal UTF-8
 * (and wide characters, which are Unicode code points) into the bytes of
 * another codeset and back.
 *
 * "UTF8" and "INTERNAL37" are built in and never freed; "INTERNAL37" is the
 * fallback that needs nothing from the system: ISO 8859-1, where a byte and
 * its code point are the same number.  Every other name goes to the C
 * library's converters (ISO-8859-1, latin1, CP1252, UTF-16LE, GB18030, ...).
 * A character that a codeset cannot express is written as "?".
 *
 * A converter of a single-byte codeset is a pair of tables filled once when
 * it is opened, so it may be shared between threads; one of a multi-byte
 * codeset keeps conversion state and is used by one thread at a time (its
 * owner's lock: the toolkit lock for handlers).
 */
#ifndef ARDEL_QLGCODESET_H
#define ARDEL_QLGCODESET_H

#include <stddef.h>
#include <stdint.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

typedef struct QlgCodeset QlgCodeset;

/* Canonical form of a codeset name into out: upper case, letters and digits
   only, a leading "ORX" dropped ("utf-8" -> "UTF8", "ORX-943" -> "943");
   "DOS", "WIN" and "OS" name the codeset of the user's locale. */
void QlgCodeset_normalizeName(const char* name, char* out, size_t size);
/* Opens a converter by codeset name; null when the codeset is unknown (a
   name with "/" or "\" would be a table file, which this build has none
   of) or memory runs out. */
QlgCodeset* QlgCodeset_open(const char* name);
/* Releases a converter; the built-in ones are never freed. */
void QlgCodeset_close(QlgCodeset* cs);
/* Canonical name of the codeset ("UTF8", "ISO88591", ...). */
const char* QlgCodeset_name(const QlgCodeset* cs);
/* The built-in converters. */
QlgCodeset* QlgCodeset_utf8(void);
QlgCodeset* QlgCodeset_fallback(void);

/* One wide character (a code point) into at most outSize bytes.  Returns the
   byte count, -1 when the character has no mapping, -2 when out is too small. */
int QlgCodeset_fromWide(QlgCodeset* cs, uint32_t wc, char* out, int outSize);
/* Converts inLen bytes of UTF-8 into the codeset, writing at most outSize
   bytes (no terminator).  Returns the bytes written, or -1 when the input is
   not UTF-8 or the output does not fit. */
int QlgCodeset_fromUtf8(QlgCodeset* cs, const char* in, int inLen, char* out, int outSize);
/* UTF-8 text (inLen bytes, -1: up to its terminator) into the codeset, cut
   at the last whole character that fits in outSize - 1 bytes and always
   terminated; malformed input shows as "?".  Null cs: the current default
   codeset.  Returns the bytes written without the terminator. */
int QlgCodeset_convert(QlgCodeset* cs, const char* in, int inLen, char* out, int outSize);
/* The reverse: codeset text into UTF-8, cut and terminated the same way;
   bytes that do not decode show as "?". */
int QlgCodeset_toUtf8(QlgCodeset* cs, const char* in, int inLen, char* out, int outSize);
/* Codeset text into wide characters (at most outCount, terminator included);
   returns the count without the terminator. */
int QlgCodeset_toWide(QlgCodeset* cs, const char* in, int inLen, uint32_t* out, int outCount);

ARDEL_END_C

#endif
