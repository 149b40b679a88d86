// SPDX-License-Identifier: Apache-2.0
/*
 * Handler base, internal side: the checks that every handler module makes
 * before it trusts an object's handler fields.
 */
#ifndef ARDEL_SRC_QLGHANDLER_H
#define ARDEL_SRC_QLGHANDLER_H

#include <ardel/QlgHandler.h>

ARDEL_BEGIN_C

/* 1 when obj is an object whose class is of the handler kind. */
int QlgHandler_isHandler(const QlgObject* obj);
/* QlgHandler_format appended to out instead of returned: the basic
   formatter writes straight into out, any other format slot's text is
   copied in and freed.  1 when text was appended, 0 for none. */
int QlgHandler_formatInto(QlgObject* handler, QlgEvent* event, struct CxStringBuff* out);
/* A per-thread buffer for one record's text, emptied; it keeps its storage
   from record to record and is freed when the thread ends.  A publish
   nested inside another (an internal report from within a handler) gets
   null and uses a buffer of its own.  Give it back with
   QlgHandler_releaseBuffer. */
struct CxStringBuff* QlgHandler_acquireBuffer(void);
void QlgHandler_releaseBuffer(struct CxStringBuff* buffer);

/* A whole decimal number in [min, max] with nothing but white space around
   it, as the handlers' numeric properties are read; 0 otherwise. */
int QlgHandler_parseRange(const char* text, long min, long max, long* out);

ARDEL_END_C

#endif
