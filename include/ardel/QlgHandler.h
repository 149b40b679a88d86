/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Handler base: what every handler class shares.  A handler (class kind
 * 103) formats each event with its formatter object (kind 104) and writes
 * the text; these operations reach the formatter for handler classes
 * written outside the toolkit as well as for the built-in ones.  Returned
 * texts are new strings freed with QlgMem_free.
 */
#ifndef ARDEL_QLGHANDLER_H
#define ARDEL_QLGHANDLER_H

#include <ardel/export.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgEvent.h>

ARDEL_BEGIN_C

/* The event formatted by the handler's formatter; null when the handler is
   null, not a handler, has no formatter, or the formatter cannot format. */
ARDEL_API char* QlgHandler_format(QlgObject* handler, QlgEvent* event);
/* The formatter's head and tail texts, or null when it has none. */
ARDEL_API char* QlgHandler_getHead(QlgObject* handler);
ARDEL_API char* QlgHandler_getTail(QlgObject* handler);
/* The handler's formatter with a reference added for the caller, or null. */
ARDEL_API QlgObject* QlgHandler_getFormatter(QlgObject* handler);
/* Replaces the handler's formatter (releasing the old one); a null
   formatter leaves the handler without one.  Ignored for non-handlers. */
ARDEL_API void QlgHandler_setFormatter(QlgObject* handler, QlgObject* formatter);
/* propertyChanged slot of every handler class: "formatterName" finds or
   creates the named formatter and installs it; other keys go to the
   generic property handling. */
ARDEL_API void QlgHandler_propertyChanged(QlgObject* handler, const char* key);

ARDEL_END_C

#endif
