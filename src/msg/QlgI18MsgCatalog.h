// SPDX-License-Identifier: Apache-2.0
/*
 * The catalog side of message rendering: fetch the translated text of a
 * message (catalog, set, key) in the message's locale.  Kept apart from
 * QlgI18Msg so that the catalog-file reader plugs in here alone.
 */
#ifndef ARDEL_QLGI18MSGCATALOG_H
#define ARDEL_QLGI18MSGCATALOG_H

#include <ardel/QlgI18Msg.h>
#include "nls/QlgCodeset.h"

ARDEL_BEGIN_C

/* New UTF-8 text of the message from its catalog (decoded with decoder), or
   null when the catalog or the message is not found; the caller then uses
   the default text. */
char* QlgI18Msg_catalogText(const QlgI18Msg* msg, QlgCodeset* decoder);

ARDEL_END_C

#endif
