// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_pdlogger: a logger that stamps every event with who logged it (the
 * installation's organization, product, component, client, server and
 * instance, and the current process and thread) and settles the event's
 * message ID before its listeners see it, for XML output and message-ID
 * filters downstream.  Threshold, level property and dispatch are those of
 * qlg_basiclogger.
 */
#ifndef ARDEL_QLGPDLOGGER_H
#define ARDEL_QLGPDLOGGER_H

#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>

ARDEL_BEGIN_C

/* The seven identity texts, in the order they are added to events. */
enum {
  QLG_PD_ORGANIZATION, QLG_PD_PRODUCT, QLG_PD_COMPONENT, QLG_PD_CLIENT, QLG_PD_SERVER,
  QLG_PD_SERVER_FORMAT, QLG_PD_PRODUCT_INSTANCE, QLG_PD_FIELD_COUNT
};

typedef struct QlgPDLoggerData {
  char* field[QLG_PD_FIELD_COUNT]; /* owned texts, null when unset */
  QlgObject* formatter;            /* the shared ardel.pdMsgIdFormatter */
} QlgPDLoggerData;

/* createData slot: server is the host name (null, with a report, when it
   cannot be had) and serverFormat "IP". */
void* QlgPDLogger_create(void);
void QlgPDLogger_destroy(void* data);
/* The seven identity properties; every other key goes to the basic
   logger's handling (level and the common properties). */
void QlgPDLogger_propertyChanged(QlgObject* logger, const char* key);
/* log slot: stamps the event, caches its message ID, forwards it. */
void QlgPDLogger_log(QlgObject* logger, QlgEvent* event);

ARDEL_END_C

#endif
