/*
 * The toolkit's process-wide state: its one recursive lock, the class map
 * with the built-in classes, the object registry, the configuration store
 * and the error logger through which it reports its own problems.
 *
 * States: no lock -> lock created, not initialised -> initialised.  A
 * successful start lives until the process ends; only a properties file
 * that cannot be read shuts the toolkit down again, so that a later start
 * begins from scratch.  The lock, once made, is never destroyed: threads
 * may be queued on it when a start-up fails.
 */
#include <ardel/QlgToolkit.h>
#include <ardel/QlgLogger.h>
#include <ardel/QlgMem.h>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "core/QlgMisc.h"
#include "core/QlgObjConfig.h"
#include "core/QlgReadProps.h"
#include "core/QlgToolkitInt.h"
#include "filters/QlgLevelFilter.h"
#include "formatters/QlgBasicFormatter.h"
#include "handlers/QlgConsoleHandler.h"
#include "handlers/QlgFileHandler.h"
#include "handlers/QlgHandler.h"
#include "handlers/QlgMultiProcFileHandler.h"
#include "msg/QlgMsgTable.h"
#include "platform/CxMutex.h"

namespace {

/* The lock pointer is published atomically so that two threads that make
   the very first call at once end up sharing one lock. */
std::atomic<CxMutex*> g_lock{nullptr};
bool g_initialised = false;
QlgObject* g_errorLogger = nullptr;
QlgRegistries g_reg;

void reportLockFailure(CxStatus status) {
  if (!CxStatus_isOk(status)) QlgMisc_reportStatus(status);
}

/* Built-in classes in their registration order; the classes that the
   library does not carry yet keep their place in this order when added. */
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
    {QLG_KIND_FILTER, "qlg_levelfilter", 110, nullptr, nullptr, QlgLogger_propertyChanged,
     SLOT(QlgObject_filterReceive), SLOT(QlgLevelFilter_isLoggable), nullptr, nullptr},
    {QLG_KIND_HANDLER, "qlg_consolehandler", 120, QlgConsoleHandler_create,
     QlgConsoleHandler_destroy, QlgHandler_propertyChanged, SLOT(QlgConsoleHandler_publish),
     SLOT(QlgConsoleHandler_open), SLOT(QlgConsoleHandler_close), nullptr},
    {QLG_KIND_HANDLER, "qlg_stderrhandler", 0, QlgConsoleHandler_create, QlgConsoleHandler_destroy,
     QlgHandler_propertyChanged, SLOT(QlgStderrHandler_publish), SLOT(QlgConsoleHandler_open),
     SLOT(QlgConsoleHandler_close), nullptr},
    {QLG_KIND_HANDLER, "qlg_filehandler", 121, QlgFileHandler_create, QlgFileHandler_destroy,
     QlgFileHandler_propertyChanged, SLOT(QlgFileHandler_publish), SLOT(QlgFileHandler_open),
     SLOT(QlgFileHandler_close), nullptr},
    {QLG_KIND_HANDLER, "qlg_multiproc_filehandler", 0, QlgFileHandler_create,
     QlgFileHandler_destroy, QlgFileHandler_propertyChanged, SLOT(QlgMPFileHandler_publish),
     SLOT(QlgMPFileHandler_open), SLOT(QlgMPFileHandler_close), nullptr},
    {QLG_KIND_FORMATTER, "qlg_basicformatter", 130, nullptr, nullptr,
     QlgBasicFormatter_propertyChanged, SLOT(QlgBasicFormatter_format), nullptr, nullptr, nullptr},
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

/* Message 51 goes straight to standard error: the error logger does not
   exist while the file is read. */
void printUnreadable(const char* path) {
  QlgI18Msg* msg = QlgI18Msg_create(QLG_MSG_CATALOG, 1, 51, QlgMsgTable_text(51));
  QlgI18Msg_addString(msg, path);
  char* text = QlgI18Msg_render(msg);
  QlgI18Msg_print(stderr, text ? text : QlgMsgTable_text(51));
  std::fputs("\n", stderr);
  std::fflush(stderr);
  QlgMem_free(text);
  QlgI18Msg_free(msg);
}

/* ardel.errorLogger -> ardel.stderrHandler -> ardel.defaultFormatter, each
   configured from the file as it is created; existing objects are kept. */
void createErrorObjects() {
  QlgObject* logger = QlgObject_find("ardel.errorLogger");
  if (!logger) {
    logger = QlgObject_findOrCreate("ardel.errorLogger", "qlg_basiclogger");
    QlgObject* handler = QlgObject_find("ardel.stderrHandler");
    if (!handler) {
      handler = QlgObject_findOrCreate("ardel.stderrHandler", "qlg_stderrhandler");
      QlgObject* formatter = QlgObject_findOrCreate("ardel.defaultFormatter", "qlg_basicformatter");
      QlgHandler_setFormatter(handler, formatter);
      QlgObject_release(formatter);
    }
    QlgObject_addListener(logger, handler);
    QlgObject_release(handler);
  }
  g_errorLogger = logger;
}

}  // namespace

extern "C" {

QlgRegistries* QlgToolkit_registries(void) { return &g_reg; }

QlgStringToObjMap* QlgToolkit_objectRegistry(void) {
  if (!g_reg.objects) g_reg.objects = QlgStringToObjMap_create();
  return g_reg.objects;
}

int QlgToolkit_enter(void) {
  CxMutex* lock = g_lock.load(std::memory_order_acquire);
  if (!lock) {
    CxMutex* fresh = nullptr;
    CxStatus st = CxMutex_create(&fresh);
    if (!CxStatus_isOk(st)) {
      QlgMisc_reportStatus(st);
      return 0;
    }
    if (g_lock.compare_exchange_strong(lock, fresh, std::memory_order_acq_rel)) {
      lock = fresh;
    } else {
      CxMutex_close(&fresh);
    }
  }
  CxStatus st = CxMutex_lock(lock);
  if (!CxStatus_isOk(st)) {
    QlgMisc_reportStatus(st);
    return 0;
  }
  return 1;
}

void QlgToolkit_leave(void) {
  CxMutex* lock = g_lock.load(std::memory_order_acquire);
  if (lock) reportLockFailure(CxMutex_unlock(lock));
}

QlgObject* QlgToolkit_getErrorLogger(void) { return g_initialised ? g_errorLogger : nullptr; }

void QlgToolkit_registerClasses(void) {
  if (g_reg.classes) return;
  g_reg.classes = QlgStringToObjClassMap_create();
  if (!g_reg.classes) {
    QlgI18Msg_print(stderr, QlgMsgTable_text(50));
    std::fputs("\n", stderr);
    return;
  }
  for (QlgStringGroup*& names : g_reg.classNames) names = QlgStringGroup_create();
  for (const BuiltinClass& c : kBuiltins) registerBuiltin(c);
}

int QlgToolkit_initialize(const char* propertiesPath) {
  if (!QlgToolkit_enter()) return 0;
  if (g_initialised) {
    QlgToolkit_leave();
    return 1;
  }
  QlgI18Msg_startup();
  QlgObjConfig_startup();
  QlgToolkit_registerClasses();
  if (propertiesPath && !QlgReadProps_read(propertiesPath, nullptr)) {
    printUnreadable(propertiesPath);
    QlgToolkit_leave();
    QlgToolkit_shutdown();
    return 0;
  }
  createErrorObjects();
  g_initialised = true;
  QlgToolkit_leave();
  return 1;
}

void QlgToolkit_shutdown(void) {
  if (!QlgToolkit_enter()) return;
  QlgObjConfig_shutdown();
  /* Private data first, for every object, then the objects themselves.
     Destroying data or dropping a formatter link may tear other objects
     down and so change the registry: after each such step the walk starts
     again from the top (finished objects have nothing left to drop). */
  if (g_reg.objects) {
    QlgStringToObjMapEntry* e = g_reg.objects->first;
    while (e) {
      QlgObject* obj = e->value;
      QlgStringToObjMapEntry* next = e->next;
      bool restart = false;
      if (obj->data && obj->cls && obj->cls->destroyData) {
        obj->cls->destroyData(obj->data);
        obj->data = nullptr;
        restart = true;
      }
      if (obj->cls && obj->cls->kind == QLG_KIND_HANDLER && obj->field2.formatter) {
        QlgObject* formatter = obj->field2.formatter;
        obj->field2.formatter = nullptr;
        QlgObject_release(formatter);
        restart = true;
      }
      e = restart ? g_reg.objects->first : next;
    }
    /* The error logger goes down with the rest and in registry order, so a
       report from a later object's close must not reach it: such reports
       are dropped, as before start-up. */
    g_errorLogger = nullptr;
    QlgObject_tearDownAll();
    QlgStringToObjMap_destroy(g_reg.objects);
    g_reg.objects = nullptr;
  }
  g_errorLogger = nullptr;
  for (QlgStringToObjClassMapEntry* e = QlgStringToObjClassMap_first(g_reg.classes); e; e = e->next)
    QlgClass_free(e->value);
  QlgStringToObjClassMap_destroy(g_reg.classes);
  g_reg.classes = nullptr;
  for (QlgStringGroup*& names : g_reg.classNames) {
    QlgStringGroup_destroy(names);
    names = nullptr;
  }
  QlgI18Msg_shutdown();
  g_initialised = false;
  /* The lock itself stays: other threads may be waiting on it right now
     (a failed start-up runs this while they queue for their own start), and
     any thread may take it again later.  Destroying it under them would
     free a mutex they block on, and a fresh one made afterwards would let
     two threads in at once.  It is kept for the life of the process; its
     only resource is its memory. */
  QlgToolkit_leave();
}

}  // extern "C"
