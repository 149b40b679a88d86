// SPDX-License-Identifier: Apache-2.0
// The properties-file reader: syntax, escapes, the tree the entries build,
// and the failures that end a read (entries before them stay filed).

#include "core/QlgObjConfig.h"
#include "core/QlgReadProps.h"
#include "support/TestSupport.h"
#include "util/QlgStringToStringMap.h"

namespace {

// The operation succeeds unless the allocator failed (ok is evaluated first).
void okUnlessFailed(int ok) { EXPECT_EQ(ok, !QlgMem_failed()); }

// The store as "name^parent{own properties} " per configuration, in creation order.
std::string store() {
  std::string out;
  for (const QlgStringGroupEntry* e = QlgStringGroup_first(QlgObjConfig_allNames()); e; e = e->next) {
    QlgObjConfig* cfg = QlgObjConfig_find(e->key);
    char* parent = QlgObjConfig_parentName(cfg);
    out += std::string(e->key) + "^" + (parent ? parent : "(null)") + "{";
    QlgMem_free(parent);
    for (QlgStringToStringMapEntry* p = QlgStringToStringMap_first(QlgObjConfig_props(cfg)); p; p = p->next)
      out += std::string(p->key) + "=" + p->value + ";";
    out += "} ";
    QlgObjConfig_releaseUnlocked(cfg);
  }
  return out;
}

// Message 52: 0 no report at all, 1 the report naming 'x.y', 2 not checked.
struct Case { const char* rule; std::string content; int result; std::string store; int message52 = 0; };

const std::vector<Case>& cases() {
  static const std::vector<Case> all = {
      {"an empty file reads successfully", "", 1, ""},
      {"comments and blank lines read successfully",
       "# comment\n! other comment\n\n   \n\t! indented comment\r\n\r\n", 1, ""},
      {"an entry is filed under the object name before the last dot", "x.y.z=1\n", 1, "x.y^/{z=1;} "},
      {"white space and one separator part key and value; trailing blanks stay",
       "  a.b :  v w  \na.c v\na.d=:x\na.e = = y\n", 1, "a^/{b=v w  ;c=v;d=:x;e== y;} "},
      {"comment characters inside keys and values are ordinary",
       "a#b.c=1 # not a comment\n", 1, "a#b^/{c=1 # not a comment;} "},
      {"CR LF and runs of line ends act as one line end", "a.b=1\r\n\r\n\n\na.c=2\r\n", 1, "a^/{b=1;c=2;} "},
      {"a backslash in a key takes white space, separators and itself",
       "key\\ with\\ spaces.prop=v\nk\\:x.p\\=q=1\nb\\\\s.t=2\n", 1,
       "key with spaces^/{prop=v;} k:x^/{p=q=1;} b\\s^/{t=2;} "},
      {"a backslash in a value takes itself, white space and quotes literally",
       "a.b=x\\\\y\\ z\\\"q\\'r\n", 1, "a^/{b=x\\y z\"q'r;} "},
      {"a line continuation skips the next line's leading blanks", "x.y = value \\\n   more\n", 1, "x^/{y=value more;} "},
      {"a continuation works across CR LF", "x.y=a\\\r\n  b\r\n", 1, "x^/{y=ab;} "},
      {"a blank line after a continuation is skipped like any run of line ends", "x.z=c\\\n\nx.w=d\n", 1,
       "x^/{z=cx.w=d;} "},
      {"a Unicode escape appends its code point as UTF-8", "a.b=<\\u00e9>\n", 1, "a^/{b=<\xC3\xA9>;} "},
      {"the Unicode accumulator carries over from one escape to the next", "a.b=\\u0041\\u0001\na.c=\\u0000\n", 1,
       "a^/{b=AB;c=B;} "},
      {"an invalid hexadecimal digit fails the read", "a.b=1\na.c=\\u00g1\n", 0, "a^/{b=1;} "},
      {"a letter escape in a value fails with message 52; earlier entries stay", "a.b=1\nx.y=a\\tb\n", 0,
       "a^/{b=1;} ", 1},
      {"a separator or comment character after a value backslash fails", "a.b=\\#\n", 0, "", 2},
      {"an invalid key escape fails without message 52", "a\\x.b=1\n", 0, ""},
      {"a key without a dot fails the read; entries before it stay filed", "a.b=1\nnoDot=1\nc.d=2\n", 0,
       "a^/{b=1;} "},
      {"an empty object name fails the read", ".p=1\n", 0, ""},
      {"an empty property name fails the read", "a.=1\n", 0, ""},
      {"a separator after leading blanks fails", "  =v\n", 0, ""},
      {"a key followed directly by a line end fails", "a.b\nc.d=1\n", 0, ""},
      {"a key alone on the last line without line end is filed empty", "x.y", 1, "x^/{y=;} "},
      {"a key alone after other entries is filed empty", "a.b=1\nx.y", 1, "a^/{b=1;} x^/{y=;} "},
      {"a key alone followed by a line end fails", "x.y\n", 0, ""},
      {"a last entry without line end is filed", "a.b=1\na.c=2", 1, "a^/{b=1;c=2;} "},
      {"an empty value as the first entry fails: the value has no storage yet", "x.y=\n", 0, ""},
      {"an empty value after a non-empty one is filed empty", "a.b=1\nx.y=\n", 1, "a^/{b=1;} x^/{y=;} "},
      {"a configuration below another has it as parent, and so inherits its properties",
       "handlers.level=5\nhandlers.traceFile.fileName=t.log\n", 1,
       "handlers^/{level=5;} handlers.traceFile^handlers{fileName=t.log;} "},
      {"a configuration appearing between a parent and its child adopts the child",
       "a.x=1\na.b.c.y=2\na.b.z=3\n", 1, "a^/{x=1;} a.b.c^a.b{y=2;} a.b^a{z=3;} "},
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
  for (const Case& c : cases()) {
    SCOPED_TRACE(c.rule);
    QlgObjConfig_shutdown();
    ASSERT_TRUE(QlgObjConfig_startup());
    std::string path = dir_.write("case.properties", c.content);
    testing::internal::CaptureStderr();
    int result = QlgReadProps_read(path.c_str(), nullptr);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(store(), c.store);
    if (c.message52 < 2) {
      EXPECT_EQ(c.message52 ? err.find("QLG0052E") != err.npos && err.find("'x.y'") != err.npos : err.empty(), true) << err;
    }
  }
}

TEST_F(ReadPropsTest, WithATargetSetWholeKeysAreStoredInFileOrder) {
  QlgProps* target = QlgProps_create();
  ASSERT_TRUE(QlgReadProps_read(dir_.write("p", "z.last=1\nnoDot=2\na.b.c=3\nz.last=4\n").c_str(), target));
  std::string got;
  for (QlgStringToStringMapEntry* e = QlgStringToStringMap_first(target); e; e = e->next)
    got += std::string(e->key) + "=" + e->value + ";";
  EXPECT_EQ(got, "z.last=4;noDot=2;a.b.c=3;");
  EXPECT_EQ(store(), "") << "a target read files nothing in the store";
  QlgProps_destroy(target);
}

TEST_F(ReadPropsTest, EntriesAndLineEndsSplitAcrossReadChunksReadAsOne) {
  // A comment of 4090 bytes puts the CR of the next entry's CR LF as the
  // last byte of the first 4 KiB chunk and its LF first in the next.
  std::string content = "#" + std::string(4088, '-') + "\na.b=1\r\na.c=2\na.long=" + std::string(6000, 'v') + "\n";
  ASSERT_EQ(content[4095], '\r');
  EXPECT_TRUE(QlgReadProps_read(dir_.write("p", content).c_str(), nullptr));
  EXPECT_EQ(store(), "a^/{b=1;c=2;long=" + std::string(6000, 'v') + ";} ");
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
                              [](long) { EXPECT_EQ(store().find("{}"), std::string::npos) << "what was filed is whole"; });
}

}  // namespace
