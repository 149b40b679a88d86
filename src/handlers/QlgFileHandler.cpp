// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_filehandler: local log files with numbered backups.
 *
 * The file is opened lazily by the open slot, which also runs before every
 * write and owns the two rules that keep the file in shape: a file removed
 * or moved while open is created anew (its head written again), and a
 * file that has reached maxFileSize is closed (tail), rolled over and
 * reopened (head) before the next record goes in.
 *
 * Cost per record.  The removal rule is kept without a path lookup per
 * record: a watch on the file and its directory (CxWatch) tells when
 * something happened to the file or its name, and only then is the path
 * looked up.  On Linux asking the watch is a load from memory while nothing
 * happened (see CxWatch.cpp), so a record normally costs the write alone.
 * Without a watch (no support, a limit reached) the path is looked up on
 * every record, as the rule literally says; with pathCheckInterval the
 * lookup runs at most once per interval instead.  The
 * size for the rollover test is counted from the bytes written and read
 * from the file once a second, which picks up a file that another program
 * emptied in place or appended to.  Reading the file's attributes after
 * every write would make each next write update its inode as well.
 */
#include "handlers/QlgFileHandler.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <new>

#include <ardel/QlgHandler.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>
#include "core/QlgToolkitInt.h"
#include "core/QlgMisc.h"
#include "handlers/QlgHandler.h"
#include "handlers/QlgMultiProcFileHandler.h"
#include "msg/QlgMsgTable.h"
#include "platform/CxFile.h"
#include "platform/CxProcess.h"
#include "platform/CxSystem.h"
#include "util/CxStringBuff.h"
#include "util/CxHot.h"

namespace {

const int32_t kDefaultMaxFileSize = 1048576;
const int32_t kPropertyMaxFileSize = 1024; /* when maxFileSize/maxFileBytes cannot be read */
const int32_t kDefaultMaxFiles = 3;
const uint32_t kDefaultFilePermission = 0744;
const uint32_t kDefaultDirPermission = 0771;
const int32_t kDefaultSemKey = 31821;
const char* const kDefaultFileName = "default.log";

/* Message keys of catalog qlgmsg, set 1. */
enum {
  kMsgEmptyProperty = 4,
  kMsgNoValue = 30,
  kMsgTooLong = 31,
  kMsgBadPath = 32,
  kMsgNoCodeset = 36,
  kMsgBadPermission = 74,
  kMsgBadMaxFiles = 77,
  kMsgBadMaxFileBytes = 78,
  kMsgMaxFileBytesUnused = 79,
};

void reportString(int level, uint32_t key, const char* s) {
  QlgMisc_report(level, key, QlgMsgTable_text(key), QLG_PARM_STRING, s, 0);
}
void reportStrings(int level, uint32_t key, const char* a, const char* b) {
  QlgMisc_report(level, key, QlgMsgTable_text(key), QLG_PARM_STRING, a, QLG_PARM_STRING, b, 0);
}
void reportStringInt(int level, uint32_t key, const char* a, int n) {
  QlgMisc_report(level, key, QlgMsgTable_text(key), QLG_PARM_STRING, a, QLG_PARM_INT, n, 0);
}

void reportFailure(CxStatus status) {
  if (!CxStatus_isOk(status)) QlgMisc_reportStatus(status);
}

/* How often the size is read back from the file, and the path looked up
   while a watch stands in for it. */
const int64_t kRecheckMs = 1000;

/* Group commit state: the records with pending bytes (under the toolkit
   lock) and, per thread, whether a log call may leave its record and
   whether it did. */
QlgFileHandlerData* s_pendingHead = nullptr;
/* Counts the moments at which no record was left pending any more: a
   thread that left its record at count n knows it written once the count
   has moved on, without taking the lock again. */
std::atomic<uint64_t> s_drained{0};
thread_local int t_groupAllowed QLG_TLS_IE;
thread_local bool t_leftRecords QLG_TLS_IE;
thread_local uint64_t t_leftAt QLG_TLS_IE;
/* A batch is written at this size whoever waits. */
const int32_t kGroupBytes = 65536;

void unlinkPending(QlgFileHandlerData* data) {
  if (!data->inPendingList) return;
  for (QlgFileHandlerData** p = &s_pendingHead; *p; p = &(*p)->nextPending) {
    if (*p == data) {
      *p = data->nextPending;
      break;
    }
  }
  data->nextPending = nullptr;
  data->inPendingList = 0;
}

/* Writes the records left in data, in one write, to the file they were
   meant for. */
CX_HOT void writePending(QlgFileHandlerData* data) {
  unlinkPending(data);
  if (data->pending.length == 0) return;
  if (data->fd >= 0) QlgFileHandler_writeAll(data->fd, data->pending.data, data->pending.length);
  CxStringBuff_clear(&data->pending);
  if (data->pending.capacity > 4 * kGroupBytes) CxStringBuff_free(&data->pending);
  if (!s_pendingHead) s_drained.fetch_add(1, std::memory_order_release);
}

/* A failed or short write, as its call left it. */
CxStatus writeWhole(int fd, const char* bytes, int len) {
  int count = -1;
  CxStatus st = CxFile_write(fd, bytes, (size_t)len, &count);
  if (!CxStatus_isOk(st) || count == len) return st;
  /* A short write means the device refused the rest (a full disk or a
     file size limit). */
  return CxStatus_make('p', errno ? errno : ENOSPC);
}

/* ---- Deferred writes (background threads of asynchronous handlers) ---- */

struct DeferredRun {
  QlgFileHandlerData* data; /* null once its handler is gone */
  int fd;
  uint32_t offset;
  uint32_t length;
  bool closeAfter;   /* the file was closed meanwhile: the batch closes fd once written */
  bool multiProcess; /* one record for the shared file, written under its own lock */
};

}  // namespace

struct QlgDeferredBatch {
  CxStringBuff bytes;
  DeferredRun* runs;
  uint32_t count;
  uint32_t capacity;
  int writing;      /* atomic: between end and written */
  int32_t pid;      /* the process that set writing */
  bool failed;
  CxStatus failure; /* first failed write since the last report */
};

namespace {

thread_local QlgDeferredBatch* t_batch QLG_TLS_IE = nullptr;

/* Waiting for writers: for a file's runs (QlgFileHandlerData.deferredWriters)
   or a whole batch.  The mutex orders the waiter's look and the writer's
   notice; a forked child gets fresh ones, since a writer of the parent may
   have held them at the fork.  Counts left by the parent's writers are
   recognised by their process id and ignored. */
std::mutex s_writersMutex;
std::condition_variable s_writersDone;
int32_t s_writersPid = 0; /* under the toolkit lock */

void ownWritersMutex() {
  int32_t pid = CxProcess_getpid();
  if (s_writersPid == pid) return;
  new (&s_writersMutex) std::mutex();
  new (&s_writersDone) std::condition_variable();
  s_writersPid = pid;
}

template <class Done>
void waitWriters(Done done) {
  ownWritersMutex();
  std::unique_lock<std::mutex> l(s_writersMutex);
  s_writersDone.wait(l, done);
}

}  // namespace

/* Under the toolkit lock: returns once no other thread writes to data's file. */
void QlgFileHandler_settle(QlgFileHandlerData* data) {
  if (__atomic_load_n(&data->deferredWriters, __ATOMIC_ACQUIRE) == 0) return;
  if (data->deferredPid != CxProcess_getpid()) {
    data->deferredWriters = 0;
    return;
  }
  waitWriters([data] { return __atomic_load_n(&data->deferredWriters, __ATOMIC_ACQUIRE) == 0; });
}

namespace {

void noteFailure(QlgDeferredBatch* b, CxStatus st) {
  if (CxStatus_isOk(st) || b->failed) return;
  b->failed = true;
  b->failure = st;
}

bool deferRecord(QlgDeferredBatch* b, QlgFileHandlerData* data, const char* bytes, int len,
                 bool multiProcess) {
  uint32_t at = (uint32_t)b->bytes.length;
  if (len <= 0 || (uint64_t)at + (uint64_t)len > UINT32_MAX / 2) return false;
  DeferredRun* last = b->count ? &b->runs[b->count - 1] : nullptr;
  bool extend = !multiProcess && last && last->data == data && last->fd == data->fd &&
                !last->closeAfter && !last->multiProcess && last->offset + last->length == at;
  if (!extend && b->count == b->capacity) {
    uint32_t grown = b->capacity ? b->capacity * 2 : 16;
    void* p = QlgMem_realloc(b->runs, (size_t)grown * sizeof(DeferredRun));
    if (!p) return false;
    b->runs = static_cast<DeferredRun*>(p);
    b->capacity = grown;
  }
  if (!CxStringBuff_appendN(&b->bytes, bytes, len)) return false;
  if (extend) last->length += (uint32_t)len;
  else b->runs[b->count++] = DeferredRun{data, data->fd, at, (uint32_t)len, false, multiProcess};
  return true;
}

/* Bytes this thread set aside for data's open file. */
uint64_t ownDeferred(const QlgFileHandlerData* data) {
  uint64_t n = 0;
  for (uint32_t i = 0; t_batch && i < t_batch->count; i++)
    if (t_batch->runs[i].data == data && t_batch->runs[i].fd == data->fd && !t_batch->runs[i].multiProcess)
      n += t_batch->runs[i].length;
  return n;
}

/* Closing with bytes set aside: the batch closes the descriptor once it
   has written them, so the file's rollover or reopening costs no write
   under the lock.  The name may move on meanwhile; the bytes follow the
   file they were counted for. */
bool handOver(QlgFileHandlerData* data) {
  for (uint32_t i = t_batch ? t_batch->count : 0; i-- > 0;) {
    DeferredRun* r = &t_batch->runs[i];
    if (r->data != data || r->fd != data->fd || r->multiProcess) continue;
    r->closeAfter = true;
    data->fd = -1;
    return true;
  }
  return false;
}

/* Written, or set aside by a background writer; 0 on a failed write. */
int writeOrDefer(QlgFileHandlerData* data, const char* bytes, int len) {
  if (t_batch && data->pending.length == 0 && deferRecord(t_batch, data, bytes, len, false)) return 1;
  return QlgFileHandler_writeAll(data->fd, bytes, len);
}

/* No other thread still writes to the file when it closes. */
void closeFd(QlgFileHandlerData* data) {
  QlgFileHandler_settle(data);
  writePending(data);
  if (data->fd >= 0 && !handOver(data)) reportFailure(CxFile_close(&data->fd));
  data->isOpen = 0;
  if (data->watching) CxWatch_stop(&data->watch);
  data->watching = 0;
}

/* The file's stream of bytes for a formatter text (head, tail or record):
   converted, written whole, freed.  Returns the bytes written, -1 on failure. */
int writeText(QlgFileHandlerData* data, char* text) {
  if (!text) return 0;
  int len = 0;
  char* bytes = QlgFileHandler_convert(data, text, strlen(text), &len);
  int ok = writeOrDefer(data, bytes, len);
  if (bytes != text) QlgMem_free(bytes);
  QlgMem_free(text);
  return ok ? len : -1;
}

/* Opens the path with the handler's mode, reads its size and starts
   watching it.  The one place where the handler opens its file. */
int openActive(QlgFileHandlerData* data) {
  int flags = CX_O_WRONLY | CX_O_CREAT | (data->appending ? CX_O_APPEND : CX_O_TRUNC);
  CxStatus st = CxFile_openShared(&data->fd, data->path, flags, (int)data->filePermission);
  if (!CxStatus_isOk(st)) {
    QlgMisc_reportStatus(st);
    return 0;
  }
  int64_t size = 0;
  st = CxFile_stat(data->fd, &size);
  if (!CxStatus_isOk(st)) {
    QlgMisc_reportStatus(st);
    closeFd(data);
    return 0;
  }
  data->size = (uint64_t)size;
  int64_t now = CxSystem_steadyMillis();
  data->nextSizeCheck = now + kRecheckMs;
  data->nextPathCheck = now + (data->pathCheckInterval > 0 ? data->pathCheckInterval : kRecheckMs);
  if (data->watching) CxWatch_stop(&data->watch);
  data->watching = data->pathCheckInterval == 0 && CxWatch_start(&data->watch, data->path);
  return 1;
}

/* Is the active file still there under its name?  A path the bounded
   record cannot hold as it is asked of the file system by its full name. */
bool stillPresent(const QlgFileHandlerData* data) {
  /* 20: the path names something that is not a directory, i.e. our file. */
  if (data->pathRecord.length > 0) return CxFile_isDirectory(&data->pathRecord) == ENOTDIR;
  CxFileStat st;
  return CxStatus_isOk(CxFile_statPath(&st, data->path));
}

/* Has the active file been removed or moved away?  Every record asks;
   the path is looked up when the watch saw something (or there is no
   watch), once a second besides (a directory further up may have been
   renamed, which the watch does not see), or once per pathCheckInterval. */
bool removedSinceLastLook(QlgFileHandlerData* data, int64_t now) {
  if (data->pathCheckInterval > 0) {
    if (now < data->nextPathCheck) return false;
    data->nextPathCheck = now + data->pathCheckInterval;
    return !stillPresent(data);
  }
  if (data->watching && !CxWatch_changed(&data->watch) && now < data->nextPathCheck) return false;
  data->nextPathCheck = now + kRecheckMs;
  bool present = stillPresent(data);
  /* A watch ended in a child process: this process starts its own. */
  if (present && data->watching && !CxWatch_active(&data->watch))
    data->watching = (unsigned char)CxWatch_start(&data->watch, data->path);
  return !present;
}

/* Closes the file through the class's own close slot, so that each class
   decides whether a tail is written. */
void closeThroughSlot(QlgObject* handler) {
  QlgObjectFn close = handler->cls->slots.handler.close;
  if (close) close(handler);
}

/* A configured name never carries a number of its own: a digit right
   before the last "." (or the end) gets "_" after it.  New string. */
char* guardTrailingDigit(const char* name) {
  size_t len = strlen(name);
  const char* dot = strrchr(name, '.');
  size_t at = dot ? (size_t)(dot - name) : len;
  char* out = static_cast<char*>(QlgMem_alloc(len + 2));
  if (!out) return nullptr;
  memcpy(out, name, at);
  size_t k = at;
  if (at > 0 && name[at - 1] >= '0' && name[at - 1] <= '9') out[k++] = '_';
  memcpy(out + k, name + at, len - at + 1);
  return out;
}

void setFileNameProperty(QlgObject* handler, QlgFileHandlerData* data) {
  char* value = QlgObject_getString(handler, "fileName", nullptr);
  if (!value || !*value) {
    if (data->logInternalErrs)
      reportStrings(QLG_LEVEL_WARN, kMsgEmptyProperty, "fileName", handler->name);
    QlgFileHandler_setFileName(kDefaultFileName, data);
  } else {
    char* guarded = guardTrailingDigit(value);
    if (guarded) QlgFileHandler_setFileName(guarded, data);
    QlgMem_free(guarded);
  }
  QlgMem_free(value);
}

/* filePermission / dirPermission: four octal digits.  An absent property
   changes nothing (the file stays open); returns 0 then. */
int setPermission(QlgObject* handler, QlgFileHandlerData* data, const char* key, uint32_t* field) {
  char* value = QlgObject_getString(handler, key, nullptr);
  if (!value) return 0;
  closeThroughSlot(handler);
  unsigned mode = 0;
  if (sscanf(value, "%4o", &mode) == 1) {
    *field = mode;
  } else if (data->logInternalErrs) {
    reportStrings(QLG_LEVEL_WARN, kMsgBadPermission, value, handler->name);
  }
  QlgMem_free(value);
  return 1;
}

void setEncoding(QlgObject* handler, QlgFileHandlerData* data) {
  QlgCodeset_close(data->converter);
  data->converter = nullptr;
  data->convert = 0;
  char* value = QlgObject_getString(handler, "fileEncoding", nullptr);
  if (value) {
    data->converter = QlgCodeset_open(value);
    if (!data->converter) {
      if (data->logInternalErrs) reportString(QLG_LEVEL_WARN, kMsgNoCodeset, value);
    } else {
      /* Text is UTF-8 already: converting it to UTF-8 would only copy it. */
      data->convert = strcmp(QlgCodeset_name(data->converter), "UTF8") != 0;
    }
  }
  QlgMem_free(value);
}

int32_t intOr(QlgObject* handler, const char* key, int32_t fallback) {
  int found = 0;
  int32_t v = QlgObject_getInt(handler, key, &found);
  return found ? v : fallback;
}

int boolOr(QlgObject* handler, const char* key, int fallback) {
  int found = 0;
  int v = QlgObject_getBool(handler, key, &found);
  return found ? v : fallback;
}

}  // namespace

extern "C" {

QlgFileHandlerData* QlgFileHandler_data(const QlgObject* obj) {
  if (!QlgHandler_isHandler(obj) || obj->cls->createData != QlgFileHandler_create) return nullptr;
  return static_cast<QlgFileHandlerData*>(obj->data);
}

char* QlgFileHandler_composePath(const char* directory, const char* baseName, int32_t number,
                                 const char* extension) {
  if (!baseName) return nullptr;
  char digits[16] = "";
  if (number != 0) snprintf(digits, sizeof digits, "%d", (int)number);
  const char* dir = directory ? directory : "";
  size_t len = strlen(dir) + 1 + strlen(baseName) + strlen(digits) +
               (extension ? 1 + strlen(extension) : 0);
  char* out = static_cast<char*>(QlgMem_alloc(len + 1));
  if (!out) return nullptr;
  snprintf(out, len + 1, "%s/%s%s%s%s", dir, baseName, digits, extension ? "." : "",
           extension ? extension : "");
  return out;
}

void QlgFileHandler_setFileName(const char* name, QlgFileHandlerData* data) {
  if (!data) return;
  QlgMem_free(data->directory);
  QlgMem_free(data->baseName);
  QlgMem_free(data->extension);
  data->directory = data->baseName = data->extension = nullptr;
  data->index = 0;
  bool outOfMemory = false;
  if (!name) {
    if (data->logInternalErrs) reportString(QLG_LEVEL_ERROR, kMsgNoValue, "fileName");
  } else if (strlen(name) > QLG_FILE_NAME_MAX) {
    if (data->logInternalErrs)
      reportStringInt(QLG_LEVEL_ERROR, kMsgTooLong, "fileName", QLG_FILE_NAME_MAX);
  } else {
    /* Paths are used as given here: a leading "/" is an ordinary absolute
       path and "/" stays the separator. */
    char buf[QLG_FILE_NAME_MAX + 1];
    strcpy(buf, name);
    char* dot = strrchr(buf, '.');
    if (dot) {
      data->extension = QlgMem_strdup(dot + 1);
      *dot = '\0';
    }
    size_t len = strlen(buf);
    size_t digitsAt = len;
    while (digitsAt > 0 && buf[digitsAt - 1] >= '0' && buf[digitsAt - 1] <= '9') digitsAt--;
    if (digitsAt < len) {
      int n = 0;
      data->index = sscanf(buf + digitsAt, "%d", &n) == 1 ? n : 0;
      buf[digitsAt] = '\0';
    }
    /* Of the last "\" and the last "/", the one with the longer remainder wins. */
    char* back = strrchr(buf, '\\');
    char* slash = strrchr(buf, '/');
    char* sep = back;
    if (slash && (!sep || slash < sep)) sep = slash;
    char cwd[CX_PATH_MAX];
    if (!sep) {
      data->baseName = QlgMem_strdup(buf);
      reportFailure(CxProcess_getcwd(cwd));
      data->directory = QlgMem_strdup(cwd);
    } else {
      /* The base name keeps its separator, so the composed path shows a
         doubled one (/logs//trace.log): intended. */
      data->baseName = QlgMem_strdup(sep);
      *sep = '\0';
      if (buf[0]) {
        data->directory = QlgMem_strdup(buf);
      } else {
        reportFailure(CxProcess_getcwd(cwd));
        data->directory = QlgMem_strdup(cwd);
      }
    }
    outOfMemory = !data->directory || !data->baseName || (dot && !data->extension);
  }
  QlgMem_free(data->path);
  data->path = QlgFileHandler_composePath(data->directory, data->baseName, data->index,
                                          data->extension);
  if (outOfMemory) {
    /* A path built from a lost part would name the wrong file. */
    QlgMem_free(data->path);
    data->path = nullptr;
  }
  /* The record turns a backslash into "/", which here names another file:
     such a path, like one too long for the record, is looked up by name. */
  if (!data->path || strchr(data->path, '\\') ||
      !CxFilePath_set(&data->pathRecord, data->path)) {
    data->pathRecord.text[0] = '\0';
    data->pathRecord.length = 0;
  }
}

void* QlgFileHandler_create(void) {
  QlgFileHandlerData* data =
      static_cast<QlgFileHandlerData*>(QlgMem_alloc(sizeof(QlgFileHandlerData)));
  if (!data) return nullptr;
  memset(data, 0, sizeof *data);
  data->fd = -1;
  data->maxFileSize = kDefaultMaxFileSize;
  data->maxFiles = kDefaultMaxFiles;
  data->filePermission = kDefaultFilePermission;
  data->dirPermission = kDefaultDirPermission;
  data->appending = 1;
  data->semKey = kDefaultSemKey;
  data->logInternalErrs = 1;
  data->pathRecord.lastSep = -1;
  CxWatch_init(&data->watch);
  QlgFileHandler_setFileName(kDefaultFileName, data);
  if (!data->path) {
    QlgFileHandler_destroy(data);
    return nullptr;
  }
  return data;
}

void QlgFileHandler_destroy(void* raw) {
  QlgFileHandlerData* data = static_cast<QlgFileHandlerData*>(raw);
  if (!data) return;
  closeFd(data);
  for (uint32_t i = 0; t_batch && i < t_batch->count; i++)
    if (t_batch->runs[i].data == data) t_batch->runs[i].data = nullptr;
  CxStringBuff_free(&data->pending);
  QlgMem_free(data->path);
  QlgMem_free(data->directory);
  QlgMem_free(data->baseName);
  QlgMem_free(data->extension);
  QlgCodeset_close(data->converter);
  /* The cross-process lock goes with its handler: a handler recreated on
     every reconfiguration must not collect lock descriptors. */
  if (data->lock) reportFailure(CxMutex_close(&data->lock));
  QlgMem_free(data);
}

void QlgFileHandler_propertyChanged(QlgObject* handler, const char* key) {
  QlgFileHandlerData* data = QlgFileHandler_data(handler);
  if (!data || !key) {
    QlgHandler_propertyChanged(handler, key);
    return;
  }
  QlgFileHandler_settle(data);
  if (strcmp(key, "logInternalErrs") == 0) {
    /* Intended: the flag follows `appending`, not its own value, so a
       configuration that turns appending off also silences these reports. */
    data->logInternalErrs = (unsigned char)boolOr(handler, "appending", 1);
    return;
  }
  if (strcmp(key, "pathCheckInterval") == 0) {
    /* Takes effect at the next record; the file stays open. */
    int32_t v = intOr(handler, key, 0);
    data->pathCheckInterval = v > 0 ? v : 0;
    data->nextPathCheck = 0;
    if (data->pathCheckInterval > 0 && data->watching) {
      CxWatch_stop(&data->watch);
      data->watching = 0;
    } else if (data->pathCheckInterval == 0 && data->isOpen && !data->watching) {
      data->watching = (unsigned char)CxWatch_start(&data->watch, data->path);
    }
    return;
  }
  if (strcmp(key, "filePermission") == 0) {
    setPermission(handler, data, key, &data->filePermission);
    return;
  }
  if (strcmp(key, "dirPermission") == 0) {
    setPermission(handler, data, key, &data->dirPermission);
    return;
  }
  closeThroughSlot(handler);
  if (strcmp(key, "maxFileSize") == 0) {
    data->maxFileSize = intOr(handler, key, kPropertyMaxFileSize);
  } else if (strcmp(key, "maxFileBytes") == 0) {
    int32_t v = intOr(handler, key, kPropertyMaxFileSize);
    if (v < 1) {
      if (data->logInternalErrs)
        reportStringInt(QLG_LEVEL_WARN, kMsgBadMaxFileBytes, handler->name, (int)v);
      v = kPropertyMaxFileSize;
    } else if (data->maxFiles == 1 && data->logInternalErrs) {
      reportString(QLG_LEVEL_WARN, kMsgMaxFileBytesUnused, handler->name);
    }
    data->maxFileSize = v;
  } else if (strcmp(key, "maxFiles") == 0) {
    int32_t v = intOr(handler, key, kDefaultMaxFiles);
    if (v < 1) {
      if (data->logInternalErrs)
        reportStringInt(QLG_LEVEL_WARN, kMsgBadMaxFiles, handler->name, (int)v);
      v = kDefaultMaxFiles;
    }
    data->maxFiles = v;
  } else if (strcmp(key, "fileName") == 0) {
    setFileNameProperty(handler, data);
  } else if (strcmp(key, "appending") == 0) {
    data->appending = (unsigned char)boolOr(handler, key, 1);
  } else if (strcmp(key, "fileEncoding") == 0) {
    setEncoding(handler, data);
  } else if (strcmp(key, "MPFileSemKey") == 0) {
    data->semKey = QlgObject_getInt(handler, key, nullptr);
  } else {
    QlgHandler_propertyChanged(handler, key);
  }
}

void QlgFileHandler_makeDirectory(QlgFileHandlerData* data) {
  if (!data) return;
  CxFilePath dir;
  int rc = data->directory && CxFilePath_set(&dir, data->directory)
               ? CxFile_makeDirs(&dir, (int)data->dirPermission)
               : EINVAL;
  if (rc != 0 && data->logInternalErrs)
    reportStrings(QLG_LEVEL_ERROR, kMsgBadPath, "fileName",
                  data->directory ? data->directory : "NULL");
}

char* QlgFileHandler_convert(QlgFileHandlerData* data, char* text, size_t n, int* len) {
  *len = (int)n;
  if (!data->convert || n > (size_t)(1 << 26)) return text;
  /* Four bytes per input byte covers every multi-byte codeset. */
  int room = (int)n * 4 + 4;
  char* out = static_cast<char*>(QlgMem_alloc((size_t)room + 1));
  if (!out) return text;
  int w = QlgCodeset_fromUtf8(data->converter, text, (int)n, out, room);
  if (w < 0) {
    QlgMem_free(out);
    return text;
  }
  out[w] = '\0';
  *len = w;
  return out;
}

int QlgFileHandler_writeAll(int fd, const char* bytes, int len) {
  CxStatus st = writeWhole(fd, bytes, len);
  if (CxStatus_isOk(st)) return 1;
  QlgMisc_reportStatus(st);
  return 0;
}

QlgDeferredBatch* QlgFileHandler_createBatch(void) {
  void* room = QlgMem_alloc(sizeof(QlgDeferredBatch));
  return room ? new (room) QlgDeferredBatch() : nullptr;
}

void QlgFileHandler_destroyBatch(QlgDeferredBatch* b) {
  if (!b) return;
  CxStringBuff_free(&b->bytes);
  QlgMem_free(b->runs);
  QlgMem_free(b);
}

void QlgFileHandler_beginDeferred(QlgDeferredBatch* b) { t_batch = b; }

uint32_t QlgFileHandler_deferredBytes(void) { return t_batch ? (uint32_t)t_batch->bytes.length : 0; }

void QlgFileHandler_endDeferred(void) {
  QlgDeferredBatch* b = t_batch;
  t_batch = nullptr;
  if (!b || b->count == 0) return;
  ownWritersMutex();
  int32_t pid = s_writersPid;
  for (uint32_t i = 0; i < b->count; i++) {
    QlgFileHandlerData* data = b->runs[i].data;
    if (!data) continue;
    if (data->deferredPid != pid) {
      data->deferredPid = pid;
      __atomic_store_n(&data->deferredWriters, 0, __ATOMIC_RELAXED);
    }
    __atomic_add_fetch(&data->deferredWriters, 1, __ATOMIC_RELAXED);
  }
  b->pid = pid;
  __atomic_store_n(&b->writing, 1, __ATOMIC_RELEASE);
}

int QlgFileHandler_deferRecord(QlgFileHandlerData* data, const char* bytes, int len) {
  return t_batch && deferRecord(t_batch, data, bytes, len, true);
}

void QlgFileHandler_writeDeferred(QlgDeferredBatch* b) {
  if (!b || !__atomic_load_n(&b->writing, __ATOMIC_ACQUIRE)) return;
  QlgMisc_keepReports(1);
  for (uint32_t i = 0; i < b->count; i++) {
    DeferredRun& r = b->runs[i];
    if (r.multiProcess) {
      if (r.data) QlgMPFileHandler_writeRecord(r.data, b->bytes.data + r.offset, (int)r.length);
    } else if (r.length) {
      noteFailure(b, writeWhole(r.fd, b->bytes.data + r.offset, (int)r.length));
    }
    if (r.closeAfter) noteFailure(b, CxFile_close(&r.fd));
    /* Once its count drops, a closing thread may free the handler. */
    if (r.data) {
      std::lock_guard<std::mutex> l(s_writersMutex);
      __atomic_sub_fetch(&r.data->deferredWriters, 1, __ATOMIC_RELEASE);
    }
  }
  QlgMisc_keepReports(0);
  b->count = 0;
  CxStringBuff_clear(&b->bytes);
  if (b->bytes.capacity > 4 * kGroupBytes) CxStringBuff_free(&b->bytes);
  {
    std::lock_guard<std::mutex> l(s_writersMutex);
    __atomic_store_n(&b->writing, 0, __ATOMIC_RELEASE);
  }
  s_writersDone.notify_all();
}

int QlgFileHandler_deferredFailed(const QlgDeferredBatch* b) {
  return (b && b->failed) || QlgMisc_haveKept();
}

void QlgFileHandler_reportDeferred(QlgDeferredBatch* b) {
  QlgMisc_sendKept();
  if (!b || !b->failed) return;
  b->failed = false;
  QlgMisc_reportStatus(b->failure);
}

void QlgFileHandler_settleBatch(QlgDeferredBatch* b) {
  if (!b || !__atomic_load_n(&b->writing, __ATOMIC_ACQUIRE)) return;
  if (b->pid != CxProcess_getpid()) { /* a forked child: the parent writes it */
    b->writing = 0;
    b->count = 0;
    CxStringBuff_clear(&b->bytes);
    return;
  }
  waitWriters([b] { return __atomic_load_n(&b->writing, __ATOMIC_ACQUIRE) == 0; });
}

void QlgFileHandler_rollover(QlgFileHandlerData* data) {
  if (!data || data->maxFiles < 2) return;
  int32_t n = data->maxFiles - 1;
  char* oldest = QlgFileHandler_composePath(data->directory, data->baseName, n, data->extension);
  if (oldest) {
    CxStatus st = CxFile_delete(oldest);
    if (!CxStatus_isOk(st) && st.code != ENOENT) QlgMisc_reportStatus(st);
    QlgMem_free(oldest);
  }
  for (int32_t i = n - 1; i >= 0; i--) {
    char* from = QlgFileHandler_composePath(data->directory, data->baseName, i, data->extension);
    char* to = QlgFileHandler_composePath(data->directory, data->baseName, i + 1, data->extension);
    if (from && to) {
      CxStatus st = CxFile_rename(from, to);
      if (!CxStatus_isOk(st) && st.code != ENOENT) QlgMisc_reportStatus(st);
    }
    QlgMem_free(from);
    QlgMem_free(to);
  }
}

CX_HOT void QlgFileHandler_open(QlgObject* handler) {
  QlgFileHandlerData* data = QlgFileHandler_data(handler);
  if (!data || !data->path) return;
  if (data->isOpen) {
    int64_t now = CxSystem_steadyMillis();
    int64_t size = 0;
    CxStatus st = CxStatus_ok();
    if (now >= data->nextSizeCheck) QlgFileHandler_settle(data); /* the size read counts what others set aside */
    if (removedSinceLastLook(data, now)) {
      /* Removed or moved away: start a new file, head included. */
      closeFd(data);
    } else if (now >= data->nextSizeCheck &&
               !CxStatus_isOk(st = CxFile_stat(data->fd, &size))) {
      QlgMisc_reportStatus(st);
      closeFd(data);
    } else {
      /* Counted between reads; read again each second because another
         program may have emptied the file in place (copy-and-truncate
         rotation) or appended to it. */
      if (now >= data->nextSizeCheck) {
        data->size = (uint64_t)size + ownDeferred(data);
        data->nextSizeCheck = now + kRecheckMs;
      }
      if (!QlgFileHandler_rolloverDue(data)) return;
      QlgFileHandler_close(handler);
      QlgFileHandler_rollover(data);
      data->size = 0;
    }
  }
  if (data->fd >= 0) closeFd(data);
  QlgFileHandler_makeDirectory(data);
  if (!openActive(data)) return;
  if (QlgFileHandler_rolloverDue(data)) {
    data->isOpen = 1;
    QlgFileHandler_close(handler);
    QlgFileHandler_rollover(data);
    if (!openActive(data)) return;
  }
  int written = writeText(data, QlgHandler_getHead(handler));
  if (written < 0) {
    closeFd(data);
    return;
  }
  data->size += (uint64_t)written;
  data->isOpen = 1;
}

void QlgFileHandler_close(QlgObject* handler) {
  QlgFileHandlerData* data = QlgFileHandler_data(handler);
  if (!data) return;
  writePending(data); /* records before the tail */
  if (!data->isOpen) return;
  int written = writeText(data, QlgHandler_getTail(handler));
  if (written > 0) data->size += (uint64_t)written;
  closeFd(data);
}

CX_HOT void QlgFileHandler_allowGroupCommit(int allow) { t_groupAllowed += allow ? 1 : -1; }

CX_HOT int QlgFileHandler_leftRecords(void) {
  if (!t_leftRecords) return 0;
  if (s_drained.load(std::memory_order_acquire) != t_leftAt) {
    t_leftRecords = false; /* written by a later holder */
    return 0;
  }
  return 1;
}

void QlgFileHandler_writeLeftRecords(void) {
  t_leftRecords = false;
  while (s_pendingHead) writePending(s_pendingHead);
}

CX_HOT void QlgFileHandler_publish(QlgObject* handler, QlgEvent* event) {
  if (!handler || !event || !handler->logging) return;
  QlgFileHandlerData* data = QlgFileHandler_data(handler);
  if (!data) return;
  QlgFileHandler_open(handler);
  /* The record is formatted into a buffer the thread keeps, so a record
     costs no allocation. */
  CxStringBuff local = {0, 0, nullptr};
  CxStringBuff* line = QlgHandler_acquireBuffer();
  if (!line) line = &local;
  if (QlgHandler_formatInto(handler, event, line) && data->isOpen) {
    int len = 0;
    char* bytes = QlgFileHandler_convert(data, line->data, (size_t)line->length, &len);
    bool leave = t_groupAllowed > 0 && QlgToolkit_contended() &&
                 data->pending.length + len < kGroupBytes;
    if (leave && CxStringBuff_appendN(&data->pending, bytes, len)) {
      /* Others wait for the lock: the next holder writes this record with
         its own, and this thread makes sure of it before its call returns. */
      data->size += (uint64_t)len;
      if (!data->inPendingList) {
        data->nextPending = s_pendingHead;
        s_pendingHead = data;
        data->inPendingList = 1;
      }
      if (!t_leftRecords) t_leftAt = s_drained.load(std::memory_order_relaxed);
      t_leftRecords = true;
    } else if (t_batch && data->pending.length == 0 && deferRecord(t_batch, data, bytes, len, false)) {
      /* Counted now: the size test of the next record must see it. */
      data->size += (uint64_t)len;
    } else if (data->pending.length > 0 && CxStringBuff_appendN(&data->pending, bytes, len)) {
      data->size += (uint64_t)len;
      writePending(data);
    } else {
      writePending(data);
      if (QlgFileHandler_writeAll(data->fd, bytes, len) && len > 0) data->size += (uint64_t)len;
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
