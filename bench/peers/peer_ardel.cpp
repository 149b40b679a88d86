// SPDX-License-Identifier: Apache-2.0
/* ardel in the side-by-side benchmark: the hardware component record into
   qlg_filehandler (qlg_multiproc_filehandler for the shared file; through
   qlg_asynchandler for the asynchronous workloads).  The
   environment variable ARDEL_PATH_CHECK_INTERVAL, when set, becomes the
   handler's pathCheckInterval. */
#include <ardel/CLogWrapper.h>
#include <ardel/log.h>

#include "peer_common.h"

namespace {

CLogWrapper* g_w = nullptr;

bool start(const std::string& dir, const char* handlerClass, const char* limits, const char* level,
           bool async = false) {
  const char* interval = std::getenv("ARDEL_PATH_CHECK_INTERVAL");
  /* One file per process: the shared-file workload starts four at once. */
  std::string props = dir + "/TyxTrace." + std::to_string(getpid()) + ".properties";
  FILE* f = std::fopen(props.c_str(), "w");
  if (!f) return false;
  std::fprintf(f,
               "hw.loggers.trcLogger.className=qlg_basiclogger\nhw.loggers.trcLogger.level=%s\n"
               "hw.loggers.trcLogger.listenerNames=%s\nout.className=%s\n"
               "out.fileName=%s/ardel.log\n%sout.pathCheckInterval=%s\n"
               "async.className=qlg_asynchandler\nasync.queueSize=%d\nasync.overflowPolicy=BLOCK\n"
               "async.listenerNames=out\n",
               level, async ? "async" : "out", handlerClass, dir.c_str(), limits,
               interval ? interval : "0", peer::kAsyncQueue);
  std::fclose(f);
  initializeWrapper(props.c_str());
  g_w = getCLogHw();
  return g_w && g_w->active == 1;
}

bool setup(const std::string& dir, peer::Mode mode) {
  switch (mode) {
    case peer::Mode::Durable: return start(dir, "qlg_filehandler", "out.maxFiles=1\n", "DEBUG_MIN");
    case peer::Mode::Rotating:
      return start(dir, "qlg_filehandler", "out.maxFileBytes=1048576\nout.maxFiles=3\n", "DEBUG_MIN");
    case peer::Mode::Disabled: return start(dir, "qlg_filehandler", "out.maxFiles=1\n", "DEBUG_MIN");
    case peer::Mode::Async:
      return start(dir, "qlg_filehandler", "out.maxFiles=1\n", "DEBUG_MIN", true);
    case peer::Mode::Shared: break;
  }
  return false;
}

bool setupChild(const std::string& dir) {
  return start(dir, "qlg_multiproc_filehandler", "out.maxFileBytes=1048576\nout.maxFiles=3\n",
               "DEBUG_MIN");
}

void log(long i) { traceMIN(g_w, 42, "bench.c", "function", "value %ld of %s", i, "name"); }

/* The documented macro at a level the record does not trace. */
PEER_DISABLED_LOOP(ARDEL_TRACE_MAX(g_w, "value %ld of %s", i, "name"))

}  // namespace

int main(int argc, char** argv) {
  return peer::run(peer::Library{setup, log, disabledLoop, setupChild, ardel_flush}, argc, argv);
}
