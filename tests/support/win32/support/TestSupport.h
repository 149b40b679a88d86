// SPDX-License-Identifier: Apache-2.0
/*
 * The Windows build's test helpers, with the interface of the POSIX ones.
 * Windows has no fork, so a body that needs a fresh process runs in a new
 * start of this test program, limited to the current test.  In that run
 * the environment variable ARDEL_TEST_CHILD tells which of the test's
 * inChild bodies (counted from 1) to run in place; the others it passes
 * over.  ARDEL_TEST_WORKER names a worker, run with ARDEL_TEST_ARG before
 * any test, its result being the run's exit code.
 */
#ifndef ARDEL_TESTS_SUPPORT_H
#define ARDEL_TESTS_SUPPORT_H

#include <gtest/gtest.h>

#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

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

/* Removes a directory and everything below it. */
inline void removeTree(const std::string& dir) {
  WIN32_FIND_DATAA d;
  HANDLE h = FindFirstFileA((dir + "\\*").c_str(), &d);
  if (h != INVALID_HANDLE_VALUE) {
    do {
      std::string n = d.cFileName;
      if (n == "." || n == "..") continue;
      std::string p = dir + "\\" + n;
      if (d.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        removeTree(p);
      } else {
        SetFileAttributesA(p.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileA(p.c_str());
      }
    } while (FindNextFileA(h, &d));
    FindClose(h);
  }
  RemoveDirectoryA(dir.c_str());
}

/* A new directory under the user's temporary folder, written with "/". */
inline std::string makeTempDir(const char* prefix) {
  char base[MAX_PATH + 1];
  DWORD n = GetTempPathA(sizeof base, base);
  if (n == 0 || n >= sizeof base) return std::string();
  static unsigned counter = 0;
  for (int attempt = 0; attempt < 100; attempt++) {
    std::string p = std::string(base) + prefix + std::to_string(GetCurrentProcessId()) + "-" +
                    std::to_string(++counter);
    if (CreateDirectoryA(p.c_str(), nullptr)) {
      for (char& c : p) c = c == '\\' ? '/' : c;
      return p;
    }
  }
  return std::string();
}

/* A temporary directory removed (with its contents) when it goes out of scope. */
class TempDir {
 public:
  TempDir() : path_(makeTempDir("ardel-test-")) {}
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

/* Captures everything written to one file descriptor (1 or 2) while alive. */
class CaptureFd {
 public:
  explicit CaptureFd(int fd) : fd_(fd) {
    std::fflush(fd == 1 ? stdout : stderr);
    path_ = dir_.file("captured");
    int f = _open(path_.c_str(), _O_RDWR | _O_CREAT | _O_TRUNC | _O_BINARY, _S_IREAD | _S_IWRITE);
    saved_ = _dup(fd_);
    _dup2(f, fd_);
    _close(f);
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
    _dup2(saved_, fd_);
    _close(saved_);
    saved_ = -1;
  }
  TempDir dir_;
  int fd_;
  int saved_ = -1;
  std::string path_;
};

}  // namespace ardeltest

#include "support/TestCommon.h"

namespace ardeltest {

/* Windows keeps a removed file's name until its last handle closes, and
   Wine keeps the file fully usable until then, with no sign of the removal
   on the name or the handle: the removal rules are checked on POSIX alone. */
inline constexpr bool kRemovedOpenFileVanishes = false;
/* Under Wine every lock and file call is a round trip to its server, and a
   rollover renames every backup. */
inline constexpr int kSoakRecords = 1000, kSoakFileBytes = 8192;

/* Starts this program again for the current test only, with the given
   environment entries set for it alone; id 0 when it could not start. */
inline CxProcess startSelf(const std::vector<std::pair<const char*, std::string>>& env) {
  CxProcess child{};
  char self[MAX_PATH + 1];
  DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
  if (n == 0 || n >= sizeof self) return child;
  self[n] = '\0';
  const ::testing::TestInfo* t = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string filter = std::string("--gtest_filter=") + t->test_suite_name() + "." + t->name();
  std::string brief = "--gtest_brief=1";
  char* args[] = {&filter[0], &brief[0], nullptr};
  for (const auto& e : env) _putenv_s(e.first, e.second.c_str());
  std::fflush(nullptr);
  if (!CxStatus_isOk(CxProcess_start(&child, self, args))) child.id = 0;
  for (const auto& e : env) _putenv_s(e.first, "");
  return child;
}

/* Runs body in a fresh process; gtest failures inside it fail this test. */
inline void inChild(const std::function<void()>& body) {
  static const ::testing::TestInfo* test = nullptr;
  static int count = 0;
  const ::testing::TestInfo* now = ::testing::UnitTest::GetInstance()->current_test_info();
  count = now == test ? count + 1 : 1;
  test = now;
  const char* wanted = std::getenv("ARDEL_TEST_CHILD");
  if (wanted && *wanted) {
    if (std::atoi(wanted) == count) body();
    return;
  }
  CxProcess child = startSelf({{"ARDEL_TEST_CHILD", std::to_string(count)}});
  EXPECT_EQ(finishWorker(child, time(nullptr) + 600), 0) << "the child process failed (see above)";
}

inline CxProcess startWorker(WorkerBody body, const std::string& arg) {
  for (const auto& w : workerTable())
    if (w.second == body) return startSelf({{"ARDEL_TEST_WORKER", w.first}, {"ARDEL_TEST_ARG", arg}});
  ADD_FAILURE() << "worker not declared with ARDEL_TEST_WORKER";
  return CxProcess{};
}

/* A run started for a worker runs it before any test and ends there. */
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

}  // namespace ardeltest

#endif
