// SPDX-License-Identifier: Apache-2.0
/*
 * Catalog lookup for message rendering: the message's catalog is found in
 * the message's locale (the user's language when it has none), the text of
 * (set, key) copied out and the catalog closed again, all under the toolkit
 * lock because the catalog cache is shared by every thread that renders.
 *
 * A catalog file that is there but cannot be used (damaged, unreadable) is
 * reported as QLGBC02E, once until another path fails: the report is itself
 * rendered through the catalogs, so it must not recur for the same file.
 */
#include "msg/QlgI18MsgCatalog.h"

#include <stdio.h>
#include <string.h>

#include <ardel/QlgMem.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgParm.h>
#include <ardel/QlgToolkit.h>
#include "msg/QlgMsgTable.h"
#include "nls/QlgCatalog.h"
#include "nls/QlgLocale.h"
#include "nls/QlgNls.h"

namespace {

const uint32_t kMsgCatalogUnusable = 2;

/* Last path reported; guarded by the toolkit lock. */
char s_reported[4096];

void reportUnusable(const char* path) {
  if (strcmp(s_reported, path) == 0) return;
  snprintf(s_reported, sizeof s_reported, "%s", path);
  QlgMisc_report(QLG_LEVEL_ERROR, kMsgCatalogUnusable, QlgMsgTable_text(kMsgCatalogUnusable),
                 QLG_PARM_STRING, path, 0);
}

}  // namespace

extern "C" char* QlgI18Msg_catalogText(const QlgI18Msg* msg, QlgCodeset* decoder) {
  if (!msg || !msg->catalog) return nullptr;
  int locked = QlgToolkit_enter();
  char* text = nullptr;
  char path[4096];
  /* The toolkit's own messages search with no flags. */
  if (QlgNls_findCatalog(msg->catalog, 0, nullptr, msg->locale ? msg->locale->name : nullptr, path, sizeof path)) {
    QlgCatalog* cat = QlgCatalog_openFile(path, 0);
    if (cat) {
      const char* found = QlgCatalog_getMessage(cat, static_cast<int>(msg->set), static_cast<int>(msg->key),
                                                nullptr, decoder);
      if (found) text = QlgMem_strdup(found);
      QlgCatalog_close(cat);
    } else {
      reportUnusable(path);
    }
  }
  if (locked) QlgToolkit_leave();
  return text;
}
