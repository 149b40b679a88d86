// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_levelfilter.  Level 0 (ALL) passes everything and so does an event
 * without a level (-9999); otherwise the more severe events pass.
 */
#include "filters/QlgLevelFilter.h"

extern "C" int QlgLevelFilter_isLoggable(QlgObject* filter, QlgEvent* event) {
  return QlgObject_levelIsLoggable(filter, event);
}
