// SPDX-License-Identifier: Apache-2.0
/*
 * QlgStrTok: a tokenizer over a text and a set of separator characters,
 * used to split property values such as listener-name lists.  It reads the
 * caller's text in place (the text must outlive the tokenizer) and hands out
 * each token as a new copy.  With a null or empty separator set every single
 * character is a token.
 *
 * Callers loop:
 *   while (QlgStrTok_hasMore(&t)) { char* s = QlgStrTok_next(&t); ...; QlgMem_free(s); QlgStrTok_advance(&t); }
 */
#ifndef ARDEL_QLGSTRTOK_H
#define ARDEL_QLGSTRTOK_H

#include <ardel/export.h>

ARDEL_BEGIN_C

/* The toolkit's list separators: space, tab, CR, LF, form feed, vertical tab. */
#define QLG_LIST_SEPARATORS " \t\r\n\f\v"
extern const char QlgStrTok_listSeparators[];

typedef struct QlgStrTok {
  const char* text;       /* not owned */
  const char* separators; /* not owned; null or "" = every character a token */
  int pos;                /* byte offset of the next unread character */
} QlgStrTok;

void QlgStrTok_init(QlgStrTok* t, const char* text, const char* separators);
/* 1 when, after skipping separators, text remains. */
int QlgStrTok_hasMore(QlgStrTok* t);
/* New copy of the token at the current position (QlgMem_free); null when no
   token is left or out of memory.  Does not move past the token. */
char* QlgStrTok_next(QlgStrTok* t);
/* Moves past the token that QlgStrTok_next returns. */
void QlgStrTok_advance(QlgStrTok* t);

ARDEL_END_C

#endif
