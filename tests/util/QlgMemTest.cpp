#include <gtest/gtest.h>
#include <ardel/QlgMem.h>
#include "util/QlgMemTest.h"

TEST(QlgMem, ArmedFailureHitsExactlyTheNthAttemptOnce) {
  QlgMem_failAt(2);
  void* a = QlgMem_alloc(8);
  char* b = QlgMem_strdup("x");
  void* c = QlgMem_alloc(8);
  EXPECT_NE(a, nullptr);
  EXPECT_EQ(b, nullptr);
  EXPECT_NE(c, nullptr);
  EXPECT_EQ(QlgMem_failed(), 1);
  EXPECT_EQ(QlgMem_allocCount(), 3);
  QlgMem_free(a);
  QlgMem_free(c);
  QlgMem_failAt(0);
}

TEST(QlgMem, StrdupOfNullIsNullWithoutAllocating) {
  QlgMem_failAt(0);
  EXPECT_EQ(QlgMem_strdup(nullptr), nullptr);
  EXPECT_EQ(QlgMem_allocCount(), 0);
}
