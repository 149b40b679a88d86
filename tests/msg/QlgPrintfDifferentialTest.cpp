// SPDX-License-Identifier: Apache-2.0
// QlgPrintf against the C library's snprintf: a seeded generator writes
// formats over the flags, widths, precisions, stars and positions of the
// conversions d i u o x X c s f e E g G, with matching arguments, and both
// printers must produce the same bytes.  The C library wants a format either
// wholly sequential or wholly positional, so the two families are generated
// apart.  Left out are only the rules in which this engine differs on
// purpose, each guarded in QlgPrintfTest: a precision that starts with 0 or
// is a bare point, holes in the positions, %n, the ' flag, an integer 0 with
// precision 0 (nothing, not even padding), and floating output that would
// need more than 16 significant digits.
#include <climits>
#include <cmath>
#include <limits>
#include <random>

#include "msg/QlgPrintf.h"
#include "support/TestSupport.h"

namespace {

struct Arg {
  char cls;  // 'i' int, 'd' double, 's' string
  int i;
  double d;
  const char* s;
};
Arg intArg(int v) { return Arg{'i', v, 0, nullptr}; }

const int kMaxArgs = 6;

// Both printers' outputs, "count:text"; the argument list is built one typed
// value at a time so every call has the exact variadic signature.
template <typename... T>
std::string callBoth(const char* format, const std::vector<Arg>& args, size_t k, T... values) {
  if (k == args.size()) {
    char buf[4096];
    int n = std::snprintf(buf, sizeof buf, format, values...);
    CxStringBuff b{0, 0, nullptr};
    int q = QlgPrintf_format(nullptr, &b, format, values...);
    std::string out = std::to_string(n) + ":" + std::string(buf, n >= 0 && n < 4096 ? n : 0) + "\n" +
                      std::to_string(q) + ":" + (b.data ? std::string(b.data, b.length) : "");
    CxStringBuff_free(&b);
    return out;
  }
  if constexpr (sizeof...(T) < kMaxArgs) {
    const Arg& a = args[k];
    if (a.cls == 'i') return callBoth(format, args, k + 1, values..., a.i);
    if (a.cls == 'd') return callBoth(format, args, k + 1, values..., a.d);
    return callBoth(format, args, k + 1, values..., a.s);
  }
  return "too many arguments";
}

bool agree(const std::string& both) {
  size_t nl = both.find('\n');
  return both.compare(0, nl, both, nl + 1, std::string::npos) == 0;
}

// One conversion; width and precision kinds: 0 none, 1 literal, 2 star.
struct Conversion {
  char conversion;
  std::string flags;
  int widthKind, width, precisionKind, precision;
  Arg value;
  int widthArg, precisionArg, valueArg;  // 1-based positions
};

class Generator {
 public:
  explicit Generator(unsigned seed) : rng(seed) {}
  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
  bool chance(int percent) { return pick(1, 100) <= percent; }

  int anyInt() {
    const int fixed[] = {pick(-9, 9), pick(-100000, 100000), pick(INT_MIN, INT_MAX), INT_MIN, INT_MAX, pick(0, 255)};
    return fixed[pick(0, 5)];
  }
  // A double whose rounded output under the precisions chosen never needs more than 16 significant digits.
  double anyDouble() {
    double v[] = {static_cast<double>(pick(0, 1000000)), pick(0, 1000000) / std::pow(10.0, pick(1, 6)),
                  pick(1, 1 << 20) / std::ldexp(1.0, pick(1, 20)), pick(1, 999) * std::pow(10.0, pick(-12, -1)),
                  pick(0, 8) + 0.5, pick(1, 99999) / 7.0,
                  chance(50) ? std::numeric_limits<double>::infinity() : std::nan(""), 0.0};
    double d = v[pick(0, 7)];
    return chance(30) && !std::isnan(d) && d != 0.0 ? -d : d;
  }
  std::string flags() {
    std::string f;
    for (int i = pick(0, 3); i > 0; i--) f += "-0+ #"[pick(0, 4)];
    return f;
  }
  Conversion conversion() {
    Conversion c{};
    c.conversion = "diuoxXcsfeEgG"[pick(0, 12)];
    c.flags = flags();
    c.widthKind = pick(0, 2);
    c.width = c.widthKind == 1 ? pick(1, 20) : pick(-20, 20);
    c.precisionKind = c.conversion == 'c' ? 0 : pick(0, 2);
    bool real = std::string("feEgG").find(c.conversion) != std::string::npos;
    // Values stay below 10^6: at most nine decimals for f, 15 for e, 16 digits for g.
    int maxPrecision = !real ? 12 : c.conversion == 'f' ? 9 : (c.conversion == 'e' || c.conversion == 'E') ? 15 : 16;
    c.precision = pick(c.precisionKind == 1 ? 1 : -3, maxPrecision);
    if (real) c.value = Arg{'d', 0, anyDouble(), nullptr};
    else if (c.conversion == 's') c.value = Arg{'s', 0, 0, kStrings[pick(0, 6)]};
    else c.value = intArg(c.conversion == 'c' ? pick(32, 126) : anyInt());
    if (c.precisionKind == 2 && c.precision == 0 && c.value.cls == 'i' && c.value.i == 0) c.value.i = 1;
    // glibc 2.36 pads a floating conversion with zeros on the right when a
    // "*N$" width is negative and 0 is set; such widths are made positive.
    if (real && c.widthKind == 2 && c.width < 0 && c.flags.find('0') != std::string::npos) c.width = -c.width;
    return c;
  }
  std::string literal() {
    static const char* const kPieces[] = {"", " ", "x=", " | ", "%%", "abc", "\xC3\xA9t\xC3\xA9", "[", "]"};
    return kPieces[pick(0, 8)];
  }
  static constexpr const char* kStrings[] = {"", "a", "hello", "Could not open", "with space", "\xC3\xBCn\xC3\xAF",
                                             "0123456789abcdefghij"};
  std::mt19937 rng;
};

std::string spec(const Conversion& c, bool positional) {
  std::string s = "%" + (positional ? std::to_string(c.valueArg) + "$" : "") + c.flags;
  if (c.widthKind == 1) s += std::to_string(c.width);
  if (c.widthKind == 2) s += positional ? "*" + std::to_string(c.widthArg) + "$" : "*";
  if (c.precisionKind == 1) s += "." + std::to_string(c.precision);
  if (c.precisionKind == 2) s += positional ? ".*" + std::to_string(c.precisionArg) + "$" : ".*";
  return s + c.conversion;
}

// A generated format and its arguments.  Positional: every argument gets its
// own number, dealt out in a shuffled order, and now and then a conversion
// reuses the argument of an earlier one of the same kind.
std::pair<std::string, std::vector<Arg>> generate(Generator& g, bool positional) {
  for (;;) {
    std::string format = g.literal();
    std::vector<Conversion> convs(static_cast<size_t>(g.pick(1, 4)));
    int slots = 0;
    for (Conversion& v : convs) {
      v = g.conversion();
      v.widthArg = v.widthKind == 2 ? ++slots : 0;
      v.precisionArg = v.precisionKind == 2 ? ++slots : 0;
      v.valueArg = ++slots;
    }
    if (slots > kMaxArgs) continue;
    std::vector<int> order(static_cast<size_t>(slots) + 1);
    for (int i = 0; i <= slots; i++) order[static_cast<size_t>(i)] = i;
    if (positional) std::shuffle(order.begin() + 1, order.end(), g.rng);
    std::vector<Arg> args(static_cast<size_t>(slots), intArg(0));
    for (Conversion& v : convs) {
      for (int* at : {&v.widthArg, &v.precisionArg, &v.valueArg}) *at = order[static_cast<size_t>(*at)];
      if (v.widthArg) args[static_cast<size_t>(v.widthArg - 1)] = intArg(v.width);
      if (v.precisionArg) args[static_cast<size_t>(v.precisionArg - 1)] = intArg(v.precision);
      args[static_cast<size_t>(v.valueArg - 1)] = v.value;
      format += spec(v, positional) + g.literal();
    }
    for (size_t i = 1; positional && i < convs.size(); i++) {
      Conversion again = convs[static_cast<size_t>(g.pick(0, static_cast<int>(i) - 1))];
      if (again.conversion != convs[i].conversion || !g.chance(30)) continue;
      again.flags = g.flags();
      again.widthKind = again.widthKind == 2 ? 2 : 0;
      again.precisionKind = again.precisionKind == 2 ? 2 : 0;
      format += spec(again, true);
    }
    return {format, args};
  }
}

void compareFamily(bool positional, unsigned seed) {
  Generator g(seed);
  int disagreed = 0;
  for (int i = 0; i < 6000 && disagreed < 20; i++) {
    auto c = generate(g, positional);
    std::string both = callBoth(c.first.c_str(), c.second, 0);
    if (!agree(both)) disagreed++, ADD_FAILURE() << "format \"" << c.first << "\"\n" << both;
  }
}

}  // namespace

TEST(QlgPrintfDifferential, SequentialFormatsAgreeWithTheCLibrary) { compareFamily(false, 20240611u); }

TEST(QlgPrintfDifferential, PositionalFormatsAgreeWithTheCLibrary) { compareFamily(true, 977u); }

// The digit generation on its own: doubles over a wide range of magnitudes
// and exact binary fractions whose decimal forms end in a tie, under every
// precision that stays within 16 significant digits, and the hexadecimal form.
TEST(QlgPrintfDifferential, FloatingDigitsAgreeWithTheCLibraryOverWideRanges) {
  std::mt19937_64 rng(4242);
  int disagreed = 0;
  for (int i = 0; i < 20000 && disagreed < 20; i++) {
    double v = i % 3 == 0 ? static_cast<double>(rng() % 100000 * 2 + 1) / std::ldexp(1.0, static_cast<int>(rng() % 12) + 1)
                          : std::uniform_real_distribution<double>(1.0, 10.0)(rng) * std::pow(10.0, static_cast<int>(rng() % 61) - 30);
    if (rng() % 4 == 0) v = -v;
    int decpt = static_cast<int>(std::floor(std::log10(std::fabs(v)))) + 1;
    const std::pair<const char*, int> tries[] = {
        {"%.*a", static_cast<int>(rng() % 14)}, {"%.*e", static_cast<int>(rng() % 16)}, {"%.*g", static_cast<int>(rng() % 16) + 1},
        {"%.*f", decpt >= 15 ? -1 : static_cast<int>(rng() % static_cast<unsigned>(std::min(15 - decpt, 22) + 1))}};
    for (const auto& t : tries) {
      if (t.second < 0) continue;
      std::string both = callBoth(t.first, {intArg(t.second), Arg{'d', 0, v, nullptr}}, 0);
      if (!agree(both)) disagreed++, ADD_FAILURE() << t.first << " " << t.second << " of " << v << "\n" << both;
    }
  }
}
