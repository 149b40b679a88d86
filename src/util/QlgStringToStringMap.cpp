// SPDX-License-Identifier: Apache-2.0
/*
 * QlgStringToStringMap: the text-valued instantiation of the keyed list.
 */
#include "util/QlgStringToStringMap.h"
#include "util/QlgKeyedList.h"
#include "util/CxHot.h"

namespace {
struct StringTraits {
  using Value = char*;
  static constexpr bool keyed = true;
  static bool take(Value in, Value* stored) {
    *stored = QlgMem_strdup(in ? in : "");
    return *stored != nullptr;
  }
  static void drop(Value v) { QlgMem_free(v); }
  static size_t hash(const char* key, Value) { return ardel::keyHash(key); }
  static size_t hashEntry(const QlgStringToStringMapEntry* e) { return ardel::keyHash(e->key); }
  static bool same(const QlgStringToStringMapEntry* e, const char* key, Value) {
    return ardel::keysEqual(e->key, key);
  }
  static void setHead(QlgStringToStringMapEntry* e, QlgStringToStringMap* h) { e->head = h; }
};
using List = ardel::KeyedList<QlgStringToStringMap, QlgStringToStringMapEntry, StringTraits>;
}  // namespace

extern "C" {

QlgStringToStringMap* QlgStringToStringMap_create(void) { return List::create(); }
CX_HOT void QlgStringToStringMap_destroy(QlgStringToStringMap* m) { List::destroy(m); }

int QlgStringToStringMap_put(QlgStringToStringMap* m, const char* key, const char* value) {
  if (!m || !key) return 0;
  QlgStringToStringMapEntry* e = List::find(m, key, nullptr);
  if (e) return List::replace(e, const_cast<char*>(value));
  return List::append(m, key, const_cast<char*>(value)) != nullptr;
}

const char* QlgStringToStringMap_peek(const QlgStringToStringMap* m, const char* key) {
  if (!key) return nullptr;
  QlgStringToStringMapEntry* e = List::find(m, key, nullptr);
  return e ? e->value : nullptr;
}

char* QlgStringToStringMap_find(const QlgStringToStringMap* m, const char* key) {
  return QlgMem_strdup(QlgStringToStringMap_peek(m, key));
}

int QlgStringToStringMap_contains(const QlgStringToStringMap* m, const char* key) {
  return key && List::find(m, key, nullptr) != nullptr;
}

void QlgStringToStringMap_remove(QlgStringToStringMap* m, const char* key) {
  if (key) List::remove(m, List::find(m, key, nullptr));
}

QlgStringToStringMapEntry* QlgStringToStringMap_first(const QlgStringToStringMap* m) {
  return m ? m->first : nullptr;
}
QlgStringToStringMapEntry* QlgStringToStringMap_next(const QlgStringToStringMapEntry* e) {
  return e ? e->next : nullptr;
}
char* QlgStringToStringMap_entryKey(const QlgStringToStringMapEntry* e) {
  return e ? QlgMem_strdup(e->key) : nullptr;
}
char* QlgStringToStringMap_entryValue(const QlgStringToStringMapEntry* e) {
  return e ? QlgMem_strdup(e->value) : nullptr;
}

}  // extern "C"
