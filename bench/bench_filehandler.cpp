// SPDX-License-Identifier: Apache-2.0
/*
 * Records per second into log files, each beside a baseline that formats
 * the same line with snprintf and writes it with one write(2) per record
 * (plus flock around it for the multi-process case): one thread and four
 * threads into qlg_filehandler, four processes into
 * qlg_multiproc_filehandler.  Every record reaches the kernel before its
 * call returns, in ours and in the baseline.  Compare items_per_second of
 * each pair (ours / baseline).
 */
#include <benchmark/benchmark.h>

#include <ardel/QlgLogger.h>
#include <ardel/QlgToolkit.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "plain_line.h"

namespace {

const int kProcesses = 4;
const int kRecordsPerProcess = 20000;

const std::string& benchDir() {
  static std::string dir = [] {
    char tmpl[] = "/tmp/ardel-bench-fh-XXXXXX";
    if (!mkdtemp(tmpl)) std::abort();
    return std::string(tmpl);
  }();
  return dir;
}

/* Properties of one logger "app" writing through handler "out" of the
   given class; files never reach the rollover threshold. */
std::string writeProps(const char* name, const char* handlerClass, const char* logName) {
  std::string path = benchDir() + "/" + name;
  FILE* f = std::fopen(path.c_str(), "w");
  if (!f) std::abort();
  std::fprintf(f,
               "app.className=qlg_basiclogger\napp.level=DEBUG_MIN\napp.listenerNames=out\n"
               "out.className=%s\nout.fileName=%s/%s\nout.maxFileBytes=2000000000\n"
               "out.maxFiles=2\nout.MPFileSemKey=%d\n",
               handlerClass, benchDir().c_str(), logName, 0x4d510000 + (getpid() & 0xffff));
  std::fclose(f);
  return path;
}

QlgObject* fileLogger() {
  static QlgObject* app = [] {
    if (!QlgToolkit_initialize(writeProps("fh.properties", "qlg_filehandler", "ours.log").c_str()))
      std::abort();
    return QlgObject_create("app", nullptr);
  }();
  return app;
}

inline void logOne(QlgObject* app, int i) {
  QlgLogger_logMin(app, "bench.c", "function", 42, "value %1$d of %2$s", QLG_PARM_INT, i,
                   QLG_PARM_STRING, "name", 0);
}


int baselineFd(const char* name) {
  std::string path = benchDir() + "/" + name;
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) std::abort();
  return fd;
}

void BM_FileHandler(benchmark::State& state) {
  QlgObject* app = fileLogger();
  int i = 0;
  for (auto _ : state) logOne(app, i++);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FileHandler)->Threads(1)->Threads(4)->UseRealTime();

void BM_BaselineSnprintfWrite(benchmark::State& state) {
  static int fd = baselineFd("baseline.log");
  char buf[512];
  int i = 0;
  for (auto _ : state) {
    int n = plainLine(buf, sizeof buf, i++);
    if (write(fd, buf, (size_t)n) != n) state.SkipWithError("write failed");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BaselineSnprintfWrite)->Threads(1)->Threads(4)->UseRealTime();

/* Runs kProcesses children doing `body` and returns the wall time in seconds. */
template <typename Body>
double runProcesses(Body body) {
  std::fflush(stdout);
  auto start = std::chrono::steady_clock::now();
  pid_t pids[kProcesses];
  for (int p = 0; p < kProcesses; p++) {
    pids[p] = fork();
    if (pids[p] == 0) {
      body(p);
      _exit(0);
    }
  }
  bool ok = true;
  for (pid_t pid : pids) {
    int status = 0;
    ok = waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0 && ok;
  }
  if (!ok) std::abort();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_MultiProcFileHandler4Processes(benchmark::State& state) {
  std::string props = writeProps("mp.properties", "qlg_multiproc_filehandler", "ours-mp.log");
  for (auto _ : state) {
    state.SetIterationTime(runProcesses([&](int) {
      QlgToolkit_shutdown(); /* a fresh toolkit per process, as in real use */
      if (!QlgToolkit_initialize(props.c_str())) _exit(2);
      QlgObject* app = QlgObject_create("app", nullptr);
      for (int i = 0; i < kRecordsPerProcess; i++) logOne(app, i);
    }));
  }
  state.SetItemsProcessed(state.iterations() * kProcesses * kRecordsPerProcess);
}
BENCHMARK(BM_MultiProcFileHandler4Processes)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_BaselineFlockWrite4Processes(benchmark::State& state) {
  std::string lockPath = benchDir() + "/baseline.lock";
  for (auto _ : state) {
    state.SetIterationTime(runProcesses([&](int) {
      int fd = baselineFd("baseline-mp.log");
      int lock = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
      char buf[512];
      for (int i = 0; i < kRecordsPerProcess; i++) {
        int n = plainLine(buf, sizeof buf, i);
        flock(lock, LOCK_EX);
        if (write(fd, buf, (size_t)n) != n) _exit(3);
        flock(lock, LOCK_UN);
      }
    }));
  }
  state.SetItemsProcessed(state.iterations() * kProcesses * kRecordsPerProcess);
}
BENCHMARK(BM_BaselineFlockWrite4Processes)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::system(("rm -rf '" + benchDir() + "'").c_str());
  return 0;
}
