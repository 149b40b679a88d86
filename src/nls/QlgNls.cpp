// SPDX-License-Identifier: Apache-2.0
/*
 * QlgNls: locale names, catalog search and the process's codesets.
 *
 * Everything that comes from the environment is bounded here: a locale name
 * is looked at through its first six characters and cut to 32 bytes, every
 * expanded catalog path must fit in a fixed buffer (a candidate that does
 * not is skipped), and the template list is walked once, element by
 * element, however long it is.
 *
 * Where the catalogs installed with the library live: NLSPATH names them
 * when set; otherwise "%N.cat" (the current directory) is followed by
 * <library directory>/<relative data directory>/%L/%N.cat, found from where
 * the library itself lies so that an install under any prefix works, and by
 * the same directory under the configured install prefix.
 */
#include "nls/QlgNls.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>

#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>
#include "nls/QlgCatalog.h"
#include "nls/QlgCodeset.h"
#include "platform/CxFileRead.h"

#ifndef ARDEL_NLS_RELATIVE_DIR
#define ARDEL_NLS_RELATIVE_DIR "../share/ardel/nls"
#endif
#ifndef ARDEL_NLS_INSTALL_DIR
#define ARDEL_NLS_INSTALL_DIR "/usr/local/share/ardel/nls"
#endif

namespace {

struct NamePair {
  const char* name;
  const char* value;
};

const NamePair kLocaleAliases[] = {
    {"C", "C"},          {"american", "C"}, {"ar_AA", "ar"},    {"Ar_AA", "ar"},
    {"cz", "cs"},        {"japanese", "ja_JP"}, {"Jp_JP", "ja_JP"},
};

const NamePair kCatalogLanguages[] = {
    {"C", "C"},   {"en", "C"},       {"fr", "fr_FR"},  {"ja", "ja_JP"},
    {"pt", "pt_BR"}, {"pt_BR", "pt_BR"}, {"zh", "zh_CN"}, {"zh_TW", "zh_TW"},
};

/* Longest catalog path tried; longer expansions are skipped. */
const size_t kPathSize = 4096;

std::atomic<bool> s_ready{false};
std::atomic<QlgCodeset*> s_default{nullptr};
QlgCodeset* s_os = nullptr;

template <size_t N>
const char* lookup(const NamePair (&table)[N], const char* name) {
  for (const NamePair& p : table)
    if (strcmp(p.name, name) == 0) return p.value;
  return nullptr;
}

void copyCut(const char* text, size_t n, char* out, size_t size) {
  if (n > size - 1) n = size - 1;
  memcpy(out, text, n);
  out[n] = '\0';
}

bool isLetter(char c) { return isalpha(static_cast<unsigned char>(c)) != 0; }
bool isAlnum(char c) { return isalnum(static_cast<unsigned char>(c)) != 0; }

/* Appends n bytes at *used; false when they do not fit (with terminator). */
bool put(char* out, size_t size, size_t* used, const char* text, size_t n) {
  if (*used + n >= size) return false;
  memcpy(out + *used, text, n);
  *used += n;
  return true;
}

/* Expands one template element [t, t + len) for a catalog name and a
   candidate locale.  False when the result does not fit. */
bool expand(const char* t, size_t len, const char* name, const char* locale, char* out, size_t size) {
  const char* under = strchr(locale, '_');
  const char* dot = strchr(locale, '.');
  size_t used = 0;
  bool ok = true;
  for (size_t i = 0; i < len && ok; i++) {
    if (t[i] != '%' || i + 1 == len) {
      ok = put(out, size, &used, t + i, 1);
      continue;
    }
    char c = t[++i];
    switch (c) {
      case 'N': ok = put(out, size, &used, name, strlen(name)); break;
      case 'L': ok = put(out, size, &used, locale, strlen(locale)); break;
      case 'l': {
        const char* end = under ? under : dot;
        ok = put(out, size, &used, locale, end ? static_cast<size_t>(end - locale) : strlen(locale));
        break;
      }
      case 't':
        if (under) {
          const char* end = strchr(under + 1, '.');
          ok = put(out, size, &used, under + 1, end ? static_cast<size_t>(end - under - 1) : strlen(under + 1));
        }
        break;
      case 'c':
        if (dot) ok = put(out, size, &used, dot + 1, strlen(dot + 1));
        break;
      default: ok = put(out, size, &used, t + i - 1, 2); break;
    }
  }
  out[used < size ? used : size - 1] = '\0';
  return ok;
}

/* Length of the template element at t: up to ";" or ":", but a ":" in the
   second position belongs to the element (a drive letter). */
size_t elementLength(const char* t) {
  size_t i = 0;
  for (; t[i]; i++)
    if (t[i] == ';' || (t[i] == ':' && i != 1)) break;
  return i;
}

struct Candidates {
  char names[4][QLG_NLS_NAME_SIZE];
  int count;
};

void makeCandidates(const char* locale, int flags, Candidates* c) {
  c->count = 0;
  char norm[QLG_NLS_NAME_SIZE];
  QlgNls_normalizeLocale(locale, norm, sizeof norm);
  strcpy(c->names[c->count++], norm);
  if (strlen(norm) > 2 && !(flags & QLG_NLS_NO_LANG_ONLY)) copyCut(norm, 2, c->names[c->count++], QLG_NLS_NAME_SIZE);
  char lang[QLG_NLS_NAME_SIZE];
  QlgNls_catalogLanguage(norm, lang, sizeof lang);
  if (strcmp(lang, norm) != 0 && !(flags & QLG_NLS_NO_CAT_LANG)) strcpy(c->names[c->count++], lang);
  if (!(flags & QLG_NLS_NO_C)) strcpy(c->names[c->count++], "C");
}

bool usable(const char* path) { return QlgCatalog_isCached(path) || CxFileRead_isRegular(path); }

/* Tries every candidate in one element; true with the path in out. */
bool tryElement(const char* t, size_t len, const char* name, const Candidates& c, char* out, size_t size) {
  char path[kPathSize];
  for (int i = 0; i < c.count; i++) {
    if (!expand(t, len, name, c.names[i], path, sizeof path) || !path[0]) continue;
    if (usable(path) && strlen(path) < size) {
      strcpy(out, path);
      return true;
    }
  }
  return false;
}

bool tryList(const char* list, const char* name, const Candidates& c, char* out, size_t size) {
  const char* t = list;
  while (true) {
    size_t len = elementLength(t);
    if (len > 0 && tryElement(t, len, name, c, out, size)) return true;
    if (!t[len]) return false;
    t += len + 1;
  }
}

/* The catalogs installed with the library, as template elements. */
bool tryInstalled(const char* name, const Candidates& c, char* out, size_t size) {
  char dir[kPathSize];
  char element[kPathSize];
  if (CxFileRead_moduleDirectory(dir, sizeof dir)) {
    size_t used = 0;
    if (put(element, sizeof element, &used, dir, strlen(dir)) &&
        put(element, sizeof element, &used, "/" ARDEL_NLS_RELATIVE_DIR "/%L/%N.cat",
            strlen("/" ARDEL_NLS_RELATIVE_DIR "/%L/%N.cat")) &&
        tryElement(element, used, name, c, out, size))
      return true;
  }
  const char* fixed = ARDEL_NLS_INSTALL_DIR "/%L/%N.cat";
  return tryElement(fixed, strlen(fixed), name, c, out, size);
}

void startLocked() {
  const char* env = getenv("ZIS_CODESET");
  QlgCodeset* cs = QlgCodeset_open(env && *env ? env : "OS");
  if (!cs) cs = QlgCodeset_open("DEFAULT");
  s_default.store(cs ? cs : QlgCodeset_fallback(), std::memory_order_release);
  QlgCodeset* os = QlgCodeset_open("OS");
  if (!os) os = QlgCodeset_open("OSDEFAULT");
  if (os) s_os = os;
  if (!s_os) s_os = QlgCodeset_fallback();
}

void ensureStarted() {
  if (s_ready.load(std::memory_order_acquire)) return;
  int locked = QlgToolkit_enter();
  if (!s_ready.load(std::memory_order_relaxed)) {
    startLocked();
    s_ready.store(true, std::memory_order_release);
  }
  if (locked) QlgToolkit_leave();
}

}  // namespace

extern "C" {

void QlgNls_getLanguage(char* buf, int flags) {
  if (!buf) return;
  const char* v = nullptr;
  if (flags & QLG_NLS_USE_LC_VARS) {
    v = getenv("LC_ALL");
    if (!v) v = getenv("LC_MESSAGES");
  }
  if (!v) {
    v = getenv("LANG");
    if (v && !*v) v = nullptr;
  }
  /* The last fallback is the user's language of the platform: "C" here. */
  if (!v) v = "C";
  copyCut(v, strnlen(v, QLG_NLS_NAME_SIZE), buf, QLG_NLS_NAME_SIZE);
}

void QlgNls_normalizeLocale(const char* name, char* out, size_t size) {
  if (!out || size == 0) return;
  out[0] = '\0';
  if (!name) return;
  const char* alias = lookup(kLocaleAliases, name);
  if (alias) {
    copyCut(alias, strlen(alias), out, size);
    return;
  }
  char w[8] = {0};
  memcpy(w, name, strnlen(name, 6));
  if (w[2] == '-') w[2] = '_';
  if (isLetter(w[0]) && isLetter(w[1]) && isLetter(w[2]) && isLetter(w[3]) && isdigit(static_cast<unsigned char>(w[4]))) {
    char t[8] = {w[0], w[1], '_', w[2], w[3], w[5], 0, 0};
    memcpy(w, t, sizeof t);
  }
  if (isLetter(w[0]) && isLetter(w[1])) {
    char lang[3] = {static_cast<char>(tolower(static_cast<unsigned char>(w[0]))),
                    static_cast<char>(tolower(static_cast<unsigned char>(w[1]))), 0};
    if (w[2] != '_' && !isAlnum(w[2])) {
      copyCut(lang, 2, out, size);
      return;
    }
    if (w[2] == '_' && isLetter(w[3]) && isLetter(w[4]) && !isAlnum(w[5])) {
      char full[6] = {lang[0], lang[1], '_', static_cast<char>(toupper(static_cast<unsigned char>(w[3]))),
                      static_cast<char>(toupper(static_cast<unsigned char>(w[4]))), 0};
      copyCut(full, 5, out, size);
      return;
    }
  }
  copyCut(name, strnlen(name, size), out, size);
}

char* QlgNls_normalizeLocaleCopy(const char* name) {
  char* out = static_cast<char*>(QlgMem_alloc(QLG_NLS_NAME_SIZE));
  if (out) QlgNls_normalizeLocale(name ? name : "", out, QLG_NLS_NAME_SIZE);
  return out;
}

void QlgNls_catalogLanguage(const char* name, char* out, size_t size) {
  if (!out || size == 0) return;
  char norm[QLG_NLS_NAME_SIZE];
  QlgNls_normalizeLocale(name ? name : "", norm, sizeof norm);
  const char* lang = lookup(kCatalogLanguages, norm);
  if (!lang && norm[0] && norm[1] && norm[2] == '_') {
    char two[3] = {norm[0], norm[1], 0};
    lang = lookup(kCatalogLanguages, two);
  }
  if (!lang) lang = norm;
  copyCut(lang, strlen(lang), out, size);
}

int QlgNls_findCatalog(const char* name, int flags, const char* templates, const char* locale,
                       char* out, size_t size) {
  if (!name || !*name || !out || size == 0) return 0;
  out[0] = '\0';
  if (strchr(name, '/') || strchr(name, '\\')) {
    if (!usable(name) || strlen(name) >= size) return 0;
    strcpy(out, name);
    return 1;
  }
  char user[QLG_NLS_NAME_SIZE];
  if (!locale) {
    QlgNls_getLanguage(user, flags);
    locale = user;
  }
  Candidates c;
  makeCandidates(locale, flags, &c);
  if (!templates) {
    const char* env = getenv("NLSPATH");
    templates = env && *env ? env : nullptr;
  }
  if (templates) return tryList(templates, name, c, out, size);
  return tryList("%N.cat", name, c, out, size) || tryInstalled(name, c, out, size);
}

void QlgNls_startup(void) { ensureStarted(); }

void QlgNls_shutdown(void) {
  int locked = QlgToolkit_enter();
  if (s_ready.load(std::memory_order_relaxed)) {
    QlgCodeset* cs = s_default.exchange(nullptr);
    if (cs != s_os) QlgCodeset_close(cs);
    QlgCodeset_close(s_os);
    s_os = nullptr;
    s_ready.store(false, std::memory_order_release);
  }
  if (locked) QlgToolkit_leave();
}

QlgCodeset* QlgNls_defaultCodeset(void) {
  ensureStarted();
  QlgCodeset* cs = s_default.load(std::memory_order_acquire);
  return cs ? cs : QlgCodeset_fallback();
}

void QlgNls_setDefaultCodeset(QlgCodeset* cs) {
  ensureStarted();
  s_default.store(cs ? cs : QlgCodeset_fallback(), std::memory_order_release);
}

size_t QlgNls_strftime(char* out, size_t size, const char* format, const struct tm* time) {
  if (!out || size == 0 || !format || !time) return 0;
  out[0] = '\0';
  QlgCodeset* def = QlgNls_defaultCodeset();
  QlgCodeset* os = s_os ? s_os : QlgCodeset_fallback();
  if (def == os || strcmp(QlgCodeset_name(def), QlgCodeset_name(os)) == 0) return strftime(out, size, format, time);
  if (size > (1u << 20)) size = 1u << 20;
  size_t room = size * 4;
  char* a = static_cast<char*>(QlgMem_alloc(room));
  char* b = static_cast<char*>(QlgMem_alloc(room));
  size_t n = 0;
  if (a && b) {
    QlgCodeset_toUtf8(def, format, -1, a, static_cast<int>(room));
    QlgCodeset_convert(os, a, -1, b, static_cast<int>(room));
    n = strftime(a, room, b, time);
    if (n == 0) {
      /* Intended: a failed call drops the system converter for good, so
         later calls go through the built-in one. */
      if (s_os != QlgCodeset_fallback()) QlgCodeset_close(s_os);
      s_os = QlgCodeset_fallback();
    } else {
      QlgCodeset_toUtf8(os, a, static_cast<int>(n), b, static_cast<int>(room));
      n = static_cast<size_t>(QlgCodeset_convert(def, b, -1, out, static_cast<int>(size)));
    }
  }
  QlgMem_free(a);
  QlgMem_free(b);
  return n;
}

}  // extern "C"
