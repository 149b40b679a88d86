// SPDX-License-Identifier: Apache-2.0
/*
 * String: a growable, NUL-terminated byte buffer.  Allocation failures keep
 * the previous text, so the callers (trace statements) never crash on
 * memory pressure; they merely lose the text they were adding.
 */
#include <ardel/base/String.h>

#include <stdlib.h>
#include <string.h>

namespace {

/* Appends the UTF-8 form of one wide character to out (room for 4 bytes). */
size_t encodeUtf8(wchar_t wc, char* out) {
  unsigned long c = static_cast<unsigned long>(wc);
  if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = '?';
  if (c < 0x80) {
    out[0] = static_cast<char>(c);
    return 1;
  }
  if (c < 0x800) {
    out[0] = static_cast<char>(0xC0 | (c >> 6));
    out[1] = static_cast<char>(0x80 | (c & 0x3F));
    return 2;
  }
  if (c < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (c >> 12));
    out[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (c & 0x3F));
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | (c >> 18));
  out[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (c & 0x3F));
  return 4;
}

}  // namespace

String::String(const char* text) : data_(nullptr), length_(0), capacity_(0) { concat(text); }

String::String(const wchar_t* text) : data_(nullptr), length_(0), capacity_(0) { concat(text); }

String::String(const String& other) : data_(nullptr), length_(0), capacity_(0) {
  append(other.data_, other.length_);
}

String::~String() { free(data_); }

String& String::operator=(const String& other) {
  if (this != &other) {
    length_ = 0;
    if (data_) data_[0] = '\0';
    append(other.data_, other.length_);
  }
  return *this;
}

String::operator const char*() const { return data_ ? data_ : ""; }

String& String::assign(const char* text) {
  /* Copy first: text may point into this string. */
  String copy(text);
  return *this = copy;
}

String& String::concat(const String& other) {
  if (this == &other) {
    String copy(other);
    append(copy.data_, copy.length_);
  } else {
    append(other.data_, other.length_);
  }
  return *this;
}

String& String::concat(const char* text) {
  if (text) append(text, strlen(text));
  return *this;
}

String& String::concat(const wchar_t* text) {
  if (!text) return *this;
  char bytes[4];
  for (; *text; ++text) {
    size_t n = encodeUtf8(*text, bytes);
    if (!append(bytes, n)) break;
  }
  return *this;
}

int String::length() const { return static_cast<int>(length_); }

bool String::append(const char* text, size_t count) {
  if (!text) return true;
  if (length_ + count + 1 > capacity_) {
    size_t want = capacity_ ? capacity_ : 16;
    while (want < length_ + count + 1) want *= 2;
    char* grown = static_cast<char*>(realloc(data_, want));
    if (!grown) return false;
    data_ = grown;
    capacity_ = want;
  }
  memmove(data_ + length_, text, count);
  length_ += count;
  data_[length_] = '\0';
  return true;
}
