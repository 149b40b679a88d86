// SPDX-License-Identifier: Apache-2.0
// A fork while another thread holds the toolkit's lock (a background writer
// delivering, for instance) must leave the child a lock it can take.
#include <atomic>
#include <thread>

#include <ardel/QlgToolkit.h>
#include "support/TestSupport.h"

namespace {

TEST(ToolkitFork, TheChildCanTakeTheLockThatAnotherThreadHeldAtTheFork) {
  ASSERT_TRUE(QlgToolkit_enter());  // the lock exists before the race
  QlgToolkit_leave();
  std::atomic<bool> holding{false};
  std::thread holder([&] {
    QlgToolkit_enter();
    holding = true;
    usleep(200000);
    QlgToolkit_leave();
  });
  while (!holding) usleep(1000);
  ardeltest::inChild([] {
    alarm(5);  // a child left with a held lock would wait forever
    EXPECT_TRUE(QlgToolkit_enter());
    QlgToolkit_leave();
  });
  holder.join();
}

}  // namespace
