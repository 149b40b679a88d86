// SPDX-License-Identifier: Apache-2.0
/*
 * Records per second into the application server's ring through
 * qlg_tashandler, with ardel-tas-reader draining it in another process
 * (its output thrown away), for one and four threads.  The same logger call
 * as bench_filehandler, so items_per_second compares directly with
 * BM_FileHandler.  At the end the reader's summary (packets read, damaged)
 * is printed beside the number of records sent: a record dropped for lack
 * of room would show as a difference (and as QLGWH0094W on standard error).
 */
#include <benchmark/benchmark.h>

#include <ardel/QlgLogger.h>
#include <ardel/QlgToolkit.h>
#include "platform/CxSharedMem.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

extern char** environ;

namespace {

std::atomic<long> g_sent{0};

const std::string& ringId() {
  static std::string id = "ardel-bench-tas-" + std::to_string(getpid());
  return id;
}

pid_t startReader() {
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
  std::string path = ARDEL_TAS_READER, id = ringId();
  char* argv[] = {&path[0], &id[0], nullptr};
  pid_t pid = -1;
  if (posix_spawn(&pid, argv[0], &fa, nullptr, argv, environ) != 0) std::abort();
  posix_spawn_file_actions_destroy(&fa);
  /* Wait until the reader has made the ring and written its size. */
  for (int tries = 0; tries < 1000; tries++) {
    CxSharedMem* m = nullptr;
    bool ready = CxStatus_isOk(CxSharedMem_open(&m, id.c_str())) &&
                 CxSharedMem_loadWord(CxSharedMem_address(m)) != 0;
    if (m) CxSharedMem_close(&m);
    if (ready) return pid;
    usleep(10000);
  }
  std::abort();
}

QlgObject* tasLogger() {
  static QlgObject* app = [] {
    char path[] = "/tmp/ardel-bench-tas-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) std::abort();
    std::string props =
        "app.className=qlg_basiclogger\napp.level=DEBUG_MIN\napp.listenerNames=out\n"
        "out.className=qlg_tashandler\nout.IPCID=" + ringId() + "\n";
    if (write(fd, props.data(), props.size()) != (ssize_t)props.size()) std::abort();
    close(fd);
    if (!QlgToolkit_initialize(path)) std::abort();
    unlink(path);
    return QlgObject_create("app", nullptr);
  }();
  return app;
}

void BM_TasHandler(benchmark::State& state) {
  QlgObject* app = tasLogger();
  int i = 0;
  for (auto _ : state)
    QlgLogger_logMin(app, "bench.c", "function", 42, "value %1$d of %2$s", QLG_PARM_INT, i++,
                     QLG_PARM_STRING, "name", 0);
  g_sent += (long)state.iterations();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TasHandler)->Threads(1)->Threads(4)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  pid_t reader = startReader();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  kill(reader, SIGTERM);
  int status = 0;
  waitpid(reader, &status, 0);
  std::fprintf(stderr, "bench_tashandler: %ld records sent\n", g_sent.load());
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
}
