// SPDX-License-Identifier: Apache-2.0
/*
 * The built-in message table of catalog "qlgmsg", set 1: entry 0 is the
 * catalog name, entry k the default text of key k (each ending with a
 * carriage return).  Keys without a text hold "unusedNNN" placeholders so
 * that the table is indexed by key directly.
 */
#ifndef ARDEL_QLGMSGTABLE_H
#define ARDEL_QLGMSGTABLE_H

#include <ardel/export.h>

ARDEL_BEGIN_C

#define QLG_MSG_TABLE_SIZE 166

/* Default text of key (0..165), or null outside the table. */
const char* QlgMsgTable_text(unsigned key);

ARDEL_END_C

#endif
