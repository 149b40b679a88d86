/*
 * CxPrintUtil: the integer conversion's bases, signs, prefixes, precision
 * and width rules, and digit grouping with a locale's separator and group
 * sizes passed in explicitly.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include "util/CxPrintUtil.h"
#include "util/QlgMemTest.h"

#include <climits>
#include <string>

namespace {

const int L = CX_PRINT_LEFT, Z = CX_PRINT_ZERO, P = CX_PRINT_PLUS, S = CX_PRINT_SPACE,
          A = CX_PRINT_ALT, G = CX_PRINT_GROUP;

std::string conv(char c, int flags, int width, int precision, uint64_t v,
                 const CxGrouping* grouping = nullptr) {
  CxStringBuff b{0, 0, nullptr};
  int error = 0;
  int n = CxPrintUtil_formatInteger(&b, c, flags, width, precision, v, grouping, &error);
  EXPECT_EQ(error, 0);
  std::string out = b.data ? std::string(b.data, b.length) : std::string();
  EXPECT_EQ(n, static_cast<int>(out.size()));
  CxStringBuff_free(&b);
  return out;
}

uint64_t neg(int64_t v) { return static_cast<uint64_t>(v); }

const CxGrouping kComma3 = {",", "\3"};

std::string grouped(int64_t v, const CxGrouping& g, int flags = G, int width = -1) {
  return conv('d', flags, width, -1, neg(v), &g);
}

}  // namespace

TEST(CxPrintUtilInteger, BasesAndDigitTables) {
  EXPECT_EQ(conv('d', 0, -1, -1, 255), "255");
  EXPECT_EQ(conv('u', 0, -1, -1, 255), "255");
  EXPECT_EQ(conv('o', 0, -1, -1, 255), "377");
  EXPECT_EQ(conv('x', 0, -1, -1, 0xBEEF), "beef");
  EXPECT_EQ(conv('X', 0, -1, -1, 0xBEEF), "BEEF");
  EXPECT_EQ(conv('p', 0, -1, -1, 0xABC), "abc");
  EXPECT_EQ(conv('u', 0, -1, -1, UINT64_MAX), "18446744073709551615");
  EXPECT_EQ(conv('o', 0, -1, -1, UINT64_MAX), "1777777777777777777777");
}

TEST(CxPrintUtilInteger, SignsApplyToSignedDecimalOnly) {
  EXPECT_EQ(conv('d', 0, -1, -1, neg(-42)), "-42");
  EXPECT_EQ(conv('d', P, -1, -1, 42), "+42");
  EXPECT_EQ(conv('d', S, -1, -1, 42), " 42");
  EXPECT_EQ(conv('d', P | S, -1, -1, 42), "+42");
  EXPECT_EQ(conv('d', P, -1, -1, neg(-42)), "-42");
  EXPECT_EQ(conv('d', 0, -1, -1, neg(INT64_MIN)), "-9223372036854775808");
  EXPECT_EQ(conv('u', P | S, -1, -1, 42), "42");
  EXPECT_EQ(conv('x', P, -1, -1, neg(-1)), "ffffffffffffffff");
}

TEST(CxPrintUtilInteger, AlternateFormPrefixesOnlyNonZeroValues) {
  EXPECT_EQ(conv('x', A, -1, -1, 255), "0xff");
  EXPECT_EQ(conv('X', A, -1, -1, 255), "0XFF");
  EXPECT_EQ(conv('x', A, -1, -1, 0), "0");
  EXPECT_EQ(conv('o', A, -1, -1, 8), "010");
  EXPECT_EQ(conv('o', A, -1, -1, 0), "0");
  EXPECT_EQ(conv('o', A, -1, 5, 8), "00010");
  EXPECT_EQ(conv('d', A, -1, -1, 8), "8");
}

TEST(CxPrintUtilInteger, PrecisionGivesMinimumDigitsAndCancelsZeroFill) {
  EXPECT_EQ(conv('d', 0, -1, 5, 42), "00042");
  EXPECT_EQ(conv('d', 0, -1, 5, neg(-42)), "-00042");
  EXPECT_EQ(conv('d', Z, 8, 3, 5), "     005");
  EXPECT_EQ(conv('d', 0, -1, -1, 0), "0");
  EXPECT_EQ(conv('d', 0, -1, 1, 0), "0");
  EXPECT_EQ(conv('x', A, -1, 4, 0x1F), "0x001f");
}

TEST(CxPrintUtilInteger, PrecisionZeroWithValueZeroPrintsNothingEvenWithWidth) {
  EXPECT_EQ(conv('d', 0, -1, 0, 0), "");
  EXPECT_EQ(conv('d', 0, 6, 0, 0), "");
  EXPECT_EQ(conv('o', A, 6, 0, 0), "");
  EXPECT_EQ(conv('d', P, 4, 0, 0), "");
  EXPECT_EQ(conv('d', 0, 4, 0, 7), "   7");
}

TEST(CxPrintUtilInteger, WidthPadsInFrontBehindOrWithZerosAfterTheSign) {
  EXPECT_EQ(conv('d', 0, 6, -1, 42), "    42");
  EXPECT_EQ(conv('d', L, 6, -1, 42), "42    ");
  EXPECT_EQ(conv('d', L | Z, 6, -1, 42), "42    ");
  EXPECT_EQ(conv('d', Z | P, 6, -1, 42), "+00042");
  EXPECT_EQ(conv('d', Z, 6, -1, neg(-42)), "-00042");
  EXPECT_EQ(conv('x', Z | A, 8, -1, 255), "0x0000ff");
  EXPECT_EQ(conv('d', 0, 1, -1, 12345), "12345");
}

TEST(CxPrintUtilGrouping, GroupsDecimalDigitsWithTheLocaleSeparator) {
  EXPECT_EQ(grouped(1234567, kComma3), "1,234,567");
  EXPECT_EQ(grouped(123, kComma3), "123");
  EXPECT_EQ(grouped(1234, kComma3), "1,234");
  EXPECT_EQ(grouped(123456, kComma3), "123,456");
  EXPECT_EQ(grouped(-1234567, kComma3), "-1,234,567");
  EXPECT_EQ(conv('u', G, -1, -1, 1000000, &kComma3), "1,000,000");
  EXPECT_EQ(grouped(1234567, kComma3, G, 12), "   1,234,567");
  EXPECT_EQ(grouped(1234567, kComma3, G | Z, 12), "0001,234,567");
}

TEST(CxPrintUtilGrouping, NoGroupingWithoutSeparatorOrValidSizes) {
  const CxGrouping empty = {"", "\3"};
  const CxGrouping noSizes = {",", ""};
  const CxGrouping zeroFirst = {",", "\xFF"};
  EXPECT_EQ(grouped(1234567, empty), "1234567");
  EXPECT_EQ(grouped(1234567, noSizes), "1234567");
  EXPECT_EQ(grouped(1234567, zeroFirst), "1234567");
  EXPECT_EQ(conv('d', G, -1, -1, 1234567, nullptr), "1234567");
  EXPECT_EQ(grouped(1234567, kComma3, 0), "1234567");
  EXPECT_EQ(conv('x', G, -1, -1, 0x1234567, &kComma3), "1234567");
  EXPECT_EQ(conv('o', G, -1, -1, 01234567, &kComma3), "1234567");
}

TEST(CxPrintUtilGrouping, SizesMoveOnRepeatTheLastAndStopAtCharMax) {
  const CxGrouping indian = {",", "\3\2"};
  EXPECT_EQ(grouped(1234567890, indian), "1,23,45,67,890");
  const char stop[] = {3, CHAR_MAX, 0};
  const CxGrouping once = {".", stop};
  EXPECT_EQ(grouped(1234567890, once), "1234567.890");
  const CxGrouping ones = {"_", "\1"};
  EXPECT_EQ(grouped(1234, ones), "1_2_3_4");
}

TEST(CxPrintUtilGrouping, MultiByteSeparatorIsWrittenWhole) {
  const CxGrouping thin = {"\xE2\x80\xAF", "\3"};
  EXPECT_EQ(grouped(1234567, thin), "1\xE2\x80\xAF" "234\xE2\x80\xAF" "567");
}

TEST(CxPrintUtilGrouping, GroupDigitsReportsAWorkAreaTooSmall) {
  char work[5];
  EXPECT_EQ(CxPrintUtil_groupDigits("1234567", 7, &kComma3, work, sizeof work), -1);
  char enough[9];
  int n = CxPrintUtil_groupDigits("1234567", 7, &kComma3, enough, sizeof enough);
  ASSERT_EQ(n, 9);
  EXPECT_EQ(std::string(enough + sizeof enough - n, n), "1,234,567");
}

TEST(CxPrintUtilFailure, FailedAppendSetsTheErrorAndLeavesTheBuffer) {
  CxStringBuff b{0, 0, nullptr};
  int error = 0;
  QlgMem_failAt(1);
  EXPECT_EQ(CxPrintUtil_formatInteger(&b, 'd', 0, 10, -1, 42, nullptr, &error), 0);
  QlgMem_failAt(0);
  EXPECT_EQ(error, 1);
  EXPECT_EQ(b.data, nullptr);
  // An error already raised makes later conversions do nothing.
  EXPECT_EQ(CxPrintUtil_formatInteger(&b, 'd', 0, -1, -1, 42, nullptr, &error), 0);
  EXPECT_EQ(b.data, nullptr);
  int fresh = 0;
  EXPECT_EQ(CxPrintUtil_formatInteger(nullptr, 'd', 0, -1, -1, 42, nullptr, &fresh), 0);
  EXPECT_EQ(fresh, 1);
}
