// SPDX-License-Identifier: Apache-2.0
// Helpers shared by the test suites, POSIX version: what differs from the
// Windows one (temporary directories, running a test body or a worker in a
// forked child: the toolkit's state is process-wide, so a test that needs a
// fresh toolkit runs in its own process); the rest is in TestCommon.h.
#ifndef ARDEL_TESTS_SUPPORT_H
#define ARDEL_TESTS_SUPPORT_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
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
