// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_ffdc_filecopy_handler: the capture itself.  A triggering event gets
 * the listed files copied, or zipped, into its dated directory after the
 * quota has agreed to the space they need.
 *
 * A copy is written to a fresh temporary entry of the day's directory
 * (created exclusively, links never followed) and then renamed onto its
 * name, so whatever was planted under that name - a symbolic or a hard
 * link to a file elsewhere - is replaced, never written through.
 */
#include "handlers/QlgFileCopyHandler.h"

#include <ctype.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>

#include <ardel/QlgMem.h>
#include <ardel/QlgParm.h>
#include <ardel/QlgToolkit.h>
#include "core/QlgMisc.h"
#include "handlers/QlgFFDCTriggerHandler.h"
#include "handlers/QlgHandler.h"
#include "msg/QlgMsgTable.h"
#include "platform/CxFile.h"
#include "platform/CxFilePath.h"
#include "platform/CxProcess.h"

namespace {

/* Besides letters: what a zip command path may hold.  Nothing here means
   anything to a shell, should the command ever reach one. */
const char kCommandChars[] = "_ \"'%+,-./:=@\\~0123456789";
const size_t kCopyBlock = 8192;
const char kTempName[] = ".ardel-ffdc-copy";

/* One listed file as the capture sees it. */
struct Listed {
  const char* given;        /* the name as listed (points into the list copy) */
  char path[CX_PATH_MAX];   /* normalised */
  bool present;             /* a regular file whose status could be read */
  int64_t size;
};

struct FileSet {
  char* text = nullptr;     /* owned copy of the list, cut at the spaces */
  Listed* items = nullptr;  /* owned */
  size_t count = 0;
  size_t present = 0;
  int64_t needed = 0;
  ~FileSet() {
    QlgMem_free(text);
    QlgMem_free(items);
  }
};

void report(int level, uint32_t key, const char* a, const char* b) {
  if (b)
    QlgMisc_report(level, key, QlgMsgTable_text(key), QLG_PARM_STRING, a ? a : "", QLG_PARM_STRING,
                   b, 0);
  else
    QlgMisc_report(level, key, QlgMsgTable_text(key), QLG_PARM_STRING, a ? a : "", 0);
}

void reportIfFailed(CxStatus s) {
  if (!CxStatus_isOk(s)) QlgMisc_reportStatus(s);
}

QlgFileCopyData* copyData(const QlgObject* handler) {
  QlgFFDCTriggerData* d = QlgFFDCTrigger_data(handler);
  return d ? d->fileCopy : nullptr;
}

/* Splits the list at single spaces and looks at every name once.  Only
   regular files count as present: a FIFO or device could block the copy,
   a directory has nothing to copy. */
bool readList(const char* list, FileSet* set) {
  if (!list) return true;
  set->text = QlgMem_strdup(list);
  size_t room = 1;
  for (const char* p = list; *p; ++p) room += *p == ' ';
  set->items = static_cast<Listed*>(QlgMem_alloc(room * sizeof(Listed)));
  if (!set->text || !set->items) return false;
  char* save = nullptr;
  for (char* name = strtok_r(set->text, " ", &save); name; name = strtok_r(nullptr, " ", &save)) {
    Listed& f = set->items[set->count++];
    f.given = name;
    f.present = false;
    f.size = 0;
    CxFilePath p;
    f.path[0] = '\0';
    if (!CxFilePath_set(&p, name)) continue;
    memcpy(f.path, p.text, (size_t)p.length + 1);
    CxFileStat st;
    int kind = 0;
    if (!CxStatus_isOk(CxFile_statKind(&st, f.path, &kind))) continue;
    set->needed += st.size;
    if (kind != CX_KIND_FILE) continue;
    f.present = true;
    f.size = st.size;
    set->present++;
  }
  return true;
}

/* Message 162 for every listed name that is not there to be captured. */
void reportMissing(QlgObject* handler, const FileSet& set) {
  for (size_t i = 0; i < set.count; ++i)
    if (!set.items[i].present) report(5000, 162, set.items[i].given, handler->name);
}

/* dir + "/" + name into out (the separator only when dir lacks one);
   false when it does not fit. */
bool joinPath(char* out, size_t size, const char* dir, const char* name) {
  size_t len = strlen(dir);
  const char* sep = (len > 0 && dir[len - 1] == '/') ? "" : "/";
  int n = snprintf(out, size, "%s%s%s", dir, sep, name);
  return n >= 0 && (size_t)n < size;
}

const char* baseNameOf(const char* path) {
  const char* slash = strrchr(path, '/');
  const char* back = strrchr(path, '\\');
  if (back && (!slash || back > slash)) slash = back;
  return slash ? slash + 1 : path;
}

bool copyBytes(int from, int to) {
  char block[kCopyBlock];
  for (;;) {
    int got = 0;
    if (!CxStatus_isOk(CxFile_read(from, block, sizeof block, &got))) return false;
    if (got == 0) return true;
    int put = 0;
    if (!CxStatus_isOk(CxFile_write(to, block, (size_t)got, &put)) || put != got) return false;
  }
}

/* Copies one file into dir under its base name; false when it could not. */
bool copyOne(const char* dir, const Listed& f) {
  const char* base = baseNameOf(f.path);
  char target[CX_PATH_MAX];
  char temp[CX_PATH_MAX];
  if (!joinPath(target, sizeof target, dir, base) || !joinPath(temp, sizeof temp, dir, kTempName))
    return false;
  if (strcmp(base, ".") == 0 || strcmp(base, "..") == 0 || strcmp(base, kTempName) == 0)
    return false;
  int in = -1;
  int out = -1;
  if (!CxStatus_isOk(CxFile_open(&in, f.path, CX_O_RDONLY))) return false;
  const int create = CX_O_WRONLY | CX_O_CREAT | CX_O_EXCL;
  CxStatus s = CxFile_openIn(&out, dir, kTempName, create, CX_FILE_DEFAULT_MODE);
  if (!CxStatus_isOk(s) && s.code == 17) {
    /* Left by an interrupted capture, or planted: only the entry is removed. */
    CxFile_delete(temp);
    s = CxFile_openIn(&out, dir, kTempName, create, CX_FILE_DEFAULT_MODE);
  }
  bool ok = CxStatus_isOk(s) && copyBytes(in, out);
  CxFile_close(&in);
  if (out >= 0) CxFile_close(&out);
  if (ok) ok = CxStatus_isOk(CxFile_rename(temp, target));
  if (!ok && CxStatus_isOk(s)) CxFile_delete(temp);
  return ok;
}

void copyAll(QlgObject* handler, const char* dir, const FileSet& set) {
  for (size_t i = 0; i < set.count; ++i) {
    const Listed& f = set.items[i];
    if (!f.present) continue;
    if (!*baseNameOf(f.path)) {
      report(5000, 162, f.given, handler->name);
    } else if (!copyOne(dir, f)) {
      report(5000, 163, handler->name, f.given);
    }
  }
}

/* The zip program, bounded in time: one that hangs is ended and reported
   instead of holding the logging thread. */
void runZip(const QlgFileCopyData* c, char* const* args) {
  CxProcess proc;
  CxStatus s = CxProcess_start(&proc, c->zipCmdPath, args);
  if (!CxStatus_isOk(s)) {
    QlgMisc_reportStatus(s);
    return;
  }
  CxExitInfo info;
  s = CxProcess_waitTimed(&proc, &info, c->zipTimeout);
  if (!CxStatus_isOk(s)) {
    QlgMisc_reportStatus(s);
    reportIfFailed(CxProcess_kill(&proc));
  }
  reportIfFailed(CxProcess_close(&proc));
}

bool isPlainName(const char* name) {
  return *name && strcmp(name, ".") != 0 && strcmp(name, "..") != 0 && !strpbrk(name, "/\\");
}

int kindAt(const char* path) {
  CxFileStat st;
  int kind = 0;
  return CxStatus_isOk(CxFile_lstatPath(&st, path, &kind)) ? kind : 0;
}

void zipAll(QlgObject* handler, const QlgFileCopyData* c, const char* dir, const FileSet& set) {
  char archive[CX_PATH_MAX];
  bool fits = joinPath(archive, sizeof archive, dir, c->zipFileName);
  reportMissing(handler, set);
  if (set.present == 0) return;
  /* The archive must land in the day's directory and may only replace a
     regular file there: zip would write through anything else. */
  int existing = fits ? kindAt(archive) : 0;
  if (!fits || !isPlainName(c->zipFileName) || (existing != 0 && existing != CX_KIND_FILE)) {
    report(6000, 164, fits ? archive : c->zipFileName, nullptr);
    return;
  }
  /* No program-name placeholder: the platform passes the program itself. */
  char** args = static_cast<char**>(QlgMem_alloc((set.count + 5) * sizeof(char*)));
  if (!args) {
    QlgMisc_report(6000, 20, QlgMsgTable_text(20), 0);
    return;
  }
  size_t k = 0;
  args[k++] = const_cast<char*>("-q");
  args[k++] = const_cast<char*>("-j");
  args[k++] = archive;
  for (size_t i = 0; i < set.count; ++i)
    if (set.items[i].present) args[k++] = const_cast<char*>(set.items[i].path);
  args[k] = nullptr;
  runZip(c, args);
  QlgMem_free(args);
  if (kindAt(archive) == CX_KIND_FILE) return;
  CxFilePath cmd;
  if (!c->zipCmdPath || !CxFilePath_set(&cmd, c->zipCmdPath) || CxFile_exists(&cmd) != 0) {
    report(6000, 165, c->zipCmdPath, nullptr);
  } else {
    report(6000, 164, archive, nullptr);
  }
}

void capture(QlgObject* handler, QlgFileCopyData* c, QlgEvent* event) {
  FileSet set;
  if (!readList(c->filesToCopy, &set)) {
    QlgMisc_report(6000, 20, QlgMsgTable_text(20), 0);
    return;
  }
  if (!QlgFFDCTrigger_checkQuota(handler, set.needed)) return;
  char* dir = QlgFFDCTrigger_getFFDCDir(handler, event);
  if (!dir) return;
  if (c->zipFileName) {
    zipAll(handler, c, dir, set);
  } else {
    reportMissing(handler, set);
    if (set.present > 0) copyAll(handler, dir, set);
  }
  QlgMem_free(dir);
}

void setZipFileName(QlgObject* handler, QlgFileCopyData* c) {
  char* value = QlgObject_getString(handler, "zipFileName", nullptr);
  QlgMem_free(c->zipFileName);
  c->zipFileName = nullptr;
  if (!value || !*value) {
    QlgMem_free(value);
    return;
  }
  const char* dot = strrchr(value, '.');
  if (dot && strcasecmp(dot, ".zip") == 0) {
    c->zipFileName = value;
    return;
  }
  size_t len = strlen(value);
  c->zipFileName = static_cast<char*>(QlgMem_alloc(len + 5));
  if (c->zipFileName) snprintf(c->zipFileName, len + 5, "%s.zip", value);
  QlgMem_free(value);
}

void setZipCmdPath(QlgObject* handler, QlgFileCopyData* c) {
  char* value = QlgObject_getString(handler, "zipCmdPath", nullptr);
  if (!value) return;
  CxFilePath p;
  if (QlgFileCopy_isSafeCommand(value) && CxFilePath_set(&p, value) && CxFile_exists(&p) == 0) {
    QlgMem_free(c->zipCmdPath);
    c->zipCmdPath = QlgMem_strdup(p.text);
  } else {
    report(6000, 165, value, nullptr);
  }
  QlgMem_free(value);
}

}  // namespace

extern "C" {

int QlgFileCopy_isSafeCommand(const char* path) {
  if (!path) return 0;
  for (const char* p = path; *p; ++p) {
    unsigned char ch = (unsigned char)*p;
    if (!((ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || strchr(kCommandChars, ch)))
      return 0;
  }
  return 1;
}

void* QlgFileCopy_create(void) {
  QlgFFDCTriggerData* d = static_cast<QlgFFDCTriggerData*>(QlgFFDCTrigger_create());
  if (!d) return nullptr;
  d->fileCopy = static_cast<QlgFileCopyData*>(QlgMem_alloc(sizeof(QlgFileCopyData)));
  if (!d->fileCopy) {
    QlgFFDCTrigger_destroy(d);
    return nullptr;
  }
  memset(d->fileCopy, 0, sizeof *d->fileCopy);
  d->fileCopy->zipTimeout = QLG_ZIP_TIMEOUT_DEFAULT;
  return d;
}

void QlgFileCopy_destroy(void* data) {
  QlgFFDCTriggerData* d = static_cast<QlgFFDCTriggerData*>(data);
  if (!d) return;
  if (d->fileCopy) {
    QlgMem_free(d->fileCopy->filesToCopy);
    QlgMem_free(d->fileCopy->zipFileName);
    QlgMem_free(d->fileCopy->zipCmdPath);
    QlgMem_free(d->fileCopy);
    d->fileCopy = nullptr;
  }
  QlgFFDCTrigger_destroy(d);
}

void QlgFileCopy_propertyChanged(QlgObject* handler, const char* key) {
  QlgFileCopyData* c = copyData(handler);
  if (!c || !key) {
    QlgFFDCTrigger_propertyChanged(handler, key);
    return;
  }
  if (strcmp(key, "filesToCopy") == 0) {
    char* value = QlgObject_getString(handler, key, nullptr);
    if (!value) return;
    QlgMem_free(c->filesToCopy);
    c->filesToCopy = value;
  } else if (strcmp(key, "zipFileName") == 0) {
    setZipFileName(handler, c);
  } else if (strcmp(key, "zipCmdPath") == 0) {
    setZipCmdPath(handler, c);
  } else if (strcmp(key, "zipTimeout") == 0) {
    int found = 0;
    int32_t v = QlgObject_getInt(handler, key, &found);
    if (found && v >= 1) c->zipTimeout = v;
  } else {
    QlgFFDCTrigger_propertyChanged(handler, key);
  }
}

void QlgFileCopy_publish(QlgObject* handler, QlgEvent* event) {
  QlgFFDCTriggerData* d = QlgFFDCTrigger_data(handler);
  if (!d || !event || !QlgObject_isLogging(handler)) return;
  if (d->fileCopy) {
    if (!d->started) QlgFFDCTrigger_start(handler);
    /* A report made during the capture (for example when this handler also
       listens to the error logger) comes back here: it is passed on but
       starts no capture of its own. */
    if (!d->fileCopy->capturing && QlgFFDCTrigger_isTriggered(handler, event)) {
      d->fileCopy->capturing = 1;
      capture(handler, d->fileCopy, event);
      d->fileCopy->capturing = 0;
    }
  }
  /* Captured or not, the event goes on to this handler's own listeners. */
  QlgObject_forwardToListeners(handler, event);
}

}  // extern "C"
