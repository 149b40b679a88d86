// SPDX-License-Identifier: Apache-2.0
/*
 * The seam through which the built-in classes plug into the object model.
 * The core names no concrete logger, filter, handler or formatter: the layer
 * that owns them registers them, in their fixed order, with the same
 * registration calls a user class goes through, and names the format slot
 * that formatter classes get when they bring none.
 */
#ifndef ARDEL_QLGBUILTINS_H
#define ARDEL_QLGBUILTINS_H

#include <ardel/QlgObject.h>

ARDEL_BEGIN_C

/* Registers every built-in class in its fixed order; called once by the
   toolkit right after the class map has been made. */
void QlgBuiltins_register(void);
/* The format slot of a formatter class registered without one. */
QlgFormatFn QlgBuiltins_defaultFormat(void);

ARDEL_END_C

#endif
