/*
 * QlgPrintf against the C library's snprintf: a seeded generator writes
 * formats over the flags, widths, precisions, stars and positions of the
 * conversions d i u o x X c s f e E g G, with matching arguments, and both
 * printers must produce the same bytes.  The C library wants a format either
 * wholly sequential or wholly positional, so the two families are generated
 * separately.
 *
 * Left out are only the rules in which this engine differs on purpose, each
 * guarded by its own tests: a precision that starts with 0 or is a bare
 * point, holes in the positions, %n, the ' flag, an integer conversion of 0
 * with precision 0 (which prints nothing, not even padding), and floating
 * output that would need more than 16 significant digits.  One defect of
 * the C library is stepped around as well (see positionalCase).
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include "msg/QlgPrintf.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

enum ArgClass { kIntArg, kDoubleArg, kStringArg };

struct Arg {
  ArgClass cls;
  int i;
  double d;
  const char* s;
};

struct Outcome {
  int cCount;
  std::string c;
  int qCount;
  std::string q;
};

const int kMaxArgs = 6;

/* Calls both printers with the arguments as their real C types.  The
   argument list is built up one typed value at a time, so every call site
   has the exact variadic signature the format expects. */
template <typename... T>
void callBoth(const char* format, const std::vector<Arg>& args, size_t k, Outcome* out, T... values) {
  if (k == args.size()) {
    char buf[4096];
    out->cCount = std::snprintf(buf, sizeof buf, format, values...);
    out->c.assign(buf, out->cCount >= 0 && out->cCount < static_cast<int>(sizeof buf) ? out->cCount : 0);
    CxStringBuff b{0, 0, nullptr};
    out->qCount = QlgPrintf_format(nullptr, &b, format, values...);
    out->q = b.data ? std::string(b.data, b.length) : std::string();
    CxStringBuff_free(&b);
    return;
  }
  if constexpr (sizeof...(T) < kMaxArgs) {
    const Arg& a = args[k];
    switch (a.cls) {
      case kIntArg: callBoth(format, args, k + 1, out, values..., a.i); break;
      case kDoubleArg: callBoth(format, args, k + 1, out, values..., a.d); break;
      case kStringArg: callBoth(format, args, k + 1, out, values..., a.s); break;
    }
  }
}

const char* const kStrings[] = {"", "a", "hello", "Could not open", "with space", "\xC3\xBCn\xC3\xAF",
                                "0123456789abcdefghij"};

/* One generated conversion before its arguments are numbered. */
struct Conversion {
  char conversion;
  std::string flags;
  int widthKind;      /* 0 none, 1 literal, 2 star */
  int width;          /* literal width, or the star's argument value */
  int precisionKind;  /* 0 none, 1 literal, 2 star */
  int precision;
  Arg value;
  int widthArg, precisionArg, valueArg; /* 1-based positions */
};

class Generator {
 public:
  explicit Generator(unsigned seed) : rng_(seed) {}

  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }
  bool chance(int percent) { return pick(1, 100) <= percent; }

  int anyInt() {
    switch (pick(0, 5)) {
      case 0: return pick(-9, 9);
      case 1: return pick(-100000, 100000);
      case 2: return pick(INT_MIN, INT_MAX);
      case 3: return INT_MIN;
      case 4: return INT_MAX;
      default: return pick(0, 255);
    }
  }

  /* A double whose correctly rounded output under the precision chosen for
     it never needs more than 16 significant digits. */
  double anyDouble() {
    double v;
    switch (pick(0, 7)) {
      case 0: v = pick(0, 1000000); break;
      case 1: v = pick(0, 1000000) / std::pow(10.0, pick(1, 6)); break;
      case 2: v = pick(1, 1 << 20) / std::ldexp(1.0, pick(1, 20)); break;
      case 3: v = pick(1, 999) * std::pow(10.0, pick(-12, -1)); break;
      case 4: v = pick(0, 8) + 0.5; break;
      case 5: v = pick(1, 99999) / 7.0; break;
      case 6: v = chance(50) ? std::numeric_limits<double>::infinity() : std::nan(""); break;
      default: v = 0.0; break;
    }
    if (chance(30) && !std::isnan(v) && v != 0.0) v = -v;
    return v;
  }

  std::string flags() {
    static const char kFlags[] = "-0+ #";
    std::string f;
    int n = pick(0, 3);
    for (int i = 0; i < n; i++) f += kFlags[pick(0, 4)];
    return f;
  }

  Conversion conversion() {
    static const char kConversions[] = "diuoxXcsfeEgG";
    Conversion c;
    c.conversion = kConversions[pick(0, static_cast<int>(sizeof kConversions) - 2)];
    c.flags = flags();
    c.widthKind = pick(0, 2);
    c.width = c.widthKind == 1 ? pick(1, 20) : pick(-20, 20);
    c.precisionKind = c.conversion == 'c' ? 0 : pick(0, 2);
    bool real = std::string("feEgG").find(c.conversion) != std::string::npos;
    /* Keep every floating result within 16 significant digits: values stay
       below 10^6, so six integer digits plus at most nine decimals for f,
       at most 15 decimals (16 digits) for e and 16 digits for g. */
    int maxPrecision = c.conversion == 'f' ? 9 : (c.conversion == 'e' || c.conversion == 'E') ? 15 : 16;
    if (c.precisionKind == 1) {
      c.precision = pick(1, real ? maxPrecision : 12);
    } else {
      c.precision = pick(-3, real ? maxPrecision : 12);
    }
    if (real) {
      c.value = Arg{kDoubleArg, 0, anyDouble(), nullptr};
    } else if (c.conversion == 's') {
      c.value = Arg{kStringArg, 0, 0, kStrings[pick(0, 6)]};
    } else if (c.conversion == 'c') {
      c.value = Arg{kIntArg, pick(32, 126), 0, nullptr};
    } else {
      c.value = Arg{kIntArg, anyInt(), 0, nullptr};
      /* Precision 0 with the value 0 prints nothing at all here, where the C
         library still pads to the width. */
      if (c.precisionKind == 2 && c.precision == 0 && c.value.i == 0) c.value.i = 1;
    }
    return c;
  }

  std::string literal() {
    static const char* const kPieces[] = {"", " ", "x=", " | ", "%%", "abc", "\xC3\xA9t\xC3\xA9", "[", "]"};
    return kPieces[pick(0, 8)];
  }

  std::mt19937& rng() { return rng_; }

 private:
  std::mt19937 rng_;
};

std::string spec(const Conversion& c, bool positional) {
  std::string s = "%";
  if (positional) s += std::to_string(c.valueArg) + "$";
  s += c.flags;
  if (c.widthKind == 1) s += std::to_string(c.width);
  if (c.widthKind == 2) s += positional ? "*" + std::to_string(c.widthArg) + "$" : "*";
  if (c.precisionKind == 1) s += "." + std::to_string(c.precision);
  if (c.precisionKind == 2) s += positional ? ".*" + std::to_string(c.precisionArg) + "$" : ".*";
  s += c.conversion;
  return s;
}

struct Case {
  std::string format;
  std::vector<Arg> args;
};

/* Sequential: arguments in the order the conversions consume them. */
Case sequentialCase(Generator& g) {
  Case c;
  for (;;) {
    c.format = g.literal();
    c.args.clear();
    int n = g.pick(1, 4);
    for (int i = 0; i < n; i++) {
      Conversion v = g.conversion();
      if (v.widthKind == 2) c.args.push_back(Arg{kIntArg, v.width, 0, nullptr});
      if (v.precisionKind == 2) c.args.push_back(Arg{kIntArg, v.precision, 0, nullptr});
      c.args.push_back(v.value);
      c.format += spec(v, false) + g.literal();
    }
    if (c.args.size() <= static_cast<size_t>(kMaxArgs)) return c;
  }
}

/* Positional: every argument gets its own number, the numbers are dealt out
   in a shuffled order, and now and then a conversion reuses an argument of
   an earlier one with the same conversion. */
Case positionalCase(Generator& g) {
  Case c;
  for (;;) {
    c.format = g.literal();
    c.args.clear();
    std::vector<Conversion> convs;
    int n = g.pick(1, 4);
    int slots = 0;
    for (int i = 0; i < n; i++) {
      Conversion v = g.conversion();
      v.widthArg = v.widthKind == 2 ? ++slots : 0;
      v.precisionArg = v.precisionKind == 2 ? ++slots : 0;
      v.valueArg = ++slots;
      convs.push_back(v);
    }
    if (slots > kMaxArgs) continue;
    /* The C library (glibc 2.36) pads a floating conversion with zeros on
       the right when a "*N$" width is negative and the 0 flag is set, where
       the standard wants spaces; such widths are made positive. */
    for (Conversion& v : convs) {
      bool real = std::string("feEgG").find(v.conversion) != std::string::npos;
      if (real && v.widthKind == 2 && v.width < 0 && v.flags.find('0') != std::string::npos) v.width = -v.width;
    }
    std::vector<int> order(static_cast<size_t>(slots));
    for (int i = 0; i < slots; i++) order[static_cast<size_t>(i)] = i + 1;
    std::shuffle(order.begin(), order.end(), g.rng());
    c.args.assign(static_cast<size_t>(slots), Arg{kIntArg, 0, 0, nullptr});
    for (Conversion& v : convs) {
      if (v.widthArg) {
        v.widthArg = order[static_cast<size_t>(v.widthArg - 1)];
        c.args[static_cast<size_t>(v.widthArg - 1)] = Arg{kIntArg, v.width, 0, nullptr};
      }
      if (v.precisionArg) {
        v.precisionArg = order[static_cast<size_t>(v.precisionArg - 1)];
        c.args[static_cast<size_t>(v.precisionArg - 1)] = Arg{kIntArg, v.precision, 0, nullptr};
      }
      v.valueArg = order[static_cast<size_t>(v.valueArg - 1)];
      c.args[static_cast<size_t>(v.valueArg - 1)] = v.value;
      c.format += spec(v, true) + g.literal();
    }
    for (size_t i = 1; i < convs.size(); i++) {
      const Conversion& earlier = convs[static_cast<size_t>(g.pick(0, static_cast<int>(i) - 1))];
      if (earlier.conversion == convs[i].conversion && g.chance(30)) {
        Conversion again = earlier;
        again.flags = g.flags();
        again.widthKind = again.widthKind == 2 ? 2 : 0;
        again.precisionKind = again.precisionKind == 2 ? 2 : 0;
        c.format += spec(again, true);
      }
    }
    return c;
  }
}

std::string describe(const Case& c) {
  std::string s = "format \"" + c.format + "\" args:";
  for (const Arg& a : c.args) {
    char buf[64];
    if (a.cls == kIntArg) std::snprintf(buf, sizeof buf, " %d", a.i);
    if (a.cls == kDoubleArg) std::snprintf(buf, sizeof buf, " %.17g", a.d);
    if (a.cls == kStringArg) std::snprintf(buf, sizeof buf, " \"%s\"", a.s);
    s += buf;
  }
  return s;
}

/* Runs count generated cases; returns how many agreed. */
int compareFamily(Case (*make)(Generator&), unsigned seed, int count) {
  Generator g(seed);
  int agreed = 0, reported = 0;
  for (int i = 0; i < count; i++) {
    Case c = make(g);
    Outcome o;
    callBoth(c.format.c_str(), c.args, 0, &o);
    if (o.cCount == o.qCount && o.c == o.q) {
      agreed++;
    } else if (reported++ < 20) {
      ADD_FAILURE() << describe(c) << "\n  C library: [" << o.c << "] (" << o.cCount << ")"
                    << "\n  engine:    [" << o.q << "] (" << o.qCount << ")";
    }
  }
  return agreed;
}

}  // namespace

TEST(QlgPrintfDifferential, SequentialFormatsAgreeWithTheCLibrary) {
  const int count = 6000;
  EXPECT_EQ(compareFamily(sequentialCase, 20240611u, count), count);
}

TEST(QlgPrintfDifferential, PositionalFormatsAgreeWithTheCLibrary) {
  const int count = 6000;
  EXPECT_EQ(compareFamily(positionalCase, 977u, count), count);
}

/* The digit generation on its own: random doubles over a wide range of
   magnitudes, exact binary fractions whose decimal forms end in a tie, and
   every precision that stays within 16 significant digits. */
TEST(QlgPrintfDifferential, FloatingDigitsAgreeWithTheCLibraryOverWideRanges) {
  std::mt19937_64 rng(4242);
  int compared = 0, agreed = 0, reported = 0;
  for (int i = 0; i < 20000; i++) {
    double v;
    if (i % 3 == 0) {
      /* A tie in decimal: an odd multiple of a power of two. */
      v = static_cast<double>(rng() % 100000 * 2 + 1) / std::ldexp(1.0, static_cast<int>(rng() % 12) + 1);
    } else {
      std::uniform_real_distribution<double> mant(1.0, 10.0);
      v = mant(rng) * std::pow(10.0, static_cast<int>(rng() % 61) - 30);
    }
    if (rng() % 4 == 0) v = -v;
    int decpt = static_cast<int>(std::floor(std::log10(std::fabs(v)))) + 1;
    struct {
      char conversion;
      int precision;
    } tries[] = {{'e', static_cast<int>(rng() % 16)},
                 {'g', static_cast<int>(rng() % 16) + 1},
                 {'f', decpt >= 15 ? -1 : static_cast<int>(rng() % static_cast<unsigned>(std::min(15 - decpt, 22) + 1))}};
    for (const auto& t : tries) {
      if (t.precision < 0) continue;
      char format[16];
      std::snprintf(format, sizeof format, "%%.*%c", t.conversion);
      Outcome o;
      std::vector<Arg> args = {Arg{kIntArg, t.precision, 0, nullptr}, Arg{kDoubleArg, 0, v, nullptr}};
      callBoth(format, args, 0, &o);
      compared++;
      if (o.c == o.q && o.cCount == o.qCount) {
        agreed++;
      } else if (reported++ < 20) {
        ADD_FAILURE() << "%." << t.precision << t.conversion << " of " << std::scientific
                      << std::setprecision(17) << v << "\n  C library: [" << o.c << "]\n  engine:    [" << o.q << "]";
      }
    }
  }
  EXPECT_GT(compared, 50000);
  EXPECT_EQ(agreed, compared);
}
