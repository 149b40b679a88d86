// SPDX-License-Identifier: Apache-2.0
// The toolkit allocator: content kept across every size class by realloc,
// and blocks freed by another thread.
#include <cstring>
#include <thread>
#include <vector>

#include "support/TestSupport.h"

TEST(QlgMem, ReallocKeepsTheContentAcrossEverySizeClassAndShrinksInPlace) {
  size_t size = 1;
  char* p = static_cast<char*>(QlgMem_alloc(size));
  ASSERT_NE(p, nullptr);
  p[0] = 'a';
  for (size_t next : {24, 33, 64, 65, 200, 1000, 1024, 1025, 5000, 100000}) {
    char* q = static_cast<char*>(QlgMem_realloc(p, next));
    ASSERT_NE(q, nullptr) << next;
    for (size_t i = 0; i < size; i++) ASSERT_EQ(q[i], static_cast<char>('a' + i % 26)) << next;
    for (size_t i = size; i < next; i++) q[i] = static_cast<char>('a' + i % 26);
    p = q;
    size = next;
  }
  char* same = static_cast<char*>(QlgMem_realloc(p, 10));
  EXPECT_EQ(same, p);
  EXPECT_EQ(std::memcmp(same, "abcdefghij", 10), 0);
  QlgMem_free(same);
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
