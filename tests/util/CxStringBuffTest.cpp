// SPDX-License-Identifier: Apache-2.0
// CxStringBuff: the UTF-8 and wide appends with their intended quirks,
// in-place conversion, null arguments, and the promise that a failed
// allocation leaves the buffer exactly as it was.
#include <climits>

#include "nls/QlgCodeset.h"
#include "support/TestSupport.h"
#include "util/CxStringBuff.h"

namespace {

struct Buff {
  CxStringBuff b{0, 0, nullptr};
  Buff() = default;
  explicit Buff(const std::string& s) {
    if (!s.empty()) { EXPECT_TRUE(CxStringBuff_appendN(&b, s.c_str(), -1)); }
  }
  ~Buff() { CxStringBuff_free(&b); }
  std::string text() const { return b.data ? std::string(b.data, b.length) : std::string(); }
};

QlgCodeset* utf8() { return QlgCodeset_open("UTF8"); }

TEST(CxStringBuff, Utf8EncodesEveryLengthAtItsBoundariesAnd7FFInThreeBytesByIntent) {
  const struct { int32_t cp; const char* bytes; } cases[] = {
      {0x41, "\x41"}, {0x7F, "\x7F"}, {0x80, "\xC2\x80"}, {0x7FE, "\xDF\xBE"}, {0x7FF, "\xE0\x9F\xBF"},
      {0x800, "\xE0\xA0\x80"}, {0xFFFF, "\xEF\xBF\xBF"}, {0x10000, "\xF0\x90\x80\x80"},
      {0x10FFFF, "\xF4\x8F\xBF\xBF"}, {0x1FFFFF, "\xF7\xBF\xBF\xBF"}, {0x200000, "\xF8\x88\x80\x80\x80"},
      {0x3FFFFFF, "\xFB\xBF\xBF\xBF\xBF"}, {0x4000000, "\xFC\x84\x80\x80\x80\x80"},
      {0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"}};
  for (const auto& c : cases) {
    Buff x;
    EXPECT_TRUE(CxStringBuff_appendUtf8(&x.b, c.cp));
    EXPECT_EQ(x.text(), c.bytes) << std::hex << c.cp;
  }
}

TEST(CxStringBuff, WideTextGoesThroughTheConverterWithinTheByteLimitAndStopsAtAFailure) {
  const uint32_t text[] = {'a', 0xE9, 0x20AC, 0}, bad[] = {'o', 'k', 0xD800, 'x', 0};
  for (auto c : {std::pair<int, const char*>{-1, "a\xC3\xA9\xE2\x82\xAC"}, {2, "a"}, {3, "a\xC3\xA9"}}) {
    Buff x;
    EXPECT_TRUE(CxStringBuff_appendWide(&x.b, utf8(), text, c.first));
    EXPECT_EQ(x.text(), c.second) << c.first;
  }
  Buff x, none, full(std::string(1022, 'f'));
  EXPECT_FALSE(CxStringBuff_appendWide(&x.b, utf8(), bad, -1));
  EXPECT_EQ(x.text(), "ok");
  EXPECT_FALSE(CxStringBuff_appendWide(&none.b, nullptr, text, -1));
  EXPECT_EQ(none.b.data, nullptr);
  QlgMem_failAt(1);
  EXPECT_FALSE(CxStringBuff_appendWide(&full.b, utf8(), text, -1));
  QlgMem_failAt(0);
  EXPECT_EQ(full.text(), std::string(1022, 'f') + "a") << "characters before a failed growth stay";
}

TEST(CxStringBuff, ConvertKeepsValidTextAndAFailureChangesNothing) {
  for (std::string text : {std::string("caf\xC3\xA9"), std::string(600, 'z')}) {
    Buff x(text);
    ASSERT_TRUE(CxStringBuff_convert(utf8(), &x.b));
    EXPECT_EQ(x.text(), text);
  }
  Buff x("ok\xFFno");
  EXPECT_FALSE(CxStringBuff_convert(utf8(), &x.b) || CxStringBuff_convert(nullptr, &x.b));
  EXPECT_EQ(x.text(), "ok\xFFno");
}

TEST(CxStringBuff, ClearEmptiesDetachHandsTheTextOverAndNullArgumentsAreRefused) {
  Buff x("some text"), fresh;
  CxStringBuff_clear(&x.b);
  EXPECT_TRUE(x.b.length == 0 && x.b.data && x.b.data[0] == 0);
  ASSERT_TRUE(CxStringBuff_append(&x.b, "kept"));
  EXPECT_FALSE(CxStringBuff_insert(&x.b, "?", x.b.length + 1) || CxStringBuff_insert(&x.b, "?", -1));
  char* out = CxStringBuff_detach(&x.b);
  EXPECT_STREQ(out, "kept");
  EXPECT_TRUE(x.b.data == nullptr && x.b.length == 0 && x.b.capacity == 0);
  QlgMem_free(out);
  EXPECT_EQ(CxStringBuff_detach(&fresh.b), nullptr);
  const uint32_t w[] = {'a', 0};
  EXPECT_FALSE(CxStringBuff_reserve(nullptr, 1) || CxStringBuff_appendChar(nullptr, 'a') ||
               CxStringBuff_append(nullptr, "a") || CxStringBuff_appendN(nullptr, "a", 1) ||
               CxStringBuff_appendInt(nullptr, 1) || CxStringBuff_appendInt64(nullptr, 1) ||
               CxStringBuff_appendUInt64(nullptr, 1) || CxStringBuff_appendUtf8(nullptr, 1) ||
               CxStringBuff_appendWide(nullptr, utf8(), w, -1) || CxStringBuff_insert(nullptr, "a", 0) ||
               CxStringBuff_convert(utf8(), nullptr) || CxStringBuff_append(&fresh.b, nullptr) ||
               CxStringBuff_appendN(&fresh.b, nullptr, 3) || CxStringBuff_insert(&fresh.b, nullptr, 0) ||
               CxStringBuff_appendWide(&fresh.b, utf8(), nullptr, -1));
  EXPECT_EQ(fresh.b.data, nullptr);
  CxStringBuff_clear(nullptr);
  CxStringBuff_free(nullptr);
  EXPECT_EQ(CxStringBuff_detach(nullptr), nullptr);
}

TEST(CxStringBuff, EveryFailedAllocationLeavesTheBufferAsItWas) {
  const std::string full(1020, 'f'), big(3000, 'b');
  const std::pair<std::string, int (*)(CxStringBuff*)> ops[] = {
      {"", [](CxStringBuff* b) { return CxStringBuff_appendChar(b, 'x'); }},
      {"", [](CxStringBuff* b) { return CxStringBuff_append(b, std::string(3000, 'b').c_str()); }},
      {full, [](CxStringBuff* b) { return CxStringBuff_append(b, "overflowing"); }},
      {full, [](CxStringBuff* b) { return CxStringBuff_appendN(b, "0123456789abc", 10); }},
      {full, [](CxStringBuff* b) { return CxStringBuff_appendInt(b, -123456); }},
      {full, [](CxStringBuff* b) { return CxStringBuff_appendInt64(b, INT64_MIN); }},
      {full, [](CxStringBuff* b) { return CxStringBuff_appendUInt64(b, 987654321); }},
      {full, [](CxStringBuff* b) { return CxStringBuff_insert(b, "in the middle", 500); }},
      {"", [](CxStringBuff* b) { return CxStringBuff_insert(b, "x", 0); }},
      {full, [](CxStringBuff* b) { return CxStringBuff_convert(QlgCodeset_open("UTF8"), b); }},
      {big, [](CxStringBuff* b) { return CxStringBuff_convert(QlgCodeset_open("UTF8"), b); }},
      {"", [](CxStringBuff* b) { return CxStringBuff_reserve(b, 5000); }}};
  for (const auto& op : ops) {
    Buff* x = nullptr;
    CxStringBuff before{0, 0, nullptr};
    ardeltest::sweepAllocations(
        [&] {
          delete x;
          x = new Buff(op.first);
          before = x->b;
        },
        [&] {
          int ok = op.second(&x->b);
          EXPECT_EQ(ok, !QlgMem_failed());
        },
        [&](long) {
          EXPECT_TRUE(x->b.length == before.length && x->b.capacity == before.capacity && x->b.data == before.data);
          EXPECT_EQ(x->text(), op.first);
        });
    delete x;
  }
}

}  // namespace
