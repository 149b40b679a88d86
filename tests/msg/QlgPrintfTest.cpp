// SPDX-License-Identifier: Apache-2.0
// QlgPrintf where it differs from the C library on purpose or goes beyond it
// (the rest is compared with snprintf in QlgPrintfDifferentialTest): argument
// numbering, all-or-nothing rejection, at most 16 significant digits, the
// locale's decimal point and grouping, wide conversions, typed parameter
// lists, and clean endings when memory runs out.  Also QlgParm and
// QlgParmList: each kind rendered alone, and the list's ownership of its
// strings, order and deep copy.

#include <cinttypes>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <initializer_list>
#include <limits>

#include "msg/QlgParmList.h"
#include "msg/QlgPrintf.h"
#include "nls/QlgCodeset.h"
#include "support/TestSupport.h"
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

struct Result { int n; std::string s; bool allocated; };

// Formats into a fresh buffer through the va_list entry point; wide
// conversions get a UTF-8 converter when wide is set.
Result pfWith(bool wide, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  CxStringBuff b{0, 0, nullptr};
  Result r;
  r.n = QlgPrintf_vformat(wide ? QlgCodeset_open("UTF8") : nullptr, &b, format, ap);
  va_end(ap);
  r.allocated = b.data != nullptr;
  r.s = b.data ? std::string(b.data, b.length) : std::string();
  CxStringBuff_free(&b);
  return r;
}
#define pf(...) pfWith(false, __VA_ARGS__)
#define wpf(...) pfWith(true, __VA_ARGS__)

#define EXPECT_PRINTS(expected, ...)                 \
  do {                                               \
    Result r_ = pf(__VA_ARGS__);                     \
    EXPECT_EQ(r_.s, std::string(expected));          \
    EXPECT_EQ(r_.n, static_cast<int>(r_.s.size())); \
  } while (0)

#define EXPECT_REJECTED(...)                               \
  do {                                                     \
    Result r_ = pf(__VA_ARGS__);                           \
    EXPECT_TRUE(r_.n == 0 && r_.s == "" && !r_.allocated); \
  } while (0)

QlgParm parm(int kind) {
  QlgParm p;
  std::memset(&p, 0, sizeof p);
  p.kind = kind;
  return p;
}
QlgParm pInt(int v) { QlgParm p = parm(QLG_PARM_INT); p.value.i = v; return p; }
QlgParm pLong(long v) { QlgParm p = parm(QLG_PARM_LONG); p.value.l = v; return p; }
QlgParm pChar(char v) { QlgParm p = parm(QLG_PARM_CHAR); p.value.c = v; return p; }
QlgParm pUChar(unsigned char v) { QlgParm p = parm(QLG_PARM_UCHAR); p.value.uc = v; return p; }
QlgParm pFloat(float v) { QlgParm p = parm(QLG_PARM_FLOAT); p.value.f = v; return p; }
QlgParm pDouble(double v) { QlgParm p = parm(QLG_PARM_DOUBLE); p.value.d = v; return p; }
QlgParm pStr(const char* v) { QlgParm p = parm(QLG_PARM_STRING); p.value.s = const_cast<char*>(v); return p; }

struct Parms {
  QlgParmList* list;
  Parms(std::initializer_list<QlgParm> items) : list(QlgParmList_create()) {
    for (const QlgParm& p : items) EXPECT_TRUE(QlgParmList_add(list, &p));
  }
  ~Parms() { QlgParmList_free(list); }
};

// A returned text as a std::string, "<null>" for null.
std::string take(char* out) {
  std::string s = out ? std::string(out) : std::string("<null>");
  QlgMem_free(out);
  return s;
}
std::string fp(const char* format, const Parms& parms) { return take(QlgPrintf_formatParms(format, parms.list)); }

}  // namespace

TEST(QlgPrintf, SequentialCountsOnIndependentlyOfPositions) {
  EXPECT_PRINTS("a b", "%s %2$s", "a", "b");
  EXPECT_PRINTS("b a b", "%2$s %s %s", "a", "b");
  EXPECT_PRINTS("a a", "%1$s %s", "a");
  std::string format, expected;  // enough directives and arguments to leave the inline arrays
  for (int i = 20; i >= 1; i--) format += "%" + std::to_string(i) + "$d,", expected += std::to_string(i) + ",";
  EXPECT_PRINTS(expected, format.c_str(), 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20);
}

TEST(QlgPrintf, AHoleABadDirectiveOrAHugeNumberRejectsTheWholeFormatWithoutAllocating) {
  QlgMem_failAt(0);
  EXPECT_REJECTED("%99999999$d", 1);
  EXPECT_EQ(QlgMem_allocCount(), 0);
  for (const char* f : {"%1$d %3$d", "%2$d", "lead %1$d %*3$d", "%2147483647$d", "%99999999999$d", "%.0f",
                        "value %5.0s", "%.0d", "%y", "%k", "%b", "%~", "text %", "%Id", "%I6d", "%I32d", "%$d",
                        "%0$d", "%99999999999d", "%.99999999999d", "ok %d then %w"}) {
    SCOPED_TRACE(f);
    EXPECT_REJECTED(f, 1, 2, 3);
  }
  CxStringBuff b{0, 0, nullptr};
  ASSERT_TRUE(CxStringBuff_append(&b, "kept"));
  EXPECT_EQ(QlgPrintf_format(nullptr, &b, "x%1$d%3$d", 1, 2, 3), 0);
  EXPECT_EQ(QlgPrintf_format(nullptr, &b, nullptr), 0);
  EXPECT_EQ(QlgPrintf_format(nullptr, nullptr, "x"), 0);
  EXPECT_EQ(std::string(b.data, b.length), "kept");
  CxStringBuff_free(&b);
  EXPECT_EQ(QlgPrintf_formatParms(nullptr, nullptr), nullptr);
  int n = 0;  // %n stops the output where it stands
  EXPECT_PRINTS("", "%n", &n);
  EXPECT_PRINTS("before", "before%nafter", &n);
  EXPECT_PRINTS("1 ", "%d %hn %d", 1, &n, 2);
  EXPECT_EQ(n, 0);
}

TEST(QlgPrintf, TextCharactersAndIntegersBeyondTheCommonFlags) {
  EXPECT_PRINTS("   ab|ab   |    z", "%05s|%-05s|%05c", "ab", "ab", 'z');
  Result r = pf("a%cb", 0);
  EXPECT_EQ(r.s, std::string("a\0b", 3));
  EXPECT_EQ(r.n, 3);
  EXPECT_PRINTS("x   ", "x%3sy", static_cast<const char*>(nullptr));  // a null string stops after its padding
  EXPECT_PRINTS("x", "x%-3sy", static_cast<const char*>(nullptr));
  EXPECT_PRINTS("[][][]|[    1]|[0]|5", "[%.*d][%5.*d][%#.*o]|[%5.*d]|[%#x]|%.d", 0, 0, 0, 0, 0, 0, 0, 1, 0, 5);
  EXPECT_PRINTS("abc 0xabc", "%p %#p", reinterpret_cast<void*>(0xabc), reinterpret_cast<void*>(0xabc));
  EXPECT_PRINTS("-9223372036854775808 ffffffffffffffff", "%I64d %I64x", INT64_MIN, static_cast<uint64_t>(-1));
  EXPECT_PRINTS("-9223372036854775807 123456789012", "%lld %qd", -INT64_MAX, 123456789012LL);
  EXPECT_PRINTS("-1234567890123 18446744073709551615", "%ld %lu", -1234567890123L, ULONG_MAX);
  EXPECT_PRINTS("12345678901 12345678901", "%jd %zu", static_cast<intmax_t>(12345678901LL),
                static_cast<size_t>(12345678901ULL));
  EXPECT_PRINTS("-5 -6 -7 8 -9", "%Zd %td %hd %hhu %Ld", static_cast<ptrdiff_t>(-5), static_cast<ptrdiff_t>(-6), -7, 8, -9);
}

TEST(QlgPrintf, FloatsRoundTiesToEvenKeepSixteenDigitsAndHaveHexInfAndNanForms) {
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_PRINTS("1.500000 2. 2 2 4 1.0e+00 10.0 0.001 0.000 2.5", "%.f %#.*f %.*f %.*f %.*f %.1e %.1f %.3f %.3f %Lg",
                1.5, 0, 2.0, 0, 1.5, 0, 2.5, 0, 3.5, 0.99999, 9.96, 0.0006, 0.0004, static_cast<long double>(2.5));
  EXPECT_PRINTS("0.10000000000000000000 3.33333333333333300000e-01", "%.20f %.20e", 0.1, 1.0 / 3.0);
  EXPECT_PRINTS("100000000000000000000.000000 12345678901234570000", "%f %.*f", 1e20, 0, 12345678901234567890.0);
  EXPECT_PRINTS("0.3333333333333333", "%.20g", 1.0 / 3.0);
  // The fixed branch of %g has precision - 1 - exponent decimals, past INT_MAX here.
  EXPECT_PRINTS("0.01 0.0001   1.5 0.3333333333333333", "%.2147483647g %.2147483646g %5.2147483647g %.2147483647g",
                0.01, 0.0001, 1.5, 1.0 / 3.0);
  EXPECT_PRINTS("1" + std::string(300, '0'), "%.2147483647g", 1e300);
  EXPECT_PRINTS("inf -inf INF   inf nan", "%f %e %G %05g %f", inf, -inf, inf, inf, std::nan(""));
  EXPECT_PRINTS("0x1p+0 0X1.8P+1 0x0p+0 -0x1p-2 0x00001p+0", "%a %A %a %a %010a", 1.0, 3.0, 0.0, -0.25, 1.0);
  // Hexadecimal digits cut by a precision round half to even.
  EXPECT_PRINTS("0x1.0p+0 0x2p+0 0x1.000p+0 0x1.1p+0 0x1.2p+0 0x1.2p+0 0x1.4p+0", "%.1a %.*a %.3a %.1a %.1a %.1a %.1a",
                1.0, 0, 1.9, 1.0, 1.0625, 1.09375, 1.15625, 1.2421875);
}

namespace {

// A locale with a comma decimal point and dot grouping, used only on the
// test thread.  When the system has none, one is compiled into the test
// directory (once, shared by all test processes).
locale_t germanNumericLocale() {
  static locale_t loc = [] {
    for (const char* n : {"de_DE.UTF-8", "de_DE.utf8", "de_DE"})
      if (locale_t l = newlocale(LC_NUMERIC_MASK, n, nullptr)) return l;
    std::string dir = std::string(ARDEL_TEST_BINARY_DIR) + "/locale", target = dir + "/de_DE.UTF-8";
    struct stat st;
    if (stat((target + "/LC_NUMERIC").c_str(), &st) != 0 && access("/usr/share/i18n/locales/de_DE", R_OK) == 0) {
      mkdir(dir.c_str(), 0777);
      std::string tmp = target + ".tmp" + std::to_string(getpid());
      if (std::system(("localedef -i de_DE -f UTF-8 '" + tmp + "' >/dev/null 2>&1").c_str()) >= 0 &&
          rename(tmp.c_str(), target.c_str()) != 0)
        std::system(("rm -rf '" + tmp + "'").c_str());
    }
    const char* old = getenv("LOCPATH");
    std::string saved = old ? old : "";
    setenv("LOCPATH", dir.c_str(), 1);
#if defined(__SANITIZE_ADDRESS__)
    __lsan_disable();  // the C library keeps its copy of LOCPATH for good
#endif
    locale_t l = newlocale(LC_NUMERIC_MASK, "de_DE.UTF-8", nullptr);
#if defined(__SANITIZE_ADDRESS__)
    __lsan_enable();
#endif
    old ? setenv("LOCPATH", saved.c_str(), 1) : unsetenv("LOCPATH");
    return l;
  }();
  return loc;
}

}  // namespace

TEST(QlgPrintf, DecimalPointAndGroupingComeFromTheThreadLocale) {
  EXPECT_PRINTS("1234567.50 1234567", "%'.2f %'d", 1234567.5, 1234567);
  locale_t de = germanNumericLocale();
  if (!de) GTEST_SKIP() << "no locale with digit grouping available";
  locale_t previous = uselocale(de);
  EXPECT_PRINTS("1234567,500000 1.234.567,50 1.234.567 -1.234.567 4.294.967.295", "%f %'.2f %'d %'d %'u", 1234567.5,
                1234567.5, 1234567, -1234567, -1);
  EXPECT_PRINTS("1,23457e+06 1.234.567,5 1,234568e+06 12d687    1.234,5", "%'g %'.8g %'e %'x %'10.1f", 1234567.5,
                1234567.5, 1234567.5, 1234567, 1234.5);
  uselocale(previous);
}

TEST(QlgPrintf, WideConversionsGoThroughTheConverterCountingBytes) {
  EXPECT_EQ(wpf("%ls|%S|%lc|%C", L"h\u00e9", L"\u20ac", static_cast<wint_t>(L'\u00e9'), static_cast<wint_t>('A')).s,
            "h\xC3\xA9|\xE2\x82\xAC|\xC3\xA9|A");
  EXPECT_EQ(wpf("%.2ls|%.3ls|%5ls|%-5ls|%3lc|", L"h\u00e9llo", L"h\u00e9llo", L"\u00e9", L"\u00e9",
                static_cast<wint_t>(0xE9)).s,
            "h|h\xC3\xA9|   \xC3\xA9|\xC3\xA9   | \xC3\xA9|");
  EXPECT_EQ(wpf("%2lc|", static_cast<wint_t>(0)).s, std::string(" \0|", 3));
  const wchar_t bad[] = {L'o', L'k', static_cast<wchar_t>(0xD800), L'x', 0};
  Result r = wpf("[%ls]", bad);  // a converter failure stops the output
  EXPECT_EQ(r.s, "[ok");
  EXPECT_EQ(r.n, 3);
  EXPECT_EQ(pf("[%ls]", L"ok").s, "[") << "no converter at all";
  EXPECT_EQ(wpf("[%3ls]", static_cast<const wchar_t*>(nullptr)).s, "[   ");
}

TEST(QlgPrintf, ParameterListsFillTheirSlotsByKindOrGiveNull) {
  Parms p{pChar('c'), pInt(-2), pLong(3000000000L), pFloat(1.5f), pDouble(2.25), pUChar(200), pStr("text")};
  EXPECT_EQ(fp("%c %d %ld %.1f %.2f %u %s", p), "c -2 3000000000 1.5 2.25 200 text");
  EXPECT_EQ(fp("%7$s %6$u %5$.2f %4$.1f %3$ld %2$d %1$c", p), "text 200 2.25 1.5 3000000000 -2 c");
  EXPECT_EQ(fp("%d", Parms{pChar(static_cast<char>(-1))}), "-1");
  EXPECT_EQ(fp("%d %d", Parms{parm(999), pInt(5)}), "0 5") << "an unknown kind leaves its slot zero";
  EXPECT_EQ(fp("read %1s during", Parms{pStr("/var/a.log")}), "read /var/a.log during");
  EXPECT_EQ(fp("%X %X %d %d", Parms{pDouble(1e76), pDouble(-1e76), pDouble(NAN), pDouble(-42.9)}),
            "7FFFFFFFFFFFFFFF 8000000000000000 0 -42") << "a double for an integer saturates";
  EXPECT_EQ(fp("%s", Parms{pStr("")}), "");
  for (const char* f : {"%s %s", "%2$s", "%.0f", "%n"}) EXPECT_EQ(fp(f, Parms{pStr("a")}), "<null>") << f;
  EXPECT_EQ(QlgPrintf_formatParms("%d", nullptr), nullptr);
  for (const char* f : {"no conversions", ""}) {
    char* out = QlgPrintf_formatParms(f, nullptr);
    EXPECT_STREQ(out, f);
    QlgMem_free(out);
  }
}

namespace {

// Over 32 directives and 16 arguments, so the parse arrays move to the heap.
const std::string kLongFormat = [] {
  std::string f;
  for (int i = 20; i >= 1; i--) f += "<%" + std::to_string(i) + "$s>";
  return f;
}();

int formatLong(CxStringBuff* b, const char* last) {
  return QlgPrintf_format(nullptr, b, kLongFormat.c_str(), "a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l",
                          "m", "n", "o", "p", "q", "r", "s", last);
}

// The text a failed run kept is a strict, terminated prefix of the full output, reported by its length.
void expectPrefix(const CxStringBuff& b, int got, const std::string& full) {
  std::string text = b.data ? std::string(b.data, b.length) : std::string();
  EXPECT_EQ(got, static_cast<int>(text.size()));
  EXPECT_LT(text.size(), full.size());
  EXPECT_EQ(full.compare(0, text.size(), text), 0) << text;
  if (b.data) { EXPECT_EQ(b.data[b.length], 0); }
}

}  // namespace

TEST(QlgPrintfAllocationFailure, FormatParmsGivesNullAndVformatKeepsACompletePrefix) {
  const std::string big(1500, 't');
  Parms many{}, small{pStr("x"), pStr("y"), pInt(3)};
  for (char c[2] = {'a', 0}; c[0] <= 's'; c[0]++) { QlgParm q = pStr(c); QlgParmList_add(many.list, &q); }
  { QlgParm q = pStr(big.c_str()); QlgParmList_add(many.list, &q); }
  for (const auto& c : {std::make_pair(std::string("%2$s then %1$s (%3$d)"), &small), std::make_pair(kLongFormat, &many)})
    ardeltest::sweepAllocations([] {}, [&] {
      char* out = QlgPrintf_formatParms(c.first.c_str(), c.second->list);
      EXPECT_EQ(out == nullptr, QlgMem_failed() == 1);
      QlgMem_free(out);
    }, [](long) {});
  CxStringBuff whole{0, 0, nullptr};
  formatLong(&whole, big.c_str());
  std::string full(whole.data, whole.length);
  CxStringBuff_free(&whole);
  ardeltest::sweepAllocations([] {}, [&] {
    CxStringBuff b{0, 0, nullptr};
    int got = formatLong(&b, big.c_str());
    if (QlgMem_failed()) expectPrefix(b, got, full);
    CxStringBuff_free(&b);
  }, [](long) {});
  CxStringBuff b{0, 0, nullptr};
  ASSERT_TRUE(CxStringBuff_append(&b, "prefix"));
  QlgMem_failAt(1);  // the directive array's move to the heap
  EXPECT_EQ(formatLong(&b, "t"), 0);
  QlgMem_failAt(0);
  EXPECT_STREQ(b.data, "prefix") << "a failed parse leaves an existing buffer untouched";
  CxStringBuff_free(&b);
}

TEST(QlgPrintfAllocationFailure, NothingIsWrittenAfterTheFirstFailedAppend) {
  // The text crosses the first 1 KiB at every point of the conversions in
  // turn, so the failed growth lands inside each kind of output.
  for (int lead = 990; lead <= 1024; lead++) {
    std::string f = std::string(static_cast<size_t>(lead), 'x') + "[%+010.3f|%#10x|%-6s|%e|%'g|%5c]";
    CxStringBuff whole{0, 0, nullptr}, b{0, 0, nullptr};
    QlgPrintf_format(nullptr, &whole, f.c_str(), -3.25, 255, "ab", 1e-7, 1234.5, 'z');
    QlgMem_failAt(2);  // the growth past 1024 bytes
    int got = QlgPrintf_format(nullptr, &b, f.c_str(), -3.25, 255, "ab", 1e-7, 1234.5, 'z');
    EXPECT_EQ(QlgMem_failed(), 1);
    QlgMem_failAt(0);
    SCOPED_TRACE(lead);
    expectPrefix(b, got, std::string(whole.data, whole.length));
    EXPECT_LE(b.length, 1023);
    CxStringBuff_free(&whole);
    CxStringBuff_free(&b);
  }
}

TEST(QlgParm, EachKindUsesItsDefaultConversionAndUnknownKindsGiveNothing) {
  const std::pair<QlgParm, const char*> cases[] = {
      {pChar('q'), "q"}, {pInt(-17), "-17"}, {pLong(123456789L), "123456789"}, {pFloat(0.25f), "0.250000"},
      {pDouble(-3.5), "-3.500000"}, {pUChar('Z'), "Z"}, {pStr("100% literal"), "100% literal"}, {parm(0), ""},
      {parm(500), ""}, {parm(508), ""}, {pStr(nullptr), ""}};
  for (const auto& c : cases) EXPECT_EQ(take(QlgParm_toString(&c.first)), c.second) << c.first.kind;
  EXPECT_EQ(QlgParm_toString(nullptr), nullptr);
  QlgMem_failAt(1);
  QlgParm five = pInt(5);
  EXPECT_EQ(take(QlgParm_toString(&five)), "<null>");
  QlgMem_failAt(0);
}

TEST(QlgParmList, KeepsOrderOwnsCopiesOfStringsAndCopiesDeeply) {
  QlgParmList* list = QlgParmList_create();
  char text[] = "original";
  for (QlgParm p : {pInt(0), pInt(1), pInt(2), pInt(3), pInt(4), pInt(5), pInt(6), pInt(7), pInt(8), pInt(9),
                    pStr(text), pStr(nullptr)})
    ASSERT_TRUE(QlgParmList_add(list, &p));
  text[0] = 'X';
  QlgParmList* copy = QlgParmList_copy(list);
  for (QlgParmList* l : {list, copy}) {
    ASSERT_EQ(QlgParmList_count(l), 12);
    for (int i = 0; i < 10; i++) EXPECT_EQ(QlgParmList_get(l, i)->value.i, i);
    EXPECT_STREQ(QlgParmList_get(l, 10)->value.s, "original");
    EXPECT_EQ(QlgParmList_get(l, 11)->value.s, nullptr);
    EXPECT_TRUE(QlgParmList_get(l, 12) == nullptr && QlgParmList_get(l, -1) == nullptr);
  }
  EXPECT_NE(QlgParmList_get(copy, 10)->value.s, QlgParmList_get(list, 10)->value.s);
  QlgParm one = pInt(1);
  EXPECT_FALSE(QlgParmList_add(nullptr, &one) || QlgParmList_add(copy, nullptr));
  EXPECT_TRUE(QlgParmList_count(nullptr) == 0 && QlgParmList_get(nullptr, 0) == nullptr && QlgParmList_copy(nullptr) == nullptr);
  QlgParmList_free(copy);
  QlgParmList_free(nullptr);
  // A failed add (the array's growth, then the string copy) leaves the list
  // as it was; failed copies are swept through QlgI18Msg_copy.
  Parms small{pInt(0), pInt(1), pInt(2), pInt(3)};
  QlgParm str = pStr("text");
  for (long i = 1; i <= 2; i++) {
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgParmList_add(small.list, &str));
    QlgMem_failAt(0);
    EXPECT_EQ(QlgParmList_count(small.list), 4);
  }
  QlgParmList_free(list);
}
