// SPDX-License-Identifier: Apache-2.0
// The keyed containers built from the one list pattern: insertion order,
// unique case-sensitive keys, links that hold both ways after any removal,
// null and empty containers, and puts that fail for want of memory leaving
// the container as it was.

#include "support/TestSupport.h"
#include "util/QlgStringGroup.h"
#include "util/QlgStringToStringMap.h"

namespace {

using Strings = std::vector<std::string>;

// The entries walked forwards through the public accessors; a walk
// backwards must agree, so that a broken back link shows.
Strings entries(const QlgStringToStringMap* m) {
  Strings out, back;
  for (QlgStringToStringMapEntry* e = QlgStringToStringMap_first(m); e; e = QlgStringToStringMap_next(e)) {
    char* k = QlgStringToStringMap_entryKey(e);
    char* v = QlgStringToStringMap_entryValue(e);
    out.push_back(std::string(k) + "=" + v);
    QlgMem_free(k);
    QlgMem_free(v);
    EXPECT_EQ(e->head, m);
  }
  for (QlgStringToStringMapEntry* e = m ? m->last : nullptr; e; e = e->prev)
    back.insert(back.begin(), std::string(e->key) + "=" + e->value);
  EXPECT_EQ(out, back) << "forward and backward links disagree";
  return out;
}

Strings entries(const QlgStringGroup* g) {
  Strings out, back;
  for (QlgStringGroupEntry* e = QlgStringGroup_first(g); e; e = QlgStringGroup_next(e)) out.push_back(e->key);
  for (QlgStringGroupEntry* e = g ? g->last : nullptr; e; e = e->prev) back.insert(back.begin(), e->key);
  EXPECT_EQ(out, back) << "forward and backward links disagree";
  return out;
}

TEST(StringToStringMap, InsertionOrderReplaceInPlaceCaseSensitiveKeysOwnedCopiesAndRemoval) {
  QlgStringToStringMap* m = QlgStringToStringMap_create();
  for (const char* kv : {"a1", "b2", "a3", "A4"}) ASSERT_TRUE(QlgStringToStringMap_put(m, std::string(kv, 1).c_str(), kv + 1));
  EXPECT_EQ(entries(m), (Strings{"a=3", "b=2", "A=4"}));
  EXPECT_FALSE(QlgStringToStringMap_contains(m, "B"));
  char* v = QlgStringToStringMap_find(m, "b");
  EXPECT_STREQ(v, "2");
  EXPECT_NE(v, QlgStringToStringMap_peek(m, "b")) << "find hands out a copy";
  QlgMem_free(v);
  QlgStringToStringMap_remove(m, "b");  // relinking at every position: the group's test, on the same list
  EXPECT_EQ(entries(m), (Strings{"a=3", "A=4"}));
  QlgStringToStringMap_destroy(m);
}

TEST(Containers, NullAndEmptyContainersReadAsEmpty) {
  QlgStringToStringMap* map = QlgStringToStringMap_create();
  QlgStringGroup* group = QlgStringGroup_create();
  for (int null = 0; null < 2; null++) {
    QlgStringToStringMap* m = null ? nullptr : map;
    QlgStringGroup* g = null ? nullptr : group;
    EXPECT_EQ(QlgStringToStringMap_find(m, "k"), nullptr);
    EXPECT_FALSE(QlgStringToStringMap_contains(m, "k") || QlgStringGroup_contains(g, "k"));
    EXPECT_TRUE(QlgStringToStringMap_first(m) == nullptr && QlgStringGroup_first(g) == nullptr);
    QlgStringToStringMap_remove(m, "k");
    QlgStringGroup_remove(g, "k");
  }
  EXPECT_FALSE(QlgStringToStringMap_put(nullptr, "k", "v") || QlgStringToStringMap_put(map, nullptr, "v"));
  EXPECT_FALSE(QlgStringGroup_append(nullptr, "x") || QlgStringGroup_append(group, nullptr));
  EXPECT_EQ(QlgStringToStringMap_entryKey(nullptr), nullptr);
  EXPECT_EQ(QlgStringToStringMap_next(nullptr), nullptr);
  EXPECT_EQ(QlgStringGroup_entryKey(nullptr), nullptr);
  QlgStringToStringMap_destroy(map);
  QlgStringGroup_destroy(group);
  QlgStringToStringMap_destroy(nullptr);
  QlgStringGroup_destroy(nullptr);
}

TEST(Containers, APutOrAppendThatRunsOutOfMemoryLeavesTheContainerUnchanged) {
  QlgStringToStringMap* m = nullptr;
  for (const char* key : {"new", "a"}) { /* append, then replace */
    ardeltest::sweepAllocations(
        [&] {
          QlgStringToStringMap_destroy(m);
          m = QlgStringToStringMap_create();
          QlgStringToStringMap_put(m, "a", "1");
          QlgStringToStringMap_put(m, "b", "2");
        },
        [&] {
          int ok = QlgStringToStringMap_put(m, key, "v");
          EXPECT_EQ(ok, !QlgMem_failed());
        },
        [&](long) { EXPECT_EQ(entries(m), (Strings{"a=1", "b=2"})); });
  }
  QlgStringToStringMap_destroy(m);
  QlgStringGroup* g = nullptr;
  ardeltest::sweepAllocations(
      [&] {
        QlgStringGroup_destroy(g);
        g = QlgStringGroup_create();
        QlgStringGroup_append(g, "a");
      },
      [&] {
        int ok = QlgStringGroup_append(g, "b");
        EXPECT_EQ(ok, !QlgMem_failed());
      },
      [&](long) { EXPECT_EQ(entries(g), Strings{"a"}); });
  QlgStringGroup_destroy(g);
}

}  // namespace
