// SPDX-License-Identifier: Apache-2.0
// The toolkit allocator: a block that is big enough stays where it is, and
// blocks may be freed by another thread.
#include <cstring>
#include <thread>

#include "support/TestSupport.h"

TEST(QlgMem, ReallocWithinTheCapacityKeepsTheBlock) {
  char* p = static_cast<char*>(QlgMem_alloc(1000));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(QlgMem_realloc(p, 10), p);
  QlgMem_free(p);
}

TEST(QlgMem, BlocksMayBeFreedByAnotherThreadAndReused) {
  std::vector<char*> blocks;
  for (int i = 0; i < 500; i++) {
    char* b = static_cast<char*>(QlgMem_alloc(static_cast<size_t>(1 + i % 1100)));
    ASSERT_NE(b, nullptr);
    std::memset(b, i & 0x7F, static_cast<size_t>(1 + i % 1100));
    blocks.push_back(b);
  }
  std::thread other([&] {
    for (char* b : blocks) QlgMem_free(b);
    for (int i = 0; i < 500; i++) {
      char* b = static_cast<char*>(QlgMem_alloc(48));
      ASSERT_NE(b, nullptr);
      std::memset(b, 1, 48);
      QlgMem_free(b);
    }
  });
  other.join();
  char* again = QlgMem_strdup("after");
  EXPECT_STREQ(again, "after");
  QlgMem_free(again);
}
