// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_multiproc_filehandler: one log file shared by several processes.
 *
 * Every process keeps its own descriptor open in append mode, so each
 * record lands at the end whoever wrote last.  The named mutex serialises
 * what must not interleave: reading the size, rolling over and writing one
 * record.  Formatting and conversion stay outside it.  The wait is bounded
 * (CX_MUTEX_WAIT_MS) so that a dead or stuck writer costs the others at
 * most one record each, and the kernel drops the lock of a process that
 * dies holding it.
 *
 * Per record, under the lock: the size and one write.  The other
 * processes make a figure tracked by one process stale, so the holder
 * leaves a note beside the lock (which file, and its end after the write)
 * for the next holder, whichever process that is; each process still reads
 * the end offset from the file once a second (a truncation by another
 * program), whenever the note is about another file, and before every
 * rollover, which a note alone never starts.  Where the lock has no room
 * for notes the end offset is read at every record (asking for the file's
 * attributes instead would make every next write update its inode too).
 * Taking a free lock costs no system call where the system allows, and
 * neither does asking the watch while nothing happened, so a record costs
 * the write.  The record is formatted into the thread's buffer, so it costs
 * no allocation.
 *
 * A file removed or renamed under the writers (logrotate) is noticed under
 * the lock as the file handler notices it: a watch, or a look at the path
 * once per pathCheckInterval, tells when to compare the open file with what
 * the path names; when they differ, the path is opened anew.
 *
 * Rollover is crash-safe.  The active file is copied into <active>.rollover
 * and only a complete copy goes on: the active file is emptied, and the
 * copy renamed into backup 1.  A writer killed on the way leaves the
 * copy behind, and a lock holder settles it within a second, at the
 * first record of a process, or before its own rollover: a copy
 * that the active file still begins with was never followed by the
 * emptying (discarded: its records are still in the active file);
 * otherwise the active file was emptied and the copy holds its only
 * records (renamed into backup 1).  Backups are shifted up from the lowest
 * free number, which finishes an interrupted shift without dropping one.
 * A copy that fails part-way (a full disk) leaves the active file as it
 * is and is tried again at the next record.
 */
#include "handlers/QlgMultiProcFileHandler.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <ardel/QlgHandler.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>
#include "core/QlgMisc.h"
#include "msg/QlgMsgTable.h"
#include "platform/CxFile.h"
#include "platform/CxSystem.h"
#include "platform/CxWatch.h"
#include "handlers/QlgHandler.h"
#include "util/CxStringBuff.h"

namespace {

enum { kMsgRolloverRead = 72, kMsgRolloverWrite = 73 };
const size_t kCopyChunk = 8192;

void reportFailure(CxStatus status) {
  if (!CxStatus_isOk(status)) QlgMisc_reportStatus(status);
}

void reportName(QlgFileHandlerData* data, uint32_t key, const char* name) {
  if (data->logInternalErrs)
    QlgMisc_report(QLG_LEVEL_WARN, key, QlgMsgTable_text(key), QLG_PARM_STRING,
                   name ? name : "NULL", 0);
}

/* How often the path is looked up while a watch stands in for it. */
const int64_t kRecheckMs = 1000;

/* Opens the path (always appending) and starts watching it. */
bool openFile(QlgFileHandlerData* data) {
  QlgFileHandler_makeDirectory(data);
  CxStatus st = CxFile_openShared(&data->fd, data->path, CX_O_RDWR | CX_O_APPEND | CX_O_CREAT,
                                  (int)data->filePermission);
  if (!CxStatus_isOk(st)) {
    QlgMisc_reportStatus(st);
    return false;
  }
  data->isOpen = 1;
  data->nextLeftoverCheck = 0;
  data->nextSizeCheck = 0;
  data->haveOpenId = (unsigned char)CxStatus_isOk(CxFile_id(data->fd, &data->openId));
  int64_t now = CxSystem_steadyMillis();
  data->nextPathCheck = now + (data->pathCheckInterval > 0 ? data->pathCheckInterval : kRecheckMs);
  if (data->watching) CxWatch_stop(&data->watch);
  data->watching = data->pathCheckInterval == 0 && CxWatch_start(&data->watch, data->path);
  return true;
}

void closeFile(QlgFileHandlerData* data) {
  if (data->fd >= 0) reportFailure(CxFile_close(&data->fd));
  data->isOpen = 0;
  if (data->watching) CxWatch_stop(&data->watch);
  data->watching = 0;
}

/* Steps shared by the open slot and a publish that finds the file closed:
   the lock (once per handler), the directory and the file, always
   appending whatever `appending` says. */
void openShared(QlgFileHandlerData* data) {
  if (!data->lockCreated) {
    CxStatus st = CxMutex_createKeyed(&data->lock, data->semKey);
    if (!CxStatus_isOk(st)) {
      QlgMisc_reportStatus(st);
      return;
    }
    data->lockCreated = 1;
  }
  openFile(data);
}

/* Under the lock: is it time to look whether the path still names the open
   file?  When the watch saw something, once a second besides, or once per
   pathCheckInterval; on every record only where no watch can be had. */
bool timeToLook(QlgFileHandlerData* data) {
  int64_t now = CxSystem_steadyMillis();
  if (data->pathCheckInterval > 0) {
    if (now < data->nextPathCheck) return false;
    data->nextPathCheck = now + data->pathCheckInterval;
    return true;
  }
  if (data->watching && !CxWatch_changed(&data->watch) && now < data->nextPathCheck) return false;
  data->nextPathCheck = now + kRecheckMs;
  return true;
}

/* Does the path still name the open file (not removed, not renamed away,
   not replaced by a new file)? */
bool stillOurs(QlgFileHandlerData* data) {
  CxFileId open, named;
  return CxStatus_isOk(CxFile_id(data->fd, &open)) &&
         CxStatus_isOk(CxFile_pathId(data->path, &named)) && open.device == named.device &&
         open.inode == named.inode;
}

/* Under the lock, before the size is read: reopens the path when it no
   longer names the open file.  False when the file is closed now. */
bool fileStillThere(QlgFileHandlerData* data) {
  if (!timeToLook(data)) return true;
  if (stillOurs(data)) {
    /* A watch ended in a child process: this process starts its own. */
    if (data->watching && !CxWatch_active(&data->watch))
      data->watching = (unsigned char)CxWatch_start(&data->watch, data->path);
    return true;
  }
  closeFile(data);
  return openFile(data);
}

/* The note a lock holder leaves for the next one (see the file comment). */
struct EndNote {
  uint64_t device;
  uint64_t inode;
  uint64_t end;
};
static_assert(sizeof(EndNote) <= CX_MUTEX_SHARED_BYTES, "the note fits beside the lock");

/* Under the lock: the note, when it is about this process's open file. */
EndNote* noteFor(QlgFileHandlerData* data) {
  EndNote* note = (EndNote*)CxMutex_shared(data->lock);
  return note && data->haveOpenId ? note : nullptr;
}

/* Under the lock: the size of the file from its end offset. */
void readSize(QlgFileHandlerData* data) {
  int64_t size = 0;
  CxStatus st = CxFile_endOffset(data->fd, &size);
  if (CxStatus_isOk(st))
    data->size = (uint64_t)size;
  else
    QlgMisc_reportStatus(st);
}

/* Under the lock, before the write: the size from the note or the file,
   and the rollover when the file says it is due. */
void sizeAndRollover(QlgFileHandlerData* data, int64_t now) {
  EndNote* note = noteFor(data);
  bool noted = note && now < data->nextSizeCheck && note->device == data->openId.device &&
               note->inode == data->openId.inode;
  if (noted) {
    data->size = note->end;
  } else {
    readSize(data);
    data->nextSizeCheck = now + kRecheckMs;
  }
  if (!QlgFileHandler_rolloverDue(data)) return;
  if (noted) readSize(data);
  if (!QlgFileHandler_rolloverDue(data)) return;
  QlgMPFileHandler_rollover(data);
  readSize(data); /* emptied, or left as it was when the copy failed */
}

/* Under the lock, after the write: the note for the next holder; a failed
   write leaves none, so that the next holder reads the file. */
void leaveNote(QlgFileHandlerData* data, bool written, int len) {
  EndNote* note = noteFor(data);
  if (!note) return;
  note->device = written ? data->openId.device : 0;
  note->inode = written ? data->openId.inode : 0;
  note->end = data->size + (uint64_t)len;
}

/* Deletes one file; a missing one is not an error. */
void deleteNumbered(QlgFileHandlerData* data, int32_t n) {
  char* name = QlgFileHandler_composePath(data->directory, data->baseName, n, data->extension);
  if (!name) return;
  CxStatus st = CxFile_delete(name);
  if (!CxStatus_isOk(st) && st.code != ENOENT) QlgMisc_reportStatus(st);
  QlgMem_free(name);
}

void renameNumbered(QlgFileHandlerData* data, int32_t from, int32_t to) {
  char* a = QlgFileHandler_composePath(data->directory, data->baseName, from, data->extension);
  char* b = QlgFileHandler_composePath(data->directory, data->baseName, to, data->extension);
  if (a && b) {
    CxStatus st = CxFile_rename(a, b);
    if (!CxStatus_isOk(st) && st.code != ENOENT) QlgMisc_reportStatus(st);
  }
  QlgMem_free(a);
  QlgMem_free(b);
}

/* Copies the active file (from its start) into the backup; sets the marks. */
void copyInto(int fd, int backup, bool* readFailed, bool* writeFailed) {
  char buf[kCopyChunk];
  for (;;) {
    int got = -1;
    if (!CxStatus_isOk(CxFile_read(fd, buf, sizeof buf, &got))) {
      *readFailed = true;
      return;
    }
    if (got == 0) return;
    int put = -1;
    if (!CxStatus_isOk(CxFile_write(backup, buf, (size_t)got, &put)) || put != got) {
      *writeFailed = true;
      return;
    }
  }
}

/* Reads up to size bytes, as many as there are. */
int readFull(int fd, char* buf, int size) {
  int total = 0;
  while (total < size) {
    int got = -1;
    if (!CxStatus_isOk(CxFile_read(fd, buf + total, (size_t)(size - total), &got))) return -1;
    if (got == 0) break;
    total += got;
  }
  return total;
}

/* 1 when the active file begins with everything in copy, 0 when not, -1
   when either cannot be read. */
int activeBeginsWith(int active, int copy) {
  if (!CxStatus_isOk(CxFile_seek(active, 0, CX_SEEK_SET))) return -1;
  char a[kCopyChunk];
  char c[kCopyChunk];
  for (;;) {
    int nc = readFull(copy, c, (int)sizeof c);
    if (nc < 0) return -1;
    if (nc == 0) return 1;
    int na = readFull(active, a, nc);
    if (na < 0) return -1;
    if (na != nc || memcmp(a, c, (size_t)nc) != 0) return 0;
  }
}

/* Deletes name when it is an empty file: a backup that holds no record. */
void deleteIfEmpty(const char* name) {
  CxFileStat st;
  int kind = 0;
  if (CxStatus_isOk(CxFile_lstatPath(&st, name, &kind)) && kind == CX_KIND_FILE && st.size == 0)
    reportFailure(CxFile_delete(name));
}

bool missing(const char* name) {
  CxFileStat st;
  int kind = 0;
  return !CxStatus_isOk(CxFile_lstatPath(&st, name, &kind));
}

/* Moves backups 1.. up by one, from the lowest free number down, so that
   backup 1 is free; with no free number the last one is dropped.  Run
   again after an interruption it finishes the shift. */
void shiftBackups(QlgFileHandlerData* data) {
  int32_t n = data->maxFiles - 1;
  char* first = QlgFileHandler_composePath(data->directory, data->baseName, 1, data->extension);
  if (!first) return;
  /* An empty backup 1 is the mark of a rollover that never got its copy in. */
  deleteIfEmpty(first);
  QlgMem_free(first);
  int32_t gap = n;
  bool found = false;
  for (int32_t i = 1; i <= n && !found; i++) {
    char* name = QlgFileHandler_composePath(data->directory, data->baseName, i, data->extension);
    if (!name) return;
    if (missing(name)) {
      gap = i;
      found = true;
    }
    QlgMem_free(name);
  }
  if (!found) deleteNumbered(data, n);
  for (int32_t i = gap - 1; i >= 1; i--) renameNumbered(data, i, i + 1);
}

/* The copy of a rollover that did not end: settled as the file comment says. */
void settleInterrupted(QlgFileHandlerData* data, const char* copyName, const char* name1) {
  int copy = -1;
  if (!CxStatus_isOk(CxFile_openShared(&copy, copyName, CX_O_RDONLY, 0))) return;
  int begins = activeBeginsWith(data->fd, copy);
  reportFailure(CxFile_close(&copy));
  if (begins < 0) return; /* kept for a later rollover to settle */
  if (begins == 1) {
    reportFailure(CxFile_delete(copyName));
    return;
  }
  shiftBackups(data);
  reportFailure(CxFile_rename(copyName, name1));
}

/* Settles the copy of a rollover that did not end, if there is one. */
void settleLeftover(QlgFileHandlerData* data) {
  data->nextLeftoverCheck = CxSystem_steadyMillis() + kRecheckMs;
  if (data->maxFiles < 2) return;
  char* name0 = QlgFileHandler_composePath(data->directory, data->baseName, 0, data->extension);
  char* name1 = QlgFileHandler_composePath(data->directory, data->baseName, 1, data->extension);
  CxStringBuff copyName = {0, 0, nullptr};
  if (name0 && name1 && CxStringBuff_append(&copyName, name0) &&
      CxStringBuff_append(&copyName, ".rollover"))
    settleInterrupted(data, copyName.data, name1);
  CxStringBuff_free(&copyName);
  QlgMem_free(name0);
  QlgMem_free(name1);
}

}  // namespace

extern "C" {

void QlgMPFileHandler_open(QlgObject* handler) {
  QlgFileHandlerData* data = QlgFileHandler_data(handler);
  if (!data) return;
  QlgFileHandler_settle(data);
  if (!data->path || data->isOpen) return;
  openShared(data);
}

void QlgMPFileHandler_close(QlgObject* handler) {
  QlgFileHandlerData* data = QlgFileHandler_data(handler);
  if (!data) return;
  QlgFileHandler_settle(data);
  if (!data->isOpen) return;
  closeFile(data);
}

void QlgMPFileHandler_copyTruncate(QlgFileHandlerData* data) {
  if (!data || data->fd < 0) return;
  char* name0 = QlgFileHandler_composePath(data->directory, data->baseName, 0, data->extension);
  char* name1 = QlgFileHandler_composePath(data->directory, data->baseName, 1, data->extension);
  CxStringBuff copyName = {0, 0, nullptr};
  bool named = name0 && name1 && CxStringBuff_append(&copyName, name0) &&
               CxStringBuff_append(&copyName, ".rollover");
  bool readFailed = !CxStatus_isOk(CxFile_seek(data->fd, 0, CX_SEEK_SET));
  bool writeFailed = false;
  bool truncate = true;
  bool copied = false;
  if (!readFailed) {
    /* Backup 1 is made first, empty: a backup that cannot be created at
       all still lets the active file be emptied, so that it cannot grow
       forever. */
    int backup = -1;
    CxStatus st = named ? CxFile_openShared(&backup, name1, CX_O_RDWR | CX_O_CREAT,
                                            (int)data->filePermission)
                        : CxStatus_make('p', ENOMEM);
    if (!CxStatus_isOk(st)) {
      /* Printed as well as reported: the error logger may write to this very file. */
      printf("ERR opening %s pre rollover\n", name1 ? name1 : "NULL");
      fflush(stdout);
      reportName(data, kMsgRolloverWrite, name1);
    } else {
      reportFailure(CxFile_close(&backup));
      int copy = -1;
      if (!CxStatus_isOk(CxFile_openShared(&copy, copyName.data, CX_O_WRONLY | CX_O_CREAT | CX_O_TRUNC,
                                          (int)data->filePermission))) {
        writeFailed = true;
      } else {
        copyInto(data->fd, copy, &readFailed, &writeFailed);
        if (!CxStatus_isOk(CxFile_flush(copy))) writeFailed = true;
        if (!CxStatus_isOk(CxFile_close(&copy))) writeFailed = true;
      }
      if (readFailed) reportName(data, kMsgRolloverRead, name0);
      if (writeFailed) reportName(data, kMsgRolloverWrite, name1);
      if (readFailed || writeFailed) {
        /* The active file stays as it is; the next record tries again. */
        reportFailure(CxFile_delete(copyName.data));
        deleteIfEmpty(name1);
        truncate = false;
      } else {
        copied = true;
      }
    }
  } else {
    reportName(data, kMsgRolloverRead, name0);
    truncate = false;
  }
  if (truncate) {
    /* Emptied in place, never replaced: the other processes keep writing
       through their descriptors of this very file. */
    reportFailure(CxFile_truncate(data->fd));
    reportFailure(CxFile_seek(data->fd, 0, CX_SEEK_SET));
    /* Only now is the copy complete and the active file emptied: from
       here on the copy holds the only record of these lines. */
    if (copied) reportFailure(CxFile_rename(copyName.data, name1));
  }
  CxStringBuff_free(&copyName);
  QlgMem_free(name0);
  QlgMem_free(name1);
}

void QlgMPFileHandler_rollover(QlgFileHandlerData* data) {
  if (!data || data->maxFiles < 2) return;
  settleLeftover(data);
  shiftBackups(data);
  QlgMPFileHandler_copyTruncate(data);
}

void QlgMPFileHandler_writeRecord(QlgFileHandlerData* data, const char* bytes, int len) {
  if (!data->isOpen) return;
  CxStatus st = CxMutex_lockTimed(data->lock, CX_MUTEX_WAIT_MS);
  if (!CxStatus_isOk(st)) {
    QlgMisc_reportStatus(st); /* this record is dropped; the handler stays usable */
  } else if (!fileStillThere(data)) {
    /* Removed or renamed, and the path cannot be opened again: this
       record is dropped, the next publish tries again. */
    reportFailure(CxMutex_unlock(data->lock));
  } else {
    /* A writer killed in a rollover is settled after at most a second
       (and by the first record of a process), not only at the next
       rollover, which may be long in coming. */
    int64_t now = CxSystem_steadyMillis();
    if (now >= data->nextLeftoverCheck) settleLeftover(data);
    sizeAndRollover(data, now);
    leaveNote(data, QlgFileHandler_writeAll(data->fd, bytes, len) != 0, len);
    reportFailure(CxMutex_unlock(data->lock));
  }
}

void QlgMPFileHandler_publish(QlgObject* handler, QlgEvent* event) {
  if (!handler || !event || !handler->logging) return;
  QlgFileHandlerData* data = QlgFileHandler_data(handler);
  if (!data) return;
  QlgFileHandler_settle(data);
  if (data->path && !data->isOpen) openShared(data);
  /* Intended: a file that cannot be opened also keeps the event from the
     handler's own listeners. */
  if (!data->isOpen) return;
  CxStringBuff local = {0, 0, nullptr};
  CxStringBuff* line = QlgHandler_acquireBuffer();
  if (!line) line = &local;
  if (QlgHandler_formatInto(handler, event, line)) {
    int len = 0;
    char* bytes = QlgFileHandler_convert(data, line->data, (size_t)line->length, &len);
    if (!QlgFileHandler_deferRecord(data, bytes, len)) QlgMPFileHandler_writeRecord(data, bytes, len);
    if (bytes != line->data) QlgMem_free(bytes);
  }
  if (line == &local)
    CxStringBuff_free(&local);
  else
    QlgHandler_releaseBuffer(line);
  QlgObject_forwardToListeners(handler, event);
}

}  // extern "C"
