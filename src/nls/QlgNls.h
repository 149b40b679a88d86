// SPDX-License-Identifier: Apache-2.0
/*
 * QlgNls: which language and codesets the toolkit works in, and where the
 * message catalog of a catalog name is found.  Locale names of many
 * spellings map onto a few canonical ones; catalog files are searched along
 * NLSPATH-style templates.  The default and operating-system codesets are
 * opened once per process, on first need.
 */
#ifndef ARDEL_QLGNLS_H
#define ARDEL_QLGNLS_H

#include <stddef.h>
#include <time.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

struct QlgCodeset;

/* Flags of the catalog search. */
#define QLG_NLS_USE_LC_VARS   1 /* consult LC_ALL and LC_MESSAGES before LANG */
#define QLG_NLS_NO_LANG_ONLY  2 /* skip the two-letter language candidate */
#define QLG_NLS_NO_CAT_LANG   4 /* skip the catalog-language candidate */
#define QLG_NLS_NO_C          8 /* skip the "C" candidate */

/* Size of a locale name record, terminator included. */
#define QLG_NLS_NAME_SIZE 32

/* The user's language into buf (QLG_NLS_NAME_SIZE bytes): LC_ALL or
   LC_MESSAGES (flag 1 only), else LANG, else "C". */
void QlgNls_getLanguage(char* buf, int flags);
/* Canonical form of a locale name ("Jp_JP" -> "ja_JP", "en-us" -> "en_US",
   "de.UTF-8" -> "de"), cut to size and always terminated. */
void QlgNls_normalizeLocale(const char* name, char* out, size_t size);
/* New QLG_NLS_NAME_SIZE-byte copy of the canonical form (QlgMem_free). */
char* QlgNls_normalizeLocaleCopy(const char* name);
/* Language whose catalog serves a locale ("fr" -> "fr_FR", "en" -> "C"). */
void QlgNls_catalogLanguage(const char* name, char* out, size_t size);
/* Path of the catalog file for a catalog name into out: the first template
   of the list (null: NLSPATH, else "%N.cat" followed by the catalogs
   installed with the library) and candidate locale (null: the user's
   language) that names a cached or existing file.  1 when found. */
int QlgNls_findCatalog(const char* name, int flags, const char* templates, const char* locale,
                       char* out, size_t size);

void QlgNls_startup(void);
void QlgNls_shutdown(void);
/* The default codeset (from ZIS_CODESET, else the locale's), starting the
   module when needed; never null. */
struct QlgCodeset* QlgNls_defaultCodeset(void);
/* Makes a converter the default; null selects the built-in fallback. */
void QlgNls_setDefaultCodeset(struct QlgCodeset* cs);
/* strftime whose format and result are in the default codeset; returns
   the length written (0 when nothing was produced). */
size_t QlgNls_strftime(char* out, size_t size, const char* format, const struct tm* time);

ARDEL_END_C

#endif
