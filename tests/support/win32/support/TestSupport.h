// SPDX-License-Identifier: Apache-2.0
/*
 * The Windows build's test helpers, with the interface of the POSIX ones.
 * Windows has no fork, so a body that needs a fresh process runs in a new
 * start of this test program, limited to the current test.  In that run
 * the environment variable ARDEL_TEST_CHILD tells which of the test's
 * inChild bodies (counted from 1) to run in place; the others it passes
 * over.  A worker is started through startSelf.
 */
#ifndef ARDEL_TESTS_SUPPORT_H
#define ARDEL_TESTS_SUPPORT_H

#include <gtest/gtest.h>

#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <sys/utime.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace ardeltest {

/* Removes a directory and everything below it, read-only files included. */
inline void removeTree(const std::string& dir) {
  std::error_code ec;
  for (const auto& e : std::filesystem::recursive_directory_iterator(dir, ec))
    std::filesystem::permissions(e.path(), std::filesystem::perms::owner_write, std::filesystem::perm_options::add, ec);
  std::filesystem::remove_all(dir, ec);
}

/* A new directory under the user's temporary folder, written with "/". */
inline std::string makeTempDir() {
  static unsigned counter = 0;
  std::error_code ec;
  std::filesystem::path base = std::filesystem::temp_directory_path(ec);
  for (int attempt = 0; attempt < 100 && !ec; attempt++) {
    auto p = base / ("ardel-test-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++counter));
    if (std::filesystem::create_directory(p, ec)) return p.generic_string();
  }
  return std::string();
}

inline constexpr int kBinaryFile = _O_BINARY;

/* An empty value removes a variable on Windows. */
inline void setEnv(const char* name, const char* value) { _putenv_s(name, value ? value : ""); }

inline std::string selfPath() {
  char self[MAX_PATH + 1];
  DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
  return n == 0 || n >= sizeof self ? std::string() : std::string(self, n);
}

inline std::string shortHostName() {
  char name[256] = "";
  DWORD n = sizeof name;
  return GetComputerNameExA(ComputerNameDnsHostname, name, &n) ? name : "";
}
inline uint32_t systemThreadId() { return GetCurrentThreadId(); }
inline int32_t systemProcessId() { return static_cast<int32_t>(GetCurrentProcessId()); }
inline bool setFileTimes(const std::string& path, time_t atime, time_t mtime) {
  struct __utimbuf64 t = {atime, mtime};
  return _utime64(path.c_str(), &t) == 0;
}
/* HOMEDRIVE followed by HOMEPATH. */
inline void setHome(const char* dir) {
  std::string d = dir ? dir : "";
  setEnv("HOMEDRIVE", dir ? d.substr(0, 2).c_str() : nullptr);
  setEnv("HOMEPATH", dir ? d.substr(2).c_str() : nullptr);
}
inline constexpr bool kArgumentsSplitAtSpaces = true;

/* Handles open in this process, found by probing the low handle values
   (Wine's GetProcessHandleCount always answers 0). */
inline long openHandleCount() {
  long n = 0;
  DWORD flags;
  for (uintptr_t h = 4; h < 0x1000; h += 4) n += GetHandleInformation(reinterpret_cast<HANDLE>(h), &flags) ? 1 : 0;
  return n;
}

/* Each fresh process costs about a second under Wine. */
inline constexpr int kFreshProcessRounds = 1;
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
  const ::testing::TestInfo* t = ::testing::UnitTest::GetInstance()->current_test_info();
  CxProcess child = startSelf({{"ARDEL_TEST_CHILD", std::to_string(count)}},
                              {std::string("--gtest_filter=") + t->test_suite_name() + "." + t->name(), "--gtest_brief=1"});
  EXPECT_EQ(finishWorker(child, time(nullptr) + 600), 0) << "the child process failed (see above)";
}

inline CxProcess startWorker(WorkerBody body, const std::string& arg) {
  for (const auto& w : workerTable())
    if (w.second == body) return startSelf(w.first.c_str(), arg);
  ADD_FAILURE() << "worker not declared with ARDEL_TEST_WORKER";
  return CxProcess{};
}

}  // namespace ardeltest

#endif
