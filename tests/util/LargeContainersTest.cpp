/*
 * Keyed containers past the size where a hash index joins the list: the
 * list still decides the order, and every key is still found, replaced and
 * removed exactly, whatever removals shuffled the index.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include <string>

#include "util/QlgStringGroup.h"
#include "util/QlgStringToStringMap.h"

namespace {

TEST(LargeContainers, OrderFindReplaceAndRemoveHoldWithThousandsOfKeys) {
  const int n = 5000;
  QlgStringToStringMap* m = QlgStringToStringMap_create();
  QlgStringGroup* g = QlgStringGroup_create();
  for (int i = 0; i < n; ++i) {
    std::string k = "k" + std::to_string(i);
    ASSERT_TRUE(QlgStringToStringMap_put(m, k.c_str(), "v"));
    ASSERT_TRUE(QlgStringGroup_append(g, k.c_str()));
  }
  EXPECT_FALSE(QlgStringGroup_append(g, "k4999")) << "still no duplicates";
  /* Remove every third key, then replace the odd ones that are left. */
  for (int i = 0; i < n; i += 3) {
    std::string k = "k" + std::to_string(i);
    QlgStringToStringMap_remove(m, k.c_str());
    QlgStringGroup_remove(g, k.c_str());
  }
  for (int i = 1; i < n; i += 2)
    if (i % 3) QlgStringToStringMap_put(m, ("k" + std::to_string(i)).c_str(), "r");
  int at = 0;
  for (QlgStringToStringMapEntry* e = QlgStringToStringMap_first(m); e; e = e->next, ++at) {
    while (at % 3 == 0) ++at;
    ASSERT_EQ(std::string(e->key), "k" + std::to_string(at)) << "insertion order kept";
    EXPECT_STREQ(e->value, at % 2 ? "r" : "v");
  }
  EXPECT_EQ(at, n) << "the walk ended after k4999";
  for (int i = 0; i < n; ++i) {
    std::string k = "k" + std::to_string(i);
    EXPECT_EQ(QlgStringToStringMap_contains(m, k.c_str()), i % 3 != 0) << k;
    EXPECT_EQ(QlgStringGroup_contains(g, k.c_str()), i % 3 != 0) << k;
  }
  EXPECT_FALSE(QlgStringToStringMap_contains(m, "K1")) << "case still matters";
  QlgStringToStringMap_destroy(m);
  QlgStringGroup_destroy(g);
}

}  // namespace
