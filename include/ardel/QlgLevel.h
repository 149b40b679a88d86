/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Levels: a larger number is more severe.  An event passes a threshold when
 * its level is at least the threshold; -9999 means "no level" and passes
 * every test, on either side.
 */
#ifndef ARDEL_QLGLEVEL_H
#define ARDEL_QLGLEVEL_H

#include <ardel/export.h>

ARDEL_BEGIN_C

enum {
  QLG_LEVEL_NONE = -9999,
  QLG_LEVEL_ALL = 0,
  QLG_LEVEL_DEBUG_MAX = 1000,
  QLG_LEVEL_DEBUG_MID = 2000,
  QLG_LEVEL_DEBUG_MIN = 3000,
  QLG_LEVEL_INFO = 4000,
  QLG_LEVEL_WARN = 5000,
  QLG_LEVEL_ERROR = 6000,
  QLG_LEVEL_FATAL = 7000,
  QLG_LEVEL_OFF = 9999
};

/* Level of a text: a leading decimal integer, else a keyword compared over
   the keyword's own length only ("warning" is WARN), else -9999.  Null gives -9999. */
ARDEL_API int QlgLevel_parse(const char* text);

ARDEL_END_C

#endif
