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

/* One conversion and its exact output. */
struct Case {
  char c;
  int flags, width, precision;
  uint64_t v;
  const char* out;
};

template <size_t N>
void expectAll(const Case (&cases)[N]) {
  for (const Case& k : cases) {
    EXPECT_EQ(conv(k.c, k.flags, k.width, k.precision, k.v), k.out)
        << "%" << k.c << " flags " << k.flags << " width " << k.width << " precision "
        << k.precision << " value " << k.v;
  }
}

std::string grouped(int64_t v, const CxGrouping& g, int flags = G, int width = -1) {
  return conv('d', flags, width, -1, neg(v), &g);
}

}  // namespace

TEST(CxPrintUtilInteger, BasesAndDigitTables) {
  expectAll({{'d', 0, -1, -1, 255, "255"}, {'u', 0, -1, -1, 255, "255"}, {'o', 0, -1, -1, 255, "377"},
             {'x', 0, -1, -1, 0xBEEF, "beef"}, {'X', 0, -1, -1, 0xBEEF, "BEEF"},
             {'p', 0, -1, -1, 0xABC, "abc"}, {'u', 0, -1, -1, UINT64_MAX, "18446744073709551615"},
             {'o', 0, -1, -1, UINT64_MAX, "1777777777777777777777"}});
}

TEST(CxPrintUtilInteger, SignsApplyToSignedDecimalOnly) {
  expectAll({{'d', 0, -1, -1, neg(-42), "-42"}, {'d', P, -1, -1, 42, "+42"}, {'d', S, -1, -1, 42, " 42"},
             {'d', P | S, -1, -1, 42, "+42"}, {'d', P, -1, -1, neg(-42), "-42"},
             {'d', 0, -1, -1, neg(INT64_MIN), "-9223372036854775808"}, {'u', P | S, -1, -1, 42, "42"},
             {'x', P, -1, -1, neg(-1), "ffffffffffffffff"}});
}

TEST(CxPrintUtilInteger, AlternateFormPrefixesOnlyNonZeroValues) {
  expectAll({{'x', A, -1, -1, 255, "0xff"}, {'X', A, -1, -1, 255, "0XFF"}, {'x', A, -1, -1, 0, "0"},
             {'o', A, -1, -1, 8, "010"}, {'o', A, -1, -1, 0, "0"}, {'o', A, -1, 5, 8, "00010"},
             {'d', A, -1, -1, 8, "8"}});
}

TEST(CxPrintUtilInteger, PrecisionGivesMinimumDigitsAndCancelsZeroFill) {
  expectAll({{'d', 0, -1, 5, 42, "00042"}, {'d', 0, -1, 5, neg(-42), "-00042"},
             {'d', Z, 8, 3, 5, "     005"}, {'d', 0, -1, -1, 0, "0"}, {'d', 0, -1, 1, 0, "0"},
             {'x', A, -1, 4, 0x1F, "0x001f"}});
}

TEST(CxPrintUtilInteger, PrecisionZeroWithValueZeroPrintsNothingEvenWithWidth) {
  expectAll({{'d', 0, -1, 0, 0, ""}, {'d', 0, 6, 0, 0, ""}, {'o', A, 6, 0, 0, ""}, {'d', P, 4, 0, 0, ""},
             {'d', 0, 4, 0, 7, "   7"}});
}

TEST(CxPrintUtilInteger, WidthPadsInFrontBehindOrWithZerosAfterTheSign) {
  expectAll({{'d', 0, 6, -1, 42, "    42"}, {'d', L, 6, -1, 42, "42    "}, {'d', L | Z, 6, -1, 42, "42    "},
             {'d', Z | P, 6, -1, 42, "+00042"}, {'d', Z, 6, -1, neg(-42), "-00042"},
             {'x', Z | A, 8, -1, 255, "0x0000ff"}, {'d', 0, 1, -1, 12345, "12345"}});
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
  for (const CxGrouping& g : {CxGrouping{"", "\3"}, CxGrouping{",", ""}, CxGrouping{",", "\xFF"}})
    EXPECT_EQ(grouped(1234567, g), "1234567") << "'" << g.separator << "'";
  EXPECT_EQ(conv('d', G, -1, -1, 1234567, nullptr), "1234567");
  EXPECT_EQ(grouped(1234567, kComma3, 0), "1234567");
  EXPECT_EQ(conv('x', G, -1, -1, 0x1234567, &kComma3), "1234567");
  EXPECT_EQ(conv('o', G, -1, -1, 01234567, &kComma3), "1234567");
}

TEST(CxPrintUtilGrouping, SizesMoveOnRepeatTheLastAndStopAtCharMax) {
  EXPECT_EQ(grouped(1234567890, {",", "\3\2"}), "1,23,45,67,890");
  const char stop[] = {3, CHAR_MAX, 0};
  EXPECT_EQ(grouped(1234567890, {".", stop}), "1234567.890");
  EXPECT_EQ(grouped(1234, {"_", "\1"}), "1_2_3_4");
  // A multi-byte separator is written whole.
  EXPECT_EQ(grouped(1234567, {"\xE2\x80\xAF", "\3"}), "1\xE2\x80\xAF" "234\xE2\x80\xAF" "567");
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
