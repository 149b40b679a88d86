// SPDX-License-Identifier: Apache-2.0
/*
 * CxWatch on Windows: no watch is offered (a change notification covers a
 * whole directory and needs a handle per file), so start always fails and
 * the file handler falls back to looking its path up itself.
 */
#include "platform/CxWatch.h"
#include <string.h>

extern "C" {

void CxWatch_init(CxWatch* w) {
  if (!w) return;
  memset(w, 0, sizeof *w);
  w->fd = -1;
  w->fileWd = -1;
  w->dirWd = -1;
}

int CxWatch_start(CxWatch* w, const char* path) {
  (void)path;
  CxWatch_init(w);
  return 0;
}

int CxWatch_changed(CxWatch* w) {
  (void)w;
  return 1;
}

int CxWatch_active(const CxWatch* w) {
  (void)w;
  return 0;
}

void CxWatch_stop(CxWatch* w) { CxWatch_init(w); }

}  // extern "C"
