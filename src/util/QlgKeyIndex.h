// SPDX-License-Identifier: Apache-2.0
/*
 * QlgKeyIndex: a hash index kept beside an ordered list, so that a key is
 * found in constant time while the list alone decides the order.  Open
 * addressing with linear probing, at most half full.  Each slot holds the
 * key's hash, the item it points at (a list entry, or whatever the owner
 * indexes) and one word the owner may use; an empty slot has a null item.
 * Several items may share a hash or even a key: a lookup walks every slot
 * of its hash and the owner decides which one matches.  Only reserve
 * allocates, so an insert after a successful reserve cannot fail.
 */
#ifndef ARDEL_QLGKEYINDEX_H
#define ARDEL_QLGKEYINDEX_H

#include <stddef.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

typedef struct QlgKeyIndexSlot {
  size_t hash;
  void* item; /* null: empty */
  size_t aux;
} QlgKeyIndexSlot;

typedef struct QlgKeyIndex {
  size_t capacity; /* a power of two */
  size_t used;
  QlgKeyIndexSlot* slots;
} QlgKeyIndex;

/* Hash of the first n bytes of text; hashStep extends a hash by one byte,
   so the hashes of every prefix of a text come in one pass from SEED. */
#define QLG_KEYINDEX_SEED ((size_t)14695981039346656037ULL)
size_t QlgKeyIndex_hash(const char* text, size_t n);
size_t QlgKeyIndex_hashStep(size_t hash, unsigned char byte);
/* Hash of a pointer, for items indexed by identity. */
size_t QlgKeyIndex_hashPointer(const void* p);

/* Makes room for count items, creating *index or moving it to a larger
   table.  1 on success; 0 when out of memory, *index then unchanged. */
int QlgKeyIndex_reserve(QlgKeyIndex** index, size_t count);
/* Adds an item (not null); room must have been reserved. */
void QlgKeyIndex_insert(QlgKeyIndex* index, size_t hash, void* item, size_t aux);
/* Walks the slots of one hash: *cursor starts at QlgKeyIndex_start and each
   call returns the next slot holding that hash, or null at the end. */
size_t QlgKeyIndex_start(const QlgKeyIndex* index, size_t hash);
QlgKeyIndexSlot* QlgKeyIndex_next(const QlgKeyIndex* index, size_t hash, size_t* cursor);
/* Empties a slot found by QlgKeyIndex_next.  Later slots may move into it,
   so a walk that goes on must look at the same cursor position again: pass
   the cursor to have it stepped back for that. */
void QlgKeyIndex_removeSlot(QlgKeyIndex* index, QlgKeyIndexSlot* slot, size_t* cursor);
/* Removes the slot of hash that holds item; nothing when there is none. */
void QlgKeyIndex_remove(QlgKeyIndex* index, size_t hash, const void* item);
void QlgKeyIndex_destroy(QlgKeyIndex* index);

ARDEL_END_C

#endif
