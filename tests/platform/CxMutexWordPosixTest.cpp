// SPDX-License-Identifier: Apache-2.0
// The named mutex's lock word on Linux: a hold whose handle is gone, or a
// word another program scribbled over, delays the writers by at most a
// wait slice; it never blocks them for the whole timeout.
#if defined(__linux__)
#include <fcntl.h>
#include <stdint.h>
#include <unistd.h>

#include <string>

#include "platform/CxMutex.h"
#include "support/TestSupport.h"

namespace {

using ardeltest::statusOf;

class CxMutexWordTest : public ::testing::Test {
 protected:
  void SetUp() override { setenv("TMPDIR", tmp.path().c_str(), 1); }
  void TearDown() override { saved ? setenv("TMPDIR", savedTmpdir.c_str(), 1) : unsetenv("TMPDIR"); }
  ardeltest::TempDir tmp;
  const char* saved = getenv("TMPDIR");
  std::string savedTmpdir = saved ? saved : "";
};

}  // namespace

TEST_F(CxMutexWordTest, AHandleClosedWhileHoldingReleasesTheMutexToTheOthers) {
  CxMutex *holder = nullptr, *other = nullptr;
  ASSERT_EQ(statusOf(CxMutex_createNamed(&holder, "closed")), "ok");
  ASSERT_EQ(statusOf(CxMutex_createNamed(&other, "closed")), "ok");
  ASSERT_EQ(statusOf(CxMutex_lock(holder)), "ok");
  EXPECT_EQ(statusOf(CxMutex_lockTimed(other, 120)), "w 258") << "held: the other handle waits";
  CxMutex_close(&holder);
  EXPECT_EQ(statusOf(CxMutex_lockTimed(other, 1000)), "ok");
  EXPECT_EQ(statusOf(CxMutex_unlock(other)), "ok");
  CxMutex_close(&other);
}

TEST_F(CxMutexWordTest, AWordWrittenByAnotherProgramIsTakenOverAndTheMutexKeepsWorking) {
  const uint64_t scribbles[] = {
      0xffffffffffffffffull,  // a holder no handle can be
      0x0000000780000005ull,  // slot 5, unclaimed, with a waiter
      0x0000000000000001ull,  // slot 1, unclaimed
  };
  for (uint64_t word : scribbles) {
    CxMutex* m = nullptr;
    ASSERT_EQ(statusOf(CxMutex_createNamed(&m, "scribbled")), "ok");
    int fd = open(tmp.file("scribbled").c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(pwrite(fd, &word, sizeof word, 0), (ssize_t)sizeof word);
    close(fd);
    struct timespec a, b;
    clock_gettime(CLOCK_MONOTONIC, &a);
    EXPECT_EQ(statusOf(CxMutex_lockTimed(m, CX_MUTEX_WAIT_MS)), "ok") << std::hex << word;
    clock_gettime(CLOCK_MONOTONIC, &b);
    EXPECT_LT((b.tv_sec - a.tv_sec) * 1000 + (b.tv_nsec - a.tv_nsec) / 1000000, 2000) << std::hex << word;
    EXPECT_EQ(statusOf(CxMutex_unlock(m)), "ok");
    EXPECT_EQ(statusOf(CxMutex_lockTimed(m, 0)), "ok") << "released properly afterwards";
    EXPECT_EQ(statusOf(CxMutex_unlock(m)), "ok");
    CxMutex_close(&m);
  }
}
#endif
