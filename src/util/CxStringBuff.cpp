// SPDX-License-Identifier: Apache-2.0
/*
 * CxStringBuff: the growable, always-terminated byte string in which the
 * toolkit assembles every piece of text.  Storage starts at 1 KiB and only
 * ever doubles, so a buffer's capacity is always a power-of-two multiple of
 * 1024.  Every operation either completes or leaves length, capacity and
 * data exactly as they were; the only thing that can fail is allocation.
 */
#include "util/CxStringBuff.h"
#include "nls/QlgCodeset.h"

#include <ardel/QlgMem.h>

#include <cstring>
#include "util/CxHot.h"

namespace {

const int32_t kFirstCapacity = 1024;
const int64_t kMaxCapacity = 0x7FFFFFFF;

/* Copies n bytes to the end of the text; the caller has reserved them. */
void putReserved(CxStringBuff* b, const char* bytes, int32_t n) {
  std::memcpy(b->data + b->length, bytes, static_cast<size_t>(n));
  b->length += n;
  b->data[b->length] = 0;
}

/* Digits of a magnitude, least significant first; returns their count.  The
   loop runs only while the magnitude is non-zero, so 0 yields no digit. */
int reversedDigits(uint64_t v, char* out) {
  int n = 0;
  while (v != 0) {
    out[n++] = static_cast<char>('0' + v % 10);
    v /= 10;
  }
  return n;
}

int appendDecimal(CxStringBuff* b, uint64_t magnitude, bool negative) {
  char digits[32];
  int n = reversedDigits(magnitude, digits);
  if (negative && n > 0) digits[n++] = '-';
  if (!CxStringBuff_reserve(b, static_cast<uint32_t>(n))) return 0;
  char* out = b->data + b->length;
  for (int i = 0; i < n; i++) out[i] = digits[n - 1 - i];
  b->length += n;
  b->data[b->length] = 0;
  return 1;
}

}  // namespace

extern "C" {

int CxStringBuff_reserve(CxStringBuff* b, uint32_t n) {
  if (!b) return 0;
  bool fresh = false;
  if (!b->data) {
    char* data = static_cast<char*>(QlgMem_alloc(kFirstCapacity));
    if (!data) return 0;
    data[0] = 0;
    b->data = data;
    b->capacity = kFirstCapacity;
    b->length = 0;
    fresh = true;
  }
  int64_t need = static_cast<int64_t>(b->length) + n + 1;
  if (b->capacity >= need) return 1;
  /* Strictly greater than need: a buffer that would be exactly full after
     the append still doubles (the policy keeps one spare doubling). */
  int64_t cap = b->capacity > 0 ? b->capacity : kFirstCapacity;
  while (cap <= need) cap *= 2;
  char* data = cap > kMaxCapacity ? nullptr : static_cast<char*>(QlgMem_realloc(b->data, static_cast<size_t>(cap)));
  if (!data) {
    /* A block allocated by this very call goes again, so the buffer is
       left exactly as the caller had it. */
    if (fresh) CxStringBuff_free(b);
    return 0;
  }
  b->data = data;
  b->capacity = static_cast<int32_t>(cap);
  return 1;
}

int CxStringBuff_appendChar(CxStringBuff* b, char c) {
  if (!CxStringBuff_reserve(b, 1)) return 0;
  b->data[b->length++] = c;
  b->data[b->length] = 0;
  return 1;
}

int CxStringBuff_append(CxStringBuff* b, const char* text) {
  if (!b || !text) return 0;
  size_t n = std::strlen(text);
  if (n > static_cast<size_t>(kMaxCapacity)) return 0;
  if (!CxStringBuff_reserve(b, static_cast<uint32_t>(n))) return 0;
  putReserved(b, text, static_cast<int32_t>(n));
  return 1;
}

int CxStringBuff_appendN(CxStringBuff* b, const char* text, int n) {
  if (!b || !text) return 0;
  size_t len = n < 0 ? std::strlen(text) : strnlen(text, static_cast<size_t>(n));
  if (len > static_cast<size_t>(kMaxCapacity)) return 0;
  if (!CxStringBuff_reserve(b, static_cast<uint32_t>(len))) return 0;
  putReserved(b, text, static_cast<int32_t>(len));
  return 1;
}

int CxStringBuff_appendInt(CxStringBuff* b, int32_t v) {
  if (!b) return 0;
  uint64_t mag = v < 0 ? 0 - static_cast<uint64_t>(static_cast<int64_t>(v)) : static_cast<uint64_t>(v);
  return appendDecimal(b, mag, v < 0);
}

int CxStringBuff_appendInt64(CxStringBuff* b, int64_t v) {
  if (!b) return 0;
  uint64_t mag = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
  return appendDecimal(b, mag, v < 0);
}

int CxStringBuff_appendUInt64(CxStringBuff* b, uint64_t v) {
  if (!b) return 0;
  /* Unlike the signed forms nothing at all is reserved for 0, so an empty
     buffer stays without storage. */
  if (v == 0) return 1;
  return appendDecimal(b, v, false);
}

int CxStringBuff_appendUtf8(CxStringBuff* b, int32_t c) {
  if (!b) return 0;
  /* Each form is tried in turn; a failed reserve falls through to the test
     of the next longer form, so only the six-byte reserve reports failure.
     The two-byte form stops below 0x7FF (not 0x800) by intent: 0x7FF itself
     is written as three bytes. */
  uint32_t u = static_cast<uint32_t>(c);
  char out[6];
  int n = 0;
  if (c < 0x80 && CxStringBuff_reserve(b, 1)) {
    out[0] = static_cast<char>(c);
    n = 1;
  } else if (c < 0x7FF && CxStringBuff_reserve(b, 2)) {
    out[0] = static_cast<char>(0xC0 | ((u >> 6) & 0x1F));
    n = 2;
  } else if (c < 0x10000 && CxStringBuff_reserve(b, 3)) {
    out[0] = static_cast<char>(0xE0 | ((u >> 12) & 0x0F));
    n = 3;
  } else if (c < 0x200000 && CxStringBuff_reserve(b, 4)) {
    out[0] = static_cast<char>(0xF0 | ((u >> 18) & 0x07));
    n = 4;
  } else if (c < 0x4000000 && CxStringBuff_reserve(b, 5)) {
    out[0] = static_cast<char>(0xF8 | ((u >> 24) & 0x03));
    n = 5;
  } else if (CxStringBuff_reserve(b, 6)) {
    out[0] = static_cast<char>(0xFC | ((u >> 30) & 0x01));
    n = 6;
  } else {
    return 0;
  }
  /* Continuation bytes, most significant six-bit group first. */
  for (int i = 1; i < n; i++) {
    out[i] = static_cast<char>(0x80 | ((u >> (6 * (n - 1 - i))) & 0x3F));
  }
  putReserved(b, out, n);
  return 1;
}

int CxStringBuff_appendWide(CxStringBuff* b, QlgCodeset* cs, const uint32_t* wide, int limit) {
  if (!b || !wide) return 0;
  int64_t count = 0;
  for (const uint32_t* w = wide; *w != 0; w++) {
    char bytes[8];
    int n = QlgCodeset_fromWide(cs, *w, bytes, static_cast<int>(sizeof bytes));
    if (n < 0) return 0;
    if (limit != -1 && count + n > limit) return 1;
    if (!CxStringBuff_reserve(b, static_cast<uint32_t>(n))) return 0;
    putReserved(b, bytes, n);
    count += n;
  }
  return 1;
}

int CxStringBuff_insert(CxStringBuff* b, const char* text, int pos) {
  if (!b || !text) return 0;
  if (pos < 0 || pos > b->length) return 0;
  size_t n = std::strlen(text);
  if (n > static_cast<size_t>(kMaxCapacity)) return 0;
  if (!CxStringBuff_reserve(b, static_cast<uint32_t>(n))) return 0;
  /* The tail moves together with its terminator. */
  std::memmove(b->data + pos + n, b->data + pos, static_cast<size_t>(b->length - pos) + 1);
  std::memcpy(b->data + pos, text, n);
  b->length += static_cast<int32_t>(n);
  return 1;
}

int CxStringBuff_convert(QlgCodeset* cs, CxStringBuff* b) {
  if (!cs || !b) return 0;
  /* Room for the converted text to double in size. */
  int64_t want = 2 * static_cast<int64_t>(b->length) + 1;
  int64_t cap = kFirstCapacity;
  while (cap <= want && want > kFirstCapacity) cap *= 2;
  if (cap > kMaxCapacity) return 0;
  char* data = static_cast<char*>(QlgMem_alloc(static_cast<size_t>(cap)));
  if (!data) return 0;
  int r = QlgCodeset_fromUtf8(cs, b->data ? b->data : "", b->length, data, static_cast<int>(cap - 1));
  if (r < 0 || r >= cap) {
    QlgMem_free(data);
    return 0;
  }
  data[r] = 0;
  QlgMem_free(b->data);
  b->data = data;
  b->capacity = static_cast<int32_t>(cap);
  b->length = r;
  return 1;
}

CX_HOT void CxStringBuff_clear(CxStringBuff* b) {
  if (!b) return;
  b->length = 0;
  if (b->data) b->data[0] = 0;
}

void CxStringBuff_free(CxStringBuff* b) {
  if (!b) return;
  QlgMem_free(b->data);
  b->data = nullptr;
  b->length = 0;
  b->capacity = 0;
}

char* CxStringBuff_detach(CxStringBuff* b) {
  if (!b) return nullptr;
  char* data = b->data;
  b->data = nullptr;
  b->length = 0;
  b->capacity = 0;
  return data;
}

}  // extern "C"
