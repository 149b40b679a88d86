// SPDX-License-Identifier: Apache-2.0
// Helpers shared by the test suites, POSIX version: what differs from the
// Windows one (temporary directories, running a test body or a worker in a
// forked child: the toolkit's state is process-wide, so a test that needs a
// fresh toolkit runs in its own process); the rest is in TestCommon.h.
#ifndef ARDEL_TESTS_SUPPORT_H
#define ARDEL_TESTS_SUPPORT_H

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace ardeltest {

// A file removed while a process holds it open leaves its directory at once
// (on Windows see the Windows version).
inline constexpr bool kRemovedOpenFileVanishes = true;
// Records per writer process in the multi-process soak tests, and the size
// at which their shared file rolls over.
inline constexpr int kSoakRecords = 20000, kSoakFileBytes = 32768;
// Extra open flag for a file read back byte for byte.
inline constexpr int kBinaryFile = 0;

// A new directory under $TMPDIR (else /tmp); "" when none could be made.
inline std::string makeTempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string tmpl = std::string(base && *base ? base : "/tmp") + "/ardel-test-XXXXXX";
  return mkdtemp(&tmpl[0]) ? tmpl : std::string();
}

inline void removeTree(const std::string& dir) { std::system(("rm -rf '" + dir + "'").c_str()); }

inline void setEnv(const char* name, const char* value) { value ? setenv(name, value, 1) : unsetenv(name); }

inline std::string selfPath() {
  char self[4096];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self);
  return n <= 0 || n >= (ssize_t)sizeof self ? std::string() : std::string(self, n);
}

// What the platform layer is compared with: the system's own answers.
inline std::string shortHostName() {
  char name[256] = "";
  return gethostname(name, sizeof name) == 0 ? name : "";
}
inline uint32_t systemThreadId() { return static_cast<uint32_t>(syscall(SYS_gettid)); }
inline int32_t systemProcessId() { return static_cast<int32_t>(getpid()); }
inline bool setFileTimes(const std::string& path, time_t atime, time_t mtime) {
  struct timespec t[2] = {{atime, 0}, {mtime, 0}};
  return utimensat(AT_FDCWD, path.c_str(), t, 0) == 0;
}
// Where a trace file that cannot be written goes.
inline void setHome(const char* dir) { setEnv("HOME", dir); }
// A started program sees each argument as one word (Windows joins them with
// spaces, unquoted, into one command line).
inline constexpr bool kArgumentsSplitAtSpaces = false;

// Descriptors open in this process.
inline long openHandleCount() {
  long n = 0;
  if (DIR* d = opendir("/proc/self/fd")) {
    while (readdir(d)) n++;
    closedir(d);
  }
  return n;
}

// Rounds of a race test that needs a fresh process for each round.
inline constexpr int kFreshProcessRounds = 6;
}  // namespace ardeltest

#include "support/TestCommon.h"

namespace ardeltest {

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
