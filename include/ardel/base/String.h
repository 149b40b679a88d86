/* SPDX-License-Identifier: Apache-2.0 */
/*
 * String: the small owned text buffer of the base library.  Narrow text is
 * kept as given; wide text is converted to UTF-8.  Every operation accepts
 * null and then does nothing (or yields the empty text); nothing throws,
 * and a failed allocation leaves the text as it was.
 */
#ifndef BASE_STRING_H
#define BASE_STRING_H

#include <stddef.h>
#include <wchar.h>

#include <ardel/base/export.h>

class BASE_API String {
 public:
  String(const char* text);
  String(const wchar_t* text);
  String(const String& other);
  virtual ~String();
  String& operator=(const String& other);

  /* The text; never null. */
  operator const char*() const;

  /* Replaces the text (null: empty). */
  String& assign(const char* text);
  /* Appends; null appends nothing. */
  String& concat(const String& other);
  String& concat(const char* text);
  String& concat(const wchar_t* text);

  int length() const;

 private:
  bool append(const char* text, size_t count);

  char* data_;
  size_t length_;
  size_t capacity_;
};

#endif
