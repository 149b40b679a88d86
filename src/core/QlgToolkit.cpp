// SPDX-License-Identifier: Apache-2.0
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

#include "core/QlgBuiltins.h"
#include "core/QlgMisc.h"
#include "core/QlgObjConfig.h"
#include "core/QlgReadProps.h"
#include "core/QlgToolkitInt.h"
#include "handlers/QlgAsyncHandler.h"
#include "msg/QlgMsgTable.h"
#include "platform/CxMutex.h"
#include "platform/CxProcess.h"
#include "util/CxHot.h"

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

/* The handler -> formatter link is a field of the object model, so the
   core sets it itself rather than through the handler layer. */
void linkFormatter(QlgObject* handler, QlgObject* formatter) {
  if (!handler || !handler->cls || handler->cls->kind != QLG_KIND_HANDLER) return;
  QlgObject* old = handler->field2.formatter;
  handler->field2.formatter = QlgObject_addRef(formatter);
  QlgObject_release(old);
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
      linkFormatter(handler, formatter);
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

/* Threads waiting for the lock right now; a handler that sees others
   waiting can leave its write to the next holder (group commit). */
static std::atomic<int> g_waiting{0};

CX_HOT int QlgToolkit_contended(void) { return g_waiting.load(std::memory_order_relaxed) > 0; }

/* Holds of the toolkit lock by this thread. */
static thread_local int t_holds QLG_TLS_IE = 0;

/* A fork while another thread (a background writer, say) holds the lock
   would leave the child's copy held by a thread it does not have.  The
   forking thread takes the lock around the fork, so the parent comes out
   as it went in; the child cannot release a recursive mutex that names its
   parent's thread as owner, so it gets a fresh lock, held as often as the
   forking thread held the old one (the old one is left, as locks are). */
static void lockBeforeFork(void) {
  CxMutex* lock = g_lock.load(std::memory_order_acquire);
  if (lock) CxMutex_lock(lock);
}
static void unlockInParent(void) {
  CxMutex* lock = g_lock.load(std::memory_order_acquire);
  if (lock) CxMutex_unlock(lock);
}
/* Kept reachable (volatile: a store nobody reads must not be dropped). */
static CxMutex* volatile g_parentLock = nullptr;
static void freshLockInChild(void) {
  g_parentLock = g_lock.load(std::memory_order_acquire);
  CxMutex* fresh = nullptr;
  if (!CxStatus_isOk(CxMutex_create(&fresh))) return;
  for (int i = 0; i < t_holds; i++) CxMutex_lock(fresh);
  g_lock.store(fresh, std::memory_order_release);
}

CX_HOT int QlgToolkit_enter(void) {
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
      QlgMisc_reportStatus(CxProcess_atFork(lockBeforeFork, unlockInParent, freshLockInChild));
    } else {
      CxMutex_close(&fresh);
    }
  }
  /* Only a thread that finds the lock held counts itself as waiting, so a
     free lock costs no shared counter. */
  CxStatus st = CxMutex_tryLock(lock);
  if (!CxStatus_isOk(st)) {
    g_waiting.fetch_add(1, std::memory_order_relaxed);
    st = CxMutex_lock(lock);
    g_waiting.fetch_sub(1, std::memory_order_relaxed);
  }
  if (!CxStatus_isOk(st)) {
    QlgMisc_reportStatus(st);
    return 0;
  }
  t_holds++;
  return 1;
}

CX_HOT void QlgToolkit_leave(void) {
  CxMutex* lock = g_lock.load(std::memory_order_acquire);
  if (!lock) return;
  CxStatus st = CxMutex_unlock(lock);
  if (CxStatus_isOk(st) && t_holds > 0) t_holds--;
  reportLockFailure(st);
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
  QlgBuiltins_register();
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
  /* Queued records reach their files while every handler is still whole. */
  QlgAsyncHandler_stopAll(0);
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
