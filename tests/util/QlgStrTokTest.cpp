// SPDX-License-Identifier: Apache-2.0
// The tokenizer and the null-safe text helpers.

#include "support/TestSupport.h"
#include "util/CxChars.h"
#include "util/QlgStrTok.h"

namespace {

using Tokens = std::vector<std::string>;

// Every token, asking for each one twice: next does not move on.
Tokens tokens(const char* text, const char* seps) {
  Tokens out;
  QlgStrTok t;
  QlgStrTok_init(&t, text, seps);
  while (QlgStrTok_hasMore(&t)) {
    char* s = QlgStrTok_next(&t);
    char* again = QlgStrTok_next(&t);
    EXPECT_STREQ(s, again);
    out.push_back(s ? s : "(null)");
    QlgMem_free(s);
    QlgMem_free(again);
    QlgStrTok_advance(&t);
  }
  EXPECT_EQ(QlgStrTok_next(&t), nullptr);
  QlgStrTok_advance(&t); /* past the end: stays there */
  EXPECT_FALSE(QlgStrTok_hasMore(&t));
  return out;
}

TEST(QlgStrTok, SeparatorRunsGiveNoEmptyTokensAndWithoutSeparatorsEachCharacterIsOne) {
  EXPECT_STREQ(QlgStrTok_listSeparators, " \t\r\n\f\v");
  const struct { const char *text, *seps; Tokens want; } cases[] = {
      {"a\tb\rc\nd\fe\vf g", QLG_LIST_SEPARATORS, {"a", "b", "c", "d", "e", "f", "g"}},
      {"  one  two\t\n three  ", QLG_LIST_SEPARATORS, {"one", "two", "three"}},
      {"   ", QLG_LIST_SEPARATORS, {}}, {"", QLG_LIST_SEPARATORS, {}}, {nullptr, QLG_LIST_SEPARATORS, {}},
      {"a,b;;c", ",;", {"a", "b", "c"}}, {"ab c", nullptr, {"a", "b", " ", "c"}}, {"xy", "", {"x", "y"}}};
  for (const auto& c : cases) EXPECT_EQ(tokens(c.text, c.seps), c.want) << (c.text ? c.text : "(null)");
  QlgStrTok_init(nullptr, "x", nullptr);
  EXPECT_FALSE(QlgStrTok_hasMore(nullptr));
  EXPECT_EQ(QlgStrTok_next(nullptr), nullptr);
  QlgStrTok_advance(nullptr);
}

int sign(int v) { return (v > 0) - (v < 0); }

TEST(CxChars, ComparisonsSortNullFirstAndFoldOnlyWhenAsked) {
  const struct { const char *a, *b; int exact, noCase; } cases[] = {
      {nullptr, nullptr, 0, 0}, {nullptr, "", -1, -1}, {"", nullptr, 1, 1}, {"a", "b", -1, -1},
      {"a", "A", 1, 0}, {"same", "same", 0, 0}, {"apple", "Banana", 1, -1}, {"true", "true ", -1, -1}};
  for (const auto& c : cases) {
    EXPECT_EQ(sign(CxChars_compare(c.a, c.b)), c.exact) << (c.a ? c.a : "null") << " " << (c.b ? c.b : "null");
    EXPECT_EQ(sign(CxChars_compareNoCase(c.a, c.b)), c.noCase) << (c.a ? c.a : "null") << " " << (c.b ? c.b : "null");
  }
  EXPECT_EQ(CxChars_compareNoCaseN("QLGbc0020E", "qlgBCxx", 5), 0);
  EXPECT_NE(CxChars_compareNoCaseN("QLGbc0020E", "qlgBCxx", 6), 0);
  EXPECT_TRUE(CxChars_startsWithNoCase("On-Demand", "on") && CxChars_startsWithNoCase("anything", ""));
  EXPECT_FALSE(CxChars_startsWithNoCase("o", "on") || CxChars_startsWithNoCase("on", nullptr));
  EXPECT_EQ(CxChars_length(nullptr), 0u);
  EXPECT_EQ(CxChars_length("abc"), 3u);
  EXPECT_EQ(CxChars_dup(nullptr), nullptr);
  char* c = CxChars_dup("text");
  EXPECT_STREQ(c, "text");
  QlgMem_free(c);
}

TEST(CxChars, BoundedCopyAndConcatenationAlwaysTerminate) {
  char buf[6];
  const struct { bool concat; const char* in; bool ok; const char* want; } steps[] = {
      {false, "abcde", true, "abcde"}, {false, "abcdefgh", false, "abcde"}, {false, "ab", true, "ab"},
      {true, "cd", true, "abcd"}, {true, "xyz", false, "abcdx"}, {false, nullptr, true, ""}};
  for (const auto& s : steps) {
    EXPECT_EQ(s.concat ? CxChars_concat(buf, sizeof buf, s.in) : CxChars_copy(buf, sizeof buf, s.in), s.ok) << s.want;
    EXPECT_STREQ(buf, s.want);
  }
  EXPECT_FALSE(CxChars_copy(nullptr, 4, "x") || CxChars_copy(buf, 0, "x") || CxChars_concat(nullptr, 4, "x") ||
               CxChars_concat(buf, 0, "x"));
  char unterminated[3] = {'a', 'b', 'c'};
  EXPECT_FALSE(CxChars_concat(unterminated, sizeof unterminated, "d"));
}

}  // namespace
