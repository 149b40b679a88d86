// SPDX-License-Identifier: Apache-2.0
/* Kept process and thread ids: a forked child must not report its parent's. */
#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include "platform/CxProcess.h"
#include "platform/CxThread.h"
#include "support/TestSupport.h"

TEST(CxIdCache, AForkedChildReportsItsOwnProcessAndThread) {
  CxProcess_getpid();
  CxThread_getId();
  ardeltest::inChild([] {
    EXPECT_EQ(CxProcess_getpid(), (int32_t)getpid());
    EXPECT_EQ(CxThread_getId(), (uint32_t)syscall(SYS_gettid));
  });
  EXPECT_EQ(CxProcess_getpid(), (int32_t)getpid());
}
