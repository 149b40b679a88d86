/*
 * The tokenizer and the null-safe text helpers.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include <string>
#include <vector>

#include "util/CxChars.h"
#include "util/QlgMemTest.h"
#include "util/QlgStrTok.h"

namespace {

std::vector<std::string> tokens(const char* text, const char* seps) {
  std::vector<std::string> out;
  QlgStrTok t;
  QlgStrTok_init(&t, text, seps);
  while (QlgStrTok_hasMore(&t)) {
    char* s = QlgStrTok_next(&t);
    out.push_back(s ? s : "(null)");
    QlgMem_free(s);
    QlgStrTok_advance(&t);
  }
  return out;
}

using Tokens = std::vector<std::string>;

TEST(QlgStrTok, ListSeparatorsAreTheSixWhiteSpaceCharacters) {
  EXPECT_STREQ(QlgStrTok_listSeparators, " \t\r\n\f\v");
  EXPECT_EQ(tokens("a\tb\rc\nd\fe\vf g", QLG_LIST_SEPARATORS), (Tokens{"a", "b", "c", "d", "e", "f", "g"}));
}

TEST(QlgStrTok, RunsOfSeparatorsAtEitherEndOrBetweenGiveNoEmptyTokens) {
  EXPECT_EQ(tokens("  one  two\t\n three  ", QLG_LIST_SEPARATORS), (Tokens{"one", "two", "three"}));
  EXPECT_EQ(tokens("   ", QLG_LIST_SEPARATORS), Tokens{});
  EXPECT_EQ(tokens("", QLG_LIST_SEPARATORS), Tokens{});
  EXPECT_EQ(tokens("a,b;;c", ",;"), (Tokens{"a", "b", "c"}));
}

TEST(QlgStrTok, WithoutSeparatorsEveryCharacterIsAToken) {
  EXPECT_EQ(tokens("ab c", nullptr), (Tokens{"a", "b", " ", "c"}));
  EXPECT_EQ(tokens("xy", ""), (Tokens{"x", "y"}));
}

TEST(QlgStrTok, NextDoesNotMovePastTheToken) {
  QlgStrTok t;
  QlgStrTok_init(&t, " alpha beta", QLG_LIST_SEPARATORS);
  char* first = QlgStrTok_next(&t);
  char* again = QlgStrTok_next(&t);
  EXPECT_STREQ(first, "alpha");
  EXPECT_STREQ(again, "alpha");
  QlgMem_free(first);
  QlgMem_free(again);
  QlgStrTok_advance(&t);
  char* second = QlgStrTok_next(&t);
  EXPECT_STREQ(second, "beta");
  QlgMem_free(second);
  QlgStrTok_advance(&t);
  EXPECT_FALSE(QlgStrTok_hasMore(&t));
  EXPECT_EQ(QlgStrTok_next(&t), nullptr);
  QlgStrTok_advance(&t); /* past the end: stays there */
  EXPECT_FALSE(QlgStrTok_hasMore(&t));
}

TEST(QlgStrTok, NullTextOrTokenizerIsEmpty) {
  EXPECT_EQ(tokens(nullptr, QLG_LIST_SEPARATORS), Tokens{});
  QlgStrTok_init(nullptr, "x", nullptr);
  EXPECT_FALSE(QlgStrTok_hasMore(nullptr));
  EXPECT_EQ(QlgStrTok_next(nullptr), nullptr);
  QlgStrTok_advance(nullptr);
}

TEST(QlgStrTok, OutOfMemoryGivesNullButTheTokenStaysAvailable) {
  QlgStrTok t;
  QlgStrTok_init(&t, "a b", QLG_LIST_SEPARATORS);
  QlgMem_failAt(1);
  EXPECT_EQ(QlgStrTok_next(&t), nullptr);
  QlgMem_failAt(0);
  char* s = QlgStrTok_next(&t);
  EXPECT_STREQ(s, "a");
  QlgMem_free(s);
}

TEST(CxChars, CopyOfNullIsNull) {
  EXPECT_EQ(CxChars_dup(nullptr), nullptr);
  char* c = CxChars_dup("text");
  EXPECT_STREQ(c, "text");
  QlgMem_free(c);
}

TEST(CxChars, ExactCompareSortsNullFirst) {
  EXPECT_EQ(CxChars_compare(nullptr, nullptr), 0);
  EXPECT_LT(CxChars_compare(nullptr, ""), 0);
  EXPECT_GT(CxChars_compare("", nullptr), 0);
  EXPECT_LT(CxChars_compare("a", "b"), 0);
  EXPECT_NE(CxChars_compare("a", "A"), 0);
  EXPECT_EQ(CxChars_compare("same", "same"), 0);
}

TEST(CxChars, CaseInsensitiveCompareFoldsAsciiLetters) {
  EXPECT_EQ(CxChars_compareNoCase("TRUE", "true"), 0);
  EXPECT_LT(CxChars_compareNoCase("apple", "Banana"), 0);
  EXPECT_LT(CxChars_compareNoCase(nullptr, "x"), 0);
  EXPECT_NE(CxChars_compareNoCase("true", "true "), 0);
  EXPECT_EQ(CxChars_compareNoCaseN("QLGbc0020E", "qlgBCxx", 5), 0);
  EXPECT_NE(CxChars_compareNoCaseN("QLGbc0020E", "qlgBCxx", 6), 0);
  EXPECT_TRUE(CxChars_startsWithNoCase("On-Demand", "on"));
  EXPECT_FALSE(CxChars_startsWithNoCase("o", "on"));
  EXPECT_FALSE(CxChars_startsWithNoCase("on", nullptr));
  EXPECT_TRUE(CxChars_startsWithNoCase("anything", ""));
}

TEST(CxChars, LengthOfNullIsZero) {
  EXPECT_EQ(CxChars_length(nullptr), 0u);
  EXPECT_EQ(CxChars_length("abc"), 3u);
}

TEST(CxChars, BoundedCopyAndConcatenationAlwaysTerminate) {
  char buf[6];
  EXPECT_TRUE(CxChars_copy(buf, sizeof buf, "abcde"));
  EXPECT_STREQ(buf, "abcde");
  EXPECT_FALSE(CxChars_copy(buf, sizeof buf, "abcdefgh"));
  EXPECT_STREQ(buf, "abcde");
  EXPECT_TRUE(CxChars_copy(buf, sizeof buf, "ab"));
  EXPECT_TRUE(CxChars_concat(buf, sizeof buf, "cd"));
  EXPECT_STREQ(buf, "abcd");
  EXPECT_FALSE(CxChars_concat(buf, sizeof buf, "xyz"));
  EXPECT_STREQ(buf, "abcdx");
  EXPECT_TRUE(CxChars_copy(buf, sizeof buf, nullptr));
  EXPECT_STREQ(buf, "");
  EXPECT_FALSE(CxChars_copy(nullptr, 4, "x"));
  EXPECT_FALSE(CxChars_copy(buf, 0, "x"));
  char unterminated[3] = {'a', 'b', 'c'};
  EXPECT_FALSE(CxChars_concat(unterminated, sizeof unterminated, "d"));
}

}  // namespace
