// SPDX-License-Identifier: Apache-2.0
/*
 * CxCharset on Windows: the system's code-page conversions through UTF-16.
 * Codeset names are mapped onto code page numbers ("UTF-8", "CP1252",
 * "windows-1252", "IBM850", "ISO-8859-n", "ASCII", "GB18030").  Input is
 * taken one character at a time, so the cursors stop exactly before a
 * character that cannot be converted or does not fit, as iconv's do.
 */
#include "platform/CxCharset.h"
#include "platform/win32/CxWin32.h"
#include <ardel/QlgMem.h>
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

struct CxCharset {
  UINT to;
  UINT from;
};

namespace {

const UINT kUtf8 = 65001;

UINT numberAfter(const char* name, size_t prefix) {
  const char* p = name + prefix;
  if (*p == '-' || *p == '_') p++;
  if (!isdigit((unsigned char)*p)) return 0;
  char* end = nullptr;
  unsigned long n = strtoul(p, &end, 10);
  return (*end == '\0' && n > 0 && n < 65536) ? (UINT)n : 0;
}

/* The code page of a codeset name, 0 when unknown or not installed. */
UINT codePage(const char* name) {
  UINT cp = 0;
  if (!strcasecmp(name, "UTF-8") || !strcasecmp(name, "UTF8")) cp = kUtf8;
  else if (!strcasecmp(name, "ASCII") || !strcasecmp(name, "US-ASCII") || !strcasecmp(name, "ANSI_X3.4-1968")) cp = 20127;
  else if (!strcasecmp(name, "GB18030")) cp = 54936;
  else if (!strncasecmp(name, "ISO-8859", 8) || !strncasecmp(name, "ISO8859", 7)) {
    UINT part = numberAfter(name, name[3] == '-' ? 8 : 7);
    cp = part >= 1 && part <= 15 ? 28590 + part : 0;
  } else if (!strncasecmp(name, "windows", 7)) cp = numberAfter(name, 7);
  else if (!strncasecmp(name, "IBM", 3) || !strncasecmp(name, "CP", 2)) cp = numberAfter(name, name[0] == 'C' || name[0] == 'c' ? 2 : 3);
  return cp && IsValidCodePage(cp) ? cp : 0;
}

/* Decodes the first character of in into w; its byte length, 0 when the
   bytes are no character, -1 when more bytes are needed. */
int decodeOne(UINT cp, const char* in, size_t left, wchar_t* w, int* wn) {
  for (size_t len = 1; len <= 4; len++) {
    if (len > left) return -1;
    int n = MultiByteToWideChar(cp, MB_ERR_INVALID_CHARS, in, (int)len, w, 2);
    if (n > 0) {
      *wn = n;
      return (int)len;
    }
  }
  return 0;
}

}  // namespace

extern "C" {

CxCharset* CxCharset_open(const char* to, const char* from) {
  if (!to || !from || !*to || !*from) return nullptr;
  UINT t = codePage(to), f = codePage(from);
  if (!t || !f) return nullptr;
  CxCharset* cs = static_cast<CxCharset*>(QlgMem_alloc(sizeof(CxCharset)));
  if (!cs) return nullptr;
  cs->to = t;
  cs->from = f;
  return cs;
}

void CxCharset_close(CxCharset* cs) { QlgMem_free(cs); }

int CxCharset_convert(CxCharset* cs, const char** in, size_t* inLeft, char** out, size_t* outLeft) {
  if (!cs || !in || !inLeft || !out || !outLeft) return CX_CHARSET_INVALID;
  while (*inLeft > 0) {
    wchar_t w[2];
    int wn = 0;
    int len = decodeOne(cs->from, *in, *inLeft, w, &wn);
    if (len < 0) return CX_CHARSET_INCOMPLETE;
    if (len == 0) return CX_CHARSET_INVALID;
    char buf[8];
    BOOL lost = FALSE;
    int n = cs->to == kUtf8 ? WideCharToMultiByte(cs->to, WC_ERR_INVALID_CHARS, w, wn, buf, sizeof buf, nullptr, nullptr)
                            : WideCharToMultiByte(cs->to, WC_NO_BEST_FIT_CHARS, w, wn, buf, sizeof buf, nullptr, &lost);
    if (n <= 0 || lost) return CX_CHARSET_INVALID;
    if ((size_t)n > *outLeft) return CX_CHARSET_FULL;
    memcpy(*out, buf, (size_t)n);
    *out += n;
    *outLeft -= (size_t)n;
    *in += len;
    *inLeft -= (size_t)len;
  }
  return CX_CHARSET_DONE;
}

/* The code pages used here keep no shift state. */
int CxCharset_reset(CxCharset* cs, char** out, size_t* outLeft) {
  (void)out;
  (void)outLeft;
  return cs ? CX_CHARSET_DONE : CX_CHARSET_INVALID;
}

int CxCharset_localeCodeset(char* buf, size_t size) {
  if (!buf || size == 0) return 0;
  const char* names[] = {"LC_ALL", "LC_CTYPE", "LANG"};
  for (const char* n : names) {
    const char* v = getenv(n);
    const char* dot = v ? strchr(v, '.') : nullptr;
    if (dot && dot[1]) {
      snprintf(buf, size, "%.*s", (int)strcspn(dot + 1, "@"), dot + 1);
      return 1;
    }
    if (v && *v) break;
  }
  /* The console's code page is what text written to it is read in. */
  UINT cp = GetConsoleOutputCP();
  if (!cp) cp = GetACP();
  snprintf(buf, size, cp == kUtf8 ? "UTF-8" : "CP%u", cp);
  return 1;
}

}  // extern "C"
