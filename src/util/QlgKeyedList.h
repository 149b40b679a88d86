// SPDX-License-Identifier: Apache-2.0
/*
 * The one pattern behind every keyed container of the toolkit: a doubly
 * linked list with a head, entries in insertion order, unique keys compared
 * exactly.  Most collections hold a handful of entries and are scanned; once
 * one grows past kIndexFrom entries a hash index (QlgKeyIndex) is kept
 * beside the list, so that a configuration of 100,000 names still finds each
 * in constant time.  The list alone decides the order.  Each container is an
 * instantiation with a traits class that says how a value is taken in
 * (copied, or a reference added) and given up.
 *
 * Head layout expected of H: E* first; E* last; size_t count; QlgKeyIndex*
 * index.  Entry layout expected of E: E* next; E* prev; char* key; V value;
 * and, for the map kinds, H* head.  Traits:
 *   using Value = V;
 *   static bool take(Value in, Value* stored);  copy or add a reference; false when out of memory
 *   static void drop(Value v);                  free or release
 *   static bool same(const E* e, const char* key, Value v);  identity of an entry
 *   static constexpr bool keyed;                entries carry an owned key copy
 *   static void setHead(E* e, H* h);            record the back pointer (maps only)
 *   static size_t hash(const char* key, Value v);  hash of what same() compares
 *   static size_t hashEntry(const E* e);        the same for a stored entry
 */
#ifndef ARDEL_QLGKEYEDLIST_H
#define ARDEL_QLGKEYEDLIST_H

#include <ardel/QlgMem.h>
#include <cstring>

#include "util/QlgKeyIndex.h"

namespace ardel {

/* Below this many entries a scan is as fast as a hash, and costs nothing. */
const size_t kIndexFrom = 16;

template <class H, class E, class Traits>
struct KeyedList {
  using Value = typename Traits::Value;

  static H* create() {
    H* h = static_cast<H*>(QlgMem_alloc(sizeof(H)));
    if (h) std::memset(h, 0, sizeof(H));
    return h;
  }

  static E* find(const H* h, const char* key, Value v) {
    if (!h) return nullptr;
    if (h->index) {
      size_t hash = Traits::hash(key, v);
      size_t cursor = QlgKeyIndex_start(h->index, hash);
      while (QlgKeyIndexSlot* s = QlgKeyIndex_next(h->index, hash, &cursor)) {
        E* e = static_cast<E*>(s->item);
        if (Traits::same(e, key, v)) return e;
      }
      return nullptr;
    }
    for (E* e = h->first; e; e = e->next)
      if (Traits::same(e, key, v)) return e;
    return nullptr;
  }

  /* The entry whose key is the first n bytes of text (keyed kinds only). */
  static E* findN(const H* h, const char* text, size_t n) {
    if (!h || !text) return nullptr;
    auto matches = [&](const E* e) { return std::strncmp(e->key, text, n) == 0 && e->key[n] == '\0'; };
    if (h->index) {
      size_t hash = QlgKeyIndex_hash(text, n);
      size_t cursor = QlgKeyIndex_start(h->index, hash);
      while (QlgKeyIndexSlot* s = QlgKeyIndex_next(h->index, hash, &cursor)) {
        E* e = static_cast<E*>(s->item);
        if (matches(e)) return e;
      }
      return nullptr;
    }
    for (E* e = h->first; e; e = e->next)
      if (matches(e)) return e;
    return nullptr;
  }

  /* Room in the index for one more entry; the index is made when the list
     reaches kIndexFrom entries.  False when out of memory. */
  static bool reserveOneMore(H* h) {
    if (!h->index && h->count + 1 < kIndexFrom) return true;
    bool fresh = !h->index;
    if (!QlgKeyIndex_reserve(&h->index, h->count + 1)) return false;
    if (fresh)
      for (E* e = h->first; e; e = e->next) QlgKeyIndex_insert(h->index, Traits::hashEntry(e), e, 0);
    return true;
  }

  /* Links a new entry after the last one.  Nothing changes on failure. */
  static E* append(H* h, const char* key, Value v) {
    if (!h) return nullptr;
    /* A larger index first: it is the one step that cannot be undone, and
       a larger index alone changes nothing that can be seen. */
    if (!reserveOneMore(h)) return nullptr;
    E* e = static_cast<E*>(QlgMem_alloc(sizeof(E)));
    if (!e) return nullptr;
    std::memset(e, 0, sizeof(E));
    if (Traits::keyed) {
      e->key = QlgMem_strdup(key ? key : "");
      if (!e->key) {
        QlgMem_free(e);
        return nullptr;
      }
    }
    if (!Traits::take(v, &e->value)) {
      QlgMem_free(e->key);
      QlgMem_free(e);
      return nullptr;
    }
    Traits::setHead(e, h);
    e->prev = h->last;
    if (h->last)
      h->last->next = e;
    else
      h->first = e;
    h->last = e;
    h->count++;
    if (h->index) QlgKeyIndex_insert(h->index, Traits::hashEntry(e), e, 0);
    return e;
  }

  /* Replaces an entry's value in place, keeping its position. */
  static bool replace(E* e, Value v) {
    Value stored{};
    if (!Traits::take(v, &stored)) return false;
    Value old = e->value;
    e->value = stored;
    Traits::drop(old);
    return true;
  }

  static void remove(H* h, E* e) {
    if (!h || !e) return;
    if (h->index) QlgKeyIndex_remove(h->index, Traits::hashEntry(e), e);
    h->count--;
    if (e->prev)
      e->prev->next = e->next;
    else
      h->first = e->next;
    if (e->next)
      e->next->prev = e->prev;
    else
      h->last = e->prev;
    Value v = e->value;
    QlgMem_free(e->key);
    QlgMem_free(e);
    Traits::drop(v);
  }

  static void destroy(H* h) {
    if (!h) return;
    QlgKeyIndex_destroy(h->index);
    h->index = nullptr;
    while (h->first) remove(h, h->first);
    QlgMem_free(h);
  }
};

/* Hash of a possibly null key, matching keysEqual. */
inline size_t keyHash(const char* key) { return key ? QlgKeyIndex_hash(key, std::strlen(key)) : 0; }

/* Exact comparison of two possibly null keys. */
inline bool keysEqual(const char* a, const char* b) {
  if (!a || !b) return a == b;
  return std::strcmp(a, b) == 0;
}

}  // namespace ardel

#endif
