// SPDX-License-Identifier: Apache-2.0
// Helpers shared by the test suites, POSIX version: running a test body or a
// worker in a forked child (the toolkit's state is process-wide, so a test
// that needs a fresh toolkit runs in its own process), capturing what a body writes to standard error
// or standard output, temporary directories with small files, and the sweep
// that fails every allocation of an operation in turn.
#ifndef ARDEL_TESTS_SUPPORT_H
#define ARDEL_TESTS_SUPPORT_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

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
  TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/ardel-test-XXXXXX";
    path_ = mkdtemp(&tmpl[0]) ? tmpl : std::string();
  }
  ~TempDir() {
    if (!path_.empty()) std::system(("rm -rf '" + path_ + "'").c_str());
  }
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  std::string write(const std::string& name, const std::string& content) const {
    writeFile(file(name), content);
    return file(name);
  }

 private:
  std::string path_;
};

// Captures everything written to one file descriptor (1 or 2) while alive.
class CaptureFd {
 public:
  explicit CaptureFd(int fd) : fd_(fd) {
    std::fflush(fd == 1 ? stdout : stderr);
    path_ = dir_.file("captured");
    int f = open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
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

}  // namespace ardeltest

#include "support/TestCommon.h"

namespace ardeltest {

// A file removed while a process holds it open leaves its directory at once
// (on Windows see the Windows version).
inline constexpr bool kRemovedOpenFileVanishes = true;
// Records per writer process in the multi-process soak tests, and the size
// at which their shared file rolls over.
inline constexpr int kSoakRecords = 20000, kSoakFileBytes = 32768;

// Runs body in a forked child; gtest failures inside it fail this test.
inline void inChild(const std::function<void()>& body) {
  std::fflush(nullptr);
  CxProcess child{};
  child.id = fork();
  if (child.id == 0) {
    body();
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  EXPECT_EQ(finishWorker(child, time(nullptr) + 600), 0) << "the child process failed (see above)";
}

inline CxProcess startWorker(WorkerBody body, const std::string& arg) {
  std::fflush(nullptr);
  CxProcess child{};
  child.id = fork();
  if (child.id == 0) _exit(body(arg));
  return child;
}

}  // namespace ardeltest

#endif
