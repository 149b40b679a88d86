// SPDX-License-Identifier: Apache-2.0
// Property sets: typed getters parse the stored text with the scanf rules on
// every read; typed setters store the parameter printer's rendering.
#include <ardel/QlgProps.h>

#include "support/TestSupport.h"
#include "util/QlgStringToStringMap.h"

namespace {

class PropsTest : public ::testing::Test {
 protected:
  void TearDown() override { QlgProps_destroy(props_); }
  std::string stored(const char* key) {
    int found = 0;
    char* v = QlgProps_getString(props_, key, &found);
    std::string s = found ? v : "(missing)";
    QlgMem_free(v);
    return s;
  }
  std::vector<std::string> entries() {
    std::vector<std::string> out;
    for (QlgStringToStringMapEntry* e = QlgStringToStringMap_first(props_); e; e = e->next)
      out.push_back(std::string(e->key) + "=" + e->value);
    return out;
  }
  QlgProps* props_ = QlgProps_create();
};

TEST_F(PropsTest, TypedGettersFollowTheScanfRulesAndBoolsReadTrueOrFalseInAnyCase) {
  // The integer getters' ranges and prefixes are in NumericPropertyTest.
  const struct { const char* text; int found; double d; int bfound, b; } rows[] = {
      {"42abc", 1, 42.0, 0, 0}, {"abc", 0, 0.0, 0, 0}, {"", 0, 0.0, 0, 0}, {"2.5", 1, 2.5, 0, 0},
      {"TRUE", 0, 0.0, 1, 1}, {"False", 0, 0.0, 1, 0}, {"yes", 0, 0.0, 0, 0}, {"1", 1, 1.0, 0, 0},
      {"true ", 0, 0.0, 0, 0}};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.text);
    ASSERT_TRUE(QlgProps_setString(props_, "k", r.text));
    int f[2] = {-1, -1};
    EXPECT_DOUBLE_EQ(QlgProps_getDouble(props_, "k", &f[0]), r.d);
    EXPECT_EQ(QlgProps_getBool(props_, "k", &f[1]), r.b);
    EXPECT_TRUE(f[0] == r.found && f[1] == r.bfound);
  }
  int found = -1;
  EXPECT_EQ(QlgProps_getString(props_, "missing", &found), nullptr);
  EXPECT_EQ(found, 0);
  EXPECT_EQ(QlgProps_getBool(nullptr, "k", &found) + QlgProps_getInt(nullptr, "k", &found) +
                QlgProps_getInt64(props_, nullptr, &found), 0);
  EXPECT_EQ(found, 0);
  EXPECT_EQ(QlgProps_getDouble(nullptr, "k", nullptr), 0.0) << "the found flag may be null";
}

TEST_F(PropsTest, SettersStoreTheParameterRenderingReplaceInPlaceAndRejectNulls) {
  EXPECT_TRUE(QlgProps_setInt(props_, "int", -42) && QlgProps_setLong(props_, "long", 123456L) &&
              QlgProps_setFloat(props_, "float", 1.5f) && QlgProps_setDouble(props_, "double", -0.25) &&
              QlgProps_setUChar(props_, "uchar", 'x') && QlgProps_setBool(props_, "one", 1) &&
              QlgProps_setBool(props_, "two", 2) && QlgProps_setString(props_, "int", "7"));
  EXPECT_EQ(entries(), (std::vector<std::string>{"int=7", "long=123456", "float=1.500000", "double=-0.250000",
                                                 "uchar=x", "one=true", "two=false"}));
  char* v = QlgProps_getString(props_, "uchar", nullptr);
  v[0] = 'X';
  QlgMem_free(v);
  EXPECT_EQ(stored("uchar"), "x") << "getString hands out a copy";
  QlgProps_setString(props_, "INT", "4");
  EXPECT_EQ(entries().size(), 8u) << "keys are case-sensitive";
  EXPECT_FALSE(QlgProps_setString(nullptr, "k", "v") || QlgProps_setString(props_, nullptr, "v") ||
               QlgProps_setString(props_, "k", nullptr) || QlgProps_setInt(props_, nullptr, 1) ||
               QlgProps_setDouble(nullptr, "k", 1.0) || QlgProps_setBool(nullptr, "k", 1));
  EXPECT_EQ(entries().size(), 8u);
}

TEST_F(PropsTest, OutOfMemoryInAnySetterLeavesTheSetUnchanged) {
  int (*const ops[])(QlgProps*) = {
      [](QlgProps* p) { return QlgProps_setString(p, "z", "v"); }, [](QlgProps* p) { return QlgProps_setString(p, "a", "v"); },
      [](QlgProps* p) { return QlgProps_setInt(p, "z", 5); }, [](QlgProps* p) { return QlgProps_setInt(p, "n", 5); },
      [](QlgProps* p) { return QlgProps_setDouble(p, "z", 5.5); }, [](QlgProps* p) { return QlgProps_setBool(p, "a", 1); }};
  for (auto op : ops)
    ardeltest::sweepAllocations(
        [&] {
          QlgProps_destroy(props_);
          props_ = QlgProps_create();
          QlgProps_setString(props_, "a", "1");
          QlgProps_setString(props_, "n", "7");
        },
        [&] {
          int ok = op(props_);
          EXPECT_EQ(ok, !QlgMem_failed());
        },
        [&](long) { EXPECT_EQ(entries(), (std::vector<std::string>{"a=1", "n=7"})); });
}

}  // namespace
