// SPDX-License-Identifier: Apache-2.0
/*
 * CxFilePath: copying a path into its bounded record (one copy for every
 * platform: it calls nothing of the system).  Separators are
 * normalised to "/" here, once, so every later step looks for one
 * character only.
 */
#include "platform/CxFilePath.h"

#include <string.h>

extern "C" {

int CxFilePath_set(CxFilePath* path, const char* text) {
  if (!path) return 0;
  path->text[0] = '\0';
  path->length = 0;
  path->lastSep = -1;
  if (!text) return 0;
  size_t n = strlen(text);
  if (n >= CX_PATH_MAX) return 0;
  int32_t lastSep = -1;
  for (size_t i = 0; i < n; i++) {
    char c = text[i] == '\\' ? '/' : text[i];
    if (c == '/') lastSep = (int32_t)i;
    path->text[i] = c;
  }
  path->text[n] = '\0';
  path->length = (int32_t)n;
  path->lastSep = lastSep;
  return 1;
}

}  // extern "C"
