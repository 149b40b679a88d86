// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_pdlogger.  The identity texts are resolved when properties change;
 * logging an event only copies the ones that are set onto it.  The
 * process and thread numbers come from the platform's cached values, so
 * stamping them costs no system call.
 */
#include "filters/QlgPDLogger.h"

#include <string.h>

#include <ardel/QlgLogger.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>
#include "formatters/QlgXmlFormatter.h"
#include "msg/QlgMsgTable.h"
#include "platform/CxProcess.h"
#include "platform/CxSystem.h"
#include "platform/CxThread.h"

namespace {

/* Property names, which are also the event property names they fill. */
const char* const kFieldNames[QLG_PD_FIELD_COUNT] = {
    "organization", "product", "component", "client", "server", "serverFormat", "productInstance",
};

const size_t kHostNameSize = 256;

QlgPDLoggerData* dataOf(const QlgObject* logger) {
  return logger ? static_cast<QlgPDLoggerData*>(logger->data) : nullptr;
}

/* The host name, or null (reported) when the platform cannot give one. */
char* hostName(void) {
  char name[kHostNameSize];
  CxSystem_getHostName(name, sizeof name);
  /* A failed lookup of the qualified name still leaves the short one, which
     is a host name all the same. */
  if (name[0]) return QlgMem_strdup(name);
  QlgMisc_report(5000, 35, QlgMsgTable_text(35), QLG_PARM_STRING, "qlg_pdlogger", 0);
  return nullptr;
}

}  // namespace

extern "C" {

void* QlgPDLogger_create(void) {
  QlgPDLoggerData* d = static_cast<QlgPDLoggerData*>(QlgMem_alloc(sizeof(QlgPDLoggerData)));
  if (!d) return nullptr;
  memset(d, 0, sizeof *d);
  d->field[QLG_PD_SERVER] = hostName();
  d->field[QLG_PD_SERVER_FORMAT] = QlgMem_strdup("IP");
  /* One formatter object computes the message IDs of every pd logger. */
  d->formatter = QlgObject_findOrCreate("ardel.pdMsgIdFormatter", "qlg_xmlformatter");
  return d;
}

void QlgPDLogger_destroy(void* data) {
  QlgPDLoggerData* d = static_cast<QlgPDLoggerData*>(data);
  if (!d) return;
  QlgObject_release(d->formatter);
  for (char* text : d->field) QlgMem_free(text);
  QlgMem_free(d);
}

void QlgPDLogger_propertyChanged(QlgObject* logger, const char* key) {
  if (!logger || !key) return;
  for (int i = 0; i < QLG_PD_FIELD_COUNT; ++i) {
    if (strcmp(key, kFieldNames[i]) != 0) continue;
    QlgPDLoggerData* d = dataOf(logger);
    if (d) {
      /* An absent value clears the field; an empty one is kept as "". */
      QlgMem_free(d->field[i]);
      d->field[i] = QlgObject_getString(logger, key, nullptr);
    }
    return;
  }
  QlgLogger_propertyChanged(logger, key);
}

void QlgPDLogger_log(QlgObject* logger, QlgEvent* event) {
  if (!logger || !event) return;
  QlgPDLoggerData* d = dataOf(logger);
  if (d) {
    for (int i = 0; i < QLG_PD_FIELD_COUNT; ++i)
      if (d->field[i]) QlgEvent_addStringProperty(event, kFieldNames[i], d->field[i]);
  }
  QlgEvent_addLongProperty(event, "processId", static_cast<long>(CxProcess_getpid()));
  QlgEvent_addLongProperty(event, "threadId", static_cast<long>(CxThread_getId()));
  QlgXmlFormatter_cacheMessageId(d ? d->formatter : nullptr, event);
  QlgObject_forwardToListeners(logger, event);
}

}  // extern "C"
