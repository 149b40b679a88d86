// SPDX-License-Identifier: Apache-2.0
/*
 * QlgStrTok: tokenizer over a text and a separator set (see QlgStrTok.h).
 */
#include "util/QlgStrTok.h"

#include <ardel/QlgMem.h>
#include <cstring>

extern "C" const char QlgStrTok_listSeparators[] = QLG_LIST_SEPARATORS;

namespace {

inline bool everyCharIsToken(const QlgStrTok* t) {
  return !t->separators || t->separators[0] == '\0';
}

inline bool isSeparator(const QlgStrTok* t, char c) {
  return c != '\0' && std::strchr(t->separators, c) != nullptr;
}

/* Skips separators at the current position; returns the token's length
   there (0 when the text is used up). */
int tokenAtPos(QlgStrTok* t) {
  if (!t || !t->text) return 0;
  const char* p = t->text + t->pos;
  if (everyCharIsToken(t)) return *p ? 1 : 0;
  while (isSeparator(t, *p)) ++p;
  t->pos = static_cast<int>(p - t->text);
  const char* q = p;
  while (*q && !isSeparator(t, *q)) ++q;
  return static_cast<int>(q - p);
}

}  // namespace

extern "C" {

void QlgStrTok_init(QlgStrTok* t, const char* text, const char* separators) {
  if (!t) return;
  t->text = text;
  t->separators = separators;
  t->pos = 0;
}

int QlgStrTok_hasMore(QlgStrTok* t) { return tokenAtPos(t) > 0; }

char* QlgStrTok_next(QlgStrTok* t) {
  int n = tokenAtPos(t);
  if (n <= 0) return nullptr;
  char* s = static_cast<char*>(QlgMem_alloc(static_cast<size_t>(n) + 1));
  if (!s) return nullptr;
  std::memcpy(s, t->text + t->pos, static_cast<size_t>(n));
  s[n] = '\0';
  return s;
}

void QlgStrTok_advance(QlgStrTok* t) {
  int n = tokenAtPos(t);
  if (n > 0) t->pos += n;
}

}  // extern "C"
