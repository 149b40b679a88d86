/*
 * The configuration store: the tree by dotted names, inheritance along it,
 * reference counting, and that no failed change leaves a trace.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include <ardel/QlgObjConfig.h>
#include <string>
#include <vector>

#include "core/QlgObjConfig.h"
#include "util/QlgMemTest.h"
#include "util/QlgStringToStringMap.h"

namespace {

class ObjConfigTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(QlgObjConfig_startup()); }
  void TearDown() override {
    QlgMem_failAt(0);
    QlgObjConfig_shutdown();
  }

  /* Creates name and drops the caller's reference: the store keeps it. */
  static void make(const char* name) { QlgObjConfig_releaseUnlocked(QlgObjConfig_find(name)); }

  static std::string parent(const char* name) {
    QlgObjConfig* cfg = QlgObjConfig_find(name);
    char* p = QlgObjConfig_parentName(cfg);
    std::string s = p ? p : "(null)";
    QlgMem_free(p);
    QlgObjConfig_releaseUnlocked(cfg);
    return s;
  }

  static std::vector<std::string> children(const char* name) {
    QlgObjConfig* cfg = QlgObjConfig_find(name);
    std::vector<std::string> out;
    for (QlgStringGroupEntry* e = QlgStringGroup_first(cfg->children); e; e = e->next) out.push_back(e->key);
    QlgObjConfig_releaseUnlocked(cfg);
    return out;
  }

  static std::string get(const char* name, const char* key, int* found) {
    QlgObjConfig* cfg = QlgObjConfig_find(name);
    char* v = QlgObjConfig_getProperty(cfg, key, found);
    std::string s = v ? v : "(null)";
    QlgMem_free(v);
    QlgObjConfig_releaseUnlocked(cfg);
    return s;
  }

  /* The whole store as text: every configuration in creation order with its
     reference count, parent, children and own properties. */
  static std::string snapshot() {
    std::string out;
    for (const QlgStringGroupEntry* n = QlgStringGroup_first(QlgObjConfig_allNames()); n; n = n->next) {
      QlgObjConfig* cfg = QlgObjConfig_find(n->key);
      out += std::string(n->key) + " rc=" + std::to_string(cfg->refCount - 1) /* less the snapshot's own */ + " ^" +
             (cfg->parentName ? cfg->parentName : "?") + " [";
      for (QlgStringGroupEntry* c = QlgStringGroup_first(cfg->children); c; c = c->next) out += std::string(c->key) + ",";
      out += "] {";
      for (QlgStringToStringMapEntry* p = QlgStringToStringMap_first(QlgObjConfig_props(cfg)); p; p = p->next)
        out += std::string(p->key) + "=" + p->value + ",";
      out += "} f" + std::to_string(cfg->definedByFile) + "\n";
      QlgObjConfig_releaseUnlocked(cfg);
    }
    return out;
  }
};

TEST_F(ObjConfigTest, FindGivesNullForNullEmptyAndRootNames) {
  EXPECT_EQ(QlgObjConfig_find(nullptr), nullptr);
  EXPECT_EQ(QlgObjConfig_find(""), nullptr);
  EXPECT_EQ(QlgObjConfig_find("/"), nullptr);
  EXPECT_EQ(QlgStringGroup_first(QlgObjConfig_allNames()), nullptr);
}

TEST_F(ObjConfigTest, FindCreatesOnceAndHandsOutAReferenceEachTime) {
  QlgObjConfig* a = QlgObjConfig_find("a");
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->refCount, 2) << "the caller's reference and the store's";
  QlgObjConfig* again = QlgObjConfig_find("a");
  EXPECT_EQ(again, a);
  EXPECT_EQ(a->refCount, 3);
  QlgObjConfig_releaseUnlocked(again);
  QlgObjConfig_releaseUnlocked(a);
  EXPECT_EQ(a->refCount, 1);
  EXPECT_EQ(parent("a"), "/");
}

TEST_F(ObjConfigTest, ParentIsTheLongestExistingDottedPrefix) {
  make("a");
  make("a.b.c.d");
  EXPECT_EQ(parent("a.b.c.d"), "a") << "prefixes without a configuration are passed over";
  EXPECT_EQ(children("a"), std::vector<std::string>{"a.b.c.d"});
}

TEST_F(ObjConfigTest, AnIntermediateConfigurationAdoptsTheChildrenBelowIt) {
  make("a");
  make("a.b.c");
  make("a.x.y");
  EXPECT_EQ(parent("a.b.c"), "a");
  make("a.b");
  EXPECT_EQ(parent("a.b.c"), "a.b");
  EXPECT_EQ(parent("a.x.y"), "a") << "only names below the new configuration move";
  EXPECT_EQ(parent("a.b"), "a");
  EXPECT_EQ(children("a"), (std::vector<std::string>{"a.x.y", "a.b"}));
  EXPECT_EQ(children("a.b"), std::vector<std::string>{"a.b.c"});
}

TEST_F(ObjConfigTest, ATextPrefixThatIsNotADottedPrefixAdoptsNothing) {
  make("a");
  make("a.bc.d");
  make("a.b");
  EXPECT_EQ(parent("a.bc.d"), "a");
  EXPECT_TRUE(children("a.b").empty());
}

TEST_F(ObjConfigTest, TopLevelConfigurationsAdoptNoEarlierDescendants) {
  /* The root keeps no children, so a name made under "/" stays there. */
  make("a.b.c");
  make("a");
  EXPECT_EQ(parent("a.b.c"), "/");
}

TEST_F(ObjConfigTest, GetPropertyReadsOwnValuesFirstThenUpTheChain) {
  ASSERT_TRUE(QlgObjConfig_define("handlers", "level", "WARN"));
  ASSERT_TRUE(QlgObjConfig_define("handlers", "encoding", "UTF8"));
  ASSERT_TRUE(QlgObjConfig_define("handlers.traceFile", "level", "DEBUG_MIN"));
  ASSERT_TRUE(QlgObjConfig_define("handlers.traceFile.x", "own", "1"));
  int found = -1;
  EXPECT_EQ(get("handlers.traceFile", "level", &found), "DEBUG_MIN");
  EXPECT_EQ(found, 1);
  EXPECT_EQ(get("handlers.traceFile.x", "encoding", &found), "UTF8") << "two levels up";
  EXPECT_EQ(found, 1);
  EXPECT_EQ(get("handlers", "own", &found), "(null)") << "nothing is inherited downwards";
  EXPECT_EQ(found, 0);
  found = -1;
  EXPECT_EQ(QlgObjConfig_getProperty(nullptr, "level", &found), nullptr);
  EXPECT_EQ(found, 0);
  QlgObjConfig* h = QlgObjConfig_find("handlers");
  EXPECT_EQ(QlgObjConfig_getProperty(h, nullptr, nullptr), nullptr);
  QlgObjConfig_releaseUnlocked(h);
}

TEST_F(ObjConfigTest, SetPropertyReplacesInPlaceKeepingFileOrder) {
  QlgObjConfig* cfg = QlgObjConfig_find("o");
  EXPECT_EQ(QlgObjConfig_props(cfg), nullptr) << "no property set until the first property";
  EXPECT_TRUE(QlgObjConfig_setProperty(cfg, "first", "1"));
  EXPECT_TRUE(QlgObjConfig_setProperty(cfg, "second", "2"));
  EXPECT_TRUE(QlgObjConfig_setProperty(cfg, "first", "3"));
  EXPECT_FALSE(QlgObjConfig_setProperty(cfg, "third", nullptr));
  EXPECT_FALSE(QlgObjConfig_setProperty(nullptr, "k", "v"));
  QlgObjConfig_releaseUnlocked(cfg);
  EXPECT_EQ(snapshot(), "o rc=1 ^/ [] {first=3,second=2,} f0\n");
}

TEST_F(ObjConfigTest, DefineRejectsMissingOrEmptyParts) {
  EXPECT_FALSE(QlgObjConfig_define(nullptr, "p", "v"));
  EXPECT_FALSE(QlgObjConfig_define("o", nullptr, "v"));
  EXPECT_FALSE(QlgObjConfig_define("o", "p", nullptr));
  EXPECT_FALSE(QlgObjConfig_define("", "p", "v"));
  EXPECT_FALSE(QlgObjConfig_define("o", "", "v"));
  EXPECT_FALSE(QlgObjConfig_define("/", "p", "v"));
  EXPECT_EQ(snapshot(), "");
  EXPECT_TRUE(QlgObjConfig_define("o", "p", "")) << "an empty value is a value";
}

TEST_F(ObjConfigTest, OnlyConfigurationsFirstCreatedByDefineAreMarkedAsFromTheFile) {
  make("asked");
  ASSERT_TRUE(QlgObjConfig_define("asked", "p", "1"));
  ASSERT_TRUE(QlgObjConfig_define("filed", "p", "2"));
  EXPECT_EQ(snapshot(), "asked rc=1 ^/ [] {p=1,} f0\nfiled rc=1 ^/ [] {p=2,} f1\n");
}

TEST_F(ObjConfigTest, StartupIsIdempotentAndShutdownEmptiesTheStore) {
  make("kept");
  ASSERT_TRUE(QlgObjConfig_startup());
  EXPECT_EQ(snapshot(), "kept rc=1 ^/ [] {} f0\n");
  QlgObjConfig_shutdown();
  EXPECT_FALSE(QlgObjConfig_isStarted());
  EXPECT_EQ(QlgObjConfig_find("kept"), nullptr);
  EXPECT_FALSE(QlgObjConfig_define("kept", "p", "v"));
  ASSERT_TRUE(QlgObjConfig_startup());
  EXPECT_EQ(snapshot(), "");
}

TEST_F(ObjConfigTest, AConfigurationHeldPastShutdownStaysUsableUntilReleased) {
  QlgObjConfig* cfg = QlgObjConfig_find("held");
  ASSERT_TRUE(QlgObjConfig_setProperty(cfg, "k", "v"));
  QlgObjConfig_shutdown();
  EXPECT_EQ(cfg->refCount, 1);
  int found = 0;
  char* v = QlgObjConfig_getProperty(cfg, "k", &found);
  EXPECT_STREQ(v, "v");
  QlgMem_free(v);
  QlgObjConfig_releaseUnlocked(cfg);
}

TEST_F(ObjConfigTest, StartupOutOfMemoryLeavesTheStoreUninitialised) {
  QlgObjConfig_shutdown();
  for (long i = 1; i <= 2; ++i) {
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgObjConfig_startup());
    QlgMem_failAt(0);
    EXPECT_FALSE(QlgObjConfig_isStarted());
    EXPECT_EQ(QlgObjConfig_find("x"), nullptr);
  }
  EXPECT_TRUE(QlgObjConfig_startup());
}

/* Builds a tree in which creating "a.b" moves two children of "a". */
void buildTree() {
  QlgObjConfig_define("a", "level", "1");
  QlgObjConfig_define("a.b.c", "x", "2");
  QlgObjConfig_define("a.b.d.e", "y", "3");
  QlgObjConfig_define("a.z", "w", "4");
}

TEST_F(ObjConfigTest, DefineOutOfMemoryAtAnyPointChangesNothing) {
  buildTree();
  const std::string before = snapshot();
  QlgMem_failAt(0);
  ASSERT_TRUE(QlgObjConfig_define("a.b", "p", "v"));
  long attempts = QlgMem_allocCount();
  const std::string after = snapshot();
  ASSERT_NE(before, after);
  EXPECT_EQ(parent("a.b.d.e"), "a.b");

  for (long i = 1; i <= attempts; ++i) {
    SCOPED_TRACE(i);
    QlgObjConfig_shutdown();
    ASSERT_TRUE(QlgObjConfig_startup());
    buildTree();
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgObjConfig_define("a.b", "p", "v"));
    EXPECT_TRUE(QlgMem_failed());
    QlgMem_failAt(0);
    EXPECT_EQ(snapshot(), before);
  }
}

TEST_F(ObjConfigTest, FindOutOfMemoryAtAnyPointChangesNothing) {
  buildTree();
  const std::string before = snapshot();
  QlgMem_failAt(0);
  make("a.b");
  long attempts = QlgMem_allocCount();
  for (long i = 1; i <= attempts; ++i) {
    SCOPED_TRACE(i);
    QlgObjConfig_shutdown();
    ASSERT_TRUE(QlgObjConfig_startup());
    buildTree();
    QlgMem_failAt(i);
    EXPECT_EQ(QlgObjConfig_find("a.b"), nullptr);
    QlgMem_failAt(0);
    EXPECT_EQ(snapshot(), before);
  }
}

TEST_F(ObjConfigTest, PropertyOutOfMemoryKeepsTheEarlierValues) {
  /* Replacing a value and adding a key, each on an existing configuration. */
  for (const char* key : {"level", "newKey"}) {
    SCOPED_TRACE(key);
    QlgObjConfig_shutdown();
    ASSERT_TRUE(QlgObjConfig_startup());
    buildTree();
    const std::string before = snapshot();
    QlgMem_failAt(0);
    ASSERT_TRUE(QlgObjConfig_define("a", key, "changed"));
    long attempts = QlgMem_allocCount();
    ASSERT_GT(attempts, 0);
    for (long i = 1; i <= attempts; ++i) {
      QlgObjConfig_shutdown();
      ASSERT_TRUE(QlgObjConfig_startup());
      buildTree();
      QlgMem_failAt(i);
      EXPECT_FALSE(QlgObjConfig_define("a", key, "changed")) << i;
      EXPECT_TRUE(QlgMem_failed()) << i;
      QlgMem_failAt(0);
      EXPECT_EQ(snapshot(), before) << i;
    }
  }
}

TEST_F(ObjConfigTest, FirstPropertyOutOfMemoryLeavesNoEmptySetBehind) {
  QlgObjConfig* cfg = QlgObjConfig_find("bare");
  for (long i = 1; i <= 4; ++i) {
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgObjConfig_setProperty(cfg, "k", "v")) << i;
    QlgMem_failAt(0);
    EXPECT_EQ(QlgObjConfig_props(cfg), nullptr) << i;
  }
  EXPECT_TRUE(QlgObjConfig_setProperty(cfg, "k", "v"));
  QlgObjConfig_releaseUnlocked(cfg);
}

TEST_F(ObjConfigTest, PublicFormsWorkUnderTheToolkitLock) {
  QlgObjConfig* cfg = QlgLogManager_getLogger("handlers.traceFile");
  ASSERT_NE(cfg, nullptr);
  EXPECT_TRUE(QlgObject_setProperty(cfg, "fileName", "/tmp/t.log"));
  int found = 0;
  char* v = QlgObject_getProperty(cfg, "fileName", &found);
  EXPECT_EQ(found, 1);
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
