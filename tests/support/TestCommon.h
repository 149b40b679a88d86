// SPDX-License-Identifier: Apache-2.0
// The helpers that need no operating system of their own, shared by the
// POSIX and the Windows versions of TestSupport.h (included after their
// CaptureFd, before their inChild and startWorker).
#ifndef ARDEL_TESTS_COMMON_H
#define ARDEL_TESTS_COMMON_H

#include <algorithm>
#include <ctime>
#include <functional>
#include <map>
#include <string>

#include <ardel/QlgMem.h>

#include "platform/CxProcess.h"
#include "util/QlgMemTest.h"

namespace ardeltest {

// A status's origin and code as "o code", for one comparison per call.
#define STATUS_OF(call) ardeltest::statusOf(call)
inline std::string statusText(char origin, int code) {
  return origin == '-' ? "ok" : std::string(1, origin) + " " + std::to_string(code);
}
template <class Status>
std::string statusOf(const Status& s) {
  return statusText(s.origin, s.code);
}

// What body writes to standard error.
inline std::string stderrOf(const std::function<void()>& body) {
  CaptureFd err(2);
  body();
  return err.text();
}

// Runs op once after reset to count its allocations, then once per
// allocation with that one failing; check(i) runs after each failed run
// (the ASan build also checks that nothing leaked).
inline void sweepAllocations(const std::function<void()>& reset, const std::function<void()>& op,
                             const std::function<void(long)>& check) {
  reset();
  QlgMem_failAt(0);
  op();
  long total = QlgMem_allocCount();
  ASSERT_GT(total, 0);
  for (long i = 1; i <= total; i++) {
    SCOPED_TRACE("failing allocation " + std::to_string(i) + " of " + std::to_string(total));
    reset();
    QlgMem_failAt(i);
    op();
    EXPECT_TRUE(QlgMem_failed());
    QlgMem_failAt(0);
    check(i);
  }
}

// A worker is a function run in a process of its own, started with
// startWorker(body, arg): forked on POSIX, this program started again on
// Windows, which finds the body by its name.  What it returns is the
// process's exit code.  Declare workers with ARDEL_TEST_WORKER(name).
using WorkerBody = int (*)(const std::string& arg);
inline std::map<std::string, WorkerBody>& workerTable() {
  static std::map<std::string, WorkerBody> table;
  return table;
}
struct WorkerEntry {
  WorkerEntry(const char* name, WorkerBody body) { workerTable()[name] = body; }
};
#define ARDEL_TEST_WORKER(name)                           \
  int name(const std::string& arg);                       \
  const ardeltest::WorkerEntry name##Entry(#name, name);  \
  int name(const std::string& arg)

// The exit code of a child, waited for until deadline; one still running
// then is killed and gives -1, as does one that never started.
inline int finishWorker(CxProcess& child, time_t deadline) {
  CxExitInfo info{};
  long ms = std::max(0L, (long)(deadline - time(nullptr))) * 1000;
  bool ended = child.id != 0 && CxStatus_isOk(CxProcess_waitTimed(&child, &info, (int32_t)ms));
  if (!ended && child.id != 0) CxProcess_kill(&child);
  CxProcess_close(&child);
  return ended ? info.exitCode : -1;
}

// Ends a child at once (SIGKILL, TerminateProcess) and collects it.
inline void killWorker(CxProcess& child) {
  if (child.id != 0) CxProcess_kill(&child);
  CxProcess_close(&child);
}

}  // namespace ardeltest

#endif
