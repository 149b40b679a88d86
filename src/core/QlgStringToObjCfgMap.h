// SPDX-License-Identifier: Apache-2.0
/*
 * QlgStringToObjCfgMap: the configuration store's map from name to
 * configuration.  Each entry holds one reference; find and entry-value
 * access add a reference for the caller, peek does not (for code under the
 * toolkit lock that only looks).
 */
#ifndef ARDEL_QLGSTRINGTOOBJCFGMAP_H
#define ARDEL_QLGSTRINGTOOBJCFGMAP_H

#include <stddef.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

struct QlgObjConfig;

typedef struct QlgStringToObjCfgMapEntry {
  struct QlgStringToObjCfgMapEntry* next;
  struct QlgStringToObjCfgMapEntry* prev;
  char* key;
  struct QlgObjConfig* value;
  struct QlgStringToObjCfgMap* head;
} QlgStringToObjCfgMapEntry;

typedef struct QlgStringToObjCfgMap {
  QlgStringToObjCfgMapEntry* first;
  QlgStringToObjCfgMapEntry* last;
  size_t count;
  struct QlgKeyIndex* index; /* null below a few entries */
} QlgStringToObjCfgMap;

QlgStringToObjCfgMap* QlgStringToObjCfgMap_create(void);
/* Removes every entry, releasing its configuration, then frees the head. */
void QlgStringToObjCfgMap_destroy(QlgStringToObjCfgMap* m);
/* The entry takes a reference.  An existing key gets the new configuration
   in place (the old one released).  0 on a null argument or out of memory,
   the map then unchanged. */
int QlgStringToObjCfgMap_put(QlgStringToObjCfgMap* m, const char* key, struct QlgObjConfig* cfg);
/* Configuration with a reference added, or null. */
struct QlgObjConfig* QlgStringToObjCfgMap_find(const QlgStringToObjCfgMap* m, const char* key);
/* Configuration without a reference, or null. */
struct QlgObjConfig* QlgStringToObjCfgMap_peek(const QlgStringToObjCfgMap* m, const char* key);
/* As peek, for the key made of the first n bytes of text (no copy needed). */
struct QlgObjConfig* QlgStringToObjCfgMap_peekN(const QlgStringToObjCfgMap* m, const char* text, size_t n);
int QlgStringToObjCfgMap_contains(const QlgStringToObjCfgMap* m, const char* key);
/* Unlinks the entry and releases the map's reference. */
void QlgStringToObjCfgMap_remove(QlgStringToObjCfgMap* m, const char* key);
QlgStringToObjCfgMapEntry* QlgStringToObjCfgMap_first(const QlgStringToObjCfgMap* m);
QlgStringToObjCfgMapEntry* QlgStringToObjCfgMap_next(const QlgStringToObjCfgMapEntry* e);
/* New copy of the key. */
char* QlgStringToObjCfgMap_entryKey(const QlgStringToObjCfgMapEntry* e);
/* The configuration with a reference added. */
struct QlgObjConfig* QlgStringToObjCfgMap_entryValue(const QlgStringToObjCfgMapEntry* e);

ARDEL_END_C

#endif
