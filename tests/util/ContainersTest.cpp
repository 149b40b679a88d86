/*
 * The keyed containers built from the one list pattern: insertion order,
 * unique case-sensitive keys, null and empty containers, and puts that fail
 * for want of memory leaving the container as it was.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include <string>
#include <vector>

#include "util/QlgMemTest.h"
#include "util/QlgStringGroup.h"
#include "util/QlgStringToStringMap.h"

namespace {

using Strings = std::vector<std::string>;

Strings mapEntries(const QlgStringToStringMap* m) {
  Strings out;
  for (QlgStringToStringMapEntry* e = QlgStringToStringMap_first(m); e; e = QlgStringToStringMap_next(e)) {
    char* k = QlgStringToStringMap_entryKey(e);
    char* v = QlgStringToStringMap_entryValue(e);
    out.push_back(std::string(k) + "=" + v);
    QlgMem_free(k);
    QlgMem_free(v);
  }
  return out;
}

/* Walks the list both ways, so that a broken back link shows. */
Strings mapBackwards(const QlgStringToStringMap* m) {
  Strings out;
  for (QlgStringToStringMapEntry* e = m->last; e; e = e->prev) out.insert(out.begin(), std::string(e->key) + "=" + e->value);
  return out;
}

Strings groupEntries(const QlgStringGroup* g) {
  Strings out;
  for (QlgStringGroupEntry* e = QlgStringGroup_first(g); e; e = QlgStringGroup_next(e)) out.push_back(e->key);
  Strings back;
  for (QlgStringGroupEntry* e = g ? g->last : nullptr; e; e = e->prev) back.insert(back.begin(), e->key);
  EXPECT_EQ(out, back) << "forward and backward links disagree";
  return out;
}

TEST(StringToStringMap, EntriesKeepInsertionOrderAndAPutReplacesInPlace) {
  QlgStringToStringMap* m = QlgStringToStringMap_create();
  ASSERT_TRUE(QlgStringToStringMap_put(m, "a", "1"));
  ASSERT_TRUE(QlgStringToStringMap_put(m, "b", "2"));
  ASSERT_TRUE(QlgStringToStringMap_put(m, "a", "3"));
  EXPECT_EQ(mapEntries(m), (Strings{"a=3", "b=2"}));
  EXPECT_EQ(mapBackwards(m), (Strings{"a=3", "b=2"}));
  for (QlgStringToStringMapEntry* e = QlgStringToStringMap_first(m); e; e = e->next) EXPECT_EQ(e->head, m);
  QlgStringToStringMap_destroy(m);
}

TEST(StringToStringMap, KeysDifferingOnlyInCaseAreDifferentKeys) {
  QlgStringToStringMap* m = QlgStringToStringMap_create();
  QlgStringToStringMap_put(m, "Level", "1");
  QlgStringToStringMap_put(m, "level", "2");
  EXPECT_EQ(mapEntries(m), (Strings{"Level=1", "level=2"}));
  EXPECT_FALSE(QlgStringToStringMap_contains(m, "LEVEL"));
  QlgStringToStringMap_destroy(m);
}

TEST(StringToStringMap, FindReturnsACopyThatTheCallerOwns) {
  QlgStringToStringMap* m = QlgStringToStringMap_create();
  QlgStringToStringMap_put(m, "k", "value");
  char* v = QlgStringToStringMap_find(m, "k");
  ASSERT_STREQ(v, "value");
  EXPECT_NE(v, QlgStringToStringMap_peek(m, "k"));
  QlgMem_free(v);
  QlgStringToStringMap_destroy(m);
}

TEST(StringToStringMap, NullAndEmptyMapsReadAsEmpty) {
  QlgStringToStringMap* empty = QlgStringToStringMap_create();
  for (QlgStringToStringMap* m : {empty, static_cast<QlgStringToStringMap*>(nullptr)}) {
    EXPECT_EQ(QlgStringToStringMap_find(m, "k"), nullptr);
    EXPECT_FALSE(QlgStringToStringMap_contains(m, "k"));
    EXPECT_EQ(QlgStringToStringMap_first(m), nullptr);
    QlgStringToStringMap_remove(m, "k");
  }
  EXPECT_FALSE(QlgStringToStringMap_put(nullptr, "k", "v"));
  EXPECT_FALSE(QlgStringToStringMap_put(empty, nullptr, "v"));
  EXPECT_EQ(QlgStringToStringMap_entryKey(nullptr), nullptr);
  EXPECT_EQ(QlgStringToStringMap_next(nullptr), nullptr);
  QlgStringToStringMap_destroy(empty);
  QlgStringToStringMap_destroy(nullptr);
}

TEST(StringToStringMap, RemovingFirstMiddleOrLastKeepsTheLinks) {
  for (const char* victim : {"a", "b", "c"}) {
    SCOPED_TRACE(victim);
    QlgStringToStringMap* m = QlgStringToStringMap_create();
    for (const char* k : {"a", "b", "c"}) QlgStringToStringMap_put(m, k, k);
    QlgStringToStringMap_remove(m, victim);
    Strings expected;
    for (const char* k : {"a", "b", "c"})
      if (std::string(k) != victim) expected.push_back(std::string(k) + "=" + k);
    EXPECT_EQ(mapEntries(m), expected);
    EXPECT_EQ(mapBackwards(m), expected);
    QlgStringToStringMap_destroy(m);
  }
}

TEST(StringToStringMap, APutThatRunsOutOfMemoryLeavesTheMapUnchanged) {
  for (const char* key : {"new", "a"}) { /* append, then replace */
    SCOPED_TRACE(key);
    QlgStringToStringMap* m = QlgStringToStringMap_create();
    QlgStringToStringMap_put(m, "a", "1");
    QlgStringToStringMap_put(m, "b", "2");
    const Strings before = mapEntries(m);
    QlgStringToStringMap* probe = QlgStringToStringMap_create();
    QlgStringToStringMap_put(probe, "a", "1");
    QlgMem_failAt(0);
    ASSERT_TRUE(QlgStringToStringMap_put(probe, key, "v"));
    long attempts = QlgMem_allocCount();
    QlgStringToStringMap_destroy(probe);
    ASSERT_GT(attempts, 0);
    for (long i = 1; i <= attempts; ++i) {
      QlgMem_failAt(i);
      EXPECT_FALSE(QlgStringToStringMap_put(m, key, "v")) << i;
      QlgMem_failAt(0);
      EXPECT_EQ(mapEntries(m), before) << i;
      EXPECT_EQ(mapBackwards(m), before) << i;
    }
    QlgStringToStringMap_destroy(m);
  }
}

TEST(StringGroup, ADuplicateIsNotAddedAndAppendSaysSo) {
  QlgStringGroup* g = QlgStringGroup_create();
  EXPECT_TRUE(QlgStringGroup_append(g, "x"));
  EXPECT_TRUE(QlgStringGroup_append(g, "y"));
  EXPECT_FALSE(QlgStringGroup_append(g, "x"));
  EXPECT_TRUE(QlgStringGroup_append(g, "X")) << "case-sensitive";
  EXPECT_EQ(groupEntries(g), (Strings{"x", "y", "X"}));
  QlgStringGroup_destroy(g);
}

TEST(StringGroup, RemovalByTextOrEntryRelinksTheNeighbours) {
  QlgStringGroup* g = QlgStringGroup_create();
  for (const char* t : {"a", "b", "c", "d"}) QlgStringGroup_append(g, t);
  QlgStringGroup_remove(g, "b");
  EXPECT_EQ(groupEntries(g), (Strings{"a", "c", "d"}));
  QlgStringGroup_removeEntry(g, QlgStringGroup_first(g));
  EXPECT_EQ(groupEntries(g), (Strings{"c", "d"}));
  QlgStringGroup_removeEntry(g, g->last);
  EXPECT_EQ(groupEntries(g), Strings{"c"});
  QlgStringGroup_remove(g, "absent");
  QlgStringGroup_remove(g, "c");
  EXPECT_EQ(groupEntries(g), Strings{});
  EXPECT_EQ(g->last, nullptr);
  EXPECT_TRUE(QlgStringGroup_append(g, "again"));
  EXPECT_EQ(groupEntries(g), Strings{"again"});
  QlgStringGroup_destroy(g);
}

TEST(StringGroup, NullAndEmptyGroupsReadAsEmpty) {
  QlgStringGroup* empty = QlgStringGroup_create();
  for (QlgStringGroup* g : {empty, static_cast<QlgStringGroup*>(nullptr)}) {
    EXPECT_FALSE(QlgStringGroup_contains(g, "x"));
    EXPECT_EQ(QlgStringGroup_first(g), nullptr);
    QlgStringGroup_remove(g, "x");
  }
  EXPECT_FALSE(QlgStringGroup_append(nullptr, "x"));
  EXPECT_FALSE(QlgStringGroup_append(empty, nullptr));
  EXPECT_EQ(QlgStringGroup_entryKey(nullptr), nullptr);
  QlgStringGroup_destroy(empty);
  QlgStringGroup_destroy(nullptr);
}

TEST(StringGroup, AnAppendThatRunsOutOfMemoryLeavesTheGroupUnchanged) {
  QlgStringGroup* g = QlgStringGroup_create();
  QlgStringGroup_append(g, "a");
  for (long i = 1; i <= 2; ++i) { /* the entry, then its text */
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgStringGroup_append(g, "b")) << i;
    EXPECT_TRUE(QlgMem_failed()) << i;
    QlgMem_failAt(0);
    EXPECT_EQ(groupEntries(g), Strings{"a"}) << i;
  }
  QlgStringGroup_destroy(g);
}

}  // namespace
