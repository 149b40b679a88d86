// SPDX-License-Identifier: Apache-2.0
/*
 * The internal-message reporter.  Every toolkit problem becomes a message of
 * catalog "qlgmsg", set 1, sent to ardel.errorLogger.  The reporter takes no
 * lock: its callers already hold the toolkit lock, and reports made before
 * the error logger exists are dropped.
 */
#include <ardel/QlgToolkit.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgLogger.h>
#include <cstring>

#include "core/QlgMisc.h"

extern "C" {

void QlgMisc_report(int level, uint32_t key, const char* defaultText, ...) {
  QlgObject* logger = QlgToolkit_getErrorLogger();
  if (!logger || !logger->logging) return;
  int32_t threshold = logger->field1.level;
  if (level != QLG_LEVEL_NONE && threshold != QLG_LEVEL_NONE && level < threshold) return;
  va_list ap;
  va_start(ap, defaultText);
  QlgLogger_logMessage(logger, level, QLG_MSG_CATALOG, 1, key, defaultText, ap);
  va_end(ap);
}

/* POSIX failures are errno values; the one native code the platform layer
   produces is the timed-out wait. */
void QlgMisc_reportStatus(CxStatus status) {
  if (status.origin != 'p' && status.origin != 'w') return;
  const char* text = (status.origin == 'w' && status.code == 258) ? "The wait operation timed out."
                                                                  : std::strerror(status.code);
  QlgMisc_report(QLG_LEVEL_WARN, 0, text, 0);
}

}  // extern "C"
