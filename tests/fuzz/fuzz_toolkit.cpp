// SPDX-License-Identifier: Apache-2.0
// Whole configurations of arbitrary bytes: the toolkit starts from the
// file (or refuses it), every configured object is created, every logger
// logs one event through whatever chain the file wired, and the toolkit
// shuts down again.  Only classes that write to the console take part:
// an input that configures any other class is skipped, so the fuzzer never
// writes files.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include <ardel/toolkit.h>
#include "core/QlgObjConfig.h"
#include "util/QlgStringGroup.h"

namespace {

bool safeClass(const char* name) {
  return std::string(" qlg_basiclogger qlg_levelfilter qlg_msgidfilter qlg_consolehandler qlg_stderrhandler "
                     "qlg_basicformatter qlg_xmlformatter qlg_zarvotraceformatter ")
             .find(" " + std::string(name) + " ") != std::string::npos;
}

// Names of the configured objects, or false when one names another class.
bool configuredNames(std::vector<std::string>* names) {
  bool safe = true;
  QlgToolkit_enter();
  for (QlgStringGroupEntry* e = QlgStringGroup_first(QlgObjConfig_allNames()); e; e = e->next) {
    QlgObjConfig* cfg = QlgObjConfig_find(e->key);
    int found = 0;
    char* cls = QlgObjConfig_getProperty(cfg, "className", &found);
    if (found && cls) safeClass(cls) ? names->push_back(e->key) : void(safe = false);
    QlgMem_free(cls);
    QlgObjConfig_releaseUnlocked(cfg);
  }
  QlgToolkit_leave();
  return safe;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static std::string path = "/tmp/ardel-fuzz-" + std::to_string(getpid()) + ".toolkit.properties";
  static int devNull = open("/dev/null", O_WRONLY);
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);

  // Console output and reports are expected; keep them off the fuzzer's.
  std::fflush(stdout);
  std::fflush(stderr);
  int savedOut = dup(1), savedErr = dup(2);
  dup2(devNull, 1), dup2(devNull, 2);
  if (QlgToolkit_initialize(path.c_str())) {
    std::vector<std::string> names;
    if (configuredNames(&names)) {
      for (const std::string& name : names) {
        QlgObject* obj = QlgObject_create(name.c_str(), nullptr);
        if (obj && obj->cls && obj->cls->kind == QLG_KIND_LOGGER) {
          QlgLogger_logMin(obj, "fuzz.c", "fn", 1, "%1$s %2$d", QLG_PARM_STRING, "x", QLG_PARM_INT, 7, 0);
          QlgLogger_logMax(obj, nullptr, nullptr, 0, "max", 0);
        }
        QlgObject_release(obj);
      }
    }
    QlgToolkit_shutdown();
  }
  std::fflush(stdout);
  std::fflush(stderr);
  dup2(savedOut, 1), dup2(savedErr, 2);
  close(savedOut), close(savedErr);
  return 0;
}
