// SPDX-License-Identifier: Apache-2.0
/*
 * The public, locked forms of the configuration store: each takes the
 * toolkit lock around the unlocked operation, and does nothing (or returns
 * null) when the lock cannot be had.
 */
#include <ardel/QlgObjConfig.h>

#include <ardel/QlgToolkit.h>

#include "core/QlgObjConfig.h"

extern "C" {

QlgObjConfig* QlgLogManager_getLogger(const char* name) {
  if (!QlgToolkit_enter()) return nullptr;
  QlgObjConfig* cfg = QlgObjConfig_find(name);
  QlgToolkit_leave();
  return cfg;
}

char* QlgObject_getProperty(QlgObjConfig* cfg, const char* key, int* found) {
  if (found) *found = 0;
  if (!cfg || !QlgToolkit_enter()) return nullptr;
  char* value = QlgObjConfig_getProperty(cfg, key, found);
  QlgToolkit_leave();
  return value;
}

int QlgObject_setProperty(QlgObjConfig* cfg, const char* key, const char* value) {
  if (!cfg || !QlgToolkit_enter()) return 0;
  int ok = QlgObjConfig_setProperty(cfg, key, value);
  QlgToolkit_leave();
  return ok;
}

void QlgObjConfig_release(QlgObjConfig* cfg) {
  if (!cfg || !QlgToolkit_enter()) return;
  QlgObjConfig_releaseUnlocked(cfg);
  QlgToolkit_leave();
}

}  // extern "C"
