/*
 * QlgPrintf: positional and sequential argument numbering, all-or-nothing
 * rejection, the conversions and their padding, floating output with at
 * most 16 significant digits and the locale's decimal point and grouping,
 * wide conversions through a converter, typed parameter lists, and clean
 * endings when memory runs out.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include "msg/QlgParmList.h"
#include "msg/QlgPrintf.h"
#include "nls/QlgCodeset.h"
#include "util/QlgMemTest.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <clocale>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>

namespace {

struct Result {
  int n;
  std::string s;
  bool allocated;
};

Result vrun(QlgCodeset* cs, const char* format, va_list ap) {
  CxStringBuff b{0, 0, nullptr};
  Result r;
  r.n = QlgPrintf_vformat(cs, &b, format, ap);
  r.allocated = b.data != nullptr;
  r.s = b.data ? std::string(b.data, b.length) : std::string();
  CxStringBuff_free(&b);
  return r;
}

/* Formats into a fresh buffer through the va_list entry point. */
Result pf(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  Result r = vrun(nullptr, format, ap);
  va_end(ap);
  return r;
}

Result wpf(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  Result r = vrun(QlgCodeset_open("UTF8"), format, ap);
  va_end(ap);
  return r;
}

#define EXPECT_PRINTS(expected, ...)                 \
  do {                                               \
    Result r_ = pf(__VA_ARGS__);                     \
    EXPECT_EQ(r_.s, std::string(expected));          \
    EXPECT_EQ(r_.n, static_cast<int>(r_.s.size())); \
  } while (0)

#define EXPECT_REJECTED(...)          \
  do {                                \
    Result r_ = pf(__VA_ARGS__);      \
    EXPECT_EQ(r_.n, 0);               \
    EXPECT_EQ(r_.s, "");              \
    EXPECT_FALSE(r_.allocated);       \
  } while (0)

QlgParm parmOf(int kind) {
  QlgParm p;
  std::memset(&p, 0, sizeof p);
  p.kind = kind;
  return p;
}
QlgParm pInt(int v) { QlgParm p = parmOf(QLG_PARM_INT); p.value.i = v; return p; }
QlgParm pLong(long v) { QlgParm p = parmOf(QLG_PARM_LONG); p.value.l = v; return p; }
QlgParm pChar(char v) { QlgParm p = parmOf(QLG_PARM_CHAR); p.value.c = v; return p; }
QlgParm pUChar(unsigned char v) { QlgParm p = parmOf(QLG_PARM_UCHAR); p.value.uc = v; return p; }
QlgParm pFloat(float v) { QlgParm p = parmOf(QLG_PARM_FLOAT); p.value.f = v; return p; }
QlgParm pDouble(double v) { QlgParm p = parmOf(QLG_PARM_DOUBLE); p.value.d = v; return p; }
QlgParm pStr(const char* v) { QlgParm p = parmOf(QLG_PARM_STRING); p.value.s = const_cast<char*>(v); return p; }

struct Parms {
  QlgParmList* list;
  Parms(std::initializer_list<QlgParm> items) : list(QlgParmList_create()) {
    for (const QlgParm& p : items) EXPECT_TRUE(QlgParmList_add(list, &p));
  }
  ~Parms() { QlgParmList_free(list); }
};

/* formatParms as a std::string; "<null>" when it returned null. */
std::string fp(const char* format, const Parms& parms) {
  char* out = QlgPrintf_formatParms(format, parms.list);
  std::string s = out ? std::string(out) : std::string("<null>");
  QlgMem_free(out);
  return s;
}

}  // namespace

/* ---- Argument numbering --------------------------------------------------- */

TEST(QlgPrintfPositions, PositionsReorderAndSequentialIsCountedIndependently) {
  EXPECT_PRINTS("b-a", "%2$s-%1$s", "a", "b");
  EXPECT_PRINTS("3 1 2", "%3$d %1$d %2$d", 1, 2, 3);
  EXPECT_PRINTS("x x", "%1$s %1$s", "x");
  EXPECT_PRINTS("a b", "%s %2$s", "a", "b");
  EXPECT_PRINTS("b a b", "%2$s %s %s", "a", "b");
  EXPECT_PRINTS("a a", "%1$s %s", "a");
}

TEST(QlgPrintfPositions, AHoleOrAHugePositionRejectsTheWholeFormatWithoutAllocating) {
  EXPECT_REJECTED("%1$d %3$d", 1, 2, 3);
  EXPECT_REJECTED("%2$s", "a", "b");
  EXPECT_REJECTED("lead %1$d %*3$d", 1, 2, 3);
  CxStringBuff b{0, 0, nullptr};
  ASSERT_TRUE(CxStringBuff_append(&b, "kept"));
  EXPECT_EQ(QlgPrintf_format(nullptr, &b, "x%1$d%3$d", 1, 2, 3), 0);
  EXPECT_STREQ(b.data, "kept");
  EXPECT_EQ(b.length, 4);
  CxStringBuff_free(&b);
  QlgMem_failAt(0);
  EXPECT_REJECTED("%99999999$d", 1);
  EXPECT_EQ(QlgMem_allocCount(), 0);
  EXPECT_REJECTED("%2147483647$d", 1);
  EXPECT_REJECTED("%99999999999$d", 1);
}

TEST(QlgPrintfPositions, StarWidthAndPrecisionTakeArgumentsInOrder) {
  EXPECT_PRINTS("   42|7", "%*d|%d", 5, 42, 7);
  EXPECT_PRINTS("abc  |", "%-*.*s|", 5, 3, "abcdef");
  EXPECT_PRINTS("42   |", "%*d|", -5, 42);
  EXPECT_PRINTS("abcdef", "%.*s", -1, "abcdef");
  EXPECT_PRINTS("   42", "%1$*2$d", 42, 5);
  EXPECT_PRINTS("  abc", "%3$*1$.*2$s", 5, 3, "abcdef");
  EXPECT_PRINTS("  1.50", "%2$*1$.2f", 6, 1.5);
}

TEST(QlgPrintfPositions, PositionsBeyondNineAndLongFormatsWork) {
  EXPECT_PRINTS("k j i h g f e d c b a", "%11$s %10$s %9$s %8$s %7$s %6$s %5$s %4$s %3$s %2$s %1$s", "a",
                "b", "c", "d", "e", "f", "g", "h", "i", "j", "k");
  // Enough directives and arguments to leave the inline arrays.
  std::string format, expected;
  for (int i = 20; i >= 1; i--) {
    format += "%" + std::to_string(i) + "$d,";
    expected += std::to_string(i) + ",";
  }
  EXPECT_PRINTS(expected, format.c_str(), 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16,
                17, 18, 19, 20);
}

/* ---- Rejected formats ------------------------------------------------------ */

TEST(QlgPrintfRejection, ZeroAfterThePointAndBadLettersOrModifiersReject) {
  EXPECT_REJECTED("%.0f", 1.5);
  EXPECT_REJECTED("value %5.0s", "x");
  for (const char* f : {"%.0d", "%y", "%k", "%b", "%~", "text %", "%Id", "%I6d", "%I32d", "%$d",
                        "%0$d", "%99999999999d", "%.99999999999d", "ok %d then %w"}) {
    SCOPED_TRACE(f);
    EXPECT_REJECTED(f, 1);
  }
}

TEST(QlgPrintfRejection, PercentNStopsTheOutputWhereItStands) {
  int n = 0;
  EXPECT_PRINTS("", "%n", &n);
  EXPECT_PRINTS("before", "before%nafter", &n);
  EXPECT_PRINTS("1 ", "%d %hn %d", 1, &n, 2);
  EXPECT_EQ(n, 0);
}

TEST(QlgPrintfRejection, NullArgumentsGiveNothing) {
  CxStringBuff b{0, 0, nullptr};
  EXPECT_EQ(QlgPrintf_format(nullptr, &b, nullptr), 0);
  EXPECT_EQ(QlgPrintf_format(nullptr, nullptr, "x"), 0);
  EXPECT_EQ(b.data, nullptr);
  EXPECT_EQ(QlgPrintf_formatParms(nullptr, nullptr), nullptr);
}

/* ---- Text and characters ---------------------------------------------------- */

TEST(QlgPrintfText, LiteralsPercentSignsAndSpaceOnlyPaddingOfStringsAndCharacters) {
  EXPECT_PRINTS("%", "%%");
  EXPECT_PRINTS("100% sure", "100%% sure");
  EXPECT_PRINTS("plain text", "plain text");
  EXPECT_PRINTS("", "");
  EXPECT_PRINTS("   ab", "%5.2s", "abcdef");
  EXPECT_PRINTS("x   |", "%-4c|", 'x');
  EXPECT_PRINTS("   ab", "%05s", "ab");
  EXPECT_PRINTS("ab   ", "%-05s", "ab");
  EXPECT_PRINTS("abc", "%.5s", "abc");
  EXPECT_PRINTS("    z", "%05c", 'z');
}

TEST(QlgPrintfText, CharacterZeroIsAByteAndANullStringStopsAfterItsLeadingPadding) {
  Result r = pf("a%cb", 0);
  EXPECT_EQ(r.n, 3);
  EXPECT_EQ(r.s, std::string("a\0b", 3));
  EXPECT_PRINTS("x   ", "x%3sy", static_cast<const char*>(nullptr));
  EXPECT_PRINTS("x", "x%-3sy", static_cast<const char*>(nullptr));
}

/* ---- Integers ----------------------------------------------------------------- */

TEST(QlgPrintfIntegers, ConversionsFlagsPrecisionAndPointers) {
  EXPECT_PRINTS("-42 42 52 2a 2A", "%d %u %o %x %X", -42, 42, 42, 42, 42);
  EXPECT_PRINTS("+7| 7|007|0x1f|017", "%+d|% d|%.3d|%#x|%#o", 7, 7, 7, 31, 15);
  EXPECT_PRINTS("4294967295 ffffffff", "%u %x", -1, -1);
  EXPECT_PRINTS("5", "%.d", 5);
  EXPECT_PRINTS("-0042", "%05d", -42);
  EXPECT_PRINTS("  -42", "%5i", -42);
  EXPECT_PRINTS("abc 0xabc", "%p %#p", reinterpret_cast<void*>(0xabc), reinterpret_cast<void*>(0xabc));
}

TEST(QlgPrintfIntegers, LengthModifiersReadTheirTypes) {
  EXPECT_PRINTS("-9223372036854775808", "%I64d", INT64_MIN);
  EXPECT_PRINTS("ffffffffffffffff", "%I64x", static_cast<uint64_t>(-1));
  EXPECT_PRINTS("-9223372036854775807", "%lld", -INT64_MAX);
  EXPECT_PRINTS("123456789012", "%qd", 123456789012LL);
  EXPECT_PRINTS("-1234567890123", "%ld", -1234567890123L);
  EXPECT_PRINTS("18446744073709551615", "%lu", ULONG_MAX);
  EXPECT_PRINTS("12345678901", "%jd", static_cast<intmax_t>(12345678901LL));
  EXPECT_PRINTS("12345678901", "%zu", static_cast<size_t>(12345678901ULL));
  EXPECT_PRINTS("-5 -6", "%Zd %td", static_cast<ptrdiff_t>(-5), static_cast<ptrdiff_t>(-6));
  EXPECT_PRINTS("-7 8 -9", "%hd %hhu %Ld", -7, 8, -9);
}

TEST(QlgPrintfIntegers, PrecisionZeroWithValueZeroPrintsNothingEvenWithWidth) {
  EXPECT_PRINTS("[][][]", "[%.*d][%5.*d][%#.*o]", 0, 0, 0, 0, 0, 0);
  EXPECT_PRINTS("[    1]", "[%5.*d]", 0, 1);
  EXPECT_PRINTS("[0]", "[%#x]", 0);
}

/* ---- Floating point ------------------------------------------------------------- */

TEST(QlgPrintfFloat, FixedExponentAndGeneralForms) {
  EXPECT_PRINTS("1.500000", "%.f", 1.5);
  EXPECT_PRINTS("3.141593 3.14 -2.50", "%f %.2f %.2f", 3.14159265, 3.14159265, -2.5);
  EXPECT_PRINTS("1.234560e+02 1.2E-05", "%e %.1E", 123.456, 0.0000123);
  EXPECT_PRINTS("1e+100 1.000000e-300", "%.*e%s%e", 0, 1e100, " ", 1e-300);
  EXPECT_PRINTS("100000 1e+06 0.0001 1e-05", "%g %g %g %g", 100000.0, 1000000.0, 0.0001, 0.00001);
  EXPECT_PRINTS("1.5 1.50000 2 1E+02", "%g %#g %.*g %.*G", 1.5, 1.5, 0, 1.5, 0, 123.0);
  EXPECT_PRINTS("0.000000 0.000000e+00 0", "%f %e %g", 0.0, 0.0, 0.0);
  EXPECT_PRINTS("+1.0| 1.0|  -1.0|1.0   |001.0", "%+.1f|% .1f|%6.1f|%-6.1f|%05.1f", 1.0, 1.0,
                -1.0, 1.0, 1.0);
  EXPECT_PRINTS("-001.5", "%06.1f", -1.5);
  EXPECT_PRINTS("2.", "%#.*f", 0, 2.0);
  EXPECT_PRINTS("2 2 4", "%.*f %.*f %.*f", 0, 1.5, 0, 2.5, 0, 3.5);
  EXPECT_PRINTS("1.0e+00", "%.1e", 0.99999);
  EXPECT_PRINTS("10.0", "%.1f", 9.96);
  EXPECT_PRINTS("0.001 0.000", "%.3f %.3f", 0.0006, 0.0004);
  EXPECT_PRINTS("2.5", "%Lg", static_cast<long double>(2.5));
}

TEST(QlgPrintfFloat, AtMostSixteenSignificantDigitsAreGeneratedWhateverThePrecision) {
  EXPECT_PRINTS("0.10000000000000000000", "%.20f", 0.1);
  EXPECT_PRINTS("3.33333333333333300000e-01", "%.20e", 1.0 / 3.0);
  EXPECT_PRINTS("100000000000000000000.000000", "%f", 1e20);
  EXPECT_PRINTS("12345678901234570000", "%.*f", 0, 12345678901234567890.0);
  EXPECT_PRINTS("0.3333333333333333", "%.20g", 1.0 / 3.0);
  /* The fixed branch of %g has precision - 1 - exponent decimals, which for
     a precision near INT_MAX and a negative exponent is past INT_MAX. */
  EXPECT_PRINTS("0.01", "%.2147483647g", 0.01);
  EXPECT_PRINTS("0.0001", "%.2147483646g", 0.0001);
  EXPECT_PRINTS("  1.5", "%5.2147483647g", 1.5);
  EXPECT_PRINTS("1" + std::string(300, '0'), "%.2147483647g", 1e300);
  EXPECT_PRINTS("0.3333333333333333", "%.2147483647g", 1.0 / 3.0);
}

TEST(QlgPrintfFloat, InfinityNaNAndHexadecimalForms) {
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_PRINTS("inf -inf INF   inf nan", "%f %e %G %05g %f", inf, -inf, inf, inf, std::nan(""));
  EXPECT_PRINTS("0x1p+0 0X1.8P+1 0x0p+0 -0x1p-2", "%a %A %a %a", 1.0, 3.0, 0.0, -0.25);
  EXPECT_PRINTS("0x1.0p+0 0x2p+0 0x1.000p+0", "%.1a %.*a %.3a", 1.0, 0, 1.9, 1.0);
  EXPECT_PRINTS("0x00001p+0", "%010a", 1.0);
}

/* ---- Locale: decimal point and digit grouping ----------------------------------- */

namespace {

/* A locale object with a comma decimal point and dot grouping, used only on
   the test thread.  When the system has none installed, one is compiled
   into the test directory (once, shared by all test processes). */
locale_t germanNumericLocale() {
  static locale_t loc = [] {
    const char* names[] = {"de_DE.UTF-8", "de_DE.utf8", "de_DE"};
    for (const char* n : names) {
      locale_t l = newlocale(LC_NUMERIC_MASK, n, nullptr);
      if (l) return l;
    }
    std::string dir = std::string(ARDEL_TEST_BINARY_DIR) + "/locale";
    std::string target = dir + "/de_DE.UTF-8";
    struct stat st;
    if (stat((target + "/LC_NUMERIC").c_str(), &st) != 0 &&
        access("/usr/share/i18n/locales/de_DE", R_OK) == 0) {
      mkdir(dir.c_str(), 0777);
      std::string tmp = target + ".tmp" + std::to_string(getpid());
      std::string cmd = "localedef -i de_DE -f UTF-8 '" + tmp + "' >/dev/null 2>&1";
      if (std::system(cmd.c_str()) >= 0 && rename(tmp.c_str(), target.c_str()) != 0) {
        std::system(("rm -rf '" + tmp + "'").c_str());
      }
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
    if (old) setenv("LOCPATH", saved.c_str(), 1); else unsetenv("LOCPATH");
    return l;
  }();
  return loc;
}

struct ThreadLocale {
  locale_t previous;
  explicit ThreadLocale(locale_t l) : previous(uselocale(l)) {}
  ~ThreadLocale() { uselocale(previous); }
};

}  // namespace

TEST(QlgPrintfLocale, TheCLocaleHasAPointAndNoGrouping) {
  EXPECT_PRINTS("1234567.50 1234567", "%'.2f %'d", 1234567.5, 1234567);
}

TEST(QlgPrintfLocale, DecimalPointAndGroupingComeFromTheThreadLocale) {
  locale_t de = germanNumericLocale();
  if (!de) GTEST_SKIP() << "no locale with digit grouping available";
  ThreadLocale use(de);
  EXPECT_PRINTS("1234567,500000", "%f", 1234567.5);
  EXPECT_PRINTS("1.234.567,50", "%'.2f", 1234567.5);
  EXPECT_PRINTS("1.234.567", "%'d", 1234567);
  EXPECT_PRINTS("-1.234.567", "%'d", -1234567);
  EXPECT_PRINTS("4.294.967.295", "%'u", -1);
  EXPECT_PRINTS("1,23457e+06", "%'g", 1234567.5);
  EXPECT_PRINTS("1.234.567,5", "%'.8g", 1234567.5);
  EXPECT_PRINTS("1,234568e+06", "%'e", 1234567.5);
  EXPECT_PRINTS("12d687", "%'x", 1234567);
  EXPECT_PRINTS("   1.234,5", "%'10.1f", 1234.5);
}

/* ---- Wide conversions ------------------------------------------------------------ */

TEST(QlgPrintfWide, WideConversionsGoThroughTheConverter) {
  Result r = wpf("%ls|%S|%lc|%C", L"h\u00e9", L"\u20ac", static_cast<wint_t>(L'\u00e9'),
                 static_cast<wint_t>('A'));
  EXPECT_EQ(r.s, "h\xC3\xA9|\xE2\x82\xAC|\xC3\xA9|A");
  EXPECT_EQ(r.n, static_cast<int>(r.s.size()));
}

TEST(QlgPrintfWide, PrecisionCountsBytesAndStopsBeforeACharacterThatWouldPassIt) {
  EXPECT_EQ(wpf("%.2ls|", L"h\u00e9llo").s, "h|");
  EXPECT_EQ(wpf("%.3ls|", L"h\u00e9llo").s, "h\xC3\xA9|");
  EXPECT_EQ(wpf("%5ls|", L"\u00e9").s, "   \xC3\xA9|");
  EXPECT_EQ(wpf("%-5ls|", L"\u00e9").s, "\xC3\xA9   |");
  EXPECT_EQ(wpf("%3lc|", static_cast<wint_t>(0xE9)).s, " \xC3\xA9|");
  EXPECT_EQ(wpf("%2lc|", static_cast<wint_t>(0)).s, std::string(" \0|", 3));
}

TEST(QlgPrintfWide, ConverterFailureStopsTheOutput) {
  const wchar_t bad[] = {L'o', L'k', static_cast<wchar_t>(0xD800), L'x', 0};
  Result r = wpf("[%ls]", bad);
  EXPECT_EQ(r.s, "[ok");
  EXPECT_EQ(r.n, 3);
  EXPECT_EQ(pf("[%ls]", L"ok").s, "[");  // no converter at all
  EXPECT_EQ(wpf("[%3ls]", static_cast<const wchar_t*>(nullptr)).s, "[   ");
}

/* ---- Typed parameter lists ------------------------------------------------------- */

TEST(QlgPrintfParms, EveryKindFillsItsSlotAndAnUnknownKindLeavesItZero) {
  Parms p{pChar('c'), pInt(-2), pLong(3000000000L), pFloat(1.5f), pDouble(2.25), pUChar(200),
          pStr("text")};
  EXPECT_EQ(fp("%c %d %ld %.1f %.2f %u %s", p), "c -2 3000000000 1.5 2.25 200 text");
  EXPECT_EQ(fp("%7$s %6$u %5$.2f %4$.1f %3$ld %2$d %1$c", p), "text 200 2.25 1.5 3000000000 -2 c");
  EXPECT_EQ(fp("%d", Parms{pChar(static_cast<char>(-1))}), "-1");
  EXPECT_EQ(fp("%d %d", Parms{parmOf(999), pInt(5)}), "0 5");
}

TEST(QlgPrintfParms, MessageTextsFormatAsTheirCallersExpect) {
  EXPECT_EQ(fp("QLGBC0031E Property '%1$s' must be %2$d characters or less.\r", Parms{pStr("name"), pInt(10)}),
            "QLGBC0031E Property 'name' must be 10 characters or less.\r");
  EXPECT_EQ(fp("set %1$d key %2$d catalog %3$s", Parms{pInt(3), pInt(7), pStr("qlgmsg")}),
            "set 3 key 7 catalog qlgmsg");
  EXPECT_EQ(fp("read the active log file %1s during", Parms{pStr("/var/log/a.log")}),
            "read the active log file /var/log/a.log during");
  Parms disk{pStr("/ffdc"), pDouble(85.5), pLong(1048576L), pStr("h")};
  EXPECT_EQ(fp("%1$s %2$.2f percent, %3$ld bytes, %4$s.", disk), "/ffdc 85.50 percent, 1048576 bytes, h.");
}

TEST(QlgPrintfParms, MissingParameterOrRejectedFormatGivesNull) {
  Parms one{pStr("a")};
  for (const char* f : {"%s %s", "%2$s", "%.0f", "%n"}) EXPECT_EQ(fp(f, one), "<null>") << f;
  EXPECT_EQ(QlgPrintf_formatParms("%d", nullptr), nullptr);
}

TEST(QlgPrintfParms, EmptyResultIsAnEmptyStringAndNoArgumentsNeedNoList) {
  EXPECT_EQ(fp("%s", Parms{pStr("")}), "");
  for (const char* f : {"no conversions", ""}) {
    char* out = QlgPrintf_formatParms(f, nullptr);
    ASSERT_NE(out, nullptr);
    EXPECT_STREQ(out, f);
    QlgMem_free(out);
  }
}

TEST(QlgPrintfParms, DoubleGivenToAnIntegerConversionSaturatesInsteadOfOverflowing) {
  Parms p{pDouble(1e76), pDouble(-1e76), pDouble(NAN), pDouble(-42.9)};
  EXPECT_EQ(fp("%X %X %d %d", p), "7FFFFFFFFFFFFFFF 8000000000000000 0 -42");
}

/* ---- Allocation failures ----------------------------------------------------------- */

namespace {

/* Over 32 directives and 16 arguments, so the parse arrays move to the heap. */
const std::string kLongFormat = [] {
  std::string f;
  for (int i = 20; i >= 1; i--) f += "<%" + std::to_string(i) + "$s>";
  return f;
}();

int formatLong(CxStringBuff* b, const char* last) {
  return QlgPrintf_format(nullptr, b, kLongFormat.c_str(), "a", "b", "c", "d", "e", "f", "g", "h",
                          "i", "j", "k", "l", "m", "n", "o", "p", "q", "r", "s", last);
}

}  // namespace

TEST(QlgPrintfAllocationFailure, FormatParmsReturnsNullForEveryFailedAllocation) {
  const std::string big(1500, 't');
  Parms many{};
  for (char c[2] = {'a', 0}; c[0] <= 's'; c[0]++) {
    QlgParm q = pStr(c);
    ASSERT_TRUE(QlgParmList_add(many.list, &q));
  }
  QlgParm last = pStr(big.c_str());
  ASSERT_TRUE(QlgParmList_add(many.list, &last));
  Parms small{pStr("x"), pStr("y"), pInt(3)};
  const std::pair<std::string, const Parms*> cases[] = {{"%2$s then %1$s (%3$d)", &small},
                                                       {kLongFormat, &many}};
  for (const auto& c : cases) {
    QlgMem_failAt(0);
    char* full = QlgPrintf_formatParms(c.first.c_str(), c.second->list);
    long attempts = QlgMem_allocCount();
    ASSERT_NE(full, nullptr);
    QlgMem_free(full);
    ASSERT_GT(attempts, 0);
    for (long i = 1; i <= attempts; i++) {
      QlgMem_failAt(i);
      char* out = QlgPrintf_formatParms(c.first.c_str(), c.second->list);
      EXPECT_EQ(QlgMem_failed(), 1);
      QlgMem_failAt(0);
      EXPECT_EQ(out, nullptr) << c.first << " attempt " << i;
      QlgMem_free(out);
    }
  }
}

/* The text a failed run kept is a strict prefix of the full output, reported
   by its length and still terminated. */
void expectPrefix(const CxStringBuff& b, int got, const std::string& full, const std::string& at) {
  std::string text = b.data ? std::string(b.data, b.length) : std::string();
  EXPECT_EQ(got, static_cast<int>(text.size())) << at;
  EXPECT_LT(text.size(), full.size()) << at;
  EXPECT_EQ(full.compare(0, text.size(), text), 0) << at << ": " << text;
  if (b.data) {
    EXPECT_EQ(b.data[b.length], 0) << at;
  }
}

TEST(QlgPrintfAllocationFailure, VformatKeepsOnlyACompletePrefixAndReportsIt) {
  const std::string big(1500, 't');
  CxStringBuff whole{0, 0, nullptr};
  QlgMem_failAt(0);
  int n = formatLong(&whole, big.c_str());
  long attempts = QlgMem_allocCount();
  std::string expected(whole.data, whole.length);
  ASSERT_EQ(n, static_cast<int>(expected.size()));
  CxStringBuff_free(&whole);
  ASSERT_GE(attempts, 3);  // directives, slots, buffer, growth
  for (long i = 1; i <= attempts; i++) {
    CxStringBuff b{0, 0, nullptr};
    QlgMem_failAt(i);
    int got = formatLong(&b, big.c_str());
    EXPECT_EQ(QlgMem_failed(), 1);
    QlgMem_failAt(0);
    expectPrefix(b, got, expected, "attempt " + std::to_string(i));
    CxStringBuff_free(&b);
  }
}

TEST(QlgPrintfAllocationFailure, FailedParseLeavesAnExistingBufferUntouched) {
  CxStringBuff b{0, 0, nullptr};
  ASSERT_TRUE(CxStringBuff_append(&b, "prefix"));
  QlgMem_failAt(1);  // the directive array's move to the heap
  int got = formatLong(&b, "t");
  EXPECT_EQ(QlgMem_failed(), 1);
  QlgMem_failAt(0);
  EXPECT_EQ(got, 0);
  EXPECT_STREQ(b.data, "prefix");
  CxStringBuff_free(&b);
}

TEST(QlgPrintfAllocationFailure, NothingIsWrittenAfterTheFirstFailedAppend) {
  // The text crosses the first 1 KiB at every point of the conversions in
  // turn, so the failed growth lands inside each kind of output.
  for (int lead = 990; lead <= 1024; lead++) {
    std::string f = std::string(static_cast<size_t>(lead), 'x') + "[%+010.3f|%#10x|%-6s|%e|%'g|%5c]";
    CxStringBuff whole{0, 0, nullptr}, b{0, 0, nullptr};
    QlgMem_failAt(0);
    QlgPrintf_format(nullptr, &whole, f.c_str(), -3.25, 255, "ab", 1e-7, 1234.5, 'z');
    QlgMem_failAt(2);  // the growth past 1024 bytes
    int got = QlgPrintf_format(nullptr, &b, f.c_str(), -3.25, 255, "ab", 1e-7, 1234.5, 'z');
    EXPECT_EQ(QlgMem_failed(), 1);
    QlgMem_failAt(0);
    expectPrefix(b, got, std::string(whole.data, whole.length), "lead " + std::to_string(lead));
    EXPECT_LE(b.length, 1023);
    CxStringBuff_free(&whole);
    CxStringBuff_free(&b);
  }
}
