// SPDX-License-Identifier: Apache-2.0
/*
 * Internal reporting helpers beside the public QlgMisc_report.
 */
#ifndef ARDEL_QLGMISC_H
#define ARDEL_QLGMISC_H

#include <ardel/QlgToolkit.h>
#include "platform/CxStatus.h"
#include "util/CxHot.h"

ARDEL_BEGIN_C

/* Reports a failed platform call at level 5000 with key 0 and the system's
   own error text; a success status reports nothing. */
CX_COLD void QlgMisc_reportStatus(CxStatus status);

/* A thread that works without the toolkit lock (the background writer of
   an asynchronous handler) keeps its reports while keep is 1, up to a few,
   and sends them with QlgMisc_sendKept once it holds the lock again. */
void QlgMisc_keepReports(int keep);
int QlgMisc_haveKept(void);
void QlgMisc_sendKept(void);

ARDEL_END_C

#endif
