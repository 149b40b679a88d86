// SPDX-License-Identifier: Apache-2.0
// The configuration store: the tree by dotted names, inheritance along it,
// reference counting, and that no failed change leaves a trace.
#include "core/QlgObjConfig.h"
#include "support/TestSupport.h"
#include "util/QlgStringToStringMap.h"

namespace {

// The operation succeeds unless the allocator failed (ok is evaluated first).
void okUnlessFailed(int ok) { EXPECT_EQ(ok, !QlgMem_failed()); }

class ObjConfigTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(QlgObjConfig_startup()); }
  void TearDown() override { QlgObjConfig_shutdown(); }
  void restart() {
    QlgObjConfig_shutdown();
    ASSERT_TRUE(QlgObjConfig_startup());
  }
  // Creates name and drops the caller's reference: the store keeps it.
  static void make(const char* name) { QlgObjConfig_releaseUnlocked(QlgObjConfig_find(name)); }
  static std::string get(const char* name, const char* key) {
    QlgObjConfig* cfg = QlgObjConfig_find(name);
    int found = -1;
    char* v = QlgObjConfig_getProperty(cfg, key, &found);
    std::string s = v ? v : "(null)";
    EXPECT_EQ(found, v != nullptr);
    QlgMem_free(v);
    QlgObjConfig_releaseUnlocked(cfg);
    return s;
  }
  // The whole store as text: every configuration in creation order with its
  // reference count, parent, children, own properties and file mark.
  static std::string snapshot() {
    std::string out;
    for (const QlgStringGroupEntry* n = QlgStringGroup_first(QlgObjConfig_allNames()); n; n = n->next) {
      QlgObjConfig* cfg = QlgObjConfig_find(n->key);
      char* parent = QlgObjConfig_parentName(cfg);
      out += std::string(n->key) + " rc=" + std::to_string(cfg->refCount - 1) + " ^" + (parent ? parent : "?") + " [";
      QlgMem_free(parent);
      for (QlgStringGroupEntry* c = QlgStringGroup_first(cfg->children); c; c = c->next) out += std::string(c->key) + ",";
      out += "] {";
      for (QlgStringToStringMapEntry* p = QlgStringToStringMap_first(QlgObjConfig_props(cfg)); p; p = p->next)
        out += std::string(p->key) + "=" + p->value + ",";
      out += "} f" + std::to_string(QlgObjConfig_isDefinedByFile(cfg)) + "\n";
      QlgObjConfig_releaseUnlocked(cfg);
    }
    return out;
  }
};

TEST_F(ObjConfigTest, PropertiesAreReadOwnFirstThenUpTheChainAndSetInPlace) {
  ASSERT_TRUE(QlgObjConfig_define("handlers", "level", "WARN") && QlgObjConfig_define("handlers", "encoding", "UTF8") &&
              QlgObjConfig_define("handlers.traceFile", "level", "DEBUG_MIN") &&
              QlgObjConfig_define("handlers.traceFile.x", "own", "1"));
  EXPECT_EQ(get("handlers.traceFile", "level"), "DEBUG_MIN");
  EXPECT_EQ(get("handlers.traceFile.x", "encoding"), "UTF8") << "two levels up";
  EXPECT_EQ(get("handlers", "own"), "(null)") << "nothing is inherited downwards";
  int found = -1;
  EXPECT_EQ(QlgObjConfig_getProperty(nullptr, "level", &found), nullptr);
  EXPECT_EQ(found, 0);
  QlgObjConfig* o = QlgObjConfig_find("o");
  EXPECT_EQ(QlgObjConfig_getProperty(o, nullptr, nullptr), nullptr);
  EXPECT_EQ(QlgObjConfig_props(o), nullptr) << "no property set until the first property";
  EXPECT_TRUE(QlgObjConfig_setProperty(o, "first", "1") && QlgObjConfig_setProperty(o, "second", "2") &&
              QlgObjConfig_setProperty(o, "first", "3"));
  EXPECT_FALSE(QlgObjConfig_setProperty(o, "third", nullptr) || QlgObjConfig_setProperty(nullptr, "k", "v"));
  QlgObjConfig_releaseUnlocked(o);
  restart();
  make("asked");
  for (const char* bad : {"", "/"}) EXPECT_FALSE(QlgObjConfig_define(bad, "p", "v"));
  EXPECT_FALSE(QlgObjConfig_define(nullptr, "p", "v") || QlgObjConfig_define("o", nullptr, "v") ||
               QlgObjConfig_define("o", "p", nullptr) || QlgObjConfig_define("o", "", "v"));
  ASSERT_TRUE(QlgObjConfig_define("asked", "p", "1") && QlgObjConfig_define("filed", "p", ""));
  EXPECT_EQ(snapshot(), "asked rc=1 ^/ [] {p=1,} f0\nfiled rc=1 ^/ [] {p=,} f1\n")
      << "only configurations first made by define count as from the file";
}

TEST_F(ObjConfigTest, StartupIsIdempotentShutdownEmptiesTheStoreAndHeldConfigurationsStayUsable) {
  make("kept");
  QlgObjConfig* held = QlgObjConfig_find("held");
  ASSERT_TRUE(QlgObjConfig_setProperty(held, "k", "v"));
  ASSERT_TRUE(QlgObjConfig_startup());
  EXPECT_EQ(snapshot(), "kept rc=1 ^/ [] {} f0\nheld rc=2 ^/ [] {k=v,} f0\n");
  QlgObjConfig_shutdown();
  EXPECT_FALSE(QlgObjConfig_isStarted());
  EXPECT_EQ(QlgObjConfig_find("kept"), nullptr);
  EXPECT_FALSE(QlgObjConfig_define("kept", "p", "v"));
  EXPECT_EQ(held->refCount, 1);
  char* v = QlgObjConfig_getProperty(held, "k", nullptr);
  EXPECT_STREQ(v, "v");
  QlgMem_free(v);
  QlgObjConfig_releaseUnlocked(held);
  for (long i = 1; i <= 2; ++i) {
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgObjConfig_startup());
    QlgMem_failAt(0);
    EXPECT_FALSE(QlgObjConfig_isStarted());
    EXPECT_EQ(QlgObjConfig_find("x"), nullptr);
  }
  ASSERT_TRUE(QlgObjConfig_startup());
  EXPECT_EQ(snapshot(), "");
}

// A tree in which creating "a.b" moves two children of "a".
void buildTree() {
  QlgObjConfig_define("a", "level", "1"), QlgObjConfig_define("a.b.c", "x", "2");
  QlgObjConfig_define("a.b.d.e", "y", "3"), QlgObjConfig_define("a.z", "w", "4");
}

TEST_F(ObjConfigTest, OutOfMemoryAtAnyPointOfAChangeChangesNothing) {
  std::string before;
  const std::function<void()> ops[] = {
      [] { okUnlessFailed(QlgObjConfig_define("a.b", "p", "v")); }, [] { make("a.b"); },
      [] { okUnlessFailed(QlgObjConfig_define("a", "level", "changed")); },
      [] { okUnlessFailed(QlgObjConfig_define("a", "newKey", "changed")); }};
  for (const auto& op : ops)
    ardeltest::sweepAllocations([&] { restart(), buildTree(), before = snapshot(); }, op,
                                [&](long) { EXPECT_EQ(snapshot(), before); });
  QlgObjConfig* bare = QlgObjConfig_find("bare");
  for (long i = 1; i <= 4; ++i) {
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgObjConfig_setProperty(bare, "k", "v")) << i;
    QlgMem_failAt(0);
    EXPECT_EQ(QlgObjConfig_props(bare), nullptr) << "no empty set is left behind";
  }
  QlgObjConfig_releaseUnlocked(bare);
}

TEST_F(ObjConfigTest, PublicFormsWorkUnderTheToolkitLock) {
  QlgObjConfig* cfg = QlgLogManager_getLogger("handlers.traceFile");
  ASSERT_NE(cfg, nullptr);
  EXPECT_TRUE(QlgObject_setProperty(cfg, "fileName", "/tmp/t.log"));
  int found = 0;
  char* v = QlgObject_getProperty(cfg, "fileName", &found);
  EXPECT_STREQ(v, "/tmp/t.log");
  QlgMem_free(v);
  QlgObjConfig_release(cfg);
  found = -1;
  EXPECT_EQ(QlgObject_getProperty(nullptr, "fileName", &found), nullptr);
  EXPECT_EQ(found, 0);
  EXPECT_FALSE(QlgObject_setProperty(nullptr, "k", "v"));
  EXPECT_EQ(QlgLogManager_getLogger("/"), nullptr);
  QlgObjConfig_release(nullptr);
}

}  // namespace
