/*
 * The process and thread ids are kept after the first question; a forked
 * child, a new process with one new thread, must not report its parent's.
 */
#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include "platform/CxProcess.h"
#include "platform/CxThread.h"
#include "support/TestSupport.h"

TEST(CxIdCache, AForkedChildReportsItsOwnProcessAndThread) {
  int32_t parentPid = CxProcess_getpid();
  uint32_t parentTid = CxThread_getId();
  ardeltest::inChild([&] {
    EXPECT_NE(CxProcess_getpid(), parentPid);
    EXPECT_EQ(CxProcess_getpid(), (int32_t)getpid());
    EXPECT_NE(CxThread_getId(), parentTid);
    EXPECT_EQ(CxThread_getId(), (uint32_t)syscall(SYS_gettid));
  });
  EXPECT_EQ(CxProcess_getpid(), (int32_t)getpid());
}
