// SPDX-License-Identifier: Apache-2.0
/*
 * QlgPrintf: the toolkit's two-pass positional printf engine.  A format is
 * parsed whole before any argument is fetched; a format that cannot be
 * parsed, or whose argument positions leave a hole, produces nothing.
 */
#ifndef ARDEL_QLGPRINTF_H
#define ARDEL_QLGPRINTF_H

#include <stdarg.h>
#include <ardel/export.h>
#include "util/CxStringBuff.h"
#include "msg/QlgParmList.h"

ARDEL_BEGIN_C

struct QlgCodeset;

/* Appends the formatted text to buf; returns the bytes appended (0 when the
   format is rejected).  cs converts wide conversions and may be null when
   none is used. */
int QlgPrintf_vformat(struct QlgCodeset* cs, CxStringBuff* buf, const char* format, va_list args);
int QlgPrintf_format(struct QlgCodeset* cs, CxStringBuff* buf, const char* format, ...);
/* Formats with typed parameters; a new string (QlgMem_free), or null when
   nothing was produced (rejected format, missing parameter, no memory). */
char* QlgPrintf_formatParms(const char* format, const QlgParmList* parms);

ARDEL_END_C

#endif
