// SPDX-License-Identifier: Apache-2.0
/*
 * QlgStringGroup: the key-only instantiation of the keyed list.
 */
#include "util/QlgStringGroup.h"
#include "util/QlgKeyedList.h"

namespace {
struct GroupTraits {
  using Value = int;
  static constexpr bool keyed = true;
  static bool take(Value in, Value* stored) {
    *stored = in;
    return true;
  }
  static void drop(Value) {}
  static size_t hash(const char* key, Value) { return ardel::keyHash(key); }
  static size_t hashEntry(const QlgStringGroupEntry* e) { return ardel::keyHash(e->key); }
  static bool same(const QlgStringGroupEntry* e, const char* key, Value) {
    return ardel::keysEqual(e->key, key);
  }
  static void setHead(QlgStringGroupEntry*, QlgStringGroup*) {}
};
using List = ardel::KeyedList<QlgStringGroup, QlgStringGroupEntry, GroupTraits>;
}  // namespace

extern "C" {

QlgStringGroup* QlgStringGroup_create(void) { return List::create(); }
void QlgStringGroup_destroy(QlgStringGroup* g) { List::destroy(g); }

int QlgStringGroup_append(QlgStringGroup* g, const char* text) {
  if (!g || !text || List::find(g, text, 0)) return 0;
  return List::append(g, text, 0) != nullptr;
}
int QlgStringGroup_contains(const QlgStringGroup* g, const char* text) {
  return text && List::find(g, text, 0) != nullptr;
}
void QlgStringGroup_remove(QlgStringGroup* g, const char* text) {
  if (text) List::remove(g, List::find(g, text, 0));
}
void QlgStringGroup_removeEntry(QlgStringGroup* g, QlgStringGroupEntry* e) { List::remove(g, e); }
QlgStringGroupEntry* QlgStringGroup_first(const QlgStringGroup* g) { return g ? g->first : nullptr; }
QlgStringGroupEntry* QlgStringGroup_next(const QlgStringGroupEntry* e) { return e ? e->next : nullptr; }
char* QlgStringGroup_entryKey(const QlgStringGroupEntry* e) { return e ? QlgMem_strdup(e->key) : nullptr; }

}  // extern "C"
