// SPDX-License-Identifier: Apache-2.0
/*
 * Objects: named, reference-counted instances of a class, created by name,
 * configured from their dotted configuration and wired to their listeners.
 *
 * Lifetime rule: the object registry holds one reference.  When a release
 * brings the count back to exactly 1 nobody but the registry holds the
 * object, so it is torn down and removed; an object that only the registry
 * ever held is never torn down by a release (its count just drops to 0).
 */
#include <ardel/QlgObject.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgToolkit.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgObjConfig.h>
#include <ardel/QlgParm.h>
#include <cstring>
#include <strings.h>

#include "core/QlgObjConfig.h"
#include "core/QlgToolkitInt.h"
#include "msg/QlgMsgTable.h"
#include "nls/QlgLocale.h"
#include "util/QlgStrTok.h"
#include "util/QlgStringToStringMap.h"
#include "util/CxHot.h"

namespace {

void report(uint32_t key, const char* a = nullptr, const char* b = nullptr, const char* c = nullptr) {
  const char* text = QlgMsgTable_text(key);
  if (c)
    QlgMisc_report(6000, key, text, QLG_PARM_STRING, a, QLG_PARM_STRING, b, QLG_PARM_STRING, c, 0);
  else if (b)
    QlgMisc_report(6000, key, text, QLG_PARM_STRING, a, QLG_PARM_STRING, b, 0);
  else if (a)
    QlgMisc_report(6000, key, text, QLG_PARM_STRING, a, 0);
  else
    QlgMisc_report(6000, key, text, 0);
}

/* The listener group slot of an object: second field of loggers and
   filters, first field of handlers; formatters have none. */
QlgListenerGroup** listenerSlot(QlgObject* obj) {
  switch (obj->cls ? obj->cls->kind : 0) {
    case QLG_KIND_LOGGER:
    case QLG_KIND_FILTER:
      return &obj->field2.listeners;
    case QLG_KIND_HANDLER:
      return &obj->field1.listeners;
    default:
      return nullptr;
  }
}

QlgObject* allocate(QlgClass* cls, const char* name) {
  QlgObject* obj = static_cast<QlgObject*>(QlgMem_alloc(sizeof(QlgObject)));
  if (!obj) return nullptr;
  std::memset(obj, 0, sizeof(QlgObject));
  obj->cls = cls;
  obj->name = QlgMem_strdup(name);
  if (!obj->name) {
    QlgMem_free(obj);
    return nullptr;
  }
  obj->logging = 1;
  if (cls->kind == QLG_KIND_LOGGER) obj->field1.level = QLG_LEVEL_DEBUG_MIN;
  /* A filter without a level property passes everything. */
  if (cls->kind == QLG_KIND_FILTER) obj->field1.level = QLG_LEVEL_ALL;
  if (cls->kind == QLG_KIND_HANDLER)
    obj->field2.formatter = QlgObject_findOrCreate("ardel.defaultFormatter", "qlg_basicformatter");
  if (cls->createData) obj->data = cls->createData();
  return obj;
}

/* Frees an object that never reached the registry. */
void discard(QlgObject* obj) {
  if (obj->cls->destroyData) obj->cls->destroyData(obj->data);
  if (obj->cls->kind == QLG_KIND_HANDLER) QlgObject_release(obj->field2.formatter);
  QlgMem_free(obj->name);
  QlgMem_free(obj);
}

void tearDown(QlgObject* obj) {
  QlgClass* cls = obj->cls;
  QlgStringToObjMap_remove(QlgToolkit_registries()->objects, obj->name);
  if (cls->kind == QLG_KIND_HANDLER && cls->slots.handler.close) cls->slots.handler.close(obj);
  QlgProps_destroy(obj->props);
  obj->props = nullptr;
  QlgListenerGroup** group = listenerSlot(obj);
  if (group) {
    QlgListenerGroup_destroy(*group);
    *group = nullptr;
  }
  QlgMem_free(obj->name);
  obj->name = nullptr;
  if (cls->destroyData) cls->destroyData(obj->data);
  obj->data = nullptr;
  if (cls->kind == QLG_KIND_HANDLER) {
    QlgObject_release(obj->field2.formatter);
    obj->field2.formatter = nullptr;
  }
  if (cls->kind == QLG_KIND_FORMATTER) {
    QlgMem_free(obj->field1.text);
    QlgMem_free(obj->field2.text);
    QlgLocale_release(obj->field3.locale);
  }
  QlgMem_free(obj);
}

/* Fills the listener group from a white-space separated list of names;
   each name is resolved (and created from its configuration) now. */
void setListeners(QlgObject* obj, const char* names) {
  QlgListenerGroup** group = listenerSlot(obj);
  if (!group) return;
  QlgListenerGroup_destroy(*group);
  *group = QlgListenerGroup_create();
  if (!*group || !names) return;
  QlgStrTok tok;
  QlgStrTok_init(&tok, names, QLG_LIST_SEPARATORS);
  while (QlgStrTok_hasMore(&tok)) {
    char* name = QlgStrTok_next(&tok);
    QlgObject* listener = QlgObject_findOrCreate(name, nullptr);
    if (listener) {
      QlgListenerGroup_append(*group, listener);
      QlgObject_release(listener);
    }
    QlgMem_free(name);
    QlgStrTok_advance(&tok);
  }
}

/* The class description is created on demand: the description keys of any
   object describe its class. */
QlgI18Msg* classDescription(QlgClass* cls) {
  if (!cls->description) cls->description = QlgI18Msg_create(nullptr, 0, 0, "");
  return cls->description;
}

/* The objects an event is passing through on this thread: the steps on
   the stack, innermost first, chained from one thread-local pointer (so the
   thread-local is small enough to be initial-exec).  listenerNames may form
   a cycle (an object listed among its own listeners, directly or further
   down); an object already on the path does not get the event again, so
   such a configuration cannot recurse without end. */
const int kMaxDispatchDepth = 32;
struct DispatchFrame {
  const QlgObject* obj;
  const DispatchFrame* outer;
  int depth;
};
thread_local const DispatchFrame* t_innermost QLG_TLS_IE = nullptr;

bool onDispatchPath(const QlgObject* obj) {
  for (const DispatchFrame* f = t_innermost; f; f = f->outer)
    if (f->obj == obj) return true;
  return false;
}

class DispatchStep {
 public:
  explicit DispatchStep(const QlgObject* obj) {
    const DispatchFrame* outer = t_innermost;
    frame_ = {obj, outer, outer ? outer->depth + 1 : 1};
    if (onDispatchPath(obj) || frame_.depth > kMaxDispatchDepth) return;
    t_innermost = &frame_;
    entered_ = true;
  }
  ~DispatchStep() {
    if (entered_) t_innermost = frame_.outer;
  }
  DispatchStep(const DispatchStep&) = delete;
  DispatchStep& operator=(const DispatchStep&) = delete;
  bool entered() const { return entered_; }

 private:
  DispatchFrame frame_;
  bool entered_ = false;
};

}  // namespace

extern "C" {

QlgObject* QlgObject_find(const char* name) {
  return QlgStringToObjMap_find(QlgToolkit_registries()->objects, name);
}

CX_HOT QlgObject* QlgObject_addRef(QlgObject* obj) {
  if (obj) obj->refCount++;
  return obj;
}

CX_HOT void QlgObject_release(QlgObject* obj) {
  if (!obj || !obj->cls) return;
  if (--obj->refCount != 1) return;
  tearDown(obj);
}

QlgObject* QlgObject_findOrCreate(const char* name, const char* className) {
  if (!name) return nullptr;
  QlgObject* found = QlgObject_find(name);
  if (found) {
    if (!found->cls) {
      report(60, name);
      QlgObject_release(found);
      return nullptr;
    }
    if (className && std::strcmp(className, found->cls->name) != 0) {
      report(61, name, found->cls->name, className);
      QlgObject_release(found);
      return nullptr;
    }
    return found;
  }

  QlgClass* cls = nullptr;
  if (className) {
    cls = QlgClass_find(className);
    if (!cls) {
      report(62, className, name);
      return nullptr;
    }
  } else {
    QlgObjConfig* cfg = QlgObjConfig_find(name);
    int has = 0;
    char* configured = QlgObjConfig_getProperty(cfg, "className", &has);
    if (!has || !configured) {
      report(63, name);
    } else {
      cls = QlgClass_find(configured);
      if (!cls) report(62, configured, name);
    }
    QlgMem_free(configured);
    QlgObjConfig_releaseUnlocked(cfg);
    if (!cls) return nullptr;
  }

  QlgObject* obj = allocate(cls, name);
  QlgStringToObjMap* registry = QlgToolkit_objectRegistry();
  if (!obj || !registry || !QlgStringToObjMap_put(registry, name, obj)) {
    if (obj) discard(obj);
    report(20);
    return nullptr;
  }
  QlgObject_configure(obj, name);
  return QlgObject_addRef(obj);
}

void QlgObject_tearDownAll(void) {
  QlgStringToObjMap* registry = QlgToolkit_registries()->objects;
  while (registry && registry->first) {
    QlgObject* obj = registry->first->value;
    if (!obj->cls) {
      /* A corrupt object cannot be torn down (release ignores it); it is
         only unlinked, or the walk would never end. */
      QlgStringToObjMap_remove(registry, registry->first->key);
      continue;
    }
    /* As if one outside holder were left: the release then tears it down. */
    obj->refCount = 2;
    QlgObject_release(obj);
  }
}

QlgObject* QlgObject_create(const char* name, const char* className) {
  if (!QlgToolkit_enter()) return nullptr;
  QlgObject* obj = QlgObject_findOrCreate(name, className);
  QlgToolkit_leave();
  return obj;
}

void QlgObject_storeProperty(QlgObject* obj, const char* key, const char* value) {
  if (!obj || !key) return;
  if (!obj->props) obj->props = QlgProps_create();
  if (!QlgProps_setString(obj->props, key, value)) return;
  if (obj->cls && obj->cls->propertyChanged) obj->cls->propertyChanged(obj, key);
}

/* Ancestors first, so that a more specific configuration overrides them
   and every property reaches propertyChanged in that order. */
int QlgObject_configure(QlgObject* obj, const char* name) {
  if (!obj || !name) return 0;
  QlgObjConfig* cfg = QlgObjConfig_find(name);
  if (!cfg) return 0;
  char* parent = QlgObjConfig_parentName(cfg);
  if (parent && std::strcmp(parent, "/") != 0) QlgObject_configure(obj, parent);
  QlgMem_free(parent);
  for (QlgStringToStringMapEntry* e = QlgStringToStringMap_first(QlgObjConfig_props(cfg)); e;) {
    /* Copies: a propertyChanged may reach the configuration store. */
    char* key = QlgStringToStringMap_entryKey(e);
    char* value = QlgStringToStringMap_entryValue(e);
    QlgStringToStringMapEntry* next = QlgStringToStringMap_next(e);
    QlgObject_storeProperty(obj, key, value);
    QlgMem_free(key);
    QlgMem_free(value);
    e = next;
  }
  QlgObjConfig_releaseUnlocked(cfg);
  return 1;
}

char* QlgObject_getString(const QlgObject* obj, const char* key, int* found) {
  return QlgProps_getString(obj ? obj->props : nullptr, key, found);
}
int32_t QlgObject_getInt(const QlgObject* obj, const char* key, int* found) {
  return QlgProps_getInt(obj ? obj->props : nullptr, key, found);
}
int64_t QlgObject_getInt64(const QlgObject* obj, const char* key, int* found) {
  return QlgProps_getInt64(obj ? obj->props : nullptr, key, found);
}
double QlgObject_getDouble(const QlgObject* obj, const char* key, int* found) {
  return QlgProps_getDouble(obj ? obj->props : nullptr, key, found);
}
int QlgObject_getBool(const QlgObject* obj, const char* key, int* found) {
  return QlgProps_getBool(obj ? obj->props : nullptr, key, found);
}

int QlgObject_isLogging(const QlgObject* obj) {
  return obj ? __atomic_load_n(&obj->logging, __ATOMIC_RELAXED) : 0;
}

void* QlgObject_getData(const QlgObject* obj) { return obj ? obj->data : nullptr; }

void QlgObject_addListener(QlgObject* obj, QlgObject* listener) {
  if (!obj || !listener) return;
  QlgListenerGroup** group = listenerSlot(obj);
  if (!group) return;
  if (!*group) *group = QlgListenerGroup_create();
  QlgListenerGroup_append(*group, listener);
}

void QlgObject_basePropertyChanged(QlgObject* obj, const char* key) {
  if (!obj || !obj->cls || !key) return;
  const QlgProps* props = obj->props;
  if (std::strcmp(key, "description") == 0) {
    char* v = QlgProps_getString(props, key, nullptr);
    QlgI18Msg_setDefaultText(classDescription(obj->cls), v);
    QlgMem_free(v);
  } else if (std::strcmp(key, "descriptionFile") == 0) {
    char* v = QlgProps_getString(props, key, nullptr);
    QlgI18Msg_setCatalog(classDescription(obj->cls), v);
    QlgMem_free(v);
  } else if (std::strcmp(key, "descriptionSet") == 0) {
    QlgI18Msg_setSet(classDescription(obj->cls), QlgProps_getInt(props, key, nullptr));
  } else if (std::strcmp(key, "descriptionKey") == 0) {
    QlgI18Msg_setKey(classDescription(obj->cls), QlgProps_getInt(props, key, nullptr));
  } else if (std::strcmp(key, "logging") == 0) {
    char* v = QlgProps_getString(props, key, nullptr);
    if (v && (strcasecmp(v, "on") == 0 || strcasecmp(v, "true") == 0))
      __atomic_store_n(&obj->logging, 1, __ATOMIC_RELAXED);
    else if (v && (strcasecmp(v, "off") == 0 || strcasecmp(v, "false") == 0))
      __atomic_store_n(&obj->logging, 0, __ATOMIC_RELAXED);
    QlgMem_free(v);
  } else if (std::strcmp(key, "listenerNames") == 0) {
    char* v = QlgProps_getString(props, key, nullptr);
    setListeners(obj, v);
    QlgMem_free(v);
  }
}

CX_HOT void QlgObject_forwardToListeners(QlgObject* obj, QlgEvent* event) {
  if (!obj || !obj->logging) return;
  DispatchStep step(obj);
  if (!step.entered()) return;
  QlgListenerGroup** group = listenerSlot(obj);
  if (!group || !*group || !(*group)->first) {
    if (obj->cls && obj->cls->kind == QLG_KIND_LOGGER) report(1, obj->name);
    return;
  }
  /* A publish may rewire this object (a new listenerNames replaces the
     group and frees its entries), so the members are taken, each with a
     reference, before the first one runs: the event goes to the listeners
     the object had when it arrived. */
  size_t count = 0;
  for (QlgListenerGroupEntry* e = (*group)->first; e; e = e->next) count++;
  QlgObject* local[8];
  QlgObject** members = local;
  if (count > sizeof local / sizeof local[0]) {
    members = static_cast<QlgObject**>(QlgMem_alloc(count * sizeof *members));
    if (!members) {
      report(20);
      return;
    }
  }
  size_t n = 0;
  for (QlgListenerGroupEntry* e = (*group)->first; e; e = e->next) members[n++] = QlgObject_addRef(e->value);
  for (size_t i = 0; i < n; i++) {
    QlgObject* member = members[i];
    if (onDispatchPath(member))
      ; /* already passing the event on further up: a cycle */
    else if (member->cls && member->cls->kind == QLG_KIND_FILTER)
      member->cls->slots.filter.receive(member, event);
    else if (member->cls && member->cls->kind == QLG_KIND_HANDLER)
      member->cls->slots.handler.publish(member, event);
    QlgObject_release(member);
  }
  if (members != local) QlgMem_free(members);
}

void QlgObject_filterReceive(QlgObject* filter, QlgEvent* event) {
  if (!filter || !filter->logging || !filter->cls || filter->cls->kind != QLG_KIND_FILTER) return;
  if (!filter->cls->slots.filter.isLoggable || !filter->cls->slots.filter.forward) return;
  if (filter->cls->slots.filter.isLoggable(filter, event)) filter->cls->slots.filter.forward(filter, event);
}

int QlgObject_levelIsLoggable(QlgObject* filter, QlgEvent* event) {
  if (!filter || !event) return 0;
  if (filter->field1.level == QLG_LEVEL_ALL) return 1;
  int32_t level = QlgEvent_getLevel(event);
  return level == QLG_LEVEL_NONE || level >= filter->field1.level;
}

}  // extern "C"
