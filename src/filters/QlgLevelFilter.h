// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_levelfilter: passes an event on to its listeners only when the
 * event's level is at or above the filter's level.
 */
#ifndef ARDEL_QLGLEVELFILTER_H
#define ARDEL_QLGLEVELFILTER_H

#include <ardel/QlgObject.h>

ARDEL_BEGIN_C

int QlgLevelFilter_isLoggable(QlgObject* filter, struct QlgEvent* event);

ARDEL_END_C

#endif
