/*
 * Codeset converters: opaque handles that turn the toolkit's internal UTF-8
 * (and wide characters) into the bytes of another codeset.  "UTF8" is always
 * available; further codesets come from codeset table files.
 */
#ifndef ARDEL_QLGCODESET_H
#define ARDEL_QLGCODESET_H

#include <stdint.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

typedef struct QlgCodeset QlgCodeset;

/* Opens a converter by codeset name; null when the codeset is unknown or
   memory runs out.  Names are compared case-insensitively. */
QlgCodeset* QlgCodeset_open(const char* name);
void QlgCodeset_close(QlgCodeset* cs);
/* Canonical name of the codeset ("UTF8", ...). */
const char* QlgCodeset_name(const QlgCodeset* cs);
/* One wide character (a code point) into at most outSize bytes.  Returns the
   byte count, -1 when the character has no mapping, -2 when out is too small. */
int QlgCodeset_fromWide(QlgCodeset* cs, uint32_t wc, char* out, int outSize);
/* Converts inLen bytes of UTF-8 into the codeset, writing at most outSize
   bytes (no terminator).  Returns the bytes written, or -1 on failure
   (invalid input, unmappable text, or output that does not fit). */
int QlgCodeset_fromUtf8(QlgCodeset* cs, const char* in, int inLen, char* out, int outSize);

ARDEL_END_C

#endif
