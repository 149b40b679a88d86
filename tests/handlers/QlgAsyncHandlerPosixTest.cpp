// SPDX-License-Identifier: Apache-2.0
// qlg_asynchandler over a slow disk: while the background thread waits on a
// file write, callers still log; a file shared with
// direct writers keeps every record, in order, across rollovers.  write(2)
// is replaced in this program (the library is linked in), so the file's
// descriptor can be made to stall or fail.
#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <thread>

#include <ardel/QlgLogger.h>
#include <ardel/log.h>
#include "handlers/HandlerHarness.h"
#include "handlers/QlgAsyncHandler.h"

namespace {
std::atomic<int> g_slowFd{-1}, g_failFd{-1};
std::mutex g_gate;
std::condition_variable g_changed;
bool g_stalled = false, g_open = false;
}  // namespace

extern "C" ssize_t write(int fd, const void* buf, size_t n) {
  if (fd == g_slowFd.load()) {
    std::unique_lock<std::mutex> l(g_gate);
    g_stalled = true;
    g_changed.notify_all();
    g_changed.wait(l, [] { return g_open; });
  }
  if (fd != g_failFd.load()) return syscall(SYS_write, fd, buf, n);
  errno = ENOSPC;
  return -1;
}

namespace {

// Lets a stalled write go, at once (now) or after 20 s (a watchdog for a
// caller that hangs); true when it had been let go already.
bool openGate(bool now) {
  std::unique_lock<std::mutex> l(g_gate);
  if (!now) g_changed.wait_for(l, std::chrono::seconds(20), [] { return g_open; });
  bool was = g_open;
  g_open = true;
  g_changed.notify_all();
  return was;
}

// The descriptor this process holds on path.
int descriptorOf(const std::string& path) {
  struct stat want, have;
  DIR* d = stat(path.c_str(), &want) == 0 ? opendir("/proc/self/fd") : nullptr;
  int found = -1;
  while (struct dirent* e = d ? readdir(d) : nullptr)
    if (fstat(atoi(e->d_name), &have) == 0 && have.st_ino == want.st_ino && atoi(e->d_name) > 2)
      found = atoi(e->d_name);
  if (d) closedir(d);
  return found;
}

struct AsyncHandlerDiskTest : htest::HandlerTest, ::testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(FileClasses, AsyncHandlerDiskTest,
                         ::testing::Values("qlg_filehandler", "qlg_multiproc_filehandler"));

TEST_P(AsyncHandlerDiskTest, CallersNeverWaitForTheThreadsWriteAndSharedFilesStayWhole) {
  htest::TempDir dir;
  std::string active = dir.file("r.log");
  QlgObject* file = handler(GetParam(), "test_bare", {{"fileName", active}, {"maxFileSize", "16384"},
      {"maxFiles", "40"}, {"MPFileSemKey", std::to_string(0x4d600000 + (getpid() & 0xfffff))}});
  QlgObject *async = make("qlg_basiclogger"), *direct = make("qlg_basiclogger");
  QlgObject* queue = make("qlg_asynchandler");
  QlgObject_addListener(async, queue);
  QlgObject_addListener(queue, file);
  QlgObject_addListener(direct, file);
  int next[3] = {0, 0, 0};
  auto log = [&](int t) {
    std::string text = "t" + std::to_string(t) + " " + std::to_string(next[t]++);
    QlgLogger_logMin(t == 2 ? direct : async, __FILE__, "w", __LINE__, text.c_str(), 0);
  };
  log(0);
  ardel_flush();
  g_stalled = g_open = false;
  g_slowFd = descriptorOf(active);
  auto stalled = [] {
    std::unique_lock<std::mutex> l(g_gate);
    return g_changed.wait_for(l, std::chrono::seconds(10), [] { return g_stalled; });
  };
  log(0);
  std::thread watchdog(openGate, false);
  ASSERT_TRUE(stalled());
  for (int i = 0; i < 20; i++) log(0);  // each takes the toolkit lock
  EXPECT_FALSE(openGate(true)) << "a caller waited for the background thread's write";
  watchdog.join();
  g_slowFd = -1;

  const int kRecords = 8000;
  std::vector<std::thread> threads;
  for (int t = 1; t < 3; t++) threads.emplace_back([&, t] { while (next[t] < kRecords) log(t); });
  while (next[0] < kRecords) log(0);
  for (auto& th : threads) th.join();
  ardel_flush();
  std::string all;
  for (int k = 39; k >= 0; k--) {
    std::string name = dir.file(k ? "r" + std::to_string(k) + ".log" : "r.log");
    std::string text = access(name.c_str(), F_OK) == 0 ? ardeltest::readFile(name) : "";
    EXPECT_TRUE(!k || text.empty() || text.size() >= 16384u) << name << " rolled over before full";
    all += text;
  }
  int seen[3] = {0, 0, 0}, t, n, faults = 0;
  for (size_t at = 0; at < all.size(); at = all.find('\n', at) + 1)
    if (sscanf(all.c_str() + at, "t%d %d", &t, &n) != 2 || t < 0 || t > 2 || n != seen[t]++) faults++;
  EXPECT_EQ(faults, 0);
  for (int k = 0; k < 3; k++) EXPECT_EQ(seen[k], kRecords) << "thread " << k;

  // A write that fails on the thread (held until it surely is the
  // thread's) is reported once the thread has the lock again.
  g_stalled = g_open = false;
  g_slowFd = g_failFd = descriptorOf(active);
  std::string reports = ardeltest::reportsOf([&] {
    log(0);
    EXPECT_TRUE(stalled());
    openGate(true);
    QlgAsyncHandler_stopAll(1);
  });
  g_slowFd = g_failFd = -1;
  EXPECT_HAS(reports, strerror(ENOSPC));
}

}  // namespace
