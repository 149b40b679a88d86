/*
 * Catalog lookup for message rendering: the message's catalog is opened in
 * the message's locale (the user's language when it has none), the text of
 * (set, key) copied out and the catalog closed again, all under the toolkit
 * lock because the catalog cache is shared by every thread that renders.
 */
#include "msg/QlgI18MsgCatalog.h"

#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>
#include "nls/QlgCatalog.h"
#include "nls/QlgLocale.h"

extern "C" char* QlgI18Msg_catalogText(const QlgI18Msg* msg, QlgCodeset* decoder) {
  if (!msg || !msg->catalog) return nullptr;
  int locked = QlgToolkit_enter();
  char* text = nullptr;
  /* The toolkit's own messages search with no flags. */
  QlgCatalog* cat = QlgCatalog_open(msg->catalog, 0, msg->locale ? msg->locale->name : nullptr);
  if (cat) {
    const char* found = QlgCatalog_getMessage(cat, static_cast<int>(msg->set), static_cast<int>(msg->key),
                                              nullptr, decoder);
    if (found) text = QlgMem_strdup(found);
    QlgCatalog_close(cat);
  }
  if (locked) QlgToolkit_leave();
  return text;
}
