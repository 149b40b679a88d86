// SPDX-License-Identifier: Apache-2.0
// The configuration-valued map: one reference per entry, and a reference
// for the caller from every find and entry-value access.
#include "core/QlgObjConfig.h"
#include "core/QlgStringToObjCfgMap.h"
#include "support/TestSupport.h"

namespace {

TEST(ObjCfgMap, EntriesFindsAndEntryValuesEachHoldOneReferenceAndFailedPutsTakeNone) {
  ASSERT_TRUE(QlgObjConfig_startup());
  QlgObjConfig* a = QlgObjConfig_find("a");
  QlgObjConfig* b = QlgObjConfig_find("b");
  QlgStringToObjCfgMap* map = QlgStringToObjCfgMap_create();
  int32_t start = a->refCount;
  for (long i = 1; i <= 2; ++i) {  // out of memory: no reference, no entry
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgStringToObjCfgMap_put(map, "a", a));
    QlgMem_failAt(0);
    EXPECT_EQ(a->refCount, start);
    EXPECT_EQ(QlgStringToObjCfgMap_first(map), nullptr);
  }
  ASSERT_TRUE(QlgStringToObjCfgMap_put(map, "a.b", a) && QlgStringToObjCfgMap_put(map, "k", a));
  EXPECT_EQ(a->refCount, start + 2);
  QlgObjConfig* found = QlgStringToObjCfgMap_find(map, "a.b");
  QlgObjConfig* viaEntry = QlgStringToObjCfgMap_entryValue(QlgStringToObjCfgMap_first(map));
  EXPECT_TRUE(found == a && viaEntry == a && QlgStringToObjCfgMap_peek(map, "k") == a);
  EXPECT_EQ(a->refCount, start + 4) << "peek takes no reference";
  QlgObjConfig_releaseUnlocked(found);
  QlgObjConfig_releaseUnlocked(viaEntry);
  EXPECT_EQ(QlgStringToObjCfgMap_find(map, "A.B"), nullptr) << "case-sensitive";
  // A prefix lookup matches whole dotted keys only.
  EXPECT_EQ(QlgStringToObjCfgMap_peekN(map, "a.b.c", 3), a);
  EXPECT_EQ(QlgStringToObjCfgMap_peekN(map, "a.b.c", 1), nullptr);
  EXPECT_EQ(QlgStringToObjCfgMap_peekN(map, "a.bc", 4), nullptr);
  ASSERT_TRUE(QlgStringToObjCfgMap_put(map, "a.b", b));  // replaced in place, the old one released
  EXPECT_EQ(a->refCount, start + 1);
  EXPECT_EQ(QlgStringToObjCfgMap_first(map)->value, b);
  QlgStringToObjCfgMap_remove(map, "k");
  EXPECT_EQ(a->refCount, start);
  EXPECT_FALSE(QlgStringToObjCfgMap_contains(map, "k"));
  int32_t bHeld = b->refCount;
  QlgStringToObjCfgMap_destroy(map);
  EXPECT_EQ(b->refCount, bHeld - 1);
  EXPECT_EQ(QlgStringToObjCfgMap_find(nullptr, "a"), nullptr);
  EXPECT_FALSE(QlgStringToObjCfgMap_contains(nullptr, "a"));
  EXPECT_FALSE(QlgStringToObjCfgMap_put(nullptr, "a", a) || QlgStringToObjCfgMap_put(map = QlgStringToObjCfgMap_create(), "a", nullptr));
  EXPECT_EQ(QlgStringToObjCfgMap_entryValue(nullptr), nullptr);
  QlgStringToObjCfgMap_destroy(map);
  QlgObjConfig_releaseUnlocked(a);
  QlgObjConfig_releaseUnlocked(b);
  QlgObjConfig_shutdown();
}

}  // namespace
