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
 * machines), the single-thread figures below are the steadier ones, each
 * the median of 10 interleaved rounds:
 *  - user-space work: the thread's CPU time per record minus that of a loop
 *    making the same system call alone (the write of a line of the same
 *    length to a file in the same directory; the removal watch costs no
 *    system call while nothing happens to the file).  Where the kernel
 *    flushes the TLB at every system call (page-table isolation without
 *    PCID), this includes refilling it for every page the record touches.
 *  - without the write: the same records with the write(2) call answered
 *    in this program (it is interposed below), so nothing leaves user space
 *    and the TLB and caches stay warm: the cost of the instructions alone.
 */
#include <ardel/CLogWrapper.h>
#include <ardel/QlgToolkit.h>

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <algorithm>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "plain_line.h"

/* The handler's write(2) goes through here: with g_skipWrites set, a write
   to the trace file (descriptor g_traceFd) reports success without the
   system call. */
static bool g_skipWrites = false;
static int g_traceFd = -1;
extern "C" ssize_t write(int fd, const void* data, size_t size) {
  if (g_skipWrites && fd == g_traceFd) return (ssize_t)size;
  return syscall(SYS_write, fd, data, size);
}

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

/* The descriptor open on path, found through /proc/self/fd. */
int traceDescriptor(const std::string& path) {
  for (int fd = 0; fd < 1024; fd++) {
    char link[64], target[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ssize_t n = readlink(link, target, sizeof target - 1);
    if (n <= 0) continue;
    target[n] = '\0';
    if (path == target) return fd;
  }
  return -1;
}

/* The floor of bench/peers (peer_baseline): the same line made with
   snprintf and written with one write(2). */
void plainRecord(int fd, long i) {
  char buf[256];
  int n = plainLine(buf, sizeof buf, i);
  if (write(fd, buf, (size_t)n) != n) std::abort();
}

/* CPU seconds of records plain records into dir/plain.log; skip: with the
   write answered here. */
double plainLoop(const std::string& dir, long records, bool skip) {
  int fd = open((dir + "/plain.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  int traceFd = g_traceFd;
  g_traceFd = fd;
  g_skipWrites = skip;
  double t0 = threadCpu();
  for (long i = 0; i < records; i++) plainRecord(fd, i);
  double t = threadCpu() - t0;
  g_skipWrites = false;
  g_traceFd = traceFd;
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
  getrusage(RUSAGE_SELF, &after);
  long done = records / threads * threads;
  double user = seconds(after.ru_utime) - seconds(before.ru_utime);
  double sys = seconds(after.ru_stime) - seconds(before.ru_stime);
  std::printf("records %ld threads %d pathCheckInterval %ld: user %.0f ns/record, "
              "system %.0f ns/record, %.0f records/s\n",
              done, threads, interval, user * 1e9 / (double)done, sys * 1e9 / (double)done,
              (double)done / wall);
  if (threads == 1) {
    /* The line the handler wrote: the file's size over its records; the
       trace file is the newest descriptor the handler holds open. */
    std::string logPath = std::string(dir) + "/trace.log";
    FILE* lf = std::fopen(logPath.c_str(), "r");
    std::fseek(lf, 0, SEEK_END);
    size_t lineLength = (size_t)std::ftell(lf) / (size_t)(done + 1000);
    std::fclose(lf);
    g_traceFd = traceDescriptor(logPath);
    const int kRounds = 10;
    long each = records / kRounds > 0 ? records / kRounds : 1;
    std::vector<double> work, bare, plainWork, plainBare;
    for (int r = 0; r < kRounds; r++) {
      double t0 = threadCpu();
      run(w, each);
      double withWrite = threadCpu() - t0;
      double alone = syscallsAlone(dir, each, lineLength);
      g_skipWrites = true;
      t0 = threadCpu();
      run(w, each);
      double skipped = threadCpu() - t0;
      g_skipWrites = false;
      double plain = plainLoop(dir, each, false), plainSkipped = plainLoop(dir, each, true);
      work.push_back((withWrite - alone) * 1e9 / (double)each);
      plainWork.push_back((plain - alone) * 1e9 / (double)each);
      plainBare.push_back(plainSkipped * 1e9 / (double)each);
      bare.push_back(skipped * 1e9 / (double)each);
    }
    std::sort(work.begin(), work.end());
    std::sort(bare.begin(), bare.end());
    std::sort(plainWork.begin(), plainWork.end());
    std::sort(plainBare.begin(), plainBare.end());
    std::printf("user-space work %.0f ns/record (thread CPU minus the same write alone); "
                "without the write %.0f ns/record (median of %d rounds of %ld)\n",
                work[kRounds / 2], bare[kRounds / 2], kRounds, each);
    std::printf("the snprintf+write loop of bench/peers: user-space work %.0f ns/record; "
                "without the write %.0f ns/record\n",
                plainWork[kRounds / 2], plainBare[kRounds / 2]);
  }
  std::system((std::string("rm -rf '") + dir + "'").c_str());
  return 0;
}
