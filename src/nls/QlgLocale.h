// SPDX-License-Identifier: Apache-2.0
/*
 * Normalised locale names: a 32-byte record made from a locale name such as
 * "de_DE.UTF-8", used to open message catalogs in a given language.
 */
#ifndef ARDEL_QLGLOCALE_H
#define ARDEL_QLGLOCALE_H

#include <ardel/export.h>

ARDEL_BEGIN_C

typedef struct QlgLocale {
  char name[32];
} QlgLocale;

/* New normalised locale of a name (an empty name gives an empty locale);
   null when out of memory.  Released with QlgLocale_release. */
QlgLocale* QlgLocale_normalize(const char* name);
void QlgLocale_release(QlgLocale* locale);

ARDEL_END_C

#endif
