// SPDX-License-Identifier: Apache-2.0
/*
 * QlgStringToStringMap: ordered text-to-text map, the storage of QlgProps.
 * Values are owned copies; lookups return new copies.  Putting an existing
 * key replaces its value in place.
 */
#ifndef ARDEL_QLGSTRINGTOSTRINGMAP_H
#define ARDEL_QLGSTRINGTOSTRINGMAP_H

#include <stddef.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

typedef struct QlgStringToStringMapEntry {
  struct QlgStringToStringMapEntry* next;
  struct QlgStringToStringMapEntry* prev;
  char* key;
  char* value;
  struct QlgStringToStringMap* head;
} QlgStringToStringMapEntry;

typedef struct QlgStringToStringMap {
  QlgStringToStringMapEntry* first;
  QlgStringToStringMapEntry* last;
  size_t count;
  struct QlgKeyIndex* index; /* null below a few entries */
} QlgStringToStringMap;

QlgStringToStringMap* QlgStringToStringMap_create(void);
void QlgStringToStringMap_destroy(QlgStringToStringMap* m);
/* 0 when out of memory (map unchanged) or on a null map or key. */
int QlgStringToStringMap_put(QlgStringToStringMap* m, const char* key, const char* value);
/* New copy of the value, or null. */
char* QlgStringToStringMap_find(const QlgStringToStringMap* m, const char* key);
/* The stored value itself (not a copy), or null: for readers under the lock. */
const char* QlgStringToStringMap_peek(const QlgStringToStringMap* m, const char* key);
int QlgStringToStringMap_contains(const QlgStringToStringMap* m, const char* key);
void QlgStringToStringMap_remove(QlgStringToStringMap* m, const char* key);
QlgStringToStringMapEntry* QlgStringToStringMap_first(const QlgStringToStringMap* m);
QlgStringToStringMapEntry* QlgStringToStringMap_next(const QlgStringToStringMapEntry* e);
/* New copies. */
char* QlgStringToStringMap_entryKey(const QlgStringToStringMapEntry* e);
char* QlgStringToStringMap_entryValue(const QlgStringToStringMapEntry* e);

ARDEL_END_C

#endif
