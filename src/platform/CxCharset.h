// SPDX-License-Identifier: Apache-2.0
/*
 * CxCharset: the platform's own character-set conversion (the C library's
 * iconv on POSIX) and the codeset of the user's locale.  The codeset
 * converters build on these; nothing here knows about codeset names beyond
 * passing them to the platform.
 */
#ifndef ARDEL_CXCHARSET_H
#define ARDEL_CXCHARSET_H

#include <stddef.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

typedef struct CxCharset CxCharset;

/* Outcomes of CxCharset_convert. */
#define CX_CHARSET_DONE       0  /* all input consumed */
#define CX_CHARSET_FULL       1  /* output space ran out */
#define CX_CHARSET_INVALID    2  /* a sequence that cannot be converted at *in */
#define CX_CHARSET_INCOMPLETE 3  /* the input ends inside a sequence */

/* Converter from codeset `from` to codeset `to`; null when the platform
   knows either name not. */
CxCharset* CxCharset_open(const char* to, const char* from);
void CxCharset_close(CxCharset* cs);
/* Converts, moving the four cursors like iconv; returns an outcome above. */
int CxCharset_convert(CxCharset* cs, const char** in, size_t* inLeft, char** out, size_t* outLeft);
/* Back to the initial shift state; with out, the bytes that return there
   are written (CX_CHARSET_FULL when they do not fit). */
int CxCharset_reset(CxCharset* cs, char** out, size_t* outLeft);
/* The codeset name of the user's locale into buf ("UTF-8", "ISO-8859-1",
   ...) without changing the process locale; 0 when it cannot be told. */
int CxCharset_localeCodeset(char* buf, size_t size);

ARDEL_END_C

#endif
