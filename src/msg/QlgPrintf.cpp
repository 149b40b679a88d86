// SPDX-License-Identifier: Apache-2.0
/*
 * QlgPrintf: the toolkit's positional printf engine.
 *
 * A translated message may need its arguments in another order than the
 * source text, so every conversion may name its argument ("%2$s").  That is
 * why the engine works in passes: the whole format is parsed into directives
 * and a table of typed argument slots first, then every slot is fetched in
 * order (from a va_list or from a list of typed parameters), and only then
 * is anything written.  A format that cannot be parsed, or whose positions
 * leave a slot that no directive names, writes nothing at all.
 *
 * The directive and slot arrays live on the stack for ordinary formats and
 * move to the heap only for very long ones, so that a call costs no
 * allocation beyond the output buffer itself.
 */
#include "msg/QlgPrintf.h"
#include "nls/QlgCodeset.h"
#include "util/CxPrintUtil.h"

#include <ardel/QlgMem.h>

#include <climits>
#include <clocale>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace {

/* ---- Data: directives and argument slots -------------------------------- */

enum ArgType : int32_t {
  kTypeNone = 0,
  kInt = 10, kShort = 11, kLong = 12, kLongLong = 13, kIntMax = 14,
  kUInt = 20, kUShort = 21, kULong = 22, kULongLong = 23, kUIntMax = 24,
  kDouble = 30, kLongDouble = 31,
  kSChar = 40, kUChar = 41, kWideChar = 42,
  kPointer = 50,
  kIntPtr = 60, kShortPtr = 61, kLongPtr = 62, kLongLongPtr = 63,
  kString = 70, kWideString = 71,
  kSSize = 80, kSize = 81,
  kPtrDiff = 90
};

enum LengthModifier : int32_t {
  kLenNone = 0, kLenH = 20, kLenHH = 21, kLenL = 10, kLenLL = 11, kLenBigL = 12,
  kLenI64 = 30, kLenJ = 40, kLenQ = 50, kLenT = 60, kLenZ = 70
};

enum DirectiveKind : uint8_t { kConversion = 0, kLiteral = 1 };

struct Directive {
  uint8_t kind;
  int32_t argIndex;      /* value slot, -1 none */
  int32_t argType;
  int32_t flags;         /* CX_PRINT_* */
  int32_t widthArg;      /* slot of a '*' width, -1 none */
  int32_t width;         /* literal width, -1 none */
  int32_t precisionArg;  /* slot of a '*' precision, -1 none */
  int32_t precision;     /* literal precision, -1 none */
  int32_t length;        /* LengthModifier */
  char conversion;       /* 'i' is stored as 'd'; '?' until parsed */
  const char* litStart;  /* inclusive range of a literal */
  const char* litEnd;
};

/* One argument: its type and its value, integers and pointers widened to
   64 bits, floating values as a double. */
struct Slot {
  int32_t type;
  uint64_t bits;
  double real;
};

const int kInlineDirectives = 32;
const int kInlineSlots = 16;

struct Parse {
  int count;
  int capacity;
  Directive* items;
  int positionsUsed;
  int nextSequential;
  int argCount;
  int argCapacity;
  Slot* args;
  const char* format;
  int64_t maxUsefulIndex; /* -1 until needed */
  Directive inlineItems[kInlineDirectives];
  Slot inlineArgs[kInlineSlots];
};

void parseInit(Parse* ps, const char* format) {
  ps->count = 0;
  ps->capacity = kInlineDirectives;
  ps->items = ps->inlineItems;
  ps->positionsUsed = 0;
  ps->nextSequential = 0;
  ps->argCount = 0;
  ps->argCapacity = kInlineSlots;
  ps->args = ps->inlineArgs;
  ps->format = format;
  ps->maxUsefulIndex = -1;
}

void parseRelease(Parse* ps) {
  if (ps->items != ps->inlineItems) QlgMem_free(ps->items);
  if (ps->args != ps->inlineArgs) QlgMem_free(ps->args);
  ps->items = ps->inlineItems;
  ps->args = ps->inlineArgs;
}

/* The one growth routine of both arrays: makes room for index + 1 elements,
   leaving the inline store for the heap on the first growth. */
bool makeRoom(void** items, int* capacity, size_t elemSize, void* inlineStore, int index) {
  if (index < *capacity) return true;
  int64_t cap = *capacity > 0 ? *capacity : 1;
  while (cap <= index) cap *= 2;
  if (cap * static_cast<int64_t>(elemSize) > INT_MAX) return false;
  size_t bytes = static_cast<size_t>(cap) * elemSize;
  void* grown;
  if (*items == inlineStore) {
    grown = QlgMem_alloc(bytes);
    if (grown) std::memcpy(grown, inlineStore, static_cast<size_t>(*capacity) * elemSize);
  } else {
    grown = QlgMem_realloc(*items, bytes);
  }
  if (!grown) return false;
  *items = grown;
  *capacity = static_cast<int>(cap);
  return true;
}

Directive* newDirective(Parse* ps) {
  void* items = ps->items;
  if (!makeRoom(&items, &ps->capacity, sizeof(Directive), ps->inlineItems, ps->count)) return nullptr;
  ps->items = static_cast<Directive*>(items);
  return &ps->items[ps->count++];
}

/* Gives slot index the type; the table grows to cover it, and slots that
   no directive has named yet stay untyped. */
bool typeSlot(Parse* ps, int index, int32_t type) {
  if (index >= kInlineSlots) {
    /* Every slot must be named by some directive, and a directive names at
       most three slots in at least two bytes; a larger index is a hole for
       sure, so reject before allocating for it. */
    if (ps->maxUsefulIndex < 0) ps->maxUsefulIndex = 3 * (static_cast<int64_t>(std::strlen(ps->format)) / 2) + 3;
    if (index > ps->maxUsefulIndex) return false;
  }
  void* args = ps->args;
  if (!makeRoom(&args, &ps->argCapacity, sizeof(Slot), ps->inlineArgs, index)) return false;
  ps->args = static_cast<Slot*>(args);
  while (ps->argCount <= index) {
    ps->args[ps->argCount].type = kTypeNone;
    ps->args[ps->argCount].bits = 0;
    ps->args[ps->argCount].real = 0;
    ps->argCount++;
  }
  ps->args[index].type = type;
  return true;
}

/* ---- Parsing ------------------------------------------------------------- */

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/* Decimal digits at p (the caller checked that the first is 1 to 9).
   Advances p past them; false when the number does not fit an int. */
bool readNumber(const char*& p, int32_t* out) {
  int64_t n = 0;
  bool fits = true;
  while (isDigit(*p)) {
    n = n * 10 + (*p - '0');
    if (n > INT_MAX) {
      fits = false;
      n = INT_MAX;
    }
    p++;
  }
  *out = static_cast<int32_t>(n);
  return fits;
}

/* "N$" at p (N from 1 to 9 first): the slot N - 1 and p after the "$";
   otherwise -1 and p unmoved. */
int32_t readPosition(const char*& p, int* positionsUsed) {
  if (*p < '1' || *p > '9') return -1;
  const char* q = p;
  int32_t n;
  if (!readNumber(q, &n) || *q != '$' || n < 1) return -1;
  p = q + 1;
  *positionsUsed = 1;
  return n - 1;
}

/* The slot of a star width or precision: "*N$", or the next sequential
   slot at once for a bare star.  p is just after the star. */
int32_t readStar(Parse* ps, const char*& p) {
  int32_t index = readPosition(p, &ps->positionsUsed);
  return index >= 0 ? index : ps->nextSequential++;
}

/* Type code of a conversion under a length modifier; -1 for a character
   that is not a conversion. */
int32_t typeOf(char conversion, int32_t length) {
  switch (conversion) {
    case 'd':
    case 'i':
      switch (length) {
        case kLenHH: return kSChar;
        case kLenH: return kShort;
        case kLenL: return kLong;
        case kLenLL: case kLenI64: case kLenQ: return kLongLong;
        case kLenJ: return kIntMax;
        case kLenZ: return kSSize;
        case kLenT: return kPtrDiff;
        default: return kInt;
      }
    case 'o': case 'u': case 'x': case 'X':
      switch (length) {
        case kLenHH: return kUChar;
        case kLenH: return kUShort;
        case kLenL: return kULong;
        case kLenLL: case kLenI64: case kLenQ: return kULongLong;
        case kLenJ: return kUIntMax;
        case kLenZ: return kSize;
        case kLenT: return kPtrDiff;
        default: return kUInt;
      }
    case 'a': case 'A': case 'e': case 'E': case 'f': case 'F': case 'g': case 'G':
      return length == kLenBigL ? kLongDouble : kDouble;
    case 'c': return length == kLenL ? kWideChar : kInt;
    case 'C': return kWideChar;
    case 's': return length == kLenL ? kWideString : kString;
    case 'S': return kWideString;
    case 'p': return kPointer;
    case 'n':
      switch (length) {
        case kLenHH: return kString; /* as the engine has always typed it */
        case kLenH: return kShortPtr;
        case kLenL: case kLenQ: return kLongPtr;
        case kLenLL: case kLenI64: return kLongLongPtr;
        default: return kIntPtr;
      }
    default: return -1;
  }
}

bool addLiteral(Parse* ps, const char* start, const char* end) {
  Directive* d = newDirective(ps);
  if (!d) return false;
  d->kind = kLiteral;
  d->litStart = start;
  d->litEnd = end;
  return true;
}

/* One conversion; p is just after its '%'.  False rejects the format. */
bool parseConversion(Parse* ps, const char*& p) {
  Directive* d = newDirective(ps);
  if (!d) return false;
  d->kind = kConversion;
  d->argType = kTypeNone;
  d->flags = 0;
  d->widthArg = -1;
  d->width = -1;
  d->precisionArg = -1;
  d->precision = -1;
  d->length = kLenNone;
  d->conversion = '?';
  d->litStart = d->litEnd = nullptr;
  d->argIndex = readPosition(p, &ps->positionsUsed);

  for (;; p++) {
    if (*p == ' ') d->flags |= CX_PRINT_SPACE;
    else if (*p == '#') d->flags |= CX_PRINT_ALT;
    else if (*p == '\'') d->flags |= CX_PRINT_GROUP;
    else if (*p == '+') d->flags |= CX_PRINT_PLUS;
    else if (*p == '-') d->flags |= CX_PRINT_LEFT;
    else if (*p == '0') d->flags |= CX_PRINT_ZERO;
    else break;
  }

  if (*p == '*') {
    p++;
    d->widthArg = readStar(ps, p);
  } else if (*p >= '1' && *p <= '9') {
    if (!readNumber(p, &d->width)) return false;
  }

  /* A precision must begin with 1 to 9: a '0' after the point is left to be
     read as the conversion letter, which rejects %.0f.  Intended. */
  if (*p == '.') {
    p++;
    if (*p == '*') {
      p++;
      d->precisionArg = readStar(ps, p);
    } else if (*p >= '1' && *p <= '9') {
      if (!readNumber(p, &d->precision)) return false;
    }
  }

  switch (*p) {
    case 'h':
      if (p[1] == 'h') { d->length = kLenHH; p += 2; } else { d->length = kLenH; p++; }
      break;
    case 'l':
      if (p[1] == 'l') { d->length = kLenLL; p += 2; } else { d->length = kLenL; p++; }
      break;
    case 'L': d->length = kLenBigL; p++; break;
    case 'I':
      if (p[1] != '6' || p[2] != '4') return false;
      d->length = kLenI64;
      p += 3;
      break;
    case 'j': d->length = kLenJ; p++; break;
    case 'q': d->length = kLenQ; p++; break;
    case 't': d->length = kLenT; p++; break;
    case 'z': case 'Z': d->length = kLenZ; p++; break;
    default: break;
  }

  int32_t type = typeOf(*p, d->length);
  if (type < 0) return false;
  d->conversion = *p == 'i' ? 'd' : *p;
  d->argType = type;
  p++;
  /* After any star, so %*d reads the width first and the value second. */
  if (d->argIndex < 0) d->argIndex = ps->nextSequential++;

  if (d->widthArg >= 0 && !typeSlot(ps, d->widthArg, kInt)) return false;
  if (d->precisionArg >= 0 && !typeSlot(ps, d->precisionArg, kInt)) return false;
  return typeSlot(ps, d->argIndex, type);
}

bool parseFormat(Parse* ps, const char* format) {
  const char* p = format;
  while (*p) {
    if (*p != '%') {
      /* Message texts are mostly literal text: let the library scan it. */
      const char* start = p;
      p = std::strchr(start, '%');
      if (!p) p = start + std::strlen(start);
      if (!addLiteral(ps, start, p - 1)) return false;
    } else if (p[1] == '%') {
      if (!addLiteral(ps, p + 1, p + 1)) return false;
      p += 2;
    } else {
      p++;
      if (!parseConversion(ps, p)) return false;
    }
  }
  /* A slot that no directive names is a hole: the whole format fails. */
  for (int i = 0; i < ps->argCount; i++) {
    if (ps->args[i].type == kTypeNone) return false;
  }
  return true;
}

/* ---- Fetching ------------------------------------------------------------ */

uint64_t fromPointer(const void* p) { return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p)); }

void fetchVariadic(Parse* ps, va_list* ap) {
  for (int i = 0; i < ps->argCount; i++) {
    Slot* s = &ps->args[i];
    switch (s->type) {
      case kInt: case kShort: case kSChar:
        s->bits = static_cast<uint64_t>(static_cast<int64_t>(va_arg(*ap, int)));
        break;
      case kLong:
        s->bits = static_cast<uint64_t>(static_cast<int64_t>(va_arg(*ap, long)));
        break;
      case kUInt: case kUShort: case kUChar: case kWideChar:
        s->bits = va_arg(*ap, unsigned int);
        break;
      case kULong: s->bits = va_arg(*ap, unsigned long); break;
      case kLongLong: s->bits = static_cast<uint64_t>(va_arg(*ap, long long)); break;
      case kIntMax: s->bits = static_cast<uint64_t>(va_arg(*ap, intmax_t)); break;
      case kULongLong: s->bits = va_arg(*ap, unsigned long long); break;
      case kUIntMax: s->bits = va_arg(*ap, uintmax_t); break;
      case kSSize: case kPtrDiff: s->bits = static_cast<uint64_t>(va_arg(*ap, ptrdiff_t)); break;
      case kSize: s->bits = va_arg(*ap, size_t); break;
      case kDouble: s->real = va_arg(*ap, double); break;
      case kLongDouble: s->real = static_cast<double>(va_arg(*ap, long double)); break;
      default: s->bits = fromPointer(va_arg(*ap, const void*)); break;
    }
  }
}

bool fetchParms(Parse* ps, const QlgParmList* parms) {
  for (int i = 0; i < ps->argCount; i++) {
    const QlgParm* parm = QlgParmList_get(parms, i);
    if (!parm) return false;
    Slot* s = &ps->args[i];
    switch (parm->kind) {
      case QLG_PARM_CHAR:
        s->type = kInt;
        s->bits = static_cast<uint64_t>(static_cast<int64_t>(static_cast<signed char>(parm->value.c)));
        break;
      case QLG_PARM_INT:
        s->type = kInt;
        s->bits = static_cast<uint64_t>(static_cast<int64_t>(parm->value.i));
        break;
      case QLG_PARM_LONG:
        s->type = kLong;
        s->bits = static_cast<uint64_t>(static_cast<int64_t>(parm->value.l));
        break;
      case QLG_PARM_FLOAT:
        s->type = kDouble;
        s->real = parm->value.f;
        break;
      case QLG_PARM_DOUBLE:
        s->type = kDouble;
        s->real = parm->value.d;
        break;
      case QLG_PARM_UCHAR:
        s->type = kUChar;
        s->bits = parm->value.uc;
        break;
      case QLG_PARM_STRING:
        s->type = kString;
        s->bits = fromPointer(parm->value.s);
        break;
      default:
        s->bits = 0;
        s->real = 0;
        break;
    }
  }
  return true;
}

/* ---- Output -------------------------------------------------------------- */

/* Where the text goes.  Padding must be written before the text it pads,
   so a conversion whose length is not known beforehand is first run in
   counting mode, which only measures; the output then stays a prefix of
   the full text whenever it stops early. */
struct Output {
  CxStringBuff* buf;
  QlgCodeset* cs;
  int error;
  bool counting;
  int64_t counted;
  bool haveLocale;
  const char* point;
  CxGrouping grouping;
};

/* The decimal point and grouping of the calling thread's locale, read once
   per call and only when a conversion needs them. */
void loadLocale(Output* o) {
  if (o->haveLocale) return;
  o->haveLocale = true;
  const struct lconv* lc = std::localeconv();
  o->point = lc && lc->decimal_point && *lc->decimal_point ? lc->decimal_point : ".";
  o->grouping.separator = lc ? lc->thousands_sep : nullptr;
  o->grouping.grouping = lc ? lc->grouping : nullptr;
}

bool fail(Output* o) {
  o->error = 1;
  return false;
}

bool putBytes(Output* o, const char* bytes, size_t n) {
  if (o->error) return false; /* nothing after the first failure */
  if (o->counting) {
    o->counted += static_cast<int64_t>(n);
    return true;
  }
  if (n == 0) return true;
  if (n > static_cast<size_t>(INT_MAX) || !CxStringBuff_reserve(o->buf, static_cast<uint32_t>(n))) return fail(o);
  CxStringBuff* b = o->buf;
  std::memcpy(b->data + b->length, bytes, n);
  b->length += static_cast<int32_t>(n);
  b->data[b->length] = 0;
  return true;
}

bool putFill(Output* o, char c, int64_t n) {
  if (o->error) return false; /* nothing after the first failure */
  if (n <= 0) return true;
  if (o->counting) {
    o->counted += n;
    return true;
  }
  if (n > INT_MAX || !CxStringBuff_reserve(o->buf, static_cast<uint32_t>(n))) return fail(o);
  CxStringBuff* b = o->buf;
  std::memset(b->data + b->length, c, static_cast<size_t>(n));
  b->length += static_cast<int32_t>(n);
  b->data[b->length] = 0;
  return true;
}

bool isPointerType(int32_t type) {
  return type == kString || type == kWideString || type == kPointer ||
         (type >= kIntPtr && type <= kLongLongPtr);
}

/* A slot read as an integer or a floating value whatever its type, so that a
   parameter of the wrong kind prints something instead of garbage. */
uint64_t slotInteger(const Slot* s) {
  if (s->type == kDouble || s->type == kLongDouble) {
    /* Saturated: converting a value outside int64_t is undefined. */
    double r = s->real;
    if (!(r == r)) return 0;
    if (r >= 9223372036854775807.0) return static_cast<uint64_t>(INT64_MAX);
    if (r <= -9223372036854775808.0) return static_cast<uint64_t>(INT64_MIN);
    return static_cast<uint64_t>(static_cast<int64_t>(r));
  }
  return s->bits;
}

double slotReal(const Slot* s) {
  if (s->type == kDouble || s->type == kLongDouble) return s->real;
  return static_cast<double>(static_cast<int64_t>(s->bits));
}

/* Narrow 'c' and 's': at most precision bytes of the string, padded with
   spaces (the '0' flag does not apply to text).  A null string stops the
   output after its leading padding. */
void putNarrow(Output* o, char conversion, int flags, int width, int precision, const Slot* s) {
  char c;
  const char* text;
  size_t len;
  if (conversion == 'c') {
    c = static_cast<char>(slotInteger(s));
    text = &c;
    len = 1;
  } else {
    text = isPointerType(s->type) ? reinterpret_cast<const char*>(static_cast<uintptr_t>(s->bits)) : nullptr;
    if (!text) {
      if (!(flags & CX_PRINT_LEFT)) putFill(o, ' ', width);
      fail(o);
      return;
    }
    len = precision >= 0 ? strnlen(text, static_cast<size_t>(precision)) : std::strlen(text);
  }
  int64_t pad = static_cast<int64_t>(width) - static_cast<int64_t>(len);
  if (!(flags & CX_PRINT_LEFT) && !putFill(o, ' ', pad)) return;
  if (!putBytes(o, text, len)) return;
  if (flags & CX_PRINT_LEFT) putFill(o, ' ', pad);
}

/* Converts the wide text through the converter, stopping before the
   character whose bytes would pass limit (-1: none).  Returns false on a
   converter failure, after the characters before it. */
bool putWideText(Output* o, const wchar_t* text, int64_t limit) {
  int64_t count = 0;
  for (; *text; text++) {
    char bytes[16];
    int n = QlgCodeset_fromWide(o->cs, static_cast<uint32_t>(*text), bytes, static_cast<int>(sizeof bytes));
    if (n < 0) return false;
    if (limit >= 0 && count + n > limit) return true;
    count += n;
    if (!putBytes(o, bytes, static_cast<size_t>(n))) return true;
  }
  return true;
}

/* 'C', 'S', "lc" and "ls": each wide character converted through the
   converter; a precision stops before the character whose bytes would pass
   it.  A converter failure stops the output after the characters before it. */
void putWide(Output* o, char conversion, int flags, int width, int precision, const Slot* s) {
  wchar_t single[2] = {static_cast<wchar_t>(slotInteger(s)), 0};
  const wchar_t* text = single;
  int64_t limit = -1;
  if (conversion == 's' || conversion == 'S') {
    text = isPointerType(s->type) ? reinterpret_cast<const wchar_t*>(static_cast<uintptr_t>(s->bits)) : nullptr;
    limit = precision;
  }
  if (!text) {
    if (!(flags & CX_PRINT_LEFT)) putFill(o, ' ', width);
    fail(o);
    return;
  }
  if (single[0] == 0 && text == single) {
    /* The character 0 is written as its byte(s), like any other. */
    char bytes[16];
    int n = QlgCodeset_fromWide(o->cs, 0, bytes, static_cast<int>(sizeof bytes));
    if (n < 0) {
      fail(o);
      return;
    }
    int64_t pad = static_cast<int64_t>(width) - n;
    if (!(flags & CX_PRINT_LEFT)) putFill(o, ' ', pad);
    putBytes(o, bytes, static_cast<size_t>(n));
    if (flags & CX_PRINT_LEFT) putFill(o, ' ', pad);
    return;
  }
  o->counting = true;
  o->counted = 0;
  putWideText(o, text, limit);
  o->counting = false;
  int64_t pad = static_cast<int64_t>(width) - o->counted;
  if (!(flags & CX_PRINT_LEFT)) putFill(o, ' ', pad);
  if (!putWideText(o, text, limit)) {
    fail(o);
    return;
  }
  if (flags & CX_PRINT_LEFT) putFill(o, ' ', pad);
}

/* ---- Floating conversions ------------------------------------------------ */

const int kMaxSignificant = 16;

/* Digit generation.  The digits are those of the runtime's ecvt: the
   value correctly rounded (ties to even) to at most 16 significant digits.
   Most values take an exact shortcut: scaling by a power of ten that a
   double holds exactly, with the rounding error recovered by a fused
   multiply-add, decides the rounding without any big-number arithmetic.
   Whatever the shortcut cannot settle goes to the runtime's %e. */

const double kPowersOfTen[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                 1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
const double kTwoTo52 = 4503599627370496.0;
/* Below this the scaled products could lose bits to underflow. */
const double kSmallestScaled = 1e-280;

/* a * 10^s rounded to the nearest integer, ties to even, for s in -22..22.
   False when the result is not certain (out of range or too large to be
   exact); *scaled then holds the approximate product for the caller's
   range checks. */
bool roundScaled(double a, int s, uint64_t* out, double* scaled) {
  *scaled = 0;
  if (s < -22 || s > 22 || a < kSmallestScaled) return false;
  double q, err;
  if (s >= 0) {
    q = a * kPowersOfTen[s];
    err = std::fma(a, kPowersOfTen[s], -q); /* exact: a * 10^s = q + err */
  } else {
    q = a / kPowersOfTen[-s];
    err = std::fma(-q, kPowersOfTen[-s], a); /* exact remainder; its sign is the error's */
  }
  *scaled = q;
  if (q >= kTwoTo52) return false;
  double whole = std::floor(q);
  double part = q - whole; /* exact below 2^52 */
  uint64_t n = static_cast<uint64_t>(whole);
  /* Below 2^52 the distance from q to a half is at least one unit in the
     last place, more than the error: only an exact half needs the error. */
  if (part > 0.5 || (part == 0.5 && (err > 0 || (err == 0 && (n & 1))))) n++;
  *out = n;
  return true;
}

int decimalDigits(uint64_t n, char* out) {
  char tmp[24];
  int k = 0;
  do {
    tmp[k++] = static_cast<char>('0' + n % 10);
    n /= 10;
  } while (n != 0);
  for (int i = 0; i < k; i++) out[i] = tmp[k - 1 - i];
  return k;
}

/* The runtime's %e does the rounding; only its digits and exponent are
   taken, so its locale does not matter. */
int significantDigitsSlow(double a, int ndig, char* digits, int* decpt) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*e", ndig - 1, a);
  int n = 0;
  const char* p = text;
  for (; *p && *p != 'e'; p++) {
    if (isDigit(*p) && n < kMaxSignificant) digits[n++] = *p;
  }
  *decpt = (*p == 'e' ? static_cast<int>(std::strtol(p + 1, nullptr, 10)) : 0) + 1;
  return n;
}

/* The first ndig (1 to 16) significant digits of a > 0, correctly rounded,
   and the position of the decimal point relative to the first digit. */
int significantDigits(double a, int ndig, char* digits, int* decpt) {
  int point = static_cast<int>(std::floor(std::log10(a))) + 1;
  const double limit = kPowersOfTen[ndig];
  for (int tries = 0; tries < 3; tries++) {
    uint64_t n;
    double scaled;
    bool exact = roundScaled(a, ndig - point, &n, &scaled);
    if (!exact) {
      /* One digit too many (log10 a hair low) shows as a product of at
         least 10^ndig + 1; anything else goes the slow way. */
      if (scaled >= limit + 1 && scaled < 1e300) {
        point++;
        continue;
      }
      break;
    }
    if (static_cast<double>(n) >= limit) {
      point++; /* a carry or a low estimate: round again one place up */
      continue;
    }
    if (static_cast<double>(n) < limit / 10) {
      point--;
      continue;
    }
    *decpt = point;
    return decimalDigits(n, digits);
  }
  return significantDigitsSlow(a, ndig, digits, decpt);
}

/* Digits of a number: digit k (0 is the most significant) or '0' beyond the
   generated ones, so that precision past 16 digits prints zeros. */
struct Digits {
  char d[kMaxSignificant + 8];
  int count;
  int decpt;
  char at(int64_t k) const { return k >= 0 && k < count ? d[k] : '0'; }
};

/* Digits of a >= 0 for fixed notation with prec decimals. */
void fixedDigits(double a, int prec, Digits* g) {
  g->count = 0;
  g->decpt = 1;
  if (a == 0) return;
  uint64_t n;
  double scaled;
  if (roundScaled(a, prec, &n, &scaled)) {
    /* Fewer than 2^52: at most 16 digits, all of them exact. */
    if (n != 0) {
      g->count = decimalDigits(n, g->d);
      g->decpt = g->count - prec;
    }
    return;
  }
  g->count = significantDigitsSlow(a, kMaxSignificant, g->d, &g->decpt);
  int64_t want = static_cast<int64_t>(g->decpt) + prec;
  if (want >= kMaxSignificant) return;
  if (want >= 1) {
    g->count = significantDigitsSlow(a, static_cast<int>(want), g->d, &g->decpt);
  } else if (want == 0) {
    /* a lies below one unit of the last place: it rounds to that unit or to
       zero, and only an exact comparison can tell which. */
    char text[400];
    std::snprintf(text, sizeof text, "%.*f", prec, a);
    g->count = 0;
    for (const char* p = text; *p; p++) {
      if (*p >= '1' && *p <= '9') {
        g->d[0] = '1';
        g->count = 1;
        g->decpt = 1 - prec;
        break;
      }
    }
  } else {
    g->count = 0;
  }
}

/* Integer digits of fixed notation, grouped when asked. */
void putIntegerPart(Output* o, const Digits& g, int flags) {
  if (g.count == 0 || g.decpt <= 0) {
    putBytes(o, "0", 1);
    return;
  }
  char digits[400];
  int n = g.decpt < static_cast<int>(sizeof digits) ? g.decpt : static_cast<int>(sizeof digits);
  for (int i = 0; i < n; i++) digits[i] = g.at(i);
  if (flags & CX_PRINT_GROUP) {
    loadLocale(o);
    char work[1600];
    int len = CxPrintUtil_groupDigits(digits, n, &o->grouping, work, static_cast<int>(sizeof work));
    if (len > 0) {
      putBytes(o, work + sizeof work - len, static_cast<size_t>(len));
      return;
    }
  }
  putBytes(o, digits, static_cast<size_t>(n));
}

/* Fraction digits first..first+count-1 of g (indices relative to the first
   significant digit), written in runs to keep calls few. */
void putFraction(Output* o, const Digits& g, int64_t first, int64_t count) {
  int64_t k = first;
  int64_t end = first + count;
  if (k < 0) {
    int64_t zeros = (end < 0 ? end : 0) - k;
    if (!putFill(o, '0', zeros)) return;
    k += zeros;
  }
  if (k < end && k < g.count) {
    int64_t n = (end < g.count ? end : g.count) - k;
    if (!putBytes(o, g.d + k, static_cast<size_t>(n))) return;
    k += n;
  }
  putFill(o, '0', end - k);
}

void putPoint(Output* o) {
  loadLocale(o);
  putBytes(o, o->point, std::strlen(o->point));
}

void putExponent(Output* o, char letter, int exponent) {
  char text[8];
  int n = 0;
  text[n++] = letter;
  text[n++] = exponent < 0 ? '-' : '+';
  unsigned e = static_cast<unsigned>(exponent < 0 ? -exponent : exponent);
  if (e >= 100) text[n++] = static_cast<char>('0' + e / 100);
  text[n++] = static_cast<char>('0' + e / 10 % 10);
  text[n++] = static_cast<char>('0' + e % 10);
  putBytes(o, text, static_cast<size_t>(n));
}

void putExponential(Output* o, const Digits& g, int prec, int flags, bool upper, bool trimZeros) {
  int64_t fraction = prec;
  if (trimZeros) {
    /* Past the generated digits there are only zeros. */
    if (fraction > g.count - 1) fraction = g.count > 1 ? g.count - 1 : 0;
    while (fraction > 0 && g.at(fraction) == '0') fraction--;
  }
  char lead = g.at(0);
  putBytes(o, &lead, 1);
  if (fraction > 0 || (flags & CX_PRINT_ALT)) putPoint(o);
  putFraction(o, g, 1, fraction);
  putExponent(o, upper ? 'E' : 'e', g.count > 0 ? g.decpt - 1 : 0);
}

void putFixed(Output* o, const Digits& g, int64_t prec, int flags, bool trimZeros) {
  int64_t fraction = prec;
  if (trimZeros) {
    /* Past the generated digits there are only zeros. */
    int64_t last = static_cast<int64_t>(g.count) - g.decpt;
    if (fraction > last) fraction = last > 0 ? last : 0;
    while (fraction > 0 && g.at(g.decpt + fraction - 1) == '0') fraction--;
  }
  putIntegerPart(o, g, flags);
  if (fraction > 0 || (flags & CX_PRINT_ALT)) putPoint(o);
  putFraction(o, g, g.decpt, fraction);
}

/* Hexadecimal floating form 0xh.hhhp+d, normalised so the leading digit is 1
   (0 for zero); a precision rounds the fraction to that many hex digits. */
void putHex(Output* o, double a, int prec, int flags, bool upper) {
  uint64_t bits;
  std::memcpy(&bits, &a, sizeof bits);
  uint64_t mant = bits & ((uint64_t(1) << 52) - 1);
  int exp = static_cast<int>((bits >> 52) & 0x7FF);
  int lead = 1;
  if (exp == 0) {
    if (mant == 0) {
      lead = 0;
    } else {
      exp = 1;
      while (!(mant & (uint64_t(1) << 52))) {
        mant <<= 1;
        exp--;
      }
      mant &= (uint64_t(1) << 52) - 1;
    }
  }
  int e2 = lead ? exp - 1023 : 0;
  int nibbles = 13;
  if (prec >= 0 && prec < 13) {
    int shift = (13 - prec) * 4;
    uint64_t rest = mant & ((uint64_t(1) << shift) - 1);
    uint64_t half = uint64_t(1) << (shift - 1);
    mant >>= shift;
    if (rest > half || (rest == half && (mant & 1))) mant++;
    nibbles = prec;
    if (mant >> (4 * nibbles)) {
      lead++;
      mant &= nibbles ? (uint64_t(1) << (4 * nibbles)) - 1 : 0;
    }
  } else if (prec < 0) {
    while (nibbles > 0 && (mant & 0xF) == 0) {
      mant >>= 4;
      nibbles--;
    }
  }
  const char* table = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  char text[48];
  int n = 0;
  text[n++] = static_cast<char>('0' + lead);
  putBytes(o, text, 1);
  n = 0;
  if (nibbles > 0 || (flags & CX_PRINT_ALT)) putPoint(o);
  for (int i = nibbles - 1; i >= 0 && i < 13; i--) text[n++] = table[(mant >> (4 * i)) & 0xF];
  putBytes(o, text, static_cast<size_t>(n));
  if (prec > 13) putFill(o, '0', prec - 13);
  n = 0;
  text[n++] = upper ? 'P' : 'p';
  text[n++] = e2 < 0 ? '-' : '+';
  n += std::snprintf(text + n, sizeof text - static_cast<size_t>(n), "%d", e2 < 0 ? -e2 : e2);
  putBytes(o, text, static_cast<size_t>(n));
}

/* Everything of a floating conversion after its sign (and "0x"). */
void putFloatBody(Output* o, char conversion, int flags, int precision, double a, const Digits& g) {
  bool upper = conversion >= 'A' && conversion <= 'Z';
  if (!std::isfinite(a)) {
    putBytes(o, std::isnan(a) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf"), 3);
    return;
  }
  switch (conversion) {
    case 'e': case 'E':
      putExponential(o, g, precision < 0 ? 6 : precision, flags, upper, false);
      break;
    case 'f': case 'F':
      putFixed(o, g, precision < 0 ? 6 : precision, flags, false);
      break;
    case 'g': case 'G': {
      int p = precision < 0 ? 6 : precision == 0 ? 1 : precision;
      int x = g.count > 0 ? g.decpt - 1 : 0;
      bool trim = !(flags & CX_PRINT_ALT);
      if (x < -4 || x >= p) {
        putExponential(o, g, p - 1, flags, upper, trim);
      } else {
        /* 64 bits: a precision near INT_MAX with a small number passes it. */
        putFixed(o, g, static_cast<int64_t>(p) - 1 - x, flags, trim);
      }
      break;
    }
    default: /* 'a', 'A' */
      putHex(o, a, precision, flags, upper);
      break;
  }
}

void putFloat(Output* o, char conversion, int flags, int width, int precision, double v) {
  char prefix[3];
  int prefixLen = 0;
  if (v < 0) prefix[prefixLen++] = '-';
  else if (flags & CX_PRINT_PLUS) prefix[prefixLen++] = '+';
  else if (flags & CX_PRINT_SPACE) prefix[prefixLen++] = ' ';
  bool hex = conversion == 'a' || conversion == 'A';
  if (hex) {
    prefix[prefixLen++] = '0';
    prefix[prefixLen++] = conversion == 'a' ? 'x' : 'X';
  }
  double a = std::fabs(v);
  bool finite = std::isfinite(a);
  if (!finite && hex) prefixLen -= 2;

  /* The digits are generated once; the body is then measured and written. */
  Digits g;
  g.count = 0;
  g.decpt = 1;
  if (finite && a != 0 && !hex) {
    if (conversion == 'f' || conversion == 'F') {
      fixedDigits(a, precision < 0 ? 6 : precision, &g);
    } else {
      /* e shows precision + 1 digits, g precision digits (at least one). */
      int p = precision < 0 ? 6 : precision;
      int64_t want = conversion == 'e' || conversion == 'E' ? static_cast<int64_t>(p) + 1 : (p == 0 ? 1 : p);
      int ndig = want < kMaxSignificant ? static_cast<int>(want) : kMaxSignificant;
      g.count = significantDigits(a, ndig, g.d, &g.decpt);
    }
  }
  int64_t pad = 0;
  if (width > 0) {
    o->counting = true;
    o->counted = 0;
    putFloatBody(o, conversion, flags, precision, a, g);
    o->counting = false;
    pad = width - prefixLen - o->counted;
  }
  bool zeros = !(flags & CX_PRINT_LEFT) && (flags & CX_PRINT_ZERO) && finite;
  if (!(flags & CX_PRINT_LEFT) && !zeros) putFill(o, ' ', pad);
  putBytes(o, prefix, static_cast<size_t>(prefixLen));
  if (zeros) putFill(o, '0', pad);
  putFloatBody(o, conversion, flags, precision, a, g);
  if (flags & CX_PRINT_LEFT) putFill(o, ' ', pad);
}

/* ---- Directive output ------------------------------------------------------ */

void putConversion(Output* o, const Parse* ps, const Directive* d) {
  int flags = d->flags;
  int width = d->width;
  int precision = d->precision;
  if (d->widthArg >= 0) {
    if (d->widthArg >= ps->argCount) {
      fail(o);
      return;
    }
    int64_t w = static_cast<int32_t>(slotInteger(&ps->args[d->widthArg]));
    /* As in standard printf, a negative width from an argument left-justifies. */
    if (w < 0) {
      flags |= CX_PRINT_LEFT;
      w = -w;
    }
    width = w > INT_MAX ? INT_MAX : static_cast<int>(w);
  }
  if (d->precisionArg >= 0) {
    if (d->precisionArg >= ps->argCount) {
      fail(o);
      return;
    }
    /* A negative precision from an argument counts as none. */
    int32_t p = static_cast<int32_t>(slotInteger(&ps->args[d->precisionArg]));
    precision = p < 0 ? -1 : p;
  }
  if (d->argIndex < 0 || d->argIndex >= ps->argCount) {
    fail(o);
    return;
  }
  const Slot* s = &ps->args[d->argIndex];
  switch (d->conversion) {
    case 'a': case 'A': case 'e': case 'E': case 'f': case 'F': case 'g': case 'G':
      putFloat(o, d->conversion, flags, width, precision, slotReal(s));
      break;
    case 'd': case 'o': case 'p': case 'u': case 'x': case 'X': {
      const CxGrouping* grouping = nullptr;
      if (flags & CX_PRINT_GROUP) {
        loadLocale(o);
        grouping = &o->grouping;
      }
      CxPrintUtil_formatInteger(o->buf, d->conversion, flags, width, precision, slotInteger(s),
                                grouping, &o->error);
      break;
    }
    case 'c':
    case 's':
      if (d->length == kLenL) {
        putWide(o, d->conversion, flags, width, precision, s);
      } else {
        putNarrow(o, d->conversion, flags, width, precision, s);
      }
      break;
    case 'C':
    case 'S':
      putWide(o, d->conversion, flags, width, precision, s);
      break;
    default: /* 'n' is never carried out */
      fail(o);
      break;
  }
}

/* Writes every directive in format order; returns the bytes appended and
   sets *error when the output stopped early. */
int writeOutput(const Parse* ps, QlgCodeset* cs, CxStringBuff* buf, int* error) {
  Output o;
  o.buf = buf;
  o.cs = cs;
  o.error = 0;
  o.counting = false;
  o.counted = 0;
  o.haveLocale = false;
  o.point = ".";
  o.grouping.separator = nullptr;
  o.grouping.grouping = nullptr;
  int32_t start = buf->length;
  for (int i = 0; i < ps->count && !o.error; i++) {
    const Directive* d = &ps->items[i];
    if (d->kind == kLiteral) {
      putBytes(&o, d->litStart, static_cast<size_t>(d->litEnd - d->litStart + 1));
    } else {
      putConversion(&o, ps, d);
    }
  }
  *error = o.error;
  return buf->length - start;
}

}  // namespace

extern "C" {

int QlgPrintf_vformat(QlgCodeset* cs, CxStringBuff* buf, const char* format, va_list args) {
  if (!buf || !format) return 0;
  Parse ps;
  parseInit(&ps, format);
  int written = 0;
  if (parseFormat(&ps, format)) {
    va_list ap;
    va_copy(ap, args);
    fetchVariadic(&ps, &ap);
    va_end(ap);
    int error = 0;
    written = writeOutput(&ps, cs, buf, &error);
  }
  parseRelease(&ps);
  return written;
}

int QlgPrintf_format(QlgCodeset* cs, CxStringBuff* buf, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  int written = QlgPrintf_vformat(cs, buf, format, ap);
  va_end(ap);
  return written;
}

char* QlgPrintf_formatParms(const char* format, const QlgParmList* parms) {
  if (!format) return nullptr;
  Parse ps;
  parseInit(&ps, format);
  char* result = nullptr;
  if (parseFormat(&ps, format) && fetchParms(&ps, parms)) {
    CxStringBuff buf = {0, 0, nullptr};
    int error = 0;
    writeOutput(&ps, nullptr, &buf, &error);
    /* An empty result is still a result: give it storage to hand over. */
    if (!error && CxStringBuff_reserve(&buf, 0)) {
      result = CxStringBuff_detach(&buf);
    } else {
      CxStringBuff_free(&buf);
    }
  }
  parseRelease(&ps);
  return result;
}

}  // extern "C"
