// SPDX-License-Identifier: Apache-2.0
/*
 * Object-valued instantiations of the keyed list.  Object values hold a
 * reference; class values are borrowed.
 */
#include "core/QlgObjectContainers.h"
#include "util/QlgKeyedList.h"

namespace {

struct ListenerTraits {
  using Value = QlgObject*;
  static constexpr bool keyed = false;
  static bool take(Value in, Value* stored) {
    *stored = QlgObject_addRef(in);
    return true;
  }
  static void drop(Value v) { QlgObject_release(v); }
  static size_t hash(const char*, Value v) { return QlgKeyIndex_hashPointer(v); }
  static size_t hashEntry(const QlgListenerGroupEntry* e) { return QlgKeyIndex_hashPointer(e->value); }
  static bool same(const QlgListenerGroupEntry* e, const char*, Value v) { return e->value == v; }
  static void setHead(QlgListenerGroupEntry*, QlgListenerGroup*) {}
};
using Listeners = ardel::KeyedList<QlgListenerGroup, QlgListenerGroupEntry, ListenerTraits>;

struct ObjTraits {
  using Value = QlgObject*;
  static constexpr bool keyed = true;
  static bool take(Value in, Value* stored) {
    *stored = QlgObject_addRef(in);
    return true;
  }
  static void drop(Value v) { QlgObject_release(v); }
  static size_t hash(const char* key, Value) { return ardel::keyHash(key); }
  static size_t hashEntry(const QlgStringToObjMapEntry* e) { return ardel::keyHash(e->key); }
  static bool same(const QlgStringToObjMapEntry* e, const char* key, Value) {
    return ardel::keysEqual(e->key, key);
  }
  static void setHead(QlgStringToObjMapEntry* e, QlgStringToObjMap* h) { e->head = h; }
};
using Objects = ardel::KeyedList<QlgStringToObjMap, QlgStringToObjMapEntry, ObjTraits>;

struct ClassTraits {
  using Value = QlgClass*;
  static constexpr bool keyed = true;
  static bool take(Value in, Value* stored) {
    *stored = in;
    return true;
  }
  static void drop(Value) {}
  static size_t hash(const char* key, Value) { return ardel::keyHash(key); }
  static size_t hashEntry(const QlgStringToObjClassMapEntry* e) { return ardel::keyHash(e->key); }
  static bool same(const QlgStringToObjClassMapEntry* e, const char* key, Value) {
    return ardel::keysEqual(e->key, key);
  }
  static void setHead(QlgStringToObjClassMapEntry* e, QlgStringToObjClassMap* h) { e->head = h; }
};
using Classes = ardel::KeyedList<QlgStringToObjClassMap, QlgStringToObjClassMapEntry, ClassTraits>;

}  // namespace

extern "C" {

QlgListenerGroup* QlgListenerGroup_create(void) { return Listeners::create(); }
void QlgListenerGroup_destroy(QlgListenerGroup* g) { Listeners::destroy(g); }
int QlgListenerGroup_append(QlgListenerGroup* g, QlgObject* obj) {
  if (!g || !obj || Listeners::find(g, nullptr, obj)) return 0;
  return Listeners::append(g, nullptr, obj) != nullptr;
}
int QlgListenerGroup_contains(const QlgListenerGroup* g, const QlgObject* obj) {
  return obj && Listeners::find(g, nullptr, const_cast<QlgObject*>(obj)) != nullptr;
}
void QlgListenerGroup_remove(QlgListenerGroup* g, QlgObject* obj) {
  if (obj) Listeners::remove(g, Listeners::find(g, nullptr, obj));
}
QlgListenerGroupEntry* QlgListenerGroup_first(const QlgListenerGroup* g) { return g ? g->first : nullptr; }
QlgListenerGroupEntry* QlgListenerGroup_next(const QlgListenerGroupEntry* e) { return e ? e->next : nullptr; }
QlgObject* QlgListenerGroup_entryObject(const QlgListenerGroupEntry* e) {
  return e ? QlgObject_addRef(e->value) : nullptr;
}

QlgStringToObjMap* QlgStringToObjMap_create(void) { return Objects::create(); }
void QlgStringToObjMap_destroy(QlgStringToObjMap* m) { Objects::destroy(m); }
int QlgStringToObjMap_put(QlgStringToObjMap* m, const char* key, QlgObject* obj) {
  if (!m || !key) return 0;
  QlgStringToObjMapEntry* e = Objects::find(m, key, nullptr);
  if (e) return Objects::replace(e, obj);
  return Objects::append(m, key, obj) != nullptr;
}
QlgObject* QlgStringToObjMap_find(const QlgStringToObjMap* m, const char* key) {
  if (!key) return nullptr;
  QlgStringToObjMapEntry* e = Objects::find(m, key, nullptr);
  return e ? QlgObject_addRef(e->value) : nullptr;
}
int QlgStringToObjMap_contains(const QlgStringToObjMap* m, const char* key) {
  return key && Objects::find(m, key, nullptr) != nullptr;
}
void QlgStringToObjMap_remove(QlgStringToObjMap* m, const char* key) {
  if (key) Objects::remove(m, Objects::find(m, key, nullptr));
}
QlgStringToObjMapEntry* QlgStringToObjMap_first(const QlgStringToObjMap* m) { return m ? m->first : nullptr; }
QlgStringToObjMapEntry* QlgStringToObjMap_next(const QlgStringToObjMapEntry* e) { return e ? e->next : nullptr; }
char* QlgStringToObjMap_entryKey(const QlgStringToObjMapEntry* e) { return e ? QlgMem_strdup(e->key) : nullptr; }
QlgObject* QlgStringToObjMap_entryValue(const QlgStringToObjMapEntry* e) {
  return e ? QlgObject_addRef(e->value) : nullptr;
}

QlgStringToObjClassMap* QlgStringToObjClassMap_create(void) { return Classes::create(); }
void QlgStringToObjClassMap_destroy(QlgStringToObjClassMap* m) { Classes::destroy(m); }
int QlgStringToObjClassMap_put(QlgStringToObjClassMap* m, const char* key, QlgClass* cls) {
  if (!m || !key) return 0;
  QlgStringToObjClassMapEntry* e = Classes::find(m, key, nullptr);
  if (e) return Classes::replace(e, cls);
  return Classes::append(m, key, cls) != nullptr;
}
QlgClass* QlgStringToObjClassMap_find(const QlgStringToObjClassMap* m, const char* key) {
  if (!key) return nullptr;
  QlgStringToObjClassMapEntry* e = Classes::find(m, key, nullptr);
  return e ? e->value : nullptr;
}
int QlgStringToObjClassMap_contains(const QlgStringToObjClassMap* m, const char* key) {
  return key && Classes::find(m, key, nullptr) != nullptr;
}
QlgStringToObjClassMapEntry* QlgStringToObjClassMap_first(const QlgStringToObjClassMap* m) {
  return m ? m->first : nullptr;
}
QlgStringToObjClassMapEntry* QlgStringToObjClassMap_next(const QlgStringToObjClassMapEntry* e) {
  return e ? e->next : nullptr;
}
char* QlgStringToObjClassMap_entryKey(const QlgStringToObjClassMapEntry* e) {
  return e ? QlgMem_strdup(e->key) : nullptr;
}
QlgClass* QlgStringToObjClassMap_entryValue(const QlgStringToObjClassMapEntry* e) {
  return e ? e->value : nullptr;
}

}  // extern "C"
