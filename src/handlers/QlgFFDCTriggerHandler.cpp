// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_ffdc_trigger_handler: trigger test, dated directories and the disk
 * quota of the FFDC tree.
 *
 * The tree is only ever walked through lstat: regular files are counted
 * and, under QUOTA_AUTODELETE, deleted; real directories are entered (to a
 * bounded depth); symbolic links and anything else are left alone, so a
 * link planted in the tree can neither inflate the count nor point a
 * deletion outside it.
 */
#include "handlers/QlgFFDCTriggerHandler.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <ardel/QlgMem.h>
#include <ardel/QlgParm.h>
#include <ardel/QlgToolkit.h>
#include "handlers/QlgFileCopyHandler.h"
#include "handlers/QlgHandler.h"
#include "msg/QlgMsgTable.h"
#include "platform/CxDirectory.h"
#include "platform/CxFile.h"
#include "platform/CxFilePath.h"

namespace {

const char kIgnore[] = "QUOTA_IGNORE";
const char kAutoDelete[] = "QUOTA_AUTODELETE";
const char kSuspend[] = "QUOTA_SUSPEND";

/* Deeper trees are not walked: the handler itself makes two levels. */
const int kMaxDepth = 32;

/* One regular file of the tree, as the auto-delete policy sorts them. */
struct FileEntry {
  int64_t size;
  int64_t mtime;
  char path[CX_PATH_MAX];
};

struct FileList {
  FileEntry* items = nullptr;
  size_t count = 0;
  size_t room = 0;
  bool outOfMemory = false;
};

void reportString(int level, uint32_t key, const char* s) {
  QlgMisc_report(level, key, QlgMsgTable_text(key), QLG_PARM_STRING, s ? s : "", 0);
}

/* Calls visit(path, stat) for every regular file below dir. */
template <class Visit>
void walkTree(const char* dir, int depth, Visit& visit) {
  CxDirectory d;
  if (!CxStatus_isOk(CxDirectory_open(&d, dir))) return;
  char name[CX_PATH_MAX];
  size_t dirLen = strlen(dir);
  const char* sep = (dirLen > 0 && dir[dirLen - 1] == '/') ? "" : "/";
  while (CxStatus_isOk(CxDirectory_next(&d, name, sizeof name)) && name[0]) {
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
    char path[CX_PATH_MAX];
    int n = snprintf(path, sizeof path, "%s%s%s", dir, sep, name);
    if (n < 0 || (size_t)n >= sizeof path) continue;
    CxFileStat st;
    int kind = 0;
    if (!CxStatus_isOk(CxFile_lstatPath(&st, path, &kind))) continue;
    if (kind == CX_KIND_FILE) {
      visit(path, st);
    } else if (kind == CX_KIND_DIRECTORY && depth < kMaxDepth) {
      walkTree(path, depth + 1, visit);
    }
  }
  CxDirectory_close(&d);
}

int64_t usedBytes(const char* baseDir) {
  int64_t used = 0;
  auto add = [&used](const char*, const CxFileStat& st) { used += st.size; };
  walkTree(baseDir, 0, add);
  return used;
}

void collectFiles(const char* baseDir, FileList* list) {
  auto add = [list](const char* path, const CxFileStat& st) {
    if (list->outOfMemory) return;
    if (list->count == list->room) {
      size_t room = list->room ? list->room * 2 : 16;
      void* grown = QlgMem_realloc(list->items, room * sizeof(FileEntry));
      if (!grown) {
        list->outOfMemory = true;
        return;
      }
      list->items = static_cast<FileEntry*>(grown);
      list->room = room;
    }
    FileEntry& e = list->items[list->count++];
    e.size = st.size;
    e.mtime = st.mtime;
    snprintf(e.path, sizeof e.path, "%s", path);
  };
  walkTree(baseDir, 0, add);
}

/* Most recently modified first.  The messages speak of deleting the oldest
   files, but the newest go first: intended, and kept. */
int newestFirst(const void* a, const void* b) {
  int64_t ta = static_cast<const FileEntry*>(a)->mtime;
  int64_t tb = static_cast<const FileEntry*>(b)->mtime;
  if (ta > tb) return -1;
  return ta == tb ? 0 : 1;
}

/* maxDiskSpace as two of the messages print it, times 1024; saturated
   rather than overflowed for absurd quotas. */
long timesKilo(int64_t v) {
  int64_t r = 0;
  return __builtin_mul_overflow(v, (int64_t)1024, &r) ? (long)INT64_MAX : (long)r;
}

void replaceString(char** field, char* value) {
  QlgMem_free(*field);
  *field = value;
}

bool fractionOf(QlgObject* handler, const char* key, double* out) {
  int found = 0;
  double v = QlgObject_getDouble(handler, key, &found);
  if (!found || !(v > 0.0 && v < 1.0)) return false;
  *out = v;
  return true;
}

bool positiveInt64(QlgObject* handler, const char* key, int64_t* out) {
  int found = 0;
  int64_t v = QlgObject_getInt64(handler, key, &found);
  if (!found || v < 1) return false;
  *out = v;
  return true;
}

void setBaseDir(QlgObject* handler, QlgFFDCTriggerData* d) {
  char* value = QlgObject_getString(handler, "baseDir", nullptr);
  CxFilePath p;
  replaceString(&d->baseDir, value && CxFilePath_set(&p, value) ? QlgMem_strdup(p.text) : nullptr);
  QlgMem_free(value);
}

void setQuotaPolicy(QlgObject* handler, QlgFFDCTriggerData* d) {
  char* value = QlgObject_getString(handler, "quotaPolicy", nullptr);
  if (value && (strcmp(value, kIgnore) == 0 || strcmp(value, kAutoDelete) == 0 ||
                strcmp(value, kSuspend) == 0)) {
    replaceString(&d->quotaPolicy, value);
  } else {
    QlgMem_free(value);
  }
}

/* An "ffdcDir" already in the event is shared only when it lies inside this
   handler's tree: the property could come from anybody who logs, and must
   never steer a capture elsewhere. */
bool insideTree(const char* baseDir, const char* dir) {
  size_t n = strlen(baseDir);
  if (strncmp(dir, baseDir, n) != 0) return false;
  if (n > 0 && baseDir[n - 1] != '/' && dir[n] != '/') return false;
  if (strstr(dir + n, "..")) return false;
  char real[CX_PATH_MAX];
  size_t len = strlen(dir);
  if (len >= sizeof real) return false;
  memcpy(real, dir, len + 1);
  while (len > 1 && real[len - 1] == '/') real[--len] = '\0';
  CxFileStat st;
  int kind = 0;
  return CxStatus_isOk(CxFile_lstatPath(&st, real, &kind)) && kind == CX_KIND_DIRECTORY;
}

/* Auto-delete: removes files, newest first, until the tree is below the
   first warning limit; true when that was reached with every deletion
   succeeding. */
bool deleteExcess(QlgObject* handler, QlgFFDCTriggerData* d, int64_t used) {
  int64_t excess = used - (int64_t)((double)d->maxDiskSpace * d->firstWarning);
  if (excess < 1) return true;
  if (d->warnOnDiskSpace)
    QlgMisc_report(5000, 155, QlgMsgTable_text(155), QLG_PARM_STRING, d->baseDir, QLG_PARM_DOUBLE,
                   d->firstWarning * 100.0, QLG_PARM_LONG, (long)d->maxDiskSpace, QLG_PARM_LONG,
                   (long)excess, QLG_PARM_STRING, handler->name, 0);
  FileList list;
  collectFiles(d->baseDir, &list);
  bool allDeleted = !list.outOfMemory;
  if (list.count > 1) qsort(list.items, list.count, sizeof(FileEntry), newestFirst);
  for (size_t i = 0; i < list.count && excess >= 1; ++i) {
    if (CxStatus_isOk(CxFile_delete(list.items[i].path))) {
      excess -= list.items[i].size;
    } else {
      allDeleted = false;
    }
  }
  QlgMem_free(list.items);
  if (allDeleted && excess < 1) return true;
  if (d->warnOnDiskSpace)
    QlgMisc_report(5000, 154, QlgMsgTable_text(154), QLG_PARM_STRING, d->baseDir, QLG_PARM_DOUBLE,
                   d->firstWarning * 100.0, QLG_PARM_LONG, timesKilo(d->maxDiskSpace),
                   QLG_PARM_STRING, handler->name, 0);
  return false;
}

}  // namespace

extern "C" {

void* QlgFFDCTrigger_create(void) {
  QlgFFDCTriggerData* d = static_cast<QlgFFDCTriggerData*>(QlgMem_alloc(sizeof *d));
  if (!d) return nullptr;
  memset(d, 0, sizeof *d);
  d->maxDiskSpace = 10485760;
  d->quotaPolicy = QlgMem_strdup(kAutoDelete);
  d->firstWarning = 0.75;
  d->secondWarning = 0.9;
  if (!d->quotaPolicy) {
    QlgMem_free(d);
    return nullptr;
  }
  return d;
}

void QlgFFDCTrigger_destroy(void* data) {
  QlgFFDCTriggerData* d = static_cast<QlgFFDCTriggerData*>(data);
  if (!d) return;
  QlgMem_free(d->baseDir);
  QlgObject_release(d->triggerFilter);
  QlgMem_free(d->triggerFilterName);
  QlgMem_free(d->quotaPolicy);
  QlgMem_free(d);
}

QlgFFDCTriggerData* QlgFFDCTrigger_data(const QlgObject* obj) {
  if (!QlgHandler_isHandler(obj)) return nullptr;
  QlgCreateDataFn create = obj->cls->createData;
  if (create != QlgFFDCTrigger_create && create != QlgFileCopy_create) return nullptr;
  return static_cast<QlgFFDCTriggerData*>(obj->data);
}

void QlgFFDCTrigger_propertyChanged(QlgObject* handler, const char* key) {
  QlgFFDCTriggerData* d = QlgFFDCTrigger_data(handler);
  if (!d || !key) {
    QlgHandler_propertyChanged(handler, key);
    return;
  }
  if (strcmp(key, "baseDir") == 0) {
    setBaseDir(handler, d);
  } else if (strcmp(key, "maxDiskSpace") == 0) {
    positiveInt64(handler, key, &d->maxDiskSpace);
  } else if (strcmp(key, "triggerFilter") == 0) {
    char* value = QlgObject_getString(handler, key, nullptr);
    if (value) replaceString(&d->triggerFilterName, value);
  } else if (strcmp(key, "triggerRepeatTime") == 0) {
    positiveInt64(handler, key, &d->triggerRepeatTime);
  } else if (strcmp(key, "quotaPolicy") == 0) {
    setQuotaPolicy(handler, d);
  } else if (strcmp(key, "firstWarning") == 0) {
    fractionOf(handler, key, &d->firstWarning);
  } else if (strcmp(key, "secondWarning") == 0) {
    fractionOf(handler, key, &d->secondWarning);
  } else if (strcmp(key, "warnOnDiskSpace") == 0) {
    int found = 0;
    int v = QlgObject_getBool(handler, key, &found);
    if (found) d->warnOnDiskSpace = (unsigned char)v;
  } else {
    QlgHandler_propertyChanged(handler, key);
  }
}

void QlgFFDCTrigger_start(QlgObject* handler) {
  QlgFFDCTriggerData* d = QlgFFDCTrigger_data(handler);
  if (!d || d->started) return;
  if (!d->triggerFilter) {
    if (!d->triggerFilterName) {
      reportString(6000, 151, handler->name);
    } else {
      d->triggerFilter = QlgObject_findOrCreate(d->triggerFilterName, nullptr);
    }
  }
  if (!d->baseDir) {
    reportString(6000, 152, handler->name);
  } else {
    CxFilePath p;
    if (CxFilePath_set(&p, d->baseDir) && CxFile_makeDirs(&p, 0700) != 0)
      QlgMisc_report(6000, 153, QlgMsgTable_text(153), QLG_PARM_STRING, d->baseDir,
                     QLG_PARM_STRING, handler->name, 0);
  }
  /* Started also after a report: the handler then never triggers, or has
     no tree, instead of reporting on every event. */
  d->started = 1;
}

void QlgFFDCTrigger_open(QlgObject* handler) { QlgFFDCTrigger_start(handler); }

void QlgFFDCTrigger_close(QlgObject* handler) {
  QlgFFDCTriggerData* d = QlgFFDCTrigger_data(handler);
  if (!d || !d->started) return;
  QlgObject_release(d->triggerFilter);
  d->triggerFilter = nullptr;
  d->started = 0;
}

int QlgFFDCTrigger_isTriggered(QlgObject* handler, QlgEvent* event) {
  QlgFFDCTriggerData* d = QlgFFDCTrigger_data(handler);
  if (!d || !event) return 0;
  QlgObject* f = d->triggerFilter;
  if (!f || !f->cls || f->cls->kind != QLG_KIND_FILTER || !f->cls->slots.filter.isLoggable)
    return 0;
  if (!f->cls->slots.filter.isLoggable(f, event)) return 0;
  int64_t t = event->time;
  int64_t until = 0;
  /* A suppressed repeat leaves lastTrigger where it was. */
  if (d->lastTrigger != 0 &&
      (__builtin_add_overflow(d->lastTrigger, d->triggerRepeatTime, &until) || t <= until))
    return 0;
  d->lastTrigger = t;
  return 1;
}

char* QlgFFDCTrigger_getFFDCDir(QlgObject* handler, QlgEvent* event) {
  QlgFFDCTriggerData* d = QlgFFDCTrigger_data(handler);
  if (!d || !event || !d->baseDir) return nullptr;
  int found = 0;
  char* given = QlgEvent_getStringProperty(event, QLG_PROP_FFDCDIR, &found);
  if (found && given && insideTree(d->baseDir, given)) return given;
  QlgMem_free(given);

  time_t seconds = (time_t)(event->time / 1000);
  struct tm local;
  char date[11] = "";
  if (!localtime_r(&seconds, &local) || strftime(date, sizeof date, "%Y.%m.%d", &local) == 0)
    return nullptr;
  char dir[CX_PATH_MAX];
  int n = snprintf(dir, sizeof dir, "%s/%s", d->baseDir, date);
  CxFilePath p;
  if (n < 0 || (size_t)n + 1 >= sizeof dir || !CxFilePath_set(&p, dir)) return nullptr;
  /* The day's directory must be a real one: a link planted in its place
     would carry the capture outside the tree. */
  CxFileStat st;
  int kind = 0;
  if (CxFile_makeDirs(&p, 0700) != 0 || !CxStatus_isOk(CxFile_lstatPath(&st, dir, &kind)) ||
      kind != CX_KIND_DIRECTORY) {
    QlgMisc_report(6000, 153, QlgMsgTable_text(153), QLG_PARM_STRING, dir, QLG_PARM_STRING,
                   handler->name, 0);
    return nullptr;
  }
  dir[n] = '/';
  dir[n + 1] = '\0';
  QlgEvent_addStringProperty(event, QLG_PROP_FFDCDIR, dir);
  return QlgMem_strdup(dir);
}

int QlgFFDCTrigger_checkQuota(QlgObject* handler, int64_t neededBytes) {
  QlgFFDCTriggerData* d = QlgFFDCTrigger_data(handler);
  if (!d || !d->baseDir) return 0;
  int64_t used = usedBytes(d->baseDir);
  double max = (double)d->maxDiskSpace;
  if (d->warnOnDiskSpace) {
    bool second = (double)used >= max * d->secondWarning;
    bool first = (double)used >= max * d->firstWarning;
    if (second || first) {
      /* The first limit is printed only when the second was reached and the
         first was not; as intended. */
      double percent = (second && !first ? d->firstWarning : d->secondWarning) * 100.0;
      QlgMisc_report(5000, 160, QlgMsgTable_text(160), QLG_PARM_DOUBLE, percent, QLG_PARM_LONG,
                     timesKilo(d->maxDiskSpace), QLG_PARM_LONG, (long)used, QLG_PARM_LONG,
                     (long)neededBytes, QLG_PARM_STRING, handler->name, 0);
    }
  }
  if (used + neededBytes <= d->maxDiskSpace) return 1;
  if (strcmp(d->quotaPolicy, kIgnore) == 0) return 1;
  if (strcmp(d->quotaPolicy, kSuspend) == 0) {
    QlgMisc_report(6000, 161, QlgMsgTable_text(161), QLG_PARM_STRING, d->baseDir, QLG_PARM_LONG,
                   (long)used, QLG_PARM_STRING, handler->name, QLG_PARM_LONG,
                   (long)d->maxDiskSpace, 0);
    return 0;
  }
  if (strcmp(d->quotaPolicy, kAutoDelete) == 0) return deleteExcess(handler, d, used) ? 1 : 0;
  return 0;
}

}  // extern "C"
