// SPDX-License-Identifier: Apache-2.0
// The properties-file reader: syntax, escapes, the tree the entries build,
// and the failures that end a read (entries before them stay filed).
#include <vector>

#include "core/QlgObjConfig.h"
#include "core/QlgReadProps.h"
#include "support/TestSupport.h"
#include "util/QlgStringToStringMap.h"

namespace {

// The operation succeeds unless the allocator failed (ok is evaluated first).
void okUnlessFailed(int ok) { EXPECT_EQ(ok, !QlgMem_failed()); }

// A value of null: not found, also not through ancestors.
struct Prop { const char *config, *key, *value; };
// Message 52: 0 no report at all, 1 the report naming 'x.y', 2 not checked.
struct Case {
  const char* rule;
  std::string content;
  int result;
  std::vector<const char*> names;  // every configuration, in creation order
  std::vector<Prop> props;
  std::vector<std::pair<const char*, const char*>> parents;
  int message52;
};

std::vector<std::string> storeNames() {
  std::vector<std::string> out;
  for (const QlgStringGroupEntry* e = QlgStringGroup_first(QlgObjConfig_allNames()); e; e = e->next)
    out.push_back(e->key);
  return out;
}

// Reads key through the configuration without creating it.
std::string lookup(const char* config, const char* key, int* found) {
  *found = 0;
  if (!QlgStringGroup_contains(QlgObjConfig_allNames(), config)) return "";
  QlgObjConfig* cfg = QlgObjConfig_find(config);
  char* v = QlgObjConfig_getProperty(cfg, key, found);
  std::string s = v ? v : "";
  QlgMem_free(v);
  QlgObjConfig_releaseUnlocked(cfg);
  return s;
}

std::string parentOf(const char* config) {
  QlgObjConfig* cfg = QlgObjConfig_find(config);
  char* p = QlgObjConfig_parentName(cfg);
  std::string s = p ? p : "(null)";
  QlgMem_free(p);
  QlgObjConfig_releaseUnlocked(cfg);
  return s;
}

const std::vector<Case>& cases() {
  static const std::vector<Case> all = {
      {"an empty file reads successfully", "", 1, {}, {}, {}, 0},
      {"comments and blank lines read successfully",
       "# comment\n! other comment\n\n   \n\t! indented comment\r\n\r\n", 1, {}, {}, {}, 0},
      {"an entry is filed under the object name before the last dot",
       "x.y.z=1\n", 1, {"x.y"}, {{"x.y", "z", "1"}, {"x", "y.z", nullptr}}, {{"x.y", "/"}}, 0},
      {"white space and one separator part key and value; trailing blanks stay",
       "  a.b :  v w  \na.c v\na.d=:x\na.e = = y\n", 1, {"a"},
       {{"a", "b", "v w  "}, {"a", "c", "v"}, {"a", "d", ":x"}, {"a", "e", "= y"}}, {}, 0},
      {"comment characters inside keys and values are ordinary",
       "a#b.c=1 # not a comment\n", 1, {"a#b"}, {{"a#b", "c", "1 # not a comment"}}, {}, 0},
      {"CR LF and runs of line ends act as one line end",
       "a.b=1\r\n\r\n\n\na.c=2\r\n", 1, {"a"}, {{"a", "b", "1"}, {"a", "c", "2"}}, {}, 0},
      {"a backslash in a key takes white space, separators and itself",
       "key\\ with\\ spaces.prop=v\nk\\:x.p\\=q=1\nb\\\\s.t=2\n", 1, {"key with spaces", "k:x", "b\\s"},
       {{"key with spaces", "prop", "v"}, {"k:x", "p=q", "1"}, {"b\\s", "t", "2"}}, {}, 0},
      {"a backslash in a value takes itself, white space and quotes literally",
       "a.b=x\\\\y\\ z\\\"q\\'r\n", 1, {"a"}, {{"a", "b", "x\\y z\"q'r"}}, {}, 0},
      {"a line continuation skips the next line's leading blanks",
       "x.y = value \\\n   more\n", 1, {"x"}, {{"x", "y", "value more"}}, {}, 0},
      {"a continuation works across CR LF",
       "x.y=a\\\r\n  b\r\n", 1, {"x"}, {{"x", "y", "ab"}}, {}, 0},
      {"a blank line after a continuation is skipped like any run of line ends",
       "x.z=c\\\n\nx.w=d\n", 1, {"x"}, {{"x", "z", "cx.w=d"}, {"x", "w", nullptr}}, {}, 0},
      {"a Unicode escape appends its code point as UTF-8",
       "a.b=<\\u00e9>\n", 1, {"a"}, {{"a", "b", "<\xC3\xA9>"}}, {}, 0},
      {"the Unicode accumulator carries over from one escape to the next",
       "a.b=\\u0041\\u0001\na.c=\\u0000\n", 1, {"a"}, {{"a", "b", "AB"}, {"a", "c", "B"}}, {}, 0},
      {"an invalid hexadecimal digit fails the read",
       "a.b=1\na.c=\\u00g1\n", 0, {"a"}, {{"a", "b", "1"}, {"a", "c", nullptr}}, {}, 0},
      {"a letter escape in a value fails with message 52; earlier entries stay",
       "a.b=1\nx.y=a\\tb\n", 0, {"a"}, {{"a", "b", "1"}, {"x", "y", nullptr}}, {}, 1},
      {"a separator or comment character after a value backslash fails",
       "a.b=\\#\n", 0, {}, {}, {}, 2},
      {"an invalid key escape fails without message 52",
       "a\\x.b=1\n", 0, {}, {}, {}, 0},
      {"a key without a dot fails the read; entries before it stay filed",
       "a.b=1\nnoDot=1\nc.d=2\n", 0, {"a"}, {{"a", "b", "1"}, {"c", "d", nullptr}}, {}, 0},
      {"an empty object name fails the read", ".p=1\n", 0, {}, {}, {}, 0},
      {"an empty property name fails the read", "a.=1\n", 0, {}, {}, {}, 0},
      {"a separator after leading blanks fails", "  =v\n", 0, {}, {}, {}, 0},
      {"a key followed directly by a line end fails", "a.b\nc.d=1\n", 0, {}, {}, {}, 0},
      {"a key alone on the last line without line end is filed empty",
       "x.y", 1, {"x"}, {{"x", "y", ""}}, {}, 0},
      {"a key alone after other entries is filed empty",
       "a.b=1\nx.y", 1, {"a", "x"}, {{"a", "b", "1"}, {"x", "y", ""}}, {}, 0},
      {"a key alone followed by a line end fails", "x.y\n", 0, {}, {}, {}, 0},
      {"a last entry without line end is filed", "a.b=1\na.c=2", 1, {"a"},
       {{"a", "b", "1"}, {"a", "c", "2"}}, {}, 0},
      {"an empty value as the first entry fails: the value has no storage yet",
       "x.y=\n", 0, {}, {}, {}, 0},
      {"an empty value after a non-empty one is filed empty",
       "a.b=1\nx.y=\n", 1, {"a", "x"}, {{"a", "b", "1"}, {"x", "y", ""}}, {}, 0},
      {"a property on a configuration is inherited by the names below it",
       "handlers.level=5\nhandlers.traceFile.fileName=t.log\n", 1, {"handlers", "handlers.traceFile"},
       {{"handlers.traceFile", "level", "5"}, {"handlers.traceFile", "fileName", "t.log"},
        {"handlers", "fileName", nullptr}},
       {{"handlers.traceFile", "handlers"}, {"handlers", "/"}}, 0},
      {"a configuration appearing between a parent and its child adopts the child",
       "a.x=1\na.b.c.y=2\na.b.z=3\n", 1, {"a", "a.b.c", "a.b"},
       {{"a.b.c", "x", "1"}, {"a.b.c", "z", "3"}, {"a.b.c", "y", "2"}},
       {{"a.b.c", "a.b"}, {"a.b", "a"}}, 0},
  };
  return all;
}

class ReadPropsTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(QlgObjConfig_startup()); }
  void TearDown() override { QlgObjConfig_shutdown(); }
  ardeltest::TempDir dir_;
};

TEST_F(ReadPropsTest, EachFileGivesItsDocumentedResultAndConfigurations) {
  int n = 0;
  for (const Case& c : cases()) {
    SCOPED_TRACE(c.rule);
    QlgObjConfig_shutdown();
    ASSERT_TRUE(QlgObjConfig_startup());
    std::string path = dir_.write("case" + std::to_string(n++) + ".properties", c.content);

    testing::internal::CaptureStderr();
    int result = QlgReadProps_read(path.c_str(), nullptr);
    std::string err = testing::internal::GetCapturedStderr();

    EXPECT_EQ(result, c.result);
    if (c.message52 < 2) {
      EXPECT_EQ(c.message52 ? err.find("QLG0052E") != err.npos && err.find("'x.y'") != err.npos : err.empty(), true) << err;
    }

    std::vector<std::string> expectedNames(c.names.begin(), c.names.end());
    EXPECT_EQ(storeNames(), expectedNames);
    for (const Prop& p : c.props) {
      int found = 0;
      std::string v = lookup(p.config, p.key, &found);
      EXPECT_EQ(found ? v : "(none)", p.value ? p.value : "(none)") << p.config << " / " << p.key;
    }
    for (const auto& p : c.parents) EXPECT_EQ(parentOf(p.first), p.second) << p.first;
  }
}

TEST_F(ReadPropsTest, WithATargetSetWholeKeysAreStoredInFileOrder) {
  QlgProps* target = QlgProps_create();
  ASSERT_TRUE(QlgReadProps_read(dir_.write("p", "z.last=1\nnoDot=2\na.b.c=3\nz.last=4\n").c_str(), target));
  std::vector<std::string> got;
  for (QlgStringToStringMapEntry* e = QlgStringToStringMap_first(target); e; e = e->next)
    got.push_back(std::string(e->key) + "=" + e->value);
  EXPECT_EQ(got, (std::vector<std::string>{"z.last=4", "noDot=2", "a.b.c=3"}));
  EXPECT_TRUE(storeNames().empty()) << "a target read files nothing in the store";
  QlgProps_destroy(target);
}

TEST_F(ReadPropsTest, EntriesAndLineEndsSplitAcrossReadChunksReadAsOne) {
  // A comment of 4090 bytes puts the CR of the next entry's CR LF as the
  // last byte of the first 4 KiB chunk and its LF first in the next.
  std::string comment = "#" + std::string(4088, '-') + "\n";
  ASSERT_EQ(comment.size(), 4090u);
  std::string content = comment + "a.b=1\r\na.c=2\n" + "a.long=" + std::string(6000, 'v') + "\n";
  ASSERT_EQ(content[4095], '\r');
  EXPECT_TRUE(QlgReadProps_read(dir_.write("p", content).c_str(), nullptr));
  int found = 0;
  EXPECT_EQ(lookup("a", "b", &found), "1");
  EXPECT_EQ(lookup("a", "c", &found), "2");
  EXPECT_EQ(lookup("a", "long", &found), std::string(6000, 'v'));
}

TEST_F(ReadPropsTest, AMissingFileOrNullPathFailsTheRead) {
  EXPECT_EQ(QlgReadProps_read(dir_.file("absent.properties").c_str(), nullptr), 0);
  EXPECT_EQ(QlgReadProps_read(nullptr, nullptr), 0);
  EXPECT_EQ(QlgReadProps_read(dir_.path().c_str(), nullptr), 0) << "a directory cannot be read";
}

TEST_F(ReadPropsTest, OutOfMemoryAnywhereFailsTheReadWithoutLeaks) {
  std::string path = dir_.write("p", "a.b=1\na.b.c.d=\\u0041x\nkey\\ s.p = v\\\n  w\n");
  ardeltest::sweepAllocations([] { QlgObjConfig_shutdown(), QlgObjConfig_startup(); },
                              [&] { okUnlessFailed(QlgReadProps_read(path.c_str(), nullptr)); },
                              [](long) {
    for (const std::string& name : storeNames()) {  // whatever was filed before the failure is whole
      QlgObjConfig* cfg = QlgObjConfig_find(name.c_str());
      EXPECT_NE(QlgObjConfig_props(cfg), nullptr) << name;
      QlgObjConfig_releaseUnlocked(cfg);
    }
  });
}

}  // namespace
