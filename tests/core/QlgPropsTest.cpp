/*
 * Property sets: typed getters parse the stored text with the scanf rules on
 * every read; typed setters store the parameter printer's rendering.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include <ardel/QlgProps.h>
#include <string>
#include <vector>

#include "util/QlgMemTest.h"
#include "util/QlgStringToStringMap.h"

namespace {

class PropsTest : public ::testing::Test {
 protected:
  void SetUp() override { props_ = QlgProps_create(); }
  void TearDown() override {
    QlgMem_failAt(0);
    QlgProps_destroy(props_);
  }
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
  QlgProps* props_ = nullptr;
};

TEST_F(PropsTest, NumericGettersFollowTheScanfRules) {
  struct Row {
    const char* text;
    int found;
    int32_t i;
    int64_t i64;
    double d;
  } rows[] = {
      {"42", 1, 42, 42, 42.0},
      {"42abc", 1, 42, 42, 42.0},       /* trailing characters ignored */
      {" 17", 1, 17, 17, 17.0},         /* leading white space skipped */
      {"-8", 1, -8, -8, -8.0},
      {"abc", 0, 0, 0, 0.0},
      {"", 0, 0, 0, 0.0},
      {"2.5", 1, 2, 2, 2.5},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.text);
    ASSERT_TRUE(QlgProps_setString(props_, "k", r.text));
    int found = -1;
    int32_t i = QlgProps_getInt(props_, "k", &found);
    EXPECT_EQ(found, r.found);
    EXPECT_EQ(i, r.i);
    found = -1;
    EXPECT_EQ(QlgProps_getInt64(props_, "k", &found), r.i64);
    EXPECT_EQ(found, r.found);
    found = -1;
    EXPECT_DOUBLE_EQ(QlgProps_getDouble(props_, "k", &found), r.d);
    EXPECT_EQ(found, r.found);
  }
}

TEST_F(PropsTest, Int64ReadsValuesBeyondThe32BitRange) {
  ASSERT_TRUE(QlgProps_setString(props_, "big", "9000000000"));
  int found = 0;
  EXPECT_EQ(QlgProps_getInt64(props_, "big", &found), 9000000000LL);
  EXPECT_EQ(found, 1);
}

TEST_F(PropsTest, BoolReadsTrueAndFalseInAnyCaseAndNothingElse) {
  struct Row {
    const char* text;
    int value;
    int found;
  } rows[] = {{"TRUE", 1, 1}, {"true", 1, 1}, {"False", 0, 1}, {"yes", 0, 0}, {"1", 0, 0}, {"true ", 0, 0}, {"", 0, 0}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.text);
    ASSERT_TRUE(QlgProps_setString(props_, "b", r.text));
    int found = -1;
    EXPECT_EQ(QlgProps_getBool(props_, "b", &found), r.value);
    EXPECT_EQ(found, r.found);
  }
}

TEST_F(PropsTest, AMissingKeyOrNullSetReadsAsNotFound) {
  int found = -1;
  EXPECT_EQ(QlgProps_getString(props_, "missing", &found), nullptr);
  EXPECT_EQ(found, 0);
  found = -1;
  EXPECT_EQ(QlgProps_getBool(nullptr, "k", &found), 0);
  EXPECT_EQ(found, 0);
  found = -1;
  EXPECT_EQ(QlgProps_getInt(nullptr, "k", &found), 0);
  EXPECT_EQ(found, 0);
  found = -1;
  EXPECT_EQ(QlgProps_getInt64(props_, nullptr, &found), 0);
  EXPECT_EQ(found, 0);
  EXPECT_EQ(QlgProps_getDouble(nullptr, "k", nullptr), 0.0) << "the found flag may be null";
}

TEST_F(PropsTest, GetStringReturnsAnIndependentCopy) {
  ASSERT_TRUE(QlgProps_setString(props_, "s", "value"));
  char* v = QlgProps_getString(props_, "s", nullptr);
  ASSERT_NE(v, nullptr);
  v[0] = 'X';
  EXPECT_EQ(stored("s"), "value");
  QlgMem_free(v);
}

TEST_F(PropsTest, StoringAKeyAgainReplacesItsValueInPlace) {
  QlgProps_setString(props_, "a", "1");
  QlgProps_setString(props_, "b", "2");
  QlgProps_setString(props_, "a", "3");
  EXPECT_EQ(entries(), (std::vector<std::string>{"a=3", "b=2"}));
  QlgProps_setString(props_, "A", "4");
  EXPECT_EQ(entries().size(), 3u) << "keys are case-sensitive";
}

TEST_F(PropsTest, SetBoolStoresTrueOnlyForExactlyOne) {
  QlgProps_setBool(props_, "one", 1);
  QlgProps_setBool(props_, "two", 2);
  QlgProps_setBool(props_, "zero", 0);
  EXPECT_EQ(stored("one"), "true");
  EXPECT_EQ(stored("two"), "false");
  EXPECT_EQ(stored("zero"), "false");
}

TEST_F(PropsTest, TypedSettersStoreTheParameterRendering) {
  EXPECT_TRUE(QlgProps_setInt(props_, "int", -42));
  EXPECT_TRUE(QlgProps_setLong(props_, "long", 123456L));
  EXPECT_TRUE(QlgProps_setFloat(props_, "float", 1.5f));
  EXPECT_TRUE(QlgProps_setDouble(props_, "double", -0.25));
  EXPECT_TRUE(QlgProps_setUChar(props_, "uchar", 'x'));
  EXPECT_EQ(stored("int"), "-42");
  EXPECT_EQ(stored("long"), "123456");
  EXPECT_EQ(stored("float"), "1.500000");
  EXPECT_EQ(stored("double"), "-0.250000");
  EXPECT_EQ(stored("uchar"), "x");
  int found = 0;
  EXPECT_EQ(QlgProps_getInt(props_, "int", &found), -42) << "a stored number reads back";
  EXPECT_DOUBLE_EQ(QlgProps_getDouble(props_, "double", &found), -0.25);
}

TEST_F(PropsTest, SettersRejectNullArguments) {
  EXPECT_FALSE(QlgProps_setString(nullptr, "k", "v"));
  EXPECT_FALSE(QlgProps_setString(props_, nullptr, "v"));
  EXPECT_FALSE(QlgProps_setString(props_, "k", nullptr));
  EXPECT_FALSE(QlgProps_setInt(props_, nullptr, 1));
  EXPECT_FALSE(QlgProps_setDouble(nullptr, "k", 1.0));
  EXPECT_FALSE(QlgProps_setBool(nullptr, "k", 1));
  EXPECT_TRUE(entries().empty());
}

TEST_F(PropsTest, OutOfMemoryInAnySetterLeavesTheSetUnchanged) {
  QlgProps_setString(props_, "a", "1");
  QlgProps_setString(props_, "n", "7");
  const std::vector<std::string> before = entries();
  struct Op {
    const char* name;
    int (*run)(QlgProps*);
  } ops[] = {
      {"new string", [](QlgProps* p) { return QlgProps_setString(p, "z", "v"); }},
      {"replace string", [](QlgProps* p) { return QlgProps_setString(p, "a", "v"); }},
      {"new int", [](QlgProps* p) { return QlgProps_setInt(p, "z", 5); }},
      {"replace int", [](QlgProps* p) { return QlgProps_setInt(p, "n", 5); }},
      {"double", [](QlgProps* p) { return QlgProps_setDouble(p, "z", 5.5); }},
      {"bool", [](QlgProps* p) { return QlgProps_setBool(p, "a", 1); }},
  };
  for (const Op& op : ops) {
    SCOPED_TRACE(op.name);
    QlgProps* probe = QlgProps_create();
    QlgProps_setString(probe, "a", "1");
    QlgProps_setString(probe, "n", "7");
    QlgMem_failAt(0);
    ASSERT_TRUE(op.run(probe));
    long attempts = QlgMem_allocCount();
    QlgProps_destroy(probe);
    for (long i = 1; i <= attempts; ++i) {
      QlgMem_failAt(i);
      EXPECT_FALSE(op.run(props_)) << i;
      EXPECT_TRUE(QlgMem_failed()) << i;
      QlgMem_failAt(0);
      EXPECT_EQ(entries(), before) << i;
    }
  }
}

}  // namespace
