// SPDX-License-Identifier: Apache-2.0
/*
 * Level names and numbers.  Keywords are compared over the keyword's own
 * length only, so "warning" reads as WARN and "Maximum" as MAX: a deliberate
 * leniency that configurations rely on.
 */
#include <ardel/QlgLevel.h>
#include <cstdint>
#include <strings.h>

#include "util/CxChars.h"

extern "C" int QlgLevel_parse(const char* text) {
  if (!text) return QLG_LEVEL_NONE;
  /* A number beyond int cannot be read as one, and then matches no word. */
  int64_t value = 0;
  if (CxChars_scanInteger(text, INT32_MIN, INT32_MAX, &value)) return static_cast<int>(value);
  static const struct {
    const char* word;
    int level;
  } words[] = {
      {"FATAL", QLG_LEVEL_FATAL},         {"ERROR", QLG_LEVEL_ERROR},
      {"WARN", QLG_LEVEL_WARN},           {"INFO", QLG_LEVEL_INFO},
      {"DEBUG_MIN", QLG_LEVEL_DEBUG_MIN}, {"MIN", QLG_LEVEL_DEBUG_MIN},
      {"DEBUG_MID", QLG_LEVEL_DEBUG_MID}, {"MID", QLG_LEVEL_DEBUG_MID},
      {"DEBUG_MAX", QLG_LEVEL_DEBUG_MAX}, {"MAX", QLG_LEVEL_DEBUG_MAX},
      {"ALL", QLG_LEVEL_ALL},             {"OFF", QLG_LEVEL_OFF},
  };
  for (const auto& w : words) {
    size_t n = 0;
    while (w.word[n]) n++;
    if (strncasecmp(text, w.word, n) == 0) return w.level;
  }
  return QLG_LEVEL_NONE;
}
