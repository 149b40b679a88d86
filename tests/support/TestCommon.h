// SPDX-License-Identifier: Apache-2.0
// The helpers that need no operating system of their own, shared by the
// POSIX and the Windows versions of TestSupport.h (included after their
// makeTempDir, removeTree and kBinaryFile, before their inChild and
// startWorker): whole files read and written, temporary directories with
// small files, capturing what a body writes to standard error or output,
// the sweep that fails every allocation of an operation in turn,
// environment variables set for a scope, and worker processes.
#ifndef ARDEL_TESTS_COMMON_H
#define ARDEL_TESTS_COMMON_H

#include <errno.h>
#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <ardel/QlgMem.h>

#include "platform/CxProcess.h"
#include "platform/CxSystem.h"
#include "util/QlgMemTest.h"

namespace ardeltest {

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline void writeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

// A temporary directory removed (with its contents) when it goes out of scope.
class TempDir {
 public:
  TempDir() : path_(makeTempDir()) {}
  ~TempDir() {
    if (!path_.empty()) removeTree(path_);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  std::string write(const std::string& name, const std::string& content) const {
    writeFile(file(name), content);
    return file(name);
  }

 private:
  std::string path_;
};

// Sets (or, for null, clears) an environment variable until the scope ends.
class EnvVar {
 public:
  EnvVar(const char* name, const char* value) : name_(name), had_(std::getenv(name) != nullptr) {
    if (had_) old_ = std::getenv(name);
    setEnv(name, value);
  }
  ~EnvVar() { setEnv(name_.c_str(), had_ ? old_.c_str() : nullptr); }
  EnvVar(const EnvVar&) = delete;
  EnvVar& operator=(const EnvVar&) = delete;

 private:
  std::string name_, old_;
  bool had_;
};

// Polls for path to appear, at most ms milliseconds: how a worker process
// signals a step to its parent on every platform.
inline bool waitForFile(const std::string& path, int ms) {
  for (int waited = 0;; waited += 10) {
    if (FILE* f = std::fopen(path.c_str(), "rb")) return std::fclose(f), true;
    if (waited >= ms) return false;
    CxSystem_sleepMillis(10);
  }
}

// Captures everything written to one file descriptor (1 or 2) while alive.
class CaptureFd {
 public:
  explicit CaptureFd(int fd) : fd_(fd) {
    std::fflush(fd == 1 ? stdout : stderr);
    path_ = dir_.file("captured");
    int f = open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC | kBinaryFile, 0600);
    saved_ = dup(fd_);
    dup2(f, fd_);
    close(f);
  }
  ~CaptureFd() { stop(); }
  std::string text() {
    stop();
    return readFile(path_);
  }

 private:
  void stop() {
    if (saved_ < 0) return;
    std::fflush(fd_ == 1 ? stdout : stderr);
    dup2(saved_, fd_);
    close(saved_);
    saved_ = -1;
  }
  TempDir dir_;
  int fd_;
  int saved_ = -1;
  std::string path_;
};

// A status's origin and code as "o code", for one comparison per call.
#define STATUS_OF(call) ardeltest::statusOf(call)
inline std::string statusText(char origin, int code) {
  return origin == '-' ? "ok" : std::string(1, origin) + " " + std::to_string(code);
}
template <class Status>
std::string statusOf(const Status& s) {
  return statusText(s.origin, s.code);
}

// A missing file or directory as the platform layer reports it: an errno,
// or on Windows the system's own error for a missing file or path.
inline bool isNotFound(const std::string& status) {
  return status == statusText('p', ENOENT) || status == "w 2" || status == "w 3";
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
// startSelf runs one by name in this program started again on every
// platform, with the arguments given.
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

// This program started again with args, the environment entries set for it
// alone; id 0 when it could not start.
inline CxProcess startSelf(const std::vector<std::pair<const char*, std::string>>& env,
                           const std::vector<std::string>& args) {
  CxProcess child{};
  std::string self = selfPath();
  std::vector<std::string> copy(args);
  std::vector<char*> argv;
  for (std::string& a : copy) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  std::vector<std::unique_ptr<EnvVar>> set;
  for (const auto& e : env) set.emplace_back(new EnvVar(e.first, e.second.c_str()));
  std::fflush(nullptr);
  if (self.empty() || !CxStatus_isOk(CxProcess_start(&child, self.c_str(), argv.data()))) child.id = 0;
  return child;
}
inline CxProcess startSelf(const char* worker, const std::string& arg, const std::vector<std::string>& args = {}) {
  return startSelf({{"ARDEL_TEST_WORKER", worker}, {"ARDEL_TEST_ARG", arg}}, args);
}

// A run started for a worker runs it before any test and ends there.
class WorkerRun : public ::testing::Environment {
  void SetUp() override {
    const char* name = std::getenv("ARDEL_TEST_WORKER");
    if (!name || !*name) return;
    const char* arg = std::getenv("ARDEL_TEST_ARG");
    auto it = workerTable().find(name);
    int code = it == workerTable().end() ? 127 : it->second(arg ? arg : "");
    std::fflush(nullptr);
    _exit(code);
  }
};
inline ::testing::Environment* const workerRun = ::testing::AddGlobalTestEnvironment(new WorkerRun);

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
