/*
 * The configuration-valued map: one reference per entry, and a reference
 * for the caller from every find and entry-value access.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>

#include "core/QlgObjConfig.h"
#include "core/QlgStringToObjCfgMap.h"
#include "util/QlgMemTest.h"

namespace {

class ObjCfgMapTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(QlgObjConfig_startup());
    a_ = QlgObjConfig_find("a");
    b_ = QlgObjConfig_find("b");
    map_ = QlgStringToObjCfgMap_create();
  }
  void TearDown() override {
    QlgMem_failAt(0);
    QlgStringToObjCfgMap_destroy(map_);
    QlgObjConfig_releaseUnlocked(a_);
    QlgObjConfig_releaseUnlocked(b_);
    QlgObjConfig_shutdown();
  }
  QlgObjConfig* a_ = nullptr;
  QlgObjConfig* b_ = nullptr;
  QlgStringToObjCfgMap* map_ = nullptr;
};

TEST_F(ObjCfgMapTest, EachEntryHoldsOneReferenceUntilTheMapIsDestroyed) {
  int32_t start = a_->refCount;
  ASSERT_TRUE(QlgStringToObjCfgMap_put(map_, "a", a_));
  EXPECT_EQ(a_->refCount, start + 1);
  QlgStringToObjCfgMap_destroy(map_);
  map_ = nullptr;
  EXPECT_EQ(a_->refCount, start);
}

TEST_F(ObjCfgMapTest, FindAndEntryValueAddAReferenceForTheCaller) {
  QlgStringToObjCfgMap_put(map_, "a", a_);
  int32_t held = a_->refCount;
  QlgObjConfig* found = QlgStringToObjCfgMap_find(map_, "a");
  EXPECT_EQ(found, a_);
  EXPECT_EQ(a_->refCount, held + 1);
  QlgObjConfig* viaEntry = QlgStringToObjCfgMap_entryValue(QlgStringToObjCfgMap_first(map_));
  EXPECT_EQ(viaEntry, a_);
  EXPECT_EQ(a_->refCount, held + 2);
  EXPECT_EQ(QlgStringToObjCfgMap_peek(map_, "a"), a_);
  EXPECT_EQ(a_->refCount, held + 2) << "peek takes no reference";
  QlgObjConfig_releaseUnlocked(found);
  QlgObjConfig_releaseUnlocked(viaEntry);
  EXPECT_EQ(QlgStringToObjCfgMap_find(map_, "A"), nullptr) << "case-sensitive";
}

TEST_F(ObjCfgMapTest, PuttingAnExistingKeyReleasesTheOldConfiguration) {
  QlgStringToObjCfgMap_put(map_, "k", a_);
  QlgStringToObjCfgMap_put(map_, "other", a_);
  int32_t aHeld = a_->refCount, bHeld = b_->refCount;
  ASSERT_TRUE(QlgStringToObjCfgMap_put(map_, "k", b_));
  EXPECT_EQ(a_->refCount, aHeld - 1);
  EXPECT_EQ(b_->refCount, bHeld + 1);
  EXPECT_EQ(QlgStringToObjCfgMap_first(map_)->value, b_) << "replaced in place";
}

TEST_F(ObjCfgMapTest, RemoveReleasesAndPrefixLookupMatchesWholeKeysOnly) {
  QlgStringToObjCfgMap_put(map_, "a.b", a_);
  EXPECT_EQ(QlgStringToObjCfgMap_peekN(map_, "a.b.c", 3), a_);
  EXPECT_EQ(QlgStringToObjCfgMap_peekN(map_, "a.b.c", 1), nullptr);
  EXPECT_EQ(QlgStringToObjCfgMap_peekN(map_, "a.bc", 4), nullptr);
  int32_t held = a_->refCount;
  QlgStringToObjCfgMap_remove(map_, "a.b");
  EXPECT_EQ(a_->refCount, held - 1);
  EXPECT_FALSE(QlgStringToObjCfgMap_contains(map_, "a.b"));
}

TEST_F(ObjCfgMapTest, NullMapsAndArgumentsAreTolerated) {
  EXPECT_EQ(QlgStringToObjCfgMap_find(nullptr, "a"), nullptr);
  EXPECT_FALSE(QlgStringToObjCfgMap_contains(nullptr, "a"));
  EXPECT_FALSE(QlgStringToObjCfgMap_put(map_, "a", nullptr));
  EXPECT_FALSE(QlgStringToObjCfgMap_put(nullptr, "a", a_));
  EXPECT_EQ(QlgStringToObjCfgMap_first(map_), nullptr);
  EXPECT_EQ(QlgStringToObjCfgMap_entryValue(nullptr), nullptr);
}

TEST_F(ObjCfgMapTest, APutThatRunsOutOfMemoryTakesNoReference) {
  int32_t held = a_->refCount;
  for (long i = 1; i <= 2; ++i) {
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgStringToObjCfgMap_put(map_, "a", a_)) << i;
    QlgMem_failAt(0);
    EXPECT_EQ(a_->refCount, held) << i;
    EXPECT_EQ(QlgStringToObjCfgMap_first(map_), nullptr) << i;
  }
}

}  // namespace
