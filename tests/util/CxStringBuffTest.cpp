/*
 * CxStringBuff: growth policy, the decimal and UTF-8 appends with their
 * intended quirks, insertion bounds, in-place conversion, and the promise
 * that a failed allocation leaves the buffer exactly as it was.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include "nls/QlgCodeset.h"
#include "util/CxStringBuff.h"
#include "util/QlgMemTest.h"

#include <climits>
#include <cstring>
#include <functional>
#include <string>

namespace {

struct Buff {
  CxStringBuff b{0, 0, nullptr};
  Buff() = default;
  explicit Buff(const std::string& s) { EXPECT_TRUE(CxStringBuff_appendN(&b, s.c_str(), -1)); }
  ~Buff() { CxStringBuff_free(&b); }
  std::string text() const { return b.data ? std::string(b.data, b.length) : std::string(); }
};

std::string utf8Of(int32_t cp) {
  Buff x;
  EXPECT_TRUE(CxStringBuff_appendUtf8(&x.b, cp));
  return x.text();
}

QlgCodeset* utf8() { return QlgCodeset_open("UTF8"); }

}  // namespace

TEST(CxStringBuffGrowth, FirstAppendAllocatesOneKibibyteEvenForAZeroReserve) {
  Buff x;
  ASSERT_TRUE(CxStringBuff_appendChar(&x.b, 'a'));
  EXPECT_EQ(x.b.capacity, 1024);
  EXPECT_EQ(x.b.length, 1);
  EXPECT_EQ(x.b.data[0], 'a');
  EXPECT_EQ(x.b.data[1], 0);
  Buff zero;
  ASSERT_TRUE(CxStringBuff_reserve(&zero.b, 0));
  EXPECT_EQ(zero.b.capacity, 1024);
  EXPECT_EQ(zero.b.length, 0);
  EXPECT_STREQ(zero.b.data, "");
}

TEST(CxStringBuffGrowth, DoublesUntilStrictlyAboveTheNeed) {
  Buff x;
  std::string s(1023, 'x');
  ASSERT_TRUE(CxStringBuff_append(&x.b, s.c_str()));
  EXPECT_EQ(x.b.capacity, 1024);  // a full kibibyte still fits
  ASSERT_TRUE(CxStringBuff_appendChar(&x.b, 'y'));
  EXPECT_EQ(x.b.capacity, 2048);
  EXPECT_EQ(x.text(), s + "y");
  // Reserving n needs n + 1 bytes, which must stay strictly below the capacity.
  for (auto c : {std::pair<int, int>{2046, 2048}, {2047, 4096}}) {
    Buff r;
    ASSERT_TRUE(CxStringBuff_reserve(&r.b, c.first));
    EXPECT_EQ(r.b.capacity, c.second) << c.first;
  }
  Buff big;
  std::string q(5000, 'q');
  ASSERT_TRUE(CxStringBuff_append(&big.b, q.c_str()));
  EXPECT_EQ(big.b.capacity, 8192);
  EXPECT_EQ(big.text(), q);
}

TEST(CxStringBuffAppend, AppendNStopsAtCountOrTerminatorAndAppendCharWritesEvenANul) {
  Buff x;
  EXPECT_TRUE(CxStringBuff_appendN(&x.b, "abcdef", 3));
  EXPECT_TRUE(CxStringBuff_appendN(&x.b, "xy", 10));
  EXPECT_TRUE(CxStringBuff_appendN(&x.b, "whole", -1));
  EXPECT_TRUE(CxStringBuff_appendN(&x.b, "!!", -2));
  EXPECT_TRUE(CxStringBuff_appendN(&x.b, "zzz", 0));
  EXPECT_EQ(x.text(), "abcxywhole!!");
  Buff c("ab");
  ASSERT_TRUE(CxStringBuff_appendChar(&c.b, '\0'));
  ASSERT_TRUE(CxStringBuff_appendChar(&c.b, 'c'));
  EXPECT_EQ(c.b.length, 4);
  EXPECT_EQ(c.text(), std::string("ab\0c", 4));
  EXPECT_EQ(c.b.data[4], 0);
}

TEST(CxStringBuffAppend, IntegersAreDecimalWithMinusAndZeroAppendsNothing) {
  Buff x;
  ASSERT_TRUE(CxStringBuff_appendInt(&x.b, -5));
  ASSERT_TRUE(CxStringBuff_appendInt(&x.b, 0));
  EXPECT_EQ(x.text(), "-5");
  ASSERT_TRUE(CxStringBuff_appendInt(&x.b, INT32_MIN));
  EXPECT_EQ(x.text(), "-5-2147483648");
  CxStringBuff_clear(&x.b);
  ASSERT_TRUE(CxStringBuff_appendInt64(&x.b, INT64_MIN));
  ASSERT_TRUE(CxStringBuff_appendChar(&x.b, ' '));
  ASSERT_TRUE(CxStringBuff_appendInt64(&x.b, INT64_MAX));
  ASSERT_TRUE(CxStringBuff_appendInt64(&x.b, 0));
  EXPECT_EQ(x.text(), "-9223372036854775808 9223372036854775807");
  Buff u;  // unsigned zero leaves an empty buffer unallocated
  ASSERT_TRUE(CxStringBuff_appendUInt64(&u.b, 0));
  EXPECT_EQ(u.b.data, nullptr);
  ASSERT_TRUE(CxStringBuff_appendUInt64(&u.b, UINT64_MAX));
  EXPECT_EQ(u.text(), "18446744073709551615");
}

TEST(CxStringBuffUtf8, EncodesEveryLengthAtItsBoundariesAnd7FFInThreeBytesByIntent) {
  const struct { int32_t cp; const char* bytes; } cases[] = {
      {0x41, "\x41"}, {0x7F, "\x7F"}, {0x80, "\xC2\x80"}, {0x7FE, "\xDF\xBE"},
      {0x7FF, "\xE0\x9F\xBF"}, {0x800, "\xE0\xA0\x80"}, {0xFFFF, "\xEF\xBF\xBF"},
      {0x10000, "\xF0\x90\x80\x80"}, {0x10FFFF, "\xF4\x8F\xBF\xBF"},
      {0x1FFFFF, "\xF7\xBF\xBF\xBF"}, {0x200000, "\xF8\x88\x80\x80\x80"},
      {0x3FFFFFF, "\xFB\xBF\xBF\xBF\xBF"}, {0x4000000, "\xFC\x84\x80\x80\x80\x80"},
      {0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"}};
  for (const auto& c : cases) EXPECT_EQ(utf8Of(c.cp), c.bytes) << std::hex << c.cp;
}

TEST(CxStringBuffUtf8, FailedReserveFallsThroughToTheNextLongerForm) {
  // With the first allocation failing once, the one-byte form gives up and
  // the two-byte form's reserve succeeds: the fall-through the module keeps.
  Buff x;
  QlgMem_failAt(1);
  EXPECT_TRUE(CxStringBuff_appendUtf8(&x.b, 'A'));
  EXPECT_EQ(QlgMem_failed(), 1);
  QlgMem_failAt(0);
  EXPECT_EQ(x.text(), "\xC1\x81");
}

TEST(CxStringBuffWide, ConvertsThroughTheConverterWithinTheByteLimit) {
  const uint32_t text[] = {'a', 0xE9, 0x20AC, 0};
  // 'a' + 2 bytes would be 3, so a limit of 2 keeps only 'a'.
  for (auto c : {std::pair<int, const char*>{-1, "a\xC3\xA9\xE2\x82\xAC"}, {2, "a"}, {3, "a\xC3\xA9"}}) {
    Buff x;
    EXPECT_TRUE(CxStringBuff_appendWide(&x.b, utf8(), text, c.first));
    EXPECT_EQ(x.text(), c.second) << c.first;
  }
}

TEST(CxStringBuffWide, ConverterFailureStopsWithFalseKeepingEarlierCharacters) {
  const uint32_t text[] = {'o', 'k', 0xD800, 'x', 0};
  Buff x, none;
  EXPECT_FALSE(CxStringBuff_appendWide(&x.b, utf8(), text, -1));
  EXPECT_EQ(x.text(), "ok");
  EXPECT_FALSE(CxStringBuff_appendWide(&none.b, nullptr, text, -1));
  EXPECT_EQ(none.b.data, nullptr);
}

TEST(CxStringBuffInsert, InsertsAnywhereFromStartToLengthButNotBeyond) {
  Buff x("held");
  EXPECT_TRUE(CxStringBuff_insert(&x.b, "up", 0));
  EXPECT_TRUE(CxStringBuff_insert(&x.b, "-", 2));
  EXPECT_EQ(x.text(), "up-held");
  EXPECT_TRUE(CxStringBuff_insert(&x.b, "!", x.b.length));
  EXPECT_FALSE(CxStringBuff_insert(&x.b, "?", x.b.length + 1));
  EXPECT_FALSE(CxStringBuff_insert(&x.b, "?", -1));
  EXPECT_EQ(x.text(), "up-held!");
  EXPECT_EQ(x.b.data[x.b.length], 0);
  Buff fresh;
  EXPECT_TRUE(CxStringBuff_insert(&fresh.b, "first", 0));
  EXPECT_EQ(fresh.text(), "first");
  EXPECT_EQ(fresh.b.capacity, 1024);
}

TEST(CxStringBuffInsert, InsertGrowsTheBufferAndMovesTheWholeTail) {
  std::string tail(1000, 't'), mid(100, 'm');
  Buff x("H" + tail);
  ASSERT_TRUE(CxStringBuff_insert(&x.b, mid.c_str(), 1));
  EXPECT_EQ(x.b.capacity, 2048);
  EXPECT_EQ(x.text(), "H" + mid + tail);
}

TEST(CxStringBuffConvert, ReplacesDataWithABlockSizedForDoubleTheText) {
  Buff small("caf\xC3\xA9");
  ASSERT_TRUE(CxStringBuff_convert(utf8(), &small.b));
  EXPECT_EQ(small.text(), "caf\xC3\xA9");
  EXPECT_EQ(small.b.capacity, 1024);
  std::string s(600, 'z');
  Buff large(s);
  ASSERT_TRUE(CxStringBuff_convert(utf8(), &large.b));  // 2 * 600 + 1 > 1024
  EXPECT_EQ(large.b.capacity, 2048);
  EXPECT_EQ(large.text(), s);
}

TEST(CxStringBuffConvert, FailedConversionLeavesTheBufferUnchanged) {
  Buff x("ok\xFFno");
  char* before = x.b.data;
  int cap = x.b.capacity;
  EXPECT_FALSE(CxStringBuff_convert(utf8(), &x.b));
  EXPECT_EQ(x.b.data, before);
  EXPECT_EQ(x.b.capacity, cap);
  EXPECT_EQ(x.text(), "ok\xFFno");
  EXPECT_FALSE(CxStringBuff_convert(nullptr, &x.b));
}

TEST(CxStringBuffLifecycle, ClearKeepsStorageFreeAndDetachEmpty) {
  Buff x("some text");
  char* data = x.b.data;
  CxStringBuff_clear(&x.b);
  EXPECT_EQ(x.b.length, 0);
  EXPECT_EQ(x.b.data, data);
  EXPECT_EQ(x.b.capacity, 1024);
  EXPECT_STREQ(x.b.data, "");
  ASSERT_TRUE(CxStringBuff_append(&x.b, "kept"));
  char* out = CxStringBuff_detach(&x.b);
  EXPECT_STREQ(out, "kept");
  EXPECT_EQ(x.b.data, nullptr);
  EXPECT_EQ(x.b.length, 0);
  EXPECT_EQ(x.b.capacity, 0);
  QlgMem_free(out);
  Buff fresh;
  EXPECT_EQ(CxStringBuff_detach(&fresh.b), nullptr);
  Buff y("gone");
  CxStringBuff_free(&y.b);
  EXPECT_EQ(y.b.data, nullptr);
  EXPECT_EQ(y.b.capacity, 0);
}

TEST(CxStringBuffNull, EveryOperationToleratesNullArguments) {
  const uint32_t w[] = {'a', 0};
  EXPECT_FALSE(CxStringBuff_reserve(nullptr, 1));
  EXPECT_FALSE(CxStringBuff_appendChar(nullptr, 'a'));
  EXPECT_FALSE(CxStringBuff_append(nullptr, "a"));
  EXPECT_FALSE(CxStringBuff_appendN(nullptr, "a", 1));
  EXPECT_FALSE(CxStringBuff_appendInt(nullptr, 1));
  EXPECT_FALSE(CxStringBuff_appendInt64(nullptr, 1));
  EXPECT_FALSE(CxStringBuff_appendUInt64(nullptr, 1));
  EXPECT_FALSE(CxStringBuff_appendUtf8(nullptr, 1));
  EXPECT_FALSE(CxStringBuff_appendWide(nullptr, utf8(), w, -1));
  EXPECT_FALSE(CxStringBuff_insert(nullptr, "a", 0));
  EXPECT_FALSE(CxStringBuff_convert(utf8(), nullptr));
  CxStringBuff_clear(nullptr);
  CxStringBuff_free(nullptr);
  EXPECT_EQ(CxStringBuff_detach(nullptr), nullptr);
  Buff x;
  EXPECT_FALSE(CxStringBuff_append(&x.b, nullptr));
  EXPECT_FALSE(CxStringBuff_appendN(&x.b, nullptr, 3));
  EXPECT_FALSE(CxStringBuff_insert(&x.b, nullptr, 0));
  EXPECT_FALSE(CxStringBuff_appendWide(&x.b, utf8(), nullptr, -1));
  EXPECT_EQ(x.b.data, nullptr);
}

/* Runs op on a buffer prepared by setup once to count its allocations,
   then fails each of them in turn: every failure must return false and
   leave the buffer as it was (the ASan build checks for leaks). */
static void sweepAllocations(const std::string& initial, const std::function<int(CxStringBuff*)>& op) {
  long attempts;
  {
    Buff x;
    if (!initial.empty()) CxStringBuff_append(&x.b, initial.c_str());
    QlgMem_failAt(0);
    ASSERT_TRUE(op(&x.b));
    attempts = QlgMem_allocCount();
  }
  ASSERT_GT(attempts, 0);
  for (long i = 1; i <= attempts; i++) {
    Buff x;
    if (!initial.empty()) CxStringBuff_append(&x.b, initial.c_str());
    CxStringBuff before = x.b;
    std::string text = x.text();
    QlgMem_failAt(i);
    int ok = op(&x.b);
    int failed = QlgMem_failed();
    QlgMem_failAt(0);
    ASSERT_EQ(failed, 1) << "attempt " << i;
    EXPECT_FALSE(ok) << "attempt " << i;
    EXPECT_EQ(x.b.length, before.length);
    EXPECT_EQ(x.b.capacity, before.capacity);
    EXPECT_EQ(x.b.data, before.data);
    EXPECT_EQ(x.text(), text);
  }
}

TEST(CxStringBuffAllocationFailure, EveryFailedAllocationLeavesTheBufferAsItWas) {
  const std::string full(1020, 'f');
  const std::string big(3000, 'b');
  sweepAllocations("", [](CxStringBuff* b) { return CxStringBuff_appendChar(b, 'x'); });
  sweepAllocations("", [&](CxStringBuff* b) { return CxStringBuff_append(b, big.c_str()); });
  sweepAllocations(full, [](CxStringBuff* b) { return CxStringBuff_append(b, "overflowing"); });
  sweepAllocations(full, [&](CxStringBuff* b) { return CxStringBuff_appendN(b, big.c_str(), 10); });
  sweepAllocations(full, [](CxStringBuff* b) { return CxStringBuff_appendInt(b, -123456); });
  sweepAllocations(full, [](CxStringBuff* b) { return CxStringBuff_appendInt64(b, INT64_MIN); });
  sweepAllocations(full, [](CxStringBuff* b) { return CxStringBuff_appendUInt64(b, 987654321); });
  sweepAllocations(full, [](CxStringBuff* b) { return CxStringBuff_insert(b, "in the middle", 500); });
  sweepAllocations("", [](CxStringBuff* b) { return CxStringBuff_insert(b, "x", 0); });
  sweepAllocations(full, [](CxStringBuff* b) { return CxStringBuff_convert(QlgCodeset_open("UTF8"), b); });
  sweepAllocations(big, [](CxStringBuff* b) { return CxStringBuff_convert(QlgCodeset_open("UTF8"), b); });
  sweepAllocations("", [](CxStringBuff* b) { return CxStringBuff_reserve(b, 5000); });
}

TEST(CxStringBuffAllocationFailure, WideAppendKeepsTheCharactersBeforeAFailedGrowth) {
  std::string full(1022, 'f');
  const uint32_t text[] = {'a', 'b', 'c', 0};
  Buff x(full);
  QlgMem_failAt(1);
  EXPECT_FALSE(CxStringBuff_appendWide(&x.b, utf8(), text, -1));
  QlgMem_failAt(0);
  EXPECT_EQ(x.text(), full + "a");
  EXPECT_EQ(x.b.capacity, 1024);
}
