// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_filehandler: writes formatted events to a local log file and keeps a
 * fixed number of numbered backups by size-based rollover.  The active
 * file is <directory>/<baseName>.<extension>; backup k is
 * <directory>/<baseName>k.<extension>.  Before every write the handler makes
 * sure its file is open, recreates it when it has been removed, and rolls
 * over once the file has reached maxFileSize, so a file exceeds the limit
 * by at most one record.
 *
 * The instance record, the create, destroy and propertyChanged slots and
 * the small file helpers below are shared with qlg_multiproc_filehandler,
 * which replaces only publish, open and close.
 */
#ifndef ARDEL_QLGFILEHANDLER_H
#define ARDEL_QLGFILEHANDLER_H

#include <stdint.h>
#include <ardel/export.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>
#include "nls/QlgCodeset.h"
#include "platform/CxFile.h"
#include "platform/CxFilePath.h"
#include "platform/CxMutex.h"
#include "platform/CxWatch.h"
#include "util/CxStringBuff.h"

ARDEL_BEGIN_C

/* Longest accepted fileName value, in characters. */
#define QLG_FILE_NAME_MAX 260

typedef struct QlgFileHandlerData {
  int fd;                     /* the active log file, -1 when closed */
  unsigned char isOpen;       /* 1 once open, head written (single-process) */
  uint64_t size;              /* bytes in the active file, tracked across writes */
  int32_t maxFileSize;        /* rollover threshold in bytes */
  int32_t maxFiles;           /* active file plus maxFiles - 1 backups */
  char* path;                 /* full name of the active file, null when unusable */
  char* directory;
  char* baseName;             /* keeps its leading separator when the name had one */
  char* extension;            /* null when the name had no "." */
  int32_t index;              /* number that ended the configured base name */
  QlgCodeset* converter;      /* from fileEncoding; null writes UTF-8 */
  unsigned char convert;      /* 1 when converter is not the identity (UTF-8) */
  uint32_t filePermission;    /* mode of a newly created log file */
  uint32_t dirPermission;     /* mode of newly created directories */
  unsigned char appending;    /* append to, or truncate, an existing file on open */
  int32_t semKey;             /* MPFileSemKey: key of the cross-process lock */
  CxMutex* lock;              /* cross-process lock (multi-process handler only) */
  unsigned char lockCreated;
  unsigned char logInternalErrs;
  CxFilePath pathRecord;      /* path as a record, kept for the existence test */
  int32_t pathCheckInterval;  /* pathCheckInterval: ms between removal checks; 0 every record */
  int64_t nextPathCheck;      /* steady ms at which the path is next looked up */
  int64_t nextSizeCheck;      /* steady ms at which the size is next read from the file */
  CxWatch watch;              /* removal notices (every-record mode) */
  unsigned char watching;     /* 1 while the watch stands in for the lookup */
  CxStringBuff pending;       /* records left by lock holders for the next one to write */
  struct QlgFileHandlerData* nextPending; /* list of records with pending bytes */
  unsigned char inPendingList;
  int64_t nextLeftoverCheck;  /* steady ms of the next look for an unsettled rollover (multi-process) */
  CxFileId openId;            /* the open file's identity (multi-process) */
  unsigned char haveOpenId;
  int deferredWriters;        /* atomic: runs of batches being written to this file */
  int32_t deferredPid;        /* the process those batches belong to */
} QlgFileHandlerData;

/* createData slot: a record with the defaults, its path composed from
   "default.log" in the current directory; null when memory runs out. */
void* QlgFileHandler_create(void);
/* destroyData slot: closes a file left open (no tail: the handler is
   gone) and the cross-process lock, frees the strings and the converter. */
void QlgFileHandler_destroy(void* data);
/* propertyChanged slot of both file handler classes. */
void QlgFileHandler_propertyChanged(QlgObject* handler, const char* key);
/* Handler slots of qlg_filehandler. */
void QlgFileHandler_publish(QlgObject* handler, QlgEvent* event);
void QlgFileHandler_open(QlgObject* handler);
void QlgFileHandler_close(QlgObject* handler);

/* Splits name into directory, base name, trailing number and extension and
   composes the active path from them; a rejected name leaves path null. */
void QlgFileHandler_setFileName(const char* name, QlgFileHandlerData* data);
/* directory "/" baseName [number unless 0] ["." extension]; null when
   baseName is null or memory runs out.  New string. */
char* QlgFileHandler_composePath(const char* directory, const char* baseName, int32_t number,
                                 const char* extension);
/* Renames backups up by one (dropping the oldest) and the active file to
   backup 1.  Run with the file closed. */
void QlgFileHandler_rollover(QlgFileHandlerData* data);

/* A rollover is due when backups are kept and the size reached the limit. */
static inline int QlgFileHandler_rolloverDue(const QlgFileHandlerData* data) {
  return data->maxFiles >= 2 && data->size >= (uint64_t)(int64_t)data->maxFileSize;
}

/* Group commit.  Under the toolkit lock, a log call whose record finds other
   threads waiting for the lock leaves the write to the next holder; each
   call then writes, before it returns, whatever is still left (its own
   record included).  Records are written in the order in which their
   threads held the lock, each whole, several with one write. */

/* Set around a log call's delivery: only there may a record wait for the
   next holder, since only there is it written before the call returns. */
void QlgFileHandler_allowGroupCommit(int allow);
/* 1 when this thread left records to the next holder since the last call
   of QlgFileHandler_writeLeftRecords. */
int QlgFileHandler_leftRecords(void);
/* Writes every record still waiting, of every file handler; under the
   toolkit lock. */
void QlgFileHandler_writeLeftRecords(void);

/* Deferred writes, for the background thread of an asynchronous handler.
   Between begin and end (under the toolkit lock) the records this thread
   hands to file handlers are formatted, counted against the size limit and
   set aside in the batch, heads and tails too; a file closed meanwhile
   (rollover, removal) is closed by the batch after its bytes.  end marks
   the batch as being written, and write, called once the lock is let go,
   writes it, so that no caller waits for the lock while this thread waits
   on the disk.  A file that another thread closes waits for the bytes set
   aside for it.  A multi-process handler's records are set aside whole and
   written one by one under its cross-process lock.  Write failures and
   whatever the writing reports are sent by reportDeferred, under the
   lock. */
typedef struct QlgDeferredBatch QlgDeferredBatch;
QlgDeferredBatch* QlgFileHandler_createBatch(void);
void QlgFileHandler_destroyBatch(QlgDeferredBatch* batch);
void QlgFileHandler_beginDeferred(QlgDeferredBatch* batch);
uint32_t QlgFileHandler_deferredBytes(void);
void QlgFileHandler_endDeferred(void);
void QlgFileHandler_writeDeferred(QlgDeferredBatch* batch);
int QlgFileHandler_deferredFailed(const QlgDeferredBatch* batch);
void QlgFileHandler_reportDeferred(QlgDeferredBatch* batch);
/* Under the toolkit lock: returns once the batch is written (records
   delivered afterwards by another thread follow it). */
void QlgFileHandler_settleBatch(QlgDeferredBatch* batch);
/* Under the toolkit lock, before anything touches data: returns once no
   background writer works on it. */
void QlgFileHandler_settle(QlgFileHandlerData* data);
/* For the multi-process handler on a background writer: sets the record
   aside (1) for QlgMPFileHandler_writeRecord once the lock is let go. */
int QlgFileHandler_deferRecord(QlgFileHandlerData* data, const char* bytes, int len);

/* Helpers shared with the multi-process handler. */

/* The handler's record when obj is a handler whose class uses the file
   handler's create slot; null otherwise. */
QlgFileHandlerData* QlgFileHandler_data(const QlgObject* obj);
/* Creates the directory chain; QLGFH0032E when that fails (when enabled). */
void QlgFileHandler_makeDirectory(QlgFileHandlerData* data);
/* text (n bytes) in the file's codeset.  Returns text itself when no conversion is
   needed (or possible), else a new string; *len receives its byte count. */
char* QlgFileHandler_convert(QlgFileHandlerData* data, char* text, size_t n, int* len);
/* Writes len bytes; reports and returns 0 on a failed or short write. */
int QlgFileHandler_writeAll(int fd, const char* bytes, int len);

ARDEL_END_C

#endif
