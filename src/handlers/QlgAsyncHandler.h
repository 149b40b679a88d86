// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_asynchandler: takes each event it receives into a bounded queue and
 * returns; one background thread per handler hands the queued events, in
 * queue order, to the handler's own listeners.  Everything an event
 * carries (texts, time, level, parameters, source location, message ID,
 * properties, and so the thread and process identity the problem-
 * determination logger files in) is copied into the queue, so a record
 * tells the caller's story, not the background thread's.
 *
 * Listeners are handlers that rely on the toolkit lock, so records are
 * delivered under it, in batches; file handlers format and count a batch
 * there and the thread writes it after letting the lock go, so a caller
 * never waits for the lock while the thread waits on the disk (a
 * multi-process handler's records go one by one under its cross-process
 * lock; console and other listeners write as they receive).  Queue state changes only under the toolkit lock; the
 * queue's own mutex serves the background thread's sleep alone.
 *
 * Overflow: BLOCK (the caller delivers the older half of the queue itself,
 * so that nothing is lost and nobody waits on a thread that needs the lock
 * the caller holds), DROP_NEW, OVERRUN_OLDEST.  Drops are counted and reported
 * once the queue has room again.
 *
 * What is queued is delivered by the handler's close and destroy, by
 * QlgAsyncHandler_flushAll (ardel_flush), by toolkit shutdown and at normal
 * process exit.  A forked child delivers synchronously; _exit or a crash
 * loses what was still queued.
 */
#ifndef ARDEL_QLGASYNCHANDLER_H
#define ARDEL_QLGASYNCHANDLER_H

#include <stdint.h>
#include <ardel/export.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>

ARDEL_BEGIN_C

typedef enum QlgAsyncOverflow {
  QLG_ASYNC_BLOCK = 0,
  QLG_ASYNC_DROP_NEW = 1,
  QLG_ASYNC_OVERRUN_OLDEST = 2
} QlgAsyncOverflow;

/* Slots. */
void* QlgAsyncHandler_create(void);
void QlgAsyncHandler_destroy(void* data);
void QlgAsyncHandler_propertyChanged(QlgObject* handler, const char* key);
void QlgAsyncHandler_publish(QlgObject* handler, QlgEvent* event);
void QlgAsyncHandler_open(QlgObject* handler);
void QlgAsyncHandler_close(QlgObject* handler);

/* Delivers everything queued in every async handler before returning;
   under the toolkit lock (taken here). */
void QlgAsyncHandler_flushAll(void);
/* flushAll, then every background thread is ended; later events are
   delivered synchronously.  With join set the threads are joined, which a
   caller holding the toolkit lock must not ask for; without, they end by
   themselves.  Run at toolkit shutdown (0) and process exit (1). */
void QlgAsyncHandler_stopAll(int join);

/* Records dropped since creation. */
uint64_t QlgAsyncHandler_droppedCount(const QlgObject* handler);
/* Keeps the background thread from taking records while held is 1 (queue
   maintenance and tests of the overflow policies); 0 releases it. */
void QlgAsyncHandler_hold(QlgObject* handler, int held);

ARDEL_END_C

#endif
