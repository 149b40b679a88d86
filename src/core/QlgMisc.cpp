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
#include <ardel/QlgEvent.h>
#include <cstring>

#include "core/QlgMisc.h"

namespace {

const int kKeptReports = 8; /* later ones of the same run are dropped */

struct KeptReports {
  int keeping;
  int count;
  QlgEvent* events[kKeptReports];
};
thread_local KeptReports t_kept;

}  // namespace

extern "C" {

void QlgMisc_keepReports(int keep) { t_kept.keeping = keep; }

int QlgMisc_haveKept(void) { return t_kept.count > 0; }

void QlgMisc_sendKept(void) {
  QlgObject* logger = QlgToolkit_getErrorLogger();
  for (int i = 0; i < t_kept.count; i++) {
    QlgEvent* e = t_kept.events[i];
    int32_t threshold = logger ? logger->field1.level : QLG_LEVEL_NONE;
    if (logger && logger->logging && logger->cls && logger->cls->kind == QLG_KIND_LOGGER &&
        logger->cls->slots.logger.log &&
        (threshold == QLG_LEVEL_NONE || e->level == QLG_LEVEL_NONE || e->level >= threshold))
      logger->cls->slots.logger.log(logger, e);
    QlgEvent_free(e);
  }
  t_kept.count = 0;
}

void QlgMisc_report(int level, uint32_t key, const char* defaultText, ...) {
  if (t_kept.keeping) {
    /* The error logger and its handlers belong to whoever holds the lock. */
    if (t_kept.count == kKeptReports) return;
    va_list ap;
    va_start(ap, defaultText);
    QlgEvent* e = QlgEvent_create(level, QLG_MSG_CATALOG, 1, key, defaultText, ap);
    va_end(ap);
    if (!e) return;
    QlgEvent_markMessage(e, 1);
    t_kept.events[t_kept.count++] = e;
    return;
  }
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
