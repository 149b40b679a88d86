// SPDX-License-Identifier: Apache-2.0
// CxPrintUtil: digit grouping with a locale's separator and group sizes
// passed in explicitly, and a failed append.  The integer conversion's
// bases, signs, prefixes, precision and width are compared with snprintf
// through QlgPrintf (msg/QlgPrintfDifferentialTest).
#include <climits>

#include "support/TestSupport.h"
#include "util/CxPrintUtil.h"

namespace {

const int Z = CX_PRINT_ZERO, G = CX_PRINT_GROUP;
const CxGrouping kComma3 = {",", "\3"};

std::string conv(char c, int flags, int width, int precision, uint64_t v, const CxGrouping* grouping = nullptr) {
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

TEST(CxPrintUtilGrouping, SeparatorAndSizesComeFromTheGroupingAndOnlyDecimalsAreGrouped) {
  const char stop[] = {3, CHAR_MAX, 0};
  const struct { char c; CxGrouping g; int flags, width; int64_t v; const char* out; } cases[] = {
      {'d', kComma3, G, -1, 1234567, "1,234,567"}, {'d', kComma3, G, -1, 123, "123"},
      {'d', kComma3, G, -1, 1234, "1,234"}, {'d', kComma3, G, -1, 123456, "123,456"},
      {'d', kComma3, G, -1, -1234567, "-1,234,567"}, {'u', kComma3, G, -1, 1000000, "1,000,000"},
      {'d', kComma3, G, 12, 1234567, "   1,234,567"}, {'d', kComma3, G | Z, 12, 1234567, "0001,234,567"},
      {'d', {"", "\3"}, G, -1, 1234567, "1234567"}, {'d', {",", ""}, G, -1, 1234567, "1234567"},
      {'d', {",", "\xFF"}, G, -1, 1234567, "1234567"}, {'d', kComma3, 0, -1, 1234567, "1234567"},
      {'x', kComma3, G, -1, 0x1234567, "1234567"}, {'o', kComma3, G, -1, 01234567, "1234567"},
      // sizes move on, the last repeats, CHAR_MAX stops grouping; a multi-byte separator is whole
      {'d', {",", "\3\2"}, G, -1, 1234567890, "1,23,45,67,890"}, {'d', {".", stop}, G, -1, 1234567890, "1234567.890"},
      {'d', {"_", "\1"}, G, -1, 1234, "1_2_3_4"},
      {'d', {"\xE2\x80\xAF", "\3"}, G, -1, 1234567, "1\xE2\x80\xAF" "234\xE2\x80\xAF" "567"}};
  for (const auto& k : cases) EXPECT_EQ(conv(k.c, k.flags, k.width, -1, neg(k.v), &k.g), k.out) << k.out;
  EXPECT_EQ(conv('d', G, -1, -1, 1234567, nullptr), "1234567");
  char work[5], enough[9];
  EXPECT_EQ(CxPrintUtil_groupDigits("1234567", 7, &kComma3, work, sizeof work), -1) << "work area too small";
  ASSERT_EQ(CxPrintUtil_groupDigits("1234567", 7, &kComma3, enough, sizeof enough), 9);
  EXPECT_EQ(std::string(enough, 9), "1,234,567");
}

TEST(CxPrintUtilFailure, AFailedAppendSetsTheErrorAndLaterConversionsDoNothing) {
  CxStringBuff b{0, 0, nullptr};
  int error = 0, fresh = 0;
  QlgMem_failAt(1);
  EXPECT_EQ(CxPrintUtil_formatInteger(&b, 'd', 0, 10, -1, 42, nullptr, &error), 0);
  QlgMem_failAt(0);
  EXPECT_EQ(error, 1);
  EXPECT_EQ(CxPrintUtil_formatInteger(&b, 'd', 0, -1, -1, 42, nullptr, &error), 0);
  EXPECT_EQ(b.data, nullptr);
  EXPECT_EQ(CxPrintUtil_formatInteger(nullptr, 'd', 0, -1, -1, 42, nullptr, &fresh), 0);
  EXPECT_EQ(fresh, 1);
}

}  // namespace
