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
 * Per record, under the lock: the size read as the end offset (the other
 * processes make any tracked figure stale; asking for the file's
 * attributes instead would make every next write update its inode too)
 * and one write; the lock itself is taken and released around them.  The
 * record is formatted into the thread's buffer, so it costs no allocation.
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
  QlgFileHandler_makeDirectory(data);
  CxStatus st = CxFile_openMode(&data->fd, data->path, CX_O_RDWR | CX_O_APPEND | CX_O_CREAT,
                                (int)data->filePermission);
  if (!CxStatus_isOk(st)) {
    QlgMisc_reportStatus(st);
    return;
  }
  data->isOpen = 1;
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

}  // namespace

extern "C" {

void QlgMPFileHandler_open(QlgObject* handler) {
  QlgFileHandlerData* data = QlgFileHandler_data(handler);
  if (!data || !data->path || data->isOpen) return;
  openShared(data);
}

void QlgMPFileHandler_close(QlgObject* handler) {
  QlgFileHandlerData* data = QlgFileHandler_data(handler);
  if (!data || !data->isOpen) return;
  reportFailure(CxFile_close(&data->fd));
  data->isOpen = 0;
}

void QlgMPFileHandler_copyTruncate(QlgFileHandlerData* data) {
  if (!data || data->fd < 0) return;
  char* name0 = QlgFileHandler_composePath(data->directory, data->baseName, 0, data->extension);
  char* name1 = QlgFileHandler_composePath(data->directory, data->baseName, 1, data->extension);
  bool readFailed = !CxStatus_isOk(CxFile_seek(data->fd, 0, CX_SEEK_SET));
  bool writeFailed = false;
  bool backupMissing = false;
  if (!readFailed) {
    int backup = -1;
    CxStatus st = name1 ? CxFile_openMode(&backup, name1, CX_O_RDWR | CX_O_CREAT,
                                          (int)data->filePermission)
                        : CxStatus_make('p', ENOMEM);
    if (!CxStatus_isOk(st)) {
      /* Printed as well as reported: the error logger may write to this very file. */
      printf("ERR opening %s pre rollover\n", name1 ? name1 : "NULL");
      fflush(stdout);
      reportName(data, kMsgRolloverWrite, name1);
      backupMissing = true;
    } else {
      copyInto(data->fd, backup, &readFailed, &writeFailed);
      if (!CxStatus_isOk(CxFile_flush(backup))) writeFailed = true;
      if (!CxStatus_isOk(CxFile_close(&backup))) writeFailed = true;
    }
  }
  if (!backupMissing) {
    if (readFailed) reportName(data, kMsgRolloverRead, name0);
    if (writeFailed) reportName(data, kMsgRolloverWrite, name1);
  }
  /* Emptied in place, never replaced: the other processes keep writing
     through their descriptors of this very file.  Also when the copy
     failed: a file that can no longer roll over must not grow forever. */
  reportFailure(CxFile_truncate(data->fd));
  reportFailure(CxFile_seek(data->fd, 0, CX_SEEK_SET));
  QlgMem_free(name0);
  QlgMem_free(name1);
}

void QlgMPFileHandler_rollover(QlgFileHandlerData* data) {
  if (!data || data->maxFiles < 2) return;
  deleteNumbered(data, data->maxFiles - 1);
  for (int32_t i = data->maxFiles - 2; i >= 1; i--) renameNumbered(data, i, i + 1);
  QlgMPFileHandler_copyTruncate(data);
}

void QlgMPFileHandler_publish(QlgObject* handler, QlgEvent* event) {
  if (!handler || !event || !handler->logging) return;
  QlgFileHandlerData* data = QlgFileHandler_data(handler);
  if (!data) return;
  if (data->path && !data->isOpen) openShared(data);
  /* Intended: a file that cannot be opened also keeps the event from the
     handler's own listeners. */
  if (!data->isOpen) return;
  CxStringBuff local = {0, 0, nullptr};
  CxStringBuff* line = QlgHandler_acquireBuffer();
  if (!line) line = &local;
  if (QlgHandler_formatInto(handler, event, line)) {
    int len = 0;
    char* bytes = QlgFileHandler_convert(data, line->data, &len);
    CxStatus st = CxMutex_lockTimed(data->lock, CX_MUTEX_WAIT_MS);
    if (!CxStatus_isOk(st)) {
      QlgMisc_reportStatus(st); /* this record is dropped; the handler stays usable */
    } else {
      int64_t size = 0;
      st = CxFile_endOffset(data->fd, &size);
      if (CxStatus_isOk(st))
        data->size = (uint64_t)size;
      else
        QlgMisc_reportStatus(st);
      if (data->maxFiles >= 2 && data->size >= (uint64_t)(int64_t)data->maxFileSize)
        QlgMPFileHandler_rollover(data);
      QlgFileHandler_writeAll(data->fd, bytes, len);
      reportFailure(CxMutex_unlock(data->lock));
    }
    if (bytes != line->data) QlgMem_free(bytes);
  }
  if (line == &local)
    CxStringBuff_free(&local);
  else
    QlgHandler_releaseBuffer(line);
  QlgObject_forwardToListeners(handler, event);
}

}  // extern "C"
