// SPDX-License-Identifier: Apache-2.0
/*
 * Where the time of one enabled traceMIN into a file handler goes: runs N
 * statements through the hardware record into a qlg_filehandler and prints
 * the user-space and kernel time per record (getrusage), so that it can be
 * read alone or under `perf stat -e cycles:u,instructions:u` or callgrind:
 *
 *   build-bench/bench/perf_tracemin [records] [pathCheckInterval] [threads]
 *   perf stat -e task-clock,cycles:u,instructions:u build-bench/bench/perf_tracemin 1000000
 *   valgrind --tool=callgrind build-bench/bench/perf_tracemin 100000
 *
 * The first 1,000 records are a warm-up and are not counted.  Where the
 * kernel's user/system split is coarse (tick-sampled, as in most virtual
 * machines), the last figure is the steadier one: the thread's CPU time per
 * record minus that of a loop making the same system call alone (the
 * write of a line of the same length to a file in the same directory; the
 * removal watch costs no system call while nothing happens to the file).
 */
#include <ardel/CLogWrapper.h>
#include <ardel/QlgToolkit.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

double seconds(const timeval& tv) { return (double)tv.tv_sec + (double)tv.tv_usec / 1e6; }

double threadCpu() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return (double)ts.tv_sec + (double)ts.tv_nsec / 1e9;
}

/* CPU seconds of records iterations of the system call alone. */
double syscallsAlone(const std::string& dir, long records, size_t lineLength) {
  int fd = open((dir + "/alone.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  std::string line(lineLength - 1, 'x');
  line += '\n';
  double t0 = threadCpu();
  for (long i = 0; i < records; i++)
    if (write(fd, line.data(), line.size()) != (ssize_t)line.size()) std::abort();
  double t = threadCpu() - t0;
  close(fd);
  return t;
}

double now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (double)ts.tv_sec + (double)ts.tv_nsec / 1e9;
}

void run(CLogWrapper* w, long records) {
  for (long i = 0; i < records; i++) traceMIN(w, 42, "bench.c", "function", "value %ld of %s", i, "name");
}

}  // namespace

int main(int argc, char** argv) {
  long records = argc > 1 ? std::atol(argv[1]) : 1000000;
  long interval = argc > 2 ? std::atol(argv[2]) : 0;
  int threads = argc > 3 ? std::atoi(argv[3]) : 1;
  if (records < 1 || threads < 1) return 2;
  char dir[] = "/tmp/ardel-perf-XXXXXX";
  if (!mkdtemp(dir)) return 2;
  std::string props = std::string(dir) + "/TyxTrace.properties";
  FILE* f = std::fopen(props.c_str(), "w");
  if (!f) return 2;
  std::fprintf(f,
               "hw.loggers.trcLogger.className=qlg_basiclogger\n"
               "hw.loggers.trcLogger.level=DEBUG_MIN\n"
               "hw.loggers.trcLogger.listenerNames=out\n"
               "out.className=qlg_filehandler\nout.fileName=%s/trace.log\n"
               "out.maxFileBytes=2000000000\nout.maxFiles=2\nout.pathCheckInterval=%ld\n",
               dir, interval);
  std::fclose(f);
  initializeWrapper(props.c_str());
  CLogWrapper* w = getCLogHw();
  if (!w || w->active != 1 || w->trcLevel < 1) return 3;
  run(w, 1000);

  rusage before, after;
  double cpu0 = threadCpu();
  getrusage(RUSAGE_SELF, &before);
  double start = now();
  std::vector<std::thread> pool;
  if (threads == 1) {
    run(w, records);
  } else {
    for (int t = 0; t < threads; t++) pool.emplace_back(run, w, records / threads);
    for (auto& t : pool) t.join();
  }
  double wall = now() - start;
  double cpu = threadCpu() - cpu0;
  getrusage(RUSAGE_SELF, &after);
  long done = records / threads * threads;
  double user = seconds(after.ru_utime) - seconds(before.ru_utime);
  double sys = seconds(after.ru_stime) - seconds(before.ru_stime);
  std::printf("records %ld threads %d pathCheckInterval %ld: user %.0f ns/record, "
              "system %.0f ns/record, %.0f records/s\n",
              done, threads, interval, user * 1e9 / (double)done, sys * 1e9 / (double)done,
              (double)done / wall);
  if (threads == 1) {
    /* The line the handler wrote: the file's size over its records. */
    FILE* lf = std::fopen((std::string(dir) + "/trace.log").c_str(), "r");
    std::fseek(lf, 0, SEEK_END);
    size_t lineLength = (size_t)std::ftell(lf) / (size_t)(done + 1000);
    std::fclose(lf);
    double alone = syscallsAlone(dir, done, lineLength);
    std::printf("thread CPU %.0f ns/record, the same write alone %.0f ns: user-space "
                "work %.0f ns/record\n",
                cpu * 1e9 / (double)done, alone * 1e9 / (double)done, (cpu - alone) * 1e9 / (double)done);
  }
  std::system((std::string("rm -rf '") + dir + "'").c_str());
  return 0;
}
