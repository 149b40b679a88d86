// SPDX-License-Identifier: Apache-2.0
/*
 * Normalised locale names.  A formatter's `locale` property and message
 * rendering hand these 32-byte records around; the record owns its name
 * so that the caller's text may go away.
 */
#include "nls/QlgLocale.h"

#include <string.h>

#include <ardel/QlgMem.h>
#include "nls/QlgNls.h"

namespace {

/* Turns a user-supplied locale name into the form used to find catalogs. */
void normalizeName(const char* name, char out[sizeof(QlgLocale::name)]) {
  QlgNls_normalizeLocale(name, out, sizeof(QlgLocale::name));
}

}  // namespace

extern "C" {

QlgLocale* QlgLocale_normalize(const char* name) {
  if (!name) return nullptr;
  QlgLocale* locale = static_cast<QlgLocale*>(QlgMem_alloc(sizeof(QlgLocale)));
  if (!locale) return nullptr;
  normalizeName(name, locale->name);
  return locale;
}

void QlgLocale_release(QlgLocale* locale) { QlgMem_free(locale); }

}  // extern "C"
