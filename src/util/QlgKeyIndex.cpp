// SPDX-License-Identifier: Apache-2.0
/*
 * QlgKeyIndex: open addressing with linear probing.  Removal shifts the
 * following slots of the same probe run back instead of leaving markers,
 * so a table that sees many removals never slows down.
 */
#include "util/QlgKeyIndex.h"

#include <ardel/QlgMem.h>
#include <cstdint>
#include <cstring>

namespace {

const size_t kSmallest = 32;

inline size_t mask(const QlgKeyIndex* index) { return index->capacity - 1; }

void place(QlgKeyIndex* index, const QlgKeyIndexSlot& s) {
  size_t pos = s.hash & mask(index);
  while (index->slots[pos].item) pos = (pos + 1) & mask(index);
  index->slots[pos] = s;
  index->used++;
}

}  // namespace

extern "C" {

size_t QlgKeyIndex_hashStep(size_t hash, unsigned char byte) {
  return (hash ^ byte) * static_cast<size_t>(1099511628211ULL);
}

size_t QlgKeyIndex_hash(const char* text, size_t n) {
  size_t h = QLG_KEYINDEX_SEED;
  for (size_t i = 0; i < n; ++i) h = QlgKeyIndex_hashStep(h, static_cast<unsigned char>(text[i]));
  return h;
}

size_t QlgKeyIndex_hashPointer(const void* p) {
  /* Allocations are aligned, so the low bits say nothing: mix them in. */
  uint64_t x = reinterpret_cast<uintptr_t>(p);
  x ^= x >> 33;
  x *= 0xff51afd7ed558ccdULL;
  x ^= x >> 33;
  return static_cast<size_t>(x);
}

int QlgKeyIndex_reserve(QlgKeyIndex** index, size_t count) {
  QlgKeyIndex* old = *index;
  size_t capacity = old ? old->capacity : kSmallest;
  while (capacity < 2 * count + 2) capacity *= 2;
  if (old && capacity == old->capacity) return 1;
  /* Header and slots in one block. */
  size_t bytes = sizeof(QlgKeyIndex) + capacity * sizeof(QlgKeyIndexSlot);
  QlgKeyIndex* fresh = static_cast<QlgKeyIndex*>(QlgMem_alloc(bytes));
  if (!fresh) return 0;
  std::memset(fresh, 0, bytes);
  fresh->capacity = capacity;
  fresh->slots = reinterpret_cast<QlgKeyIndexSlot*>(fresh + 1);
  if (old) {
    for (size_t i = 0; i < old->capacity; ++i)
      if (old->slots[i].item) place(fresh, old->slots[i]);
    QlgMem_free(old);
  }
  *index = fresh;
  return 1;
}

void QlgKeyIndex_insert(QlgKeyIndex* index, size_t hash, void* item, size_t aux) {
  if (!index || !item) return;
  place(index, QlgKeyIndexSlot{hash, item, aux});
}

size_t QlgKeyIndex_start(const QlgKeyIndex* index, size_t hash) {
  return index ? hash & mask(index) : 0;
}

QlgKeyIndexSlot* QlgKeyIndex_next(const QlgKeyIndex* index, size_t hash, size_t* cursor) {
  if (!index || !cursor) return nullptr;
  for (size_t pos = *cursor & mask(index); index->slots[pos].item; pos = (pos + 1) & mask(index)) {
    if (index->slots[pos].hash == hash) {
      *cursor = (pos + 1) & mask(index);
      return &index->slots[pos];
    }
  }
  return nullptr;
}

void QlgKeyIndex_removeSlot(QlgKeyIndex* index, QlgKeyIndexSlot* slot, size_t* cursor) {
  if (!index || !slot) return;
  size_t hole = static_cast<size_t>(slot - index->slots);
  if (cursor) *cursor = hole;
  for (size_t j = (hole + 1) & mask(index); index->slots[j].item; j = (j + 1) & mask(index)) {
    size_t home = index->slots[j].hash & mask(index);
    /* The slot at j may fill the hole only if its home position does not
       lie cyclically in (hole, j]: otherwise a lookup would miss it. */
    bool stays = hole <= j ? (home > hole && home <= j) : (home > hole || home <= j);
    if (stays) continue;
    index->slots[hole] = index->slots[j];
    hole = j;
  }
  index->slots[hole] = QlgKeyIndexSlot{0, nullptr, 0};
  index->used--;
}

void QlgKeyIndex_remove(QlgKeyIndex* index, size_t hash, const void* item) {
  size_t cursor = QlgKeyIndex_start(index, hash);
  while (QlgKeyIndexSlot* s = QlgKeyIndex_next(index, hash, &cursor)) {
    if (s->item == item) {
      QlgKeyIndex_removeSlot(index, s, nullptr);
      return;
    }
  }
}

void QlgKeyIndex_destroy(QlgKeyIndex* index) { QlgMem_free(index); }

}  // extern "C"
