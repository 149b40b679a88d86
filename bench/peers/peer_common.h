// SPDX-License-Identifier: Apache-2.0
/*
 * The workloads of the side-by-side benchmark, shared by one small program
 * per logging library.  A program runs one workload and prints one figure:
 *
 *   peer_<lib> disabled  DIR   ns per disabled statement
 *   peer_<lib> durable1  DIR   records per second, 1 thread
 *   peer_<lib> durable4  DIR   records per second, 4 threads
 *   peer_<lib> rotating  DIR   records per second, 1 MiB x 3 files
 *   peer_<lib> procs4    DIR   records per second, 4 processes, one file
 *   peer_<lib> memory    DIR   RSS growth in KiB over 1,000,000 records
 *   peer_<lib> async1    DIR   asynchronous logger, 1 thread x 250,000 records:
 *   peer_<lib> async4    DIR   4 threads x 250,000; both print three figures,
 *                              the caller's median and 99.9th percentile ns
 *                              per call, and records per second until every
 *                              record is in the file
 *
 * Every record carries the same content (a time stamp with milliseconds,
 * "bench.c", "function", 42, "value <i> of name") and reaches the kernel
 * before the call returns (each library flushes every record).
 */
#ifndef ARDEL_BENCH_PEER_COMMON_H
#define ARDEL_BENCH_PEER_COMMON_H

#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace peer {

const long kDurableRecords = 100000;
/* Four threads on few cores take turns as the scheduler lets them: a run
   four times as long evens out more of that. */
const long kThreadedRecords = 400000;
const long kDisabledStatements = 50000000;
const long kMemoryRecords = 1000000;
const int kThreads = 4;
const int kProcesses = 4;
const long kRotateBytes = 1048576;
const int kRotateFiles = 3; /* the active file and two backups */
const long kAsyncRecords = 250000; /* per thread */
const int kAsyncQueue = 8192;      /* records, one worker thread, callers block when full */

enum class Mode { Durable, Rotating, Disabled, Shared, Async };

/* What each library program provides. */
struct Library {
  /* Sets the library up to write into dir in mode; false when it cannot
     (the workload is then reported as not available). */
  bool (*setup)(const std::string& dir, Mode mode);
  void (*log)(long i);
  /* n disabled statements in a loop (PEER_DISABLED_LOOP), so that each
     statement is measured inline, as it sits in a program, not behind a
     call through a pointer. */
  void (*disabledLoop)(long n);
  /* Per process after fork for the shared-file workload; null when the
     library has no multi-process file. */
  bool (*setupChild)(const std::string& dir);
  /* Async mode: returns once every record logged so far is in the file;
     null when the library has no asynchronous logger. */
  void (*flush)();
};

/* The loop of disabled statements.  The barrier after each statement makes
   the compiler load the library's level again every time, as it must when
   other code runs between two statements. */
#define PEER_DISABLED_LOOP(statement)                  \
  void disabledLoop(long n) {                          \
    for (long i = 0; i < n; i++) {                     \
      statement;                                       \
      asm volatile("" ::: "memory");                   \
    }                                                  \
  }

inline double now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (double)ts.tv_sec + (double)ts.tv_nsec / 1e9;
}

inline long rssKiB() {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return -1;
  char line[256];
  long kib = -1;
  while (std::fgets(line, sizeof line, f))
    if (std::strncmp(line, "VmRSS:", 6) == 0) kib = std::atol(line + 6);
  std::fclose(f);
  return kib;
}

inline long nowNs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (long)ts.tv_sec * 1000000000L + ts.tv_nsec;
}

/* The caller's time per call, around each call, and the time until the
   last record is in the file. */
inline int runAsync(const Library& lib, const std::string& dir, int threads) {
  if (!lib.flush) {
    std::printf("n/a\n");
    return 0;
  }
  if (!lib.setup(dir, Mode::Async)) return 3;
  for (long i = 0; i < 1000; i++) lib.log(i);
  std::vector<std::vector<long>> lat((size_t)threads, std::vector<long>((size_t)kAsyncRecords));
  double t0 = now();
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; t++)
    pool.emplace_back([&lib, &lat, t] {
      std::vector<long>& mine = lat[(size_t)t];
      for (long i = 0; i < kAsyncRecords; i++) {
        long s = nowNs();
        lib.log(i);
        mine[(size_t)i] = nowNs() - s;
      }
    });
  for (auto& t : pool) t.join();
  lib.flush();
  double total = now() - t0;
  std::vector<long> all;
  for (auto& v : lat) all.insert(all.end(), v.begin(), v.end());
  std::sort(all.begin(), all.end());
  std::printf("%ld %ld %.0f\n", all[all.size() / 2], all[(size_t)((double)all.size() * 0.999)],
              (double)all.size() / total);
  return 0;
}

inline int run(const Library& lib, int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s disabled|durable1|durable4|rotating|procs4|memory|async1|async4 DIR\n",
                 argv[0]);
    return 2;
  }
  std::string w = argv[1], dir = argv[2];
  if (w == "disabled") {
    if (!lib.setup(dir, Mode::Disabled)) return 3;
    /* The fastest of five passes: the loop's floor, without the passes an
       interrupt or a migration stretched. */
    double best = 0;
    for (int pass = 0; pass < 5; pass++) {
      double t0 = now();
      lib.disabledLoop(kDisabledStatements);
      double t = now() - t0;
      if (pass == 0 || t < best) best = t;
    }
    std::printf("%.3f\n", best * 1e9 / (double)kDisabledStatements);
  } else if (w == "durable1" || w == "rotating") {
    if (!lib.setup(dir, w == "rotating" ? Mode::Rotating : Mode::Durable)) return 3;
    for (long i = 0; i < 1000; i++) lib.log(i);
    double t0 = now();
    for (long i = 0; i < kDurableRecords; i++) lib.log(i);
    std::printf("%.0f\n", (double)kDurableRecords / (now() - t0));
  } else if (w == "durable4") {
    if (!lib.setup(dir, Mode::Durable)) return 3;
    for (long i = 0; i < 1000; i++) lib.log(i);
    double t0 = now();
    std::vector<std::thread> pool;
    for (int t = 0; t < kThreads; t++)
      pool.emplace_back([&lib] {
        for (long i = 0; i < kThreadedRecords / kThreads; i++) lib.log(i);
      });
    for (auto& t : pool) t.join();
    std::printf("%.0f\n", (double)kThreadedRecords / (now() - t0));
  } else if (w == "procs4") {
    if (!lib.setupChild) {
      std::printf("n/a\n");
      return 0;
    }
    std::fflush(stdout);
    double t0 = now();
    pid_t pids[kProcesses];
    for (int p = 0; p < kProcesses; p++) {
      pids[p] = fork();
      if (pids[p] == 0) {
        if (!lib.setupChild(dir)) _exit(3);
        for (long i = 0; i < kDurableRecords / kProcesses; i++) lib.log(i);
        _exit(0);
      }
    }
    bool ok = true;
    for (pid_t pid : pids) {
      int status = 0;
      ok = waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0 && ok;
    }
    if (!ok) return 4;
    std::printf("%.0f\n", (double)kDurableRecords / (now() - t0));
  } else if (w == "async1" || w == "async4") {
    return runAsync(lib, dir, w == "async1" ? 1 : kThreads);
  } else if (w == "memory") {
    if (!lib.setup(dir, Mode::Rotating)) return 3;
    for (long i = 0; i < 1000; i++) lib.log(i);
    long before = rssKiB();
    for (long i = 0; i < kMemoryRecords; i++) lib.log(i);
    std::printf("%ld\n", rssKiB() - before);
  } else {
    return 2;
  }
  return 0;
}

}  // namespace peer

#endif
