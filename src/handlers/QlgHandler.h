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

ARDEL_END_C

#endif
