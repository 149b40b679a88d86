/*
 * The one pattern behind every keyed container of the toolkit: a doubly
 * linked list with a head, entries in insertion order, unique keys compared
 * exactly, lookup by linear scan.  Collections hold tens of entries, so no
 * hashing.  Each container is an instantiation with a traits class that says
 * how a value is taken in (copied, or a reference added) and given up.
 *
 * Entry layout expected of E: E* next; E* prev; char* key; V value; and, for
 * the map kinds, H* head.  Traits:
 *   using Value = V;
 *   static bool take(Value in, Value* stored);  copy or add a reference; false when out of memory
 *   static void drop(Value v);                  free or release
 *   static bool same(const E* e, const char* key, Value v);  identity of an entry
 *   static constexpr bool keyed;                entries carry an owned key copy
 *   static void setHead(E* e, H* h);            record the back pointer (maps only)
 */
#ifndef ARDEL_QLGKEYEDLIST_H
#define ARDEL_QLGKEYEDLIST_H

#include <ardel/QlgMem.h>
#include <cstring>

namespace ardel {

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
    for (E* e = h->first; e; e = e->next)
      if (Traits::same(e, key, v)) return e;
    return nullptr;
  }

  /* Links a new entry after the last one.  Nothing changes on failure. */
  static E* append(H* h, const char* key, Value v) {
    if (!h) return nullptr;
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
    while (h->first) remove(h, h->first);
    QlgMem_free(h);
  }
};

/* Exact comparison of two possibly null keys. */
inline bool keysEqual(const char* a, const char* b) {
  if (!a || !b) return a == b;
  return std::strcmp(a, b) == 0;
}

}  // namespace ardel

#endif
