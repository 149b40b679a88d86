/*
 * Catalog lookup for message rendering.  No translated catalogs are read
 * yet, so every lookup answers "not found" and rendering falls back to the
 * English default text, which is the documented behaviour without catalogs.
 */
#include "msg/QlgI18MsgCatalog.h"

extern "C" char* QlgI18Msg_catalogText(const QlgI18Msg* msg, QlgCodeset* decoder) {
  (void)msg;
  (void)decoder;
  return nullptr;
}
