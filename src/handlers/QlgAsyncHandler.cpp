// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_asynchandler.  The queue is a ring of preallocated slots; a slot
 * holds an event's fixed fields and, in a few hundred inline bytes, its
 * parameters, texts and properties.  Only a record too large for that room
 * gets heap storage, which its slot then keeps for the records that follow
 * (up to a bound).  A publish does not allocate, looks up no property by
 * name, and makes a system call only to wake the background thread when it
 * sleeps.
 *
 * Ownership: the handler and its background thread share one record and
 * whichever lets go last frees it, so a handler destroyed under the
 * toolkit lock never has to wait for a thread that is itself waiting for
 * that lock.
 */
#include "handlers/QlgAsyncHandler.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include <ardel/QlgLevel.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgParm.h>
#include <ardel/QlgToolkit.h>
#include "core/QlgToolkitInt.h"
#include "handlers/QlgFileHandler.h"
#include "handlers/QlgHandler.h"
#include "msg/QlgParmList.h"
#include "platform/CxProcess.h"
#include "platform/CxSystem.h"
#include "util/QlgStringToStringMap.h"

namespace {

/* Internal messages of this handler (catalog qlgmsg, set 1). */
const uint32_t kMsgBadValue = 180;
const char* const kTextBadValue =
    "QLGAH0180W Property '%1$s' will be ignored for asynchronous handler '%2$s', because the "
    "value '%3$s' is not valid. Expected: %4$s.\r";
const uint32_t kMsgDropped = 181;
const char* const kTextDropped =
    "QLGAH0181W The asynchronous handler '%1$s' dropped %2$ld records since %3$s: its queue of "
    "%4$d records was full.\r";
const uint32_t kMsgNoThread = 182;
const char* const kTextNoThread =
    "QLGAH0182E The asynchronous handler '%1$s' cannot start its background thread or queue; "
    "it delivers every record at once instead.\r";

const size_t kInlineBytes = 464;      /* a slot is 512 bytes with its fixed fields */
const uint32_t kKeepHeapBytes = 65536; /* larger record storage is not kept for reuse */
const uint32_t kNone = UINT32_MAX;
/* A batch ends at this many bytes set aside for files, or, when callers
   wait for the lock, after this many records. */
const uint32_t kBatchBytes = 65536;
const int kContendedBatch = 64;

/* One queued event.  Texts are offsets into the slot's storage; the
   parameters sit at its start with string values as offsets too. */
struct Slot {
  int64_t time;
  int32_t level;
  int32_t srcLine;
  uint32_t set;
  uint32_t key;
  void* catalogContext;
  char* heap;         /* storage when the record did not fit inline */
  uint32_t heapSize;
  uint32_t catalog, text, messageId, srcFile, srcFunction, props;
  uint16_t parmCount;
  uint16_t propCount;
  unsigned char isMessage;
  unsigned char srcFlags;
  alignas(8) char inl[kInlineBytes];
};

enum SleepMode { kAwake = 0, kWakeOnAny = 1, kWakeWhenHalf = 2 };

struct AsyncData {
  /* Settled by propertyChanged. */
  uint32_t queueSize;
  QlgAsyncOverflow overflow;
  int32_t flushIntervalMs;
  unsigned char logInternalErrs;

  /* Under the toolkit lock. */
  QlgObject* handler; /* known from the first event on */
  Slot* slots;
  uint32_t capacity;
  uint32_t head;
  bool started;
  bool synchronous;   /* no thread: deliver at once (fork child, start failure, exit) */
  bool delivering;    /* a record of this handler is being handed on */
  bool stopping;      /* also read by the thread under mutex */
  bool held;          /* also read by the thread under mutex */
  int32_t pid;
  uint64_t dropped;
  uint64_t droppedUnreported;
  int64_t firstDropTime;
  AsyncData* next;    /* list of live handlers */
  AsyncData* prev;

  /* Shared with the background thread. */
  std::atomic<uint32_t> count;
  QlgDeferredBatch* batch; /* the thread's file writes, made outside the lock */
  std::atomic<int> sleepMode;
  std::atomic<int> refs;
  std::mutex mutex;
  std::condition_variable wake;
  std::thread thread;
};

AsyncData* g_handlers = nullptr; /* under the toolkit lock */
bool g_exiting = false;          /* set by the exit hook: no more threads */
std::once_flag g_exitHookOnce;

AsyncData* asyncData(const QlgObject* obj) {
  if (!QlgHandler_isHandler(obj) || obj->cls->createData != QlgAsyncHandler_create) return nullptr;
  return static_cast<AsyncData*>(obj->data);
}

const char* handlerName(const AsyncData* d) {
  return d->handler && d->handler->name ? d->handler->name : "";
}

/* ---- Slot storage ---- */

size_t textBytes(const char* s) { return s ? strlen(s) + 1 : 0; }

size_t recordBytes(const QlgEvent* e) {
  size_t n = 0;
  const QlgI18Msg* m = e->message;
  if (m) {
    n += textBytes(m->catalog) + textBytes(m->defaultText);
    if (m->parms) {
      n += (size_t)m->parms->count * sizeof(QlgParm);
      for (int i = 0; i < m->parms->count; i++)
        if (m->parms->items[i].kind == QLG_PARM_STRING) n += textBytes(m->parms->items[i].value.s);
    }
  }
  n += textBytes(e->messageId);
  if (e->srcFlags & QLG_EVENT_SRC_FILE) n += textBytes(e->srcFile);
  if (e->srcFlags & QLG_EVENT_SRC_FUNCTION) n += textBytes(e->srcFunction);
  for (const QlgStringToStringMapEntry* p = e->props ? e->props->first : nullptr; p; p = p->next)
    n += textBytes(p->key) + textBytes(p->value);
  return n;
}

char* storageOf(Slot* s) { return s->heap ? s->heap : s->inl; }

/* Room for n bytes in the slot: inline, its kept heap block, or a new one;
   null when memory runs out. */
char* reserveStorage(Slot* s, size_t n) {
  if (n > UINT32_MAX / 2) return nullptr;
  if (n <= kInlineBytes) {
    if (s->heap && s->heapSize > kKeepHeapBytes) {
      QlgMem_free(s->heap);
      s->heap = nullptr;
      s->heapSize = 0;
    }
    if (!s->heap) return s->inl;
  }
  if (s->heap && s->heapSize >= n) return s->heap;
  char* fresh = static_cast<char*>(QlgMem_alloc(n));
  if (!fresh) return nullptr;
  QlgMem_free(s->heap);
  s->heap = fresh;
  s->heapSize = (uint32_t)n;
  return fresh;
}

struct Packer {
  char* base;
  size_t used;
  uint32_t put(const char* s) {
    if (!s) return kNone;
    size_t n = strlen(s) + 1;
    memcpy(base + used, s, n);
    used += n;
    return (uint32_t)(used - n);
  }
};

/* Copies everything the event carries into the slot; false when the
   record needs storage that cannot be had. */
bool packEvent(Slot* s, const QlgEvent* e) {
  char* base = reserveStorage(s, recordBytes(e));
  if (!base) return false;
  Packer p{base, 0};
  const QlgI18Msg* m = e->message;
  s->parmCount = 0;
  if (m && m->parms && m->parms->count > 0) {
    s->parmCount = (uint16_t)(m->parms->count > 0xFFFF ? 0xFFFF : m->parms->count);
    p.used = (size_t)s->parmCount * sizeof(QlgParm);
    QlgParm* parms = reinterpret_cast<QlgParm*>(base);
    for (uint16_t i = 0; i < s->parmCount; i++) {
      parms[i] = m->parms->items[i];
      if (parms[i].kind == QLG_PARM_STRING)
        parms[i].value.l = (long)p.put(m->parms->items[i].value.s);
    }
  }
  s->time = e->time;
  s->level = e->level;
  s->isMessage = e->isMessage;
  s->catalog = m ? p.put(m->catalog) : kNone;
  s->text = m ? p.put(m->defaultText) : kNone;
  s->set = m ? m->set : 0;
  s->key = m ? m->key : 0;
  s->catalogContext = m ? m->catalogContext : nullptr;
  s->messageId = p.put(e->messageId);
  s->srcFlags = e->srcFlags & (QLG_EVENT_SRC_FILE | QLG_EVENT_SRC_FUNCTION);
  s->srcFile = (s->srcFlags & QLG_EVENT_SRC_FILE) ? p.put(e->srcFile) : kNone;
  s->srcFunction = (s->srcFlags & QLG_EVENT_SRC_FUNCTION) ? p.put(e->srcFunction) : kNone;
  s->srcLine = e->srcLine;
  s->propCount = 0;
  s->props = (uint32_t)p.used;
  for (const QlgStringToStringMapEntry* q = e->props ? e->props->first : nullptr; q; q = q->next) {
    if (!q->key || !q->value) continue;
    p.put(q->key);
    p.put(q->value);
    s->propCount++;
  }
  return true;
}

const char* textAt(Slot* s, uint32_t off) { return off == kNone ? nullptr : storageOf(s) + off; }

/* ---- Delivery (under the toolkit lock) ---- */

/* Hands the record in slot s to the listeners as an event of its own.
   Texts and parameters are borrowed from the slot; what a listener may
   attach or replace (message ID, property set) is the event's own. */
void deliverSlot(AsyncData* d, Slot* s) {
  QlgParmList parms{s->parmCount, s->parmCount, reinterpret_cast<QlgParm*>(storageOf(s))};
  for (uint16_t i = 0; i < s->parmCount; i++)
    if (parms.items[i].kind == QLG_PARM_STRING)
      parms.items[i].value.s = const_cast<char*>(textAt(s, (uint32_t)parms.items[i].value.l));
  QlgI18Msg msg;
  memset(&msg, 0, sizeof msg);
  msg.catalog = const_cast<char*>(textAt(s, s->catalog));
  msg.set = s->set;
  msg.key = s->key;
  msg.defaultText = const_cast<char*>(s->text == kNone ? "" : textAt(s, s->text));
  msg.parms = s->parmCount ? &parms : nullptr;
  msg.catalogContext = s->catalogContext;
  QlgEvent ev;
  memset(&ev, 0, sizeof ev);
  ev.isMessage = s->isMessage;
  ev.time = s->time;
  ev.level = s->level;
  ev.message = &msg;
  if (s->messageId != kNone) ev.messageId = QlgMem_strdup(textAt(s, s->messageId));
  ev.srcFile = textAt(s, s->srcFile);
  ev.srcFunction = textAt(s, s->srcFunction);
  ev.srcLine = s->srcLine;
  ev.srcFlags = s->srcFlags;
  if (s->propCount) {
    ev.props = QlgProps_create();
    const char* q = storageOf(s) + s->props;
    for (uint16_t i = 0; i < s->propCount && ev.props; i++) {
      const char* value = q + strlen(q) + 1;
      QlgProps_setString(ev.props, q, value);
      q = value + strlen(value) + 1;
    }
  }
  d->delivering = true;
  QlgObject_forwardToListeners(d->handler, &ev);
  d->delivering = false;
  QlgProps_destroy(ev.props);
  QlgMem_free(ev.messageId);
}

void popHead(AsyncData* d) {
  d->head = (d->head + 1) % d->capacity;
  d->count.fetch_sub(1, std::memory_order_release);
}

void deliverHead(AsyncData* d) {
  deliverSlot(d, &d->slots[d->head]);
  popHead(d);
}

/* "2026-11-23 09:35:05.123 UTC" */
void formatTime(int64_t ms, char* buf, size_t size) {
  time_t secs = (time_t)(ms / 1000);
  struct tm tm;
  memset(&tm, 0, sizeof tm);
  if (!gmtime_r(&secs, &tm)) {
    snprintf(buf, size, "%lld", (long long)ms);
    return;
  }
  char day[32];
  strftime(day, sizeof day, "%Y-%m-%d %H:%M:%S", &tm);
  snprintf(buf, size, "%s.%03d UTC", day, (int)(ms % 1000));
}

/* One message per run of drops, through the listeners (so that the gap is
   visible where the records are) and through the error logger. */
void reportDrops(AsyncData* d) {
  if (!d->droppedUnreported || !d->handler) return;
  long n = (long)d->droppedUnreported;
  d->droppedUnreported = 0;
  char since[64];
  formatTime(d->firstDropTime, since, sizeof since);
  QlgEvent* ev = QlgEvent_createTagged(QLG_LEVEL_WARN, QLG_MSG_CATALOG, 1, kMsgDropped,
                                       kTextDropped, QLG_PARM_STRING, handlerName(d), QLG_PARM_LONG,
                                       n, QLG_PARM_STRING, since, QLG_PARM_INT,
                                       (int)d->capacity, 0);
  if (ev) {
    QlgEvent_markMessage(ev, 1);
    d->delivering = true;
    QlgObject_forwardToListeners(d->handler, ev);
    d->delivering = false;
    QlgEvent_free(ev);
  }
  if (d->logInternalErrs)
    QlgMisc_report(QLG_LEVEL_WARN, kMsgDropped, kTextDropped, QLG_PARM_STRING, handlerName(d),
                   QLG_PARM_LONG, n, QLG_PARM_STRING, since, QLG_PARM_INT, (int)d->capacity, 0);
}

/* Everything queued, then the drop report; what the thread took earlier
   and is still writing goes first. */
void drain(AsyncData* d) {
  QlgFileHandler_settleBatch(d->batch);
  while (d->count.load(std::memory_order_acquire) > 0 && !d->delivering) deliverHead(d);
  if (!d->delivering) reportDrops(d);
}

/* ---- Background thread ---- */

void releaseData(AsyncData* d);
void adoptAfterFork(AsyncData* d);

/* Sleeps until records are queued (and the handler is not held), or until
   the handler stops; false when it stops.  With a flush interval the
   thread lets records collect for that long, or until half the queue is
   taken, so that listeners take them in runs. */
bool waitForRecords(AsyncData* d) {
  std::unique_lock<std::mutex> l(d->mutex);
  auto ready = [d] {
    return d->stopping || (!d->held && d->count.load(std::memory_order_acquire) > 0);
  };
  d->sleepMode.store(kWakeOnAny, std::memory_order_seq_cst);
  d->wake.wait(l, ready);
  if (!d->stopping && d->flushIntervalMs > 0) {
    auto half = [d] {
      return d->stopping || d->count.load(std::memory_order_acquire) >= d->capacity / 2;
    };
    d->sleepMode.store(kWakeWhenHalf, std::memory_order_seq_cst);
    d->wake.wait_for(l, std::chrono::milliseconds(d->flushIntervalMs), half);
  }
  d->sleepMode.store(kAwake, std::memory_order_relaxed);
  return !d->stopping;
}

/* A batch is handed to the listeners under the toolkit lock, which file
   handlers format and count but do not write; the thread writes it once
   the lock is let go, so a caller waits at most for a batch to be
   formatted, never for the disk.  Other listeners write as they receive. */
void run(AsyncData* d) {
  while (waitForRecords(d)) {
    if (!QlgToolkit_enter()) break;
    QlgFileHandler_reportDeferred(d->batch);
    QlgFileHandler_beginDeferred(d->batch);
    int n = 0;
    while (!d->stopping && !d->held && d->count.load(std::memory_order_acquire) > 0) {
      deliverHead(d);
      if (QlgFileHandler_deferredBytes() >= kBatchBytes ||
          (++n >= kContendedBatch && QlgToolkit_contended()))
        break;
    }
    if (!d->stopping) reportDrops(d);
    QlgFileHandler_endDeferred();
    QlgToolkit_leave();
    QlgFileHandler_writeDeferred(d->batch);
    if (QlgFileHandler_deferredFailed(d->batch) && QlgToolkit_enter()) {
      QlgFileHandler_reportDeferred(d->batch);
      QlgToolkit_leave();
    }
  }
  releaseData(d);
}

/* ---- Life cycle ---- */

void freeSlots(AsyncData* d) {
  for (uint32_t i = 0; d->slots && i < d->capacity; i++) QlgMem_free(d->slots[i].heap);
  QlgMem_free(d->slots);
  d->slots = nullptr;
  d->capacity = d->head = 0;
  d->count.store(0);
}

void releaseData(AsyncData* d) {
  if (d->refs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  freeSlots(d);
  QlgFileHandler_destroyBatch(d->batch);
  d->~AsyncData();
  QlgMem_free(d);
}

void unlink(AsyncData* d) {
  if (d->prev) d->prev->next = d->next;
  else if (g_handlers == d) g_handlers = d->next;
  if (d->next) d->next->prev = d->prev;
  d->next = d->prev = nullptr;
}

/* Asks the thread to end; under the toolkit lock.  The thread is handed
   back so that the caller may join it once the lock is free. */
std::thread stopThread(AsyncData* d) {
  {
    std::lock_guard<std::mutex> l(d->mutex);
    d->stopping = true;
  }
  d->wake.notify_all();
  return std::move(d->thread);
}

/* Delivers what every handler queued and ends the threads; later events
   are delivered synchronously.  At process exit the threads are joined,
   outside the lock, since one may be waiting for it; at toolkit shutdown
   the caller may hold the lock, so they are let go and end by themselves. */
void stopEvery(bool join) {
  if (!QlgToolkit_enter()) return;
  std::vector<std::pair<AsyncData*, std::thread>> threads;
  for (AsyncData* d = g_handlers; d; d = d->next) {
    if (!d->started) continue;
    if (d->pid != CxProcess_getpid()) {
      adoptAfterFork(d);
      continue;
    }
    drain(d);
    std::thread t = stopThread(d);
    d->started = false;
    d->synchronous = true;
    if (!join || !t.joinable()) {
      if (t.joinable()) t.detach();
      continue;
    }
    d->refs.fetch_add(1);
    try {
      threads.emplace_back(d, std::move(t));
    } catch (...) {
      t.detach();
      d->refs.fetch_sub(1);
    }
  }
  QlgToolkit_leave();
  for (auto& t : threads) {
    t.second.join();
    releaseData(t.first);
  }
}

void exitHook() {
  if (QlgToolkit_enter()) {
    g_exiting = true;
    QlgToolkit_leave();
  }
  stopEvery(true);
}

void reportNoThread(AsyncData* d) {
  if (d->logInternalErrs)
    QlgMisc_report(QLG_LEVEL_ERROR, kMsgNoThread, kTextNoThread, QLG_PARM_STRING, handlerName(d),
                   0);
}

/* The queue and the thread, on the first event. */
bool ensureStarted(AsyncData* d) {
  if (d->started) return true;
  if (d->synchronous || g_exiting) return false;
  std::call_once(g_exitHookOnce, [] { atexit(exitHook); });
  d->slots = static_cast<Slot*>(QlgMem_alloc((size_t)d->queueSize * sizeof(Slot)));
  if (!d->slots) {
    d->synchronous = true;
    reportNoThread(d);
    return false;
  }
  for (uint32_t i = 0; i < d->queueSize; i++) {
    d->slots[i].heap = nullptr;
    d->slots[i].heapSize = 0;
  }
  if (!d->batch) d->batch = QlgFileHandler_createBatch(); /* none: files written under the lock */
  d->capacity = d->queueSize;
  d->head = 0;
  d->count.store(0);
  d->stopping = false;
  d->pid = CxProcess_getpid();
  d->refs.fetch_add(1);
  try {
    d->thread = std::thread(run, d);
  } catch (...) {
    d->refs.fetch_sub(1);
    freeSlots(d);
    d->synchronous = true;
    reportNoThread(d);
    return false;
  }
  d->started = true;
  return true;
}

/* In a forked child the thread is gone and the queue's mutex may have been
   held by it: both are left alone and the child delivers synchronously.
   What the parent had queued is the parent's to write. */
void adoptAfterFork(AsyncData* d) {
  new (&d->thread) std::thread();
  new (&d->mutex) std::mutex();
  new (&d->wake) std::condition_variable();
  d->refs.store(1);
  d->head = 0;
  d->count.store(0);
  d->started = false;
  d->synchronous = true;
}

/* Counts a dropped record; the first of a run stamps when drops began. */
void countDrop(AsyncData* d) {
  if (!d->droppedUnreported) d->firstDropTime = CxSystem_currentTimeMillis();
  d->dropped++;
  d->droppedUnreported++;
}

void enqueue(AsyncData* d, QlgEvent* event) {
  if (d->count.load(std::memory_order_relaxed) == d->capacity) {
    switch (d->overflow) {
      case QLG_ASYNC_BLOCK:
        /* The caller holds the lock the thread delivers under, so instead
           of waiting it makes the room itself, after what the thread took
           before.  It hands on half the queue at once: one long call, then
           a run of calls that find room, rather than every call paying for
           one record. */
        QlgFileHandler_settleBatch(d->batch);
        for (uint32_t n = d->capacity / 2 + 1; n && d->count.load(std::memory_order_relaxed); n--)
          deliverHead(d);
        break;
      case QLG_ASYNC_DROP_NEW:
        countDrop(d);
        return;
      case QLG_ASYNC_OVERRUN_OLDEST:
        popHead(d);
        countDrop(d);
        break;
    }
  }
  Slot* s = &d->slots[(d->head + d->count.load(std::memory_order_relaxed)) % d->capacity];
  if (!packEvent(s, event)) {
    countDrop(d);
    return;
  }
  d->count.fetch_add(1, std::memory_order_seq_cst);
  int mode = d->sleepMode.load(std::memory_order_seq_cst);
  if (mode == kWakeOnAny ||
      (mode == kWakeWhenHalf && d->count.load(std::memory_order_relaxed) >= d->capacity / 2)) {
    /* Taking the mutex orders this notify after the thread's last look
       at the count, so the wakeup cannot fall between look and sleep. */
    { std::lock_guard<std::mutex> l(d->mutex); }
    d->wake.notify_one();
  }
}

/* ---- Properties ---- */

void reportBadValue(QlgObject* handler, const AsyncData* d, const char* key, const char* value,
                    const char* expected) {
  if (!d->logInternalErrs) return;
  QlgMisc_report(QLG_LEVEL_WARN, kMsgBadValue, kTextBadValue, QLG_PARM_STRING, key,
                 QLG_PARM_STRING, handler->name, QLG_PARM_STRING, value ? value : "",
                 QLG_PARM_STRING, expected, 0);
}

bool ownsKey(const char* key) {
  return strcmp(key, "queueSize") == 0 || strcmp(key, "overflowPolicy") == 0 ||
         strcmp(key, "flushIntervalMs") == 0 || strcmp(key, "logInternalErrs") == 0;
}

void applyProperty(QlgObject* handler, AsyncData* d, const char* key, const char* value) {
  long n;
  if (strcmp(key, "queueSize") == 0) {
    /* The queue in use keeps its size; a new size applies from the next start. */
    if (!QlgHandler_parseRange(value, 1, 1048576, &n))
      return reportBadValue(handler, d, key, value, "a number of records from 1 to 1048576");
    d->queueSize = (uint32_t)n;
  } else if (strcmp(key, "overflowPolicy") == 0) {
    if (value && strcasecmp(value, "BLOCK") == 0) d->overflow = QLG_ASYNC_BLOCK;
    else if (value && strcasecmp(value, "DROP_NEW") == 0) d->overflow = QLG_ASYNC_DROP_NEW;
    else if (value && strcasecmp(value, "OVERRUN_OLDEST") == 0)
      d->overflow = QLG_ASYNC_OVERRUN_OLDEST;
    else reportBadValue(handler, d, key, value, "BLOCK, DROP_NEW or OVERRUN_OLDEST");
  } else if (strcmp(key, "flushIntervalMs") == 0) {
    if (!QlgHandler_parseRange(value, 0, 60000, &n))
      return reportBadValue(handler, d, key, value, "milliseconds from 0 to 60000");
    std::lock_guard<std::mutex> l(d->mutex);
    d->flushIntervalMs = (int32_t)n;
  } else if (strcmp(key, "logInternalErrs") == 0) {
    if (!value || (strcasecmp(value, "true") != 0 && strcasecmp(value, "false") != 0))
      return reportBadValue(handler, d, key, value, "true or false");
    d->logInternalErrs = strcasecmp(value, "true") == 0;
  }
}

}  // namespace

extern "C" {

void* QlgAsyncHandler_create(void) {
  void* room = QlgMem_alloc(sizeof(AsyncData));
  if (!room) return nullptr;
  AsyncData* d = new (room) AsyncData();
  d->queueSize = 8192;
  d->overflow = QLG_ASYNC_BLOCK;
  d->logInternalErrs = 1;
  d->refs.store(1);
  d->next = g_handlers;
  if (g_handlers) g_handlers->prev = d;
  g_handlers = d;
  return d;
}

void QlgAsyncHandler_destroy(void* p) {
  AsyncData* d = static_cast<AsyncData*>(p);
  if (!d) return;
  unlink(d);
  if (d->started && d->pid != CxProcess_getpid()) adoptAfterFork(d);
  if (d->started) {
    drain(d);
    /* The thread may be waiting for the lock this caller holds: it is let
       go, and frees the record itself on its way out. */
    std::thread t = stopThread(d);
    if (t.joinable()) t.detach();
  }
  d->handler = nullptr;
  releaseData(d);
}

void QlgAsyncHandler_propertyChanged(QlgObject* handler, const char* key) {
  AsyncData* d = asyncData(handler);
  if (!d || !key || !ownsKey(key)) {
    QlgHandler_propertyChanged(handler, key);
    return;
  }
  char* value = QlgObject_getString(handler, key, nullptr);
  applyProperty(handler, d, key, value);
  QlgMem_free(value);
}

void QlgAsyncHandler_open(QlgObject* handler) {
  AsyncData* d = asyncData(handler);
  if (d) d->handler = handler;
}

/* Reconfiguration closes the handler: what it queued goes out first. */
void QlgAsyncHandler_close(QlgObject* handler) {
  AsyncData* d = asyncData(handler);
  if (!d || !d->started) return;
  if (d->pid != CxProcess_getpid()) {
    adoptAfterFork(d);
    return;
  }
  d->handler = handler;
  drain(d);
}

void QlgAsyncHandler_publish(QlgObject* handler, QlgEvent* event) {
  if (!handler || !event || !handler->logging) return;
  AsyncData* d = asyncData(handler);
  if (!d) return;
  d->handler = handler;
  if (d->started && d->pid != CxProcess_getpid()) adoptAfterFork(d);
  /* A record that arises while this handler hands one on (an internal
     report routed back here) goes straight through: the queue is busy. */
  if (d->delivering || !ensureStarted(d)) {
    QlgObject_forwardToListeners(handler, event);
    return;
  }
  enqueue(d, event);
}

void QlgAsyncHandler_flushAll(void) {
  if (!QlgToolkit_enter()) return;
  for (AsyncData* d = g_handlers; d; d = d->next)
    if (d->started && d->pid == CxProcess_getpid()) drain(d);
  QlgToolkit_leave();
}

void QlgAsyncHandler_stopAll(int join) { stopEvery(join != 0); }

uint64_t QlgAsyncHandler_droppedCount(const QlgObject* handler) {
  const AsyncData* d = asyncData(handler);
  return d ? d->dropped : 0;
}

void QlgAsyncHandler_hold(QlgObject* handler, int held) {
  AsyncData* d = asyncData(handler);
  if (!d || !QlgToolkit_enter()) return;
  {
    std::lock_guard<std::mutex> l(d->mutex);
    d->held = held != 0;
  }
  QlgToolkit_leave();
  d->wake.notify_all();
}

}  // extern "C"
