// SPDX-License-Identifier: Apache-2.0
/*
 * QlgStringToObjCfgMap: the configuration-valued instantiation of the keyed
 * list; every entry holds one reference to its configuration.
 */
#include "core/QlgStringToObjCfgMap.h"

#include <cstring>

#include "core/QlgObjConfig.h"
#include "util/QlgKeyedList.h"

namespace {
struct CfgTraits {
  using Value = QlgObjConfig*;
  static constexpr bool keyed = true;
  static bool take(Value in, Value* stored) {
    *stored = QlgObjConfig_addRef(in);
    return true;
  }
  static void drop(Value v) { QlgObjConfig_releaseUnlocked(v); }
  static size_t hash(const char* key, Value) { return ardel::keyHash(key); }
  static size_t hashEntry(const QlgStringToObjCfgMapEntry* e) { return ardel::keyHash(e->key); }
  static bool same(const QlgStringToObjCfgMapEntry* e, const char* key, Value) {
    return ardel::keysEqual(e->key, key);
  }
  static void setHead(QlgStringToObjCfgMapEntry* e, QlgStringToObjCfgMap* h) { e->head = h; }
};
using List = ardel::KeyedList<QlgStringToObjCfgMap, QlgStringToObjCfgMapEntry, CfgTraits>;
}  // namespace

extern "C" {

QlgStringToObjCfgMap* QlgStringToObjCfgMap_create(void) { return List::create(); }
void QlgStringToObjCfgMap_destroy(QlgStringToObjCfgMap* m) { List::destroy(m); }

int QlgStringToObjCfgMap_put(QlgStringToObjCfgMap* m, const char* key, QlgObjConfig* cfg) {
  if (!m || !key || !cfg) return 0;
  QlgStringToObjCfgMapEntry* e = List::find(m, key, nullptr);
  if (e) return List::replace(e, cfg);
  return List::append(m, key, cfg) != nullptr;
}

QlgObjConfig* QlgStringToObjCfgMap_peek(const QlgStringToObjCfgMap* m, const char* key) {
  if (!key) return nullptr;
  QlgStringToObjCfgMapEntry* e = List::find(m, key, nullptr);
  return e ? e->value : nullptr;
}

QlgObjConfig* QlgStringToObjCfgMap_peekN(const QlgStringToObjCfgMap* m, const char* text, size_t n) {
  QlgStringToObjCfgMapEntry* e = List::findN(m, text, n);
  return e ? e->value : nullptr;
}

QlgObjConfig* QlgStringToObjCfgMap_find(const QlgStringToObjCfgMap* m, const char* key) {
  return QlgObjConfig_addRef(QlgStringToObjCfgMap_peek(m, key));
}

int QlgStringToObjCfgMap_contains(const QlgStringToObjCfgMap* m, const char* key) {
  return key && List::find(m, key, nullptr) != nullptr;
}

void QlgStringToObjCfgMap_remove(QlgStringToObjCfgMap* m, const char* key) {
  if (key) List::remove(m, List::find(m, key, nullptr));
}

QlgStringToObjCfgMapEntry* QlgStringToObjCfgMap_first(const QlgStringToObjCfgMap* m) {
  return m ? m->first : nullptr;
}
QlgStringToObjCfgMapEntry* QlgStringToObjCfgMap_next(const QlgStringToObjCfgMapEntry* e) {
  return e ? e->next : nullptr;
}
char* QlgStringToObjCfgMap_entryKey(const QlgStringToObjCfgMapEntry* e) {
  return e ? QlgMem_strdup(e->key) : nullptr;
}
QlgObjConfig* QlgStringToObjCfgMap_entryValue(const QlgStringToObjCfgMapEntry* e) {
  return e ? QlgObjConfig_addRef(e->value) : nullptr;
}

}  // extern "C"
