// SPDX-License-Identifier: Apache-2.0
/*
 * CxMutex: the two kinds of lock the toolkit uses.
 *
 * The unnamed mutex is the toolkit's process-wide lock: recursive, so the
 * thread that holds it may take it again (and must release it as often).
 *
 * A named mutex is shared by every process that opens the same name, and
 * a holder that dies (or closes its handle while holding it) releases it,
 * so a crashed writer cannot block the others.  Here it is a lock word in
 * the file <name> in $TMPDIR (else /tmp), mapped by every process (flock on
 * that file where the system has no futex), created with mode 0666 so that
 * processes of every user can share it.  Like every shared mapping (the
 * application-server ring too), it trusts the users who may write it: one
 * who shortens the file faults the processes using the word, where a flock
 * could only be held to stall them.  Each handle is a holder of its
 * own, so two handles of one process exclude each other as two processes
 * do; threads sharing one handle are kept apart by an in-process mutex
 * taken before the shared lock.  A named mutex is recursive for its
 * holding thread, like the unnamed one.  A forked child must open the name
 * again instead of using an inherited handle.  Lock files live on a local
 * file system; they are left in place when the mutex is closed.
 */
#ifndef ARDEL_CXMUTEX_H
#define ARDEL_CXMUTEX_H

#include <stdint.h>
#include <ardel/export.h>
#include "platform/CxStatus.h"

ARDEL_BEGIN_C

typedef struct CxMutex CxMutex;

/* How long callers wait for a named mutex before giving up on one write. */
#define CX_MUTEX_WAIT_MS 10000
/* Status code of a wait that ran out of time (origin 'w'). */
#define CX_MUTEX_TIMED_OUT 258
/* Longest name accepted by CxMutex_createNamed: it must fit both a file
   name (255 bytes) and a system-wide name of 256 with its namespace prefix. */
#define CX_MUTEX_NAME_MAX 249

/* A new unnamed, unowned recursive mutex in *out ('p' 12 out of memory). */
CxStatus CxMutex_create(CxMutex** out);
/* Creates or opens the named mutex; not owned.  The name must be non-empty,
   at most CX_MUTEX_NAME_MAX bytes and hold no "/" ('p' 22 otherwise). */
CxStatus CxMutex_createNamed(CxMutex** out, const char* name);
/* Opens a named mutex that some process has already created; 'p' 2
   (ENOENT) when none has.  Name rules as for CxMutex_createNamed. */
CxStatus CxMutex_openNamed(CxMutex** out, const char* name);
/* Removes the name, so that later opens fail until it is created again;
   handles already open keep working.  'p' with errno on failure. */
CxStatus CxMutex_removeNamed(const char* name);
/* The named mutex of a numeric key: "CX_SEM_KEY_" and the key in
   lower-case hexadecimal (31821 gives CX_SEM_KEY_7c4d). */
CxStatus CxMutex_createKeyed(CxMutex** out, int32_t key);
/* Releases the handle and sets *m to null, also when releasing fails.
   'p' 22 when m or *m is null. */
CxStatus CxMutex_close(CxMutex** m);
/* Waits without time limit. */
CxStatus CxMutex_lock(CxMutex* m);
/* Waits at most ms milliseconds; 'w' 258 (CX_MUTEX_TIMED_OUT) when the time
   ran out, 'p' errno for any other failure. */
CxStatus CxMutex_lockTimed(CxMutex* m, int32_t ms);
/* Takes the mutex only if no other holder has it now (a named mutex may
   spin briefly first); 'w' 258 when another holds it. */
CxStatus CxMutex_tryLock(CxMutex* m);
/* Releases one hold; 'p' 1 when the calling thread does not hold it. */
CxStatus CxMutex_unlock(CxMutex* m);

/* Bytes shared by every handle of a named mutex (CX_MUTEX_SHARED_BYTES,
   zero at first), for holders to leave notes for the next holder; null for
   an unnamed mutex and where the system gives no shared memory with the
   lock.  Read and written under the mutex only.  Every process that can
   open the name can write there: a note is a hint to be checked. */
#define CX_MUTEX_SHARED_BYTES 32
void* CxMutex_shared(CxMutex* m);

ARDEL_END_C

#endif
