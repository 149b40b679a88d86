// SPDX-License-Identifier: Apache-2.0
/*
 * Configuration discovery for the component records: where the properties
 * file is (a given path, the TYX_TEST home, or the home named by the
 * suite's ini file) and whether the trace file it names can really be
 * written.  The path is settled once per process by initializeWrapper and
 * read by every record fill; nothing here reports an error, every failure
 * falls back silently to a default.
 */
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <ardel/QlgMem.h>
#include <ardel/QlgObjConfig.h>

#include "frontend/CLogWrapperInt.h"
#include "platform/CxFile.h"
#include "platform/CxFilePath.h"
#include "platform/CxSystem.h"

namespace {

/* One byte beyond the path's room stays NUL, so a path cut at 1,024 bytes
   is still a terminated string. */
char s_configPath[CLOGWRAPPER_PATH_SIZE + 1];

const char kIniKey[] = "TYX_HomeDirectory";
const char kConfigSuffix[] = "/config/TyxTrace.properties";
const char kTraceFileObject[] = "handlers.traceFile";

/* Appends text to the path buffer, cutting what does not fit. */
void appendPath(char* buf, const char* text) {
  size_t used = strlen(buf);
  size_t room = CLOGWRAPPER_PATH_SIZE - 1 - used;
  size_t n = strlen(text);
  if (n > room) n = room;
  memcpy(buf + used, text, n);
  buf[used + n] = '\0';
}

/* Copies into home the value of the first line whose trimmed key is exactly
   TYX_HomeDirectory; leaves home empty when there is none. */
void readIniHome(char* home) {
  char path[CLOGWRAPPER_PATH_SIZE];
  home[0] = '\0';
  if (!CxSystem_suiteIniPath(path, sizeof path)) return;
  FILE* ini = fopen(path, "r");
  if (!ini) return;
  /* Each read takes at most 1,023 characters: a longer line comes in pieces. */
  char line[CLOGWRAPPER_PATH_SIZE];
  while (fgets(line, sizeof line, ini)) {
    char* eq = strchr(line, '=');
    if (!eq) continue;
    *eq = '\0';
    char* value = eq + 1;
    CLogWrapper_trim(line);
    CLogWrapper_trim(value);
    if (strcmp(line, kIniKey) == 0) {
      appendPath(home, value);
      break;
    }
  }
  fclose(ini);
}

/* A probe of the trace file: can it be opened for appending?  A file the
   probe creates is deleted again, so a writable new file leaves nothing
   behind. */
bool canAppend(const char* fileName) {
  /* Existence is asked of the file system rather than of a read open, so
     that an existing file without read permission is never deleted. */
  CxFileStat st;
  bool existed = CxStatus_isOk(CxFile_statPath(&st, fileName));
  int fd = -1;
  CxStatus status = CxFile_open(&fd, fileName, CX_O_WRONLY | CX_O_APPEND | CX_O_CREAT);
  if (!CxStatus_isOk(status)) return false;
  CxFile_close(&fd);
  if (!existed) CxFile_delete(fileName);
  return true;
}

/* Splits fileName at its last separator ("/" or "\") into the directory
   and the base name, which keeps its separator.  A name without separator
   lives in the current directory; its base name gets a "/" in front so it
   can be put under another directory. */
void splitName(const char* fileName, char* dir, char* base) {
  size_t len = strlen(fileName);
  size_t i = len;
  while (i > 0 && fileName[i - 1] != '/' && fileName[i - 1] != '\\') --i;
  if (i == 0) {
    strcpy(dir, ".");
    base[0] = '/';
    base[1] = '\0';
    appendPath(base, fileName);
    return;
  }
  size_t sep = i - 1;
  if (sep == 0) {
    strcpy(dir, "/"); /* the root directory */
  } else {
    memcpy(dir, fileName, sep);
    dir[sep] = '\0';
  }
  base[0] = '\0';
  appendPath(base, fileName + sep);
}

void checkFileName(QlgObjConfig* cfg, const char* fileName) {
  if (strlen(fileName) >= CLOGWRAPPER_PATH_SIZE) return;
  char dir[CLOGWRAPPER_PATH_SIZE];
  char base[CLOGWRAPPER_PATH_SIZE];
  splitName(fileName, dir, base);
  fflush(stdout);
  CxFilePath dirPath;
  if (!CxFilePath_set(&dirPath, dir) || CxFile_exists(&dirPath) != 0) return;
  if (canAppend(fileName)) return;
  /* The home for a trace file that cannot be written where it is named. */
  char home[CLOGWRAPPER_PATH_SIZE];
  if (!CxSystem_userHome(home, sizeof home)) return;
  char moved[CLOGWRAPPER_PATH_SIZE];
  if ((size_t)snprintf(moved, sizeof moved, "%s%s", home, base) >= sizeof moved) return;
  QlgObject_setProperty(cfg, "fileName", moved);
}

}  // namespace

extern "C" {

void CLogWrapper_trim(char* text) {
  if (!text) return;
  size_t lead = 0;
  while (text[lead] && isspace(static_cast<unsigned char>(text[lead]))) ++lead;
  if (lead) memmove(text, text + lead, strlen(text + lead) + 1);
  size_t end = strlen(text);
  while (end > 0 && isspace(static_cast<unsigned char>(text[end - 1]))) --end;
  text[end] = '\0';
}

const char* CLogWrapper_configPath(void) { return s_configPath; }

int initializeWrapper(const char* path) {
  if (path) {
    /* Taken as it stands: nothing is appended to a given path. */
    strncpy(s_configPath, path, CLOGWRAPPER_PATH_SIZE);
  } else {
    s_configPath[0] = '\0';
    const char* test = getenv("TYX_TEST");
    if (test)
      appendPath(s_configPath, test);
    else
      readIniHome(s_configPath);
    /* Appended also when no home was found, which gives a path from the root. */
    appendPath(s_configPath, kConfigSuffix);
  }
  for (char* p = s_configPath; *p; ++p)
    if (*p == '\\') *p = '/';
  return static_cast<int>(strlen(s_configPath));
}

void CLogWrapper_checkTraceFile(void) {
  QlgObjConfig* cfg = QlgLogManager_getLogger(kTraceFileObject);
  if (!cfg) return;
  int found = 0;
  char* fileName = QlgObject_getProperty(cfg, "fileName", &found);
  if (found && fileName) checkFileName(cfg, fileName);
  QlgMem_free(fileName);
  QlgObjConfig_release(cfg);
}

}  // extern "C"
