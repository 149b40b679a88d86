// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_zarvotraceformatter: each event as one compact trace line of fixed
 * fields joined by " - ": record separator (0x1E) and bracketed time stamp,
 * level tag, short server name, process and thread, source location,
 * message ID, message text.  The leading 0x1E lets a reader find where a
 * record starts even when message texts hold line ends.
 */
#ifndef ARDEL_QLGZARVOTRACEFORMATTER_H
#define ARDEL_QLGZARVOTRACEFORMATTER_H

#include <stdint.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>

ARDEL_BEGIN_C

/* format slot: one line ending in "\n"; null when either argument is null. */
char* QlgZarvoTraceFormatter_format(QlgObject* formatter, QlgEvent* event);
/* The five-character level tag of a level (" MAX ", "INFO ", "OTHER", ...). */
const char* QlgZarvoTraceFormatter_levelTag(int32_t level);

ARDEL_END_C

#endif
