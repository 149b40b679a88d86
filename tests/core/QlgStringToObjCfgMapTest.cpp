// SPDX-License-Identifier: Apache-2.0
// The configuration-valued map: one reference per entry, and a reference
// for the caller from every find and entry-value access.  The store's own
// use of the map is covered through the store; what stays here is what the
// store never asks for (replacing, null arguments, failed puts).
#include "core/QlgObjConfig.h"
#include "core/QlgStringToObjCfgMap.h"
#include "support/TestSupport.h"

namespace {

TEST(ObjCfgMap, EntriesFindsAndEntryValuesEachHoldOneReferenceAndFailedPutsTakeNone) {
  ASSERT_TRUE(QlgObjConfig_startup());
  QlgObjConfig *a = QlgObjConfig_find("a"), *b = QlgObjConfig_find("b");
  QlgStringToObjCfgMap* map = QlgStringToObjCfgMap_create();
  int32_t start = a->refCount;
  for (long i = 1; i <= 2; ++i) {  // out of memory: no reference, no entry
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgStringToObjCfgMap_put(map, "a", a));
    QlgMem_failAt(0);
    EXPECT_TRUE(a->refCount == start && QlgStringToObjCfgMap_first(map) == nullptr);
  }
  ASSERT_TRUE(QlgStringToObjCfgMap_put(map, "a.b", a) && QlgStringToObjCfgMap_put(map, "k", a));
  QlgObjConfig* viaEntry = QlgStringToObjCfgMap_entryValue(QlgStringToObjCfgMap_first(map));
  EXPECT_TRUE(viaEntry == a && QlgStringToObjCfgMap_peek(map, "k") == a);
  EXPECT_EQ(a->refCount, start + 3) << "two entries and the entry value; peek takes no reference";
  QlgObjConfig_releaseUnlocked(viaEntry);
  ASSERT_TRUE(QlgStringToObjCfgMap_put(map, "a.b", b));  // replaced in place, the old one released
  EXPECT_TRUE(a->refCount == start + 1 && QlgStringToObjCfgMap_first(map)->value == b);
  QlgStringToObjCfgMap_remove(map, "k");
  EXPECT_TRUE(a->refCount == start && !QlgStringToObjCfgMap_contains(map, "k"));
  int32_t bHeld = b->refCount;
  QlgStringToObjCfgMap_destroy(map);
  EXPECT_EQ(b->refCount, bHeld - 1);
  EXPECT_TRUE(QlgStringToObjCfgMap_find(nullptr, "a") == nullptr && !QlgStringToObjCfgMap_contains(nullptr, "a") &&
              QlgStringToObjCfgMap_entryValue(nullptr) == nullptr);
  EXPECT_FALSE(QlgStringToObjCfgMap_put(nullptr, "a", a) || QlgStringToObjCfgMap_put(map = QlgStringToObjCfgMap_create(), "a", nullptr));
  QlgStringToObjCfgMap_destroy(map);
  QlgObjConfig_releaseUnlocked(a);
  QlgObjConfig_releaseUnlocked(b);
  QlgObjConfig_shutdown();
}

}  // namespace
