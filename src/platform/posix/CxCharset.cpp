// SPDX-License-Identifier: Apache-2.0
/*
 * CxCharset on POSIX: glibc iconv, and the locale codeset read through a
 * private locale object so that the process locale is never touched.
 */
#include "platform/CxCharset.h"

#include <errno.h>
#include <iconv.h>
#include <langinfo.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>

#include <ardel/QlgMem.h>

struct CxCharset {
  iconv_t cd;
};

namespace {

/* The locale name that LC_CTYPE would take from the environment. */
const char* environmentLocale() {
  const char* names[] = {"LC_ALL", "LC_CTYPE", "LANG"};
  for (const char* n : names) {
    const char* v = getenv(n);
    if (v && *v) return v;
  }
  return nullptr;
}

void copyName(const char* name, char* buf, size_t size) {
  size_t n = strnlen(name, size - 1);
  memcpy(buf, name, n);
  buf[n] = '\0';
}

}  // namespace

extern "C" {

CxCharset* CxCharset_open(const char* to, const char* from) {
  if (!to || !from || !*to || !*from) return nullptr;
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return nullptr;
  CxCharset* cs = static_cast<CxCharset*>(QlgMem_alloc(sizeof(CxCharset)));
  if (!cs) {
    iconv_close(cd);
    return nullptr;
  }
  cs->cd = cd;
  return cs;
}

void CxCharset_close(CxCharset* cs) {
  if (!cs) return;
  iconv_close(cs->cd);
  QlgMem_free(cs);
}

int CxCharset_convert(CxCharset* cs, const char** in, size_t* inLeft, char** out, size_t* outLeft) {
  if (!cs || !in || !inLeft || !out || !outLeft) return CX_CHARSET_INVALID;
  char* src = const_cast<char*>(*in);
  size_t r = iconv(cs->cd, &src, inLeft, out, outLeft);
  int e = errno;
  *in = src;
  if (r != static_cast<size_t>(-1)) return CX_CHARSET_DONE;
  if (e == E2BIG) return CX_CHARSET_FULL;
  if (e == EINVAL) return CX_CHARSET_INCOMPLETE;
  return CX_CHARSET_INVALID;
}

int CxCharset_reset(CxCharset* cs, char** out, size_t* outLeft) {
  if (!cs) return CX_CHARSET_INVALID;
  if (!out || !outLeft) {
    iconv(cs->cd, nullptr, nullptr, nullptr, nullptr);
    return CX_CHARSET_DONE;
  }
  if (iconv(cs->cd, nullptr, nullptr, out, outLeft) != static_cast<size_t>(-1)) return CX_CHARSET_DONE;
  return errno == E2BIG ? CX_CHARSET_FULL : CX_CHARSET_INVALID;
}

int CxCharset_localeCodeset(char* buf, size_t size) {
  if (!buf || size == 0) return 0;
  locale_t loc = newlocale(LC_CTYPE_MASK, "", static_cast<locale_t>(0));
  if (loc) {
    const char* cs = nl_langinfo_l(CODESET, loc);
    bool known = cs && *cs;
    if (known) copyName(cs, buf, size);
    freelocale(loc);
    if (known) return 1;
  }
  /* A locale that is named but not installed still says its codeset
     after the "." (fr_FR.UTF-8); without one the C locale's is ASCII. */
  const char* name = environmentLocale();
  const char* dot = name ? strchr(name, '.') : nullptr;
  if (dot && dot[1]) {
    char tmp[64];
    copyName(dot + 1, tmp, sizeof tmp);
    char* at = strchr(tmp, '@');
    if (at) *at = '\0';
    copyName(tmp, buf, size);
    return 1;
  }
  copyName("ANSI_X3.4-1968", buf, size);
  return 1;
}

}  // extern "C"
