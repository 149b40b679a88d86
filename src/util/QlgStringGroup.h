// SPDX-License-Identifier: Apache-2.0
/*
 * QlgStringGroup: an ordered set of texts (the key is the whole entry).
 */
#ifndef ARDEL_QLGSTRINGGROUP_H
#define ARDEL_QLGSTRINGGROUP_H

#include <stddef.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

typedef struct QlgStringGroupEntry {
  struct QlgStringGroupEntry* next;
  struct QlgStringGroupEntry* prev;
  char* key;
  int value; /* unused: the text is the entry */
} QlgStringGroupEntry;

typedef struct QlgStringGroup {
  QlgStringGroupEntry* first;
  QlgStringGroupEntry* last;
  size_t count;
  struct QlgKeyIndex* index; /* null below a few entries */
} QlgStringGroup;

QlgStringGroup* QlgStringGroup_create(void);
void QlgStringGroup_destroy(QlgStringGroup* g);
/* 0 when the text is already present, on a null argument or out of memory. */
int QlgStringGroup_append(QlgStringGroup* g, const char* text);
int QlgStringGroup_contains(const QlgStringGroup* g, const char* text);
void QlgStringGroup_remove(QlgStringGroup* g, const char* text);
void QlgStringGroup_removeEntry(QlgStringGroup* g, QlgStringGroupEntry* e);
QlgStringGroupEntry* QlgStringGroup_first(const QlgStringGroup* g);
QlgStringGroupEntry* QlgStringGroup_next(const QlgStringGroupEntry* e);
/* New copy of the entry's text. */
char* QlgStringGroup_entryKey(const QlgStringGroupEntry* e);

ARDEL_END_C

#endif
