// SPDX-License-Identifier: Apache-2.0
/*
 * The built-in classes, registered in their fixed order through the same
 * calls a user class goes through.  This is the one place that knows every
 * concrete logger, filter, handler and formatter: it sits above those
 * layers so that none of them, nor the core, depends on the others through
 * it.  A new built-in class is one row, inserted at its place in the order.
 */
#include "core/QlgBuiltins.h"

#include <ardel/QlgLogger.h>
#include "filters/QlgLevelFilter.h"
#include "filters/QlgMsgIdFilter.h"
#include "filters/QlgPDLogger.h"
#include "formatters/QlgBasicFormatter.h"
#include "formatters/QlgXmlFormatter.h"
#include "formatters/QlgZarvoTraceFormatter.h"
#include "handlers/QlgAsyncHandler.h"
#include "handlers/QlgConsoleHandler.h"
#include "handlers/QlgFFDCTriggerHandler.h"
#include "handlers/QlgFileCopyHandler.h"
#include "handlers/QlgFileHandler.h"
#include "handlers/QlgHandler.h"
#include "handlers/QlgMultiProcFileHandler.h"
#include "handlers/QlgSyslogHandler.h"
#include "handlers/QlgTASHandler.h"
#include "msg/QlgMsgTable.h"

namespace {

struct BuiltinClass {
  QlgClassKind kind;
  const char* name;
  uint32_t descriptionKey; /* 0: no description */
  QlgCreateDataFn createData;
  QlgDestroyDataFn destroyData;
  QlgPropertyChangedFn propertyChanged;
  void* slot1;
  void* slot2;
  void* slot3;
  void* slot4;
};

#define SLOT(f) reinterpret_cast<void*>(f)
const BuiltinClass kBuiltins[] = {
    {QLG_KIND_LOGGER, "qlg_basiclogger", 100, nullptr, nullptr, QlgLogger_propertyChanged,
     nullptr, nullptr, nullptr, nullptr},
    {QLG_KIND_LOGGER, "qlg_pdlogger", 101, QlgPDLogger_create, QlgPDLogger_destroy,
     QlgPDLogger_propertyChanged, SLOT(QlgPDLogger_log), nullptr, nullptr, nullptr},
    {QLG_KIND_FILTER, "qlg_levelfilter", 110, nullptr, nullptr, QlgLogger_propertyChanged,
     SLOT(QlgObject_filterReceive), SLOT(QlgLevelFilter_isLoggable), nullptr, nullptr},
    {QLG_KIND_FILTER, "qlg_msgidfilter", 0, QlgMsgIdFilter_create, QlgMsgIdFilter_destroy,
     QlgMsgIdFilter_propertyChanged, nullptr, SLOT(QlgMsgIdFilter_isLoggable), nullptr, nullptr},
    {QLG_KIND_HANDLER, "qlg_consolehandler", 120, QlgConsoleHandler_create,
     QlgConsoleHandler_destroy, QlgHandler_propertyChanged, SLOT(QlgConsoleHandler_publish),
     SLOT(QlgConsoleHandler_open), SLOT(QlgConsoleHandler_close), nullptr},
    {QLG_KIND_HANDLER, "qlg_stderrhandler", 0, QlgConsoleHandler_create, QlgConsoleHandler_destroy,
     QlgHandler_propertyChanged, SLOT(QlgStderrHandler_publish), SLOT(QlgConsoleHandler_open),
     SLOT(QlgConsoleHandler_close), nullptr},
    {QLG_KIND_HANDLER, "qlg_filehandler", 121, QlgFileHandler_create, QlgFileHandler_destroy,
     QlgFileHandler_propertyChanged, SLOT(QlgFileHandler_publish), SLOT(QlgFileHandler_open),
     SLOT(QlgFileHandler_close), nullptr},
    {QLG_KIND_HANDLER, "qlg_tashandler", 0, QlgTASHandler_create, QlgTASHandler_destroy,
     QlgTASHandler_propertyChanged, SLOT(QlgTASHandler_publish), SLOT(QlgTASHandler_open),
     SLOT(QlgTASHandler_close), nullptr},
    {QLG_KIND_HANDLER, "qlg_multiproc_filehandler", 0, QlgFileHandler_create,
     QlgFileHandler_destroy, QlgFileHandler_propertyChanged, SLOT(QlgMPFileHandler_publish),
     SLOT(QlgMPFileHandler_open), SLOT(QlgMPFileHandler_close), nullptr},
    {QLG_KIND_FORMATTER, "qlg_basicformatter", 130, nullptr, nullptr,
     QlgBasicFormatter_propertyChanged, SLOT(QlgBasicFormatter_format), nullptr, nullptr, nullptr},
    /* The XML formatter's flags are one plain block, freed as the console
       handler frees its own. */
    {QLG_KIND_FORMATTER, "qlg_xmlformatter", 131, QlgXmlFormatter_create, QlgConsoleHandler_destroy,
     QlgXmlFormatter_propertyChanged, SLOT(QlgXmlFormatter_format), SLOT(QlgXmlFormatter_getHead),
     nullptr, nullptr},
    {QLG_KIND_FORMATTER, "qlg_zarvotraceformatter", 0, nullptr, nullptr, nullptr,
     SLOT(QlgZarvoTraceFormatter_format), nullptr, nullptr, nullptr},
    /* The plain trigger handler publishes nothing: it only supplies the
       trigger, directory and quota operations. */
    {QLG_KIND_HANDLER, "qlg_ffdc_trigger_handler", 141, QlgFFDCTrigger_create,
     QlgFFDCTrigger_destroy, QlgFFDCTrigger_propertyChanged, nullptr, SLOT(QlgFFDCTrigger_open),
     SLOT(QlgFFDCTrigger_close), nullptr},
    {QLG_KIND_HANDLER, "qlg_ffdc_filecopy_handler", 142, QlgFileCopy_create, QlgFileCopy_destroy,
     QlgFileCopy_propertyChanged, SLOT(QlgFileCopy_publish), SLOT(QlgFFDCTrigger_open),
     SLOT(QlgFFDCTrigger_close), nullptr},
    {QLG_KIND_HANDLER, "qlg_sysloghandler", 0, QlgSyslogHandler_create, QlgSyslogHandler_destroy,
     QlgSyslogHandler_propertyChanged, SLOT(QlgSyslogHandler_publish),
     SLOT(QlgSyslogHandler_open), SLOT(QlgSyslogHandler_close), nullptr},
    {QLG_KIND_HANDLER, "qlg_asynchandler", 0, QlgAsyncHandler_create, QlgAsyncHandler_destroy,
     QlgAsyncHandler_propertyChanged, SLOT(QlgAsyncHandler_publish), SLOT(QlgAsyncHandler_open),
     SLOT(QlgAsyncHandler_close), nullptr},
};
#undef SLOT

void registerBuiltin(const BuiltinClass& c) {
  QlgI18Msg* description =
      c.descriptionKey ? QlgI18Msg_create(QLG_MSG_CATALOG, 1, c.descriptionKey,
                                          QlgMsgTable_text(c.descriptionKey))
                       : nullptr;
  switch (c.kind) {
    case QLG_KIND_LOGGER:
      QlgClass_registerLogger(c.name, description, c.createData, c.destroyData, c.propertyChanged,
                              reinterpret_cast<QlgEventFn>(c.slot1));
      break;
    case QLG_KIND_FILTER:
      QlgClass_registerFilter(c.name, description, c.createData, c.destroyData, c.propertyChanged,
                              reinterpret_cast<QlgEventFn>(c.slot1),
                              reinterpret_cast<QlgIsLoggableFn>(c.slot2),
                              reinterpret_cast<QlgEventFn>(c.slot3));
      break;
    case QLG_KIND_HANDLER:
      QlgClass_registerHandler(c.name, description, c.createData, c.destroyData, c.propertyChanged,
                               reinterpret_cast<QlgEventFn>(c.slot1),
                               reinterpret_cast<QlgObjectFn>(c.slot2),
                               reinterpret_cast<QlgObjectFn>(c.slot3));
      break;
    case QLG_KIND_FORMATTER:
      QlgClass_registerFormatter(c.name, description, c.createData, c.destroyData,
                                 c.propertyChanged, reinterpret_cast<QlgFormatFn>(c.slot1),
                                 reinterpret_cast<QlgHeadTailFn>(c.slot2),
                                 reinterpret_cast<QlgHeadTailFn>(c.slot3),
                                 reinterpret_cast<QlgFormatMessageFn>(c.slot4));
      break;
  }
  QlgI18Msg_free(description);
}

}  // namespace

extern "C" {

void QlgBuiltins_register(void) {
  for (const BuiltinClass& c : kBuiltins) registerBuiltin(c);
}

QlgFormatFn QlgBuiltins_defaultFormat(void) { return QlgBasicFormatter_format; }

}  // extern "C"
