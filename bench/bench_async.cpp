// SPDX-License-Identifier: Apache-2.0
/*
 * What the asynchronous handler buys the caller: the hardware component
 * record writing into qlg_filehandler, once directly and once through
 * qlg_asynchandler (queueSize 8192, BLOCK), with 1 and 4 threads of
 * 250,000 records each.  For each run: the caller's time per trace call
 * (median and 99.9th percentile, clock_gettime around every call) and the
 * total time until every record is in the file (ardel_flush returned).
 * Each run is a child process of its own, so every run starts a fresh
 * toolkit.  ARDEL_ASYNC_QUEUE changes the queue size, ARDEL_PATH_CHECK_INTERVAL
 * the file handler's pathCheckInterval (default 0, as in bench-peers).
 *
 *   bench_async [records-per-thread]    the table
 *   bench_async --rss [records]         RSS after 1,000,000 and after all
 *                                       records (default 10,000,000), async
 */
#include <ardel/CLogWrapper.h>
#include <ardel/log.h>

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

namespace {

int64_t nowNs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (int64_t)ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

long rssKiB() {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return -1;
  char line[256];
  long kib = -1;
  while (std::fgets(line, sizeof line, f))
    if (std::strncmp(line, "VmRSS:", 6) == 0) kib = std::atol(line + 6);
  std::fclose(f);
  return kib;
}

CLogWrapper* start(const std::string& dir, bool async) {
  /* As in the side-by-side benchmark. */
  const char* interval = std::getenv("ARDEL_PATH_CHECK_INTERVAL");
  const char* queue = std::getenv("ARDEL_ASYNC_QUEUE");
  std::string props = dir + "/TyxTrace.properties";
  FILE* f = std::fopen(props.c_str(), "w");
  if (!f) return nullptr;
  std::fprintf(f,
               "hw.loggers.trcLogger.className=qlg_basiclogger\n"
               "hw.loggers.trcLogger.level=DEBUG_MIN\n"
               "hw.loggers.trcLogger.listenerNames=%s\n"
               "async.className=qlg_asynchandler\nasync.queueSize=%s\nasync.overflowPolicy=BLOCK\n"
               "async.listenerNames=out\n"
               "out.className=qlg_filehandler\nout.fileName=%s/ardel.log\nout.maxFiles=1\n"
               "out.pathCheckInterval=%s\n",
               async ? "async" : "out", queue ? queue : "8192", dir.c_str(),
               interval ? interval : "0");
  std::fclose(f);
  initializeWrapper(props.c_str());
  CLogWrapper* w = getCLogHw();
  return w && w->active == 1 ? w : nullptr;
}

void work(CLogWrapper* w, long n, std::vector<uint32_t>* lat) {
  for (long i = 0; i < n; i++) {
    int64_t t0 = nowNs();
    traceMIN(w, 42, "bench.c", "function", "value %ld of %s", i, "name");
    int64_t d = nowNs() - t0;
    if (lat) (*lat)[(size_t)i] = (uint32_t)std::min<int64_t>(d, UINT32_MAX);
  }
}

/* One run in this (child) process: prints one table row. */
void runOne(const std::string& dir, bool async, int threads, long perThread) {
  CLogWrapper* w = start(dir, async);
  if (!w) {
    std::printf("| %-5s | %d | setup failed |\n", async ? "async" : "sync", threads);
    return;
  }
  work(w, 1000, nullptr); /* warm-up: file open, queue and thread started */
  ardel_flush();
  std::vector<std::vector<uint32_t>> lat((size_t)threads, std::vector<uint32_t>((size_t)perThread));
  int64_t t0 = nowNs();
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; t++) pool.emplace_back(work, w, perThread, &lat[(size_t)t]);
  for (auto& t : pool) t.join();
  int64_t callsDone = nowNs();
  ardel_flush();
  int64_t allWritten = nowNs();
  std::vector<uint32_t> all;
  all.reserve((size_t)threads * (size_t)perThread);
  for (auto& v : lat) all.insert(all.end(), v.begin(), v.end());
  std::sort(all.begin(), all.end());
  long total = (long)all.size();
  std::printf("| %-5s | %d x %ld | %u | %u | %.1f | %.1f | %.0f |\n", async ? "async" : "sync",
              threads, perThread, all[all.size() / 2], all[(size_t)((double)all.size() * 0.999)],
              (double)(callsDone - t0) / 1e6, (double)(allWritten - t0) / 1e6,
              (double)total / ((double)(allWritten - t0) / 1e9));
}

void rssRun(const std::string& dir, long records) {
  CLogWrapper* w = start(dir, true);
  if (!w) return;
  long first = std::min(records, 1000000L);
  work(w, first, nullptr);
  ardel_flush();
  long after1M = rssKiB();
  work(w, records - first, nullptr);
  ardel_flush();
  std::printf("async, 1 thread: RSS %ld KiB after %ld records, %ld KiB after %ld records\n",
              after1M, first, rssKiB(), records);
}

std::string freshDir() {
  char tmpl[] = "/tmp/ardel-bench-async-XXXXXX";
  if (!mkdtemp(tmpl)) std::abort();
  return tmpl;
}

/* Runs body in a child with its own directory, removed afterwards. */
template <class F>
void inChild(F body) {
  std::string dir = freshDir();
  std::fflush(stdout);
  pid_t pid = fork();
  if (pid == 0) {
    body(dir);
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  std::system(("rm -rf '" + dir + "'").c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "--rss") == 0) {
    long records = argc > 2 ? std::atol(argv[2]) : 10000000L;
    inChild([records](const std::string& dir) { rssRun(dir, records); });
    return 0;
  }
  long perThread = argc > 1 ? std::atol(argv[1]) : 250000L;
  if (perThread <= 0) perThread = 250000L;
  std::printf("| handler | threads x records | caller median ns | caller p99.9 ns | calls ms | "
              "all in file ms | records/s to file |\n|---|---|---|---|---|---|---|\n");
  for (int threads : {1, 4})
    for (bool async : {false, true})
      inChild([=](const std::string& dir) { runOne(dir, async, threads, perThread); });
  return 0;
}
