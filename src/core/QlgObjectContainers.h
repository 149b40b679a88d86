// SPDX-License-Identifier: Apache-2.0
/*
 * The object-valued keyed containers: the listener group of a logger, filter
 * or handler, the object registry, and the class map.  All three are
 * instantiations of the keyed-list pattern (util/QlgKeyedList.h).
 */
#ifndef ARDEL_QLGOBJECTCONTAINERS_H
#define ARDEL_QLGOBJECTCONTAINERS_H

#include <stddef.h>
#include <ardel/QlgObject.h>

ARDEL_BEGIN_C

/* Listener group: ordered objects without duplicates, one reference each. */
typedef struct QlgListenerGroupEntry {
  struct QlgListenerGroupEntry* next;
  struct QlgListenerGroupEntry* prev;
  char* key; /* unused */
  QlgObject* value;
} QlgListenerGroupEntry;

typedef struct QlgListenerGroup {
  QlgListenerGroupEntry* first;
  QlgListenerGroupEntry* last;
  size_t count;
  struct QlgKeyIndex* index; /* null below a few entries */
} QlgListenerGroup;

QlgListenerGroup* QlgListenerGroup_create(void);
/* Releases every member, then frees the group. */
void QlgListenerGroup_destroy(QlgListenerGroup* g);
/* 0 when the object is already a member (by identity) or out of memory. */
int QlgListenerGroup_append(QlgListenerGroup* g, QlgObject* obj);
int QlgListenerGroup_contains(const QlgListenerGroup* g, const QlgObject* obj);
void QlgListenerGroup_remove(QlgListenerGroup* g, QlgObject* obj);
QlgListenerGroupEntry* QlgListenerGroup_first(const QlgListenerGroup* g);
QlgListenerGroupEntry* QlgListenerGroup_next(const QlgListenerGroupEntry* e);
/* The member with a reference added for the caller. */
QlgObject* QlgListenerGroup_entryObject(const QlgListenerGroupEntry* e);

/* Object registry: name -> object, one reference per entry. */
typedef struct QlgStringToObjMapEntry {
  struct QlgStringToObjMapEntry* next;
  struct QlgStringToObjMapEntry* prev;
  char* key;
  QlgObject* value;
  struct QlgStringToObjMap* head;
} QlgStringToObjMapEntry;

typedef struct QlgStringToObjMap {
  QlgStringToObjMapEntry* first;
  QlgStringToObjMapEntry* last;
  size_t count;
  struct QlgKeyIndex* index; /* null below a few entries */
} QlgStringToObjMap;

QlgStringToObjMap* QlgStringToObjMap_create(void);
void QlgStringToObjMap_destroy(QlgStringToObjMap* m);
/* Takes a reference; a present name releases the old object and keeps its place. */
int QlgStringToObjMap_put(QlgStringToObjMap* m, const char* key, QlgObject* obj);
/* The object with a reference added for the caller, or null. */
QlgObject* QlgStringToObjMap_find(const QlgStringToObjMap* m, const char* key);
int QlgStringToObjMap_contains(const QlgStringToObjMap* m, const char* key);
/* Unlinks the entry, frees its key and releases the registry's reference. */
void QlgStringToObjMap_remove(QlgStringToObjMap* m, const char* key);
QlgStringToObjMapEntry* QlgStringToObjMap_first(const QlgStringToObjMap* m);
QlgStringToObjMapEntry* QlgStringToObjMap_next(const QlgStringToObjMapEntry* e);
char* QlgStringToObjMap_entryKey(const QlgStringToObjMapEntry* e);
QlgObject* QlgStringToObjMap_entryValue(const QlgStringToObjMapEntry* e);

/* Class map: name -> class, not owned (classes are freed before the map). */
typedef struct QlgStringToObjClassMapEntry {
  struct QlgStringToObjClassMapEntry* next;
  struct QlgStringToObjClassMapEntry* prev;
  char* key;
  QlgClass* value;
  struct QlgStringToObjClassMap* head;
} QlgStringToObjClassMapEntry;

typedef struct QlgStringToObjClassMap {
  QlgStringToObjClassMapEntry* first;
  QlgStringToObjClassMapEntry* last;
  size_t count;
  struct QlgKeyIndex* index; /* null below a few entries */
} QlgStringToObjClassMap;

QlgStringToObjClassMap* QlgStringToObjClassMap_create(void);
void QlgStringToObjClassMap_destroy(QlgStringToObjClassMap* m);
int QlgStringToObjClassMap_put(QlgStringToObjClassMap* m, const char* key, QlgClass* cls);
QlgClass* QlgStringToObjClassMap_find(const QlgStringToObjClassMap* m, const char* key);
int QlgStringToObjClassMap_contains(const QlgStringToObjClassMap* m, const char* key);
QlgStringToObjClassMapEntry* QlgStringToObjClassMap_first(const QlgStringToObjClassMap* m);
QlgStringToObjClassMapEntry* QlgStringToObjClassMap_next(const QlgStringToObjClassMapEntry* e);
char* QlgStringToObjClassMap_entryKey(const QlgStringToObjClassMapEntry* e);
QlgClass* QlgStringToObjClassMap_entryValue(const QlgStringToObjClassMapEntry* e);

ARDEL_END_C

#endif
