/*
 * QlgObjConfig: the configuration store and the tree of configurations by
 * dotted names.  Every change to the store either completes or leaves the
 * store exactly as it was: linking a new configuration makes all of its
 * allocations first and only then rewires the tree.
 */
#include "core/QlgObjConfig.h"

#include <ardel/QlgMem.h>
#include <cstring>

#include "core/QlgStringToObjCfgMap.h"
#include "util/QlgStringToStringMap.h"

namespace {

struct Store {
  QlgStringToObjCfgMap* map;  /* name -> configuration, one reference each */
  QlgStringGroup* names;      /* every name in creation order */
  unsigned char initialised;
};
Store g_store;

inline bool isRootName(const char* name) { return std::strcmp(name, QLG_OBJCONFIG_ROOT) == 0; }

inline QlgObjConfig* peek(const char* name) { return QlgStringToObjCfgMap_peek(g_store.map, name); }

/* Length of the longest proper dotted prefix of name that has a
   configuration now; 0 when there is none (the parent is the root).  Cuts at
   the last "." again and again, so intermediate names without a
   configuration are passed over. */
size_t parentLength(const char* name) {
  size_t len = std::strlen(name);
  for (;;) {
    while (len > 0 && name[len - 1] != '.') --len;
    if (len == 0) return 0;
    --len; /* drop the "." itself */
    if (len > 0 && QlgStringToObjCfgMap_peekN(g_store.map, name, len)) return len;
  }
}

char* computeParentName(const char* name) {
  size_t len = parentLength(name);
  if (len == 0) return QlgMem_strdup(QLG_OBJCONFIG_ROOT);
  char* p = static_cast<char*>(QlgMem_alloc(len + 1));
  if (!p) return nullptr;
  std::memcpy(p, name, len);
  p[len] = '\0';
  return p;
}

void freeConfig(QlgObjConfig* cfg) {
  if (!cfg) return;
  QlgMem_free(cfg->name);
  QlgMem_free(cfg->parentName);
  QlgStringGroup_destroy(cfg->children);
  QlgProps_destroy(cfg->props);
  QlgMem_free(cfg);
}

/* A configuration not yet in the store, with its parent name computed
   against the store as it is now. */
QlgObjConfig* newConfig(const char* name) {
  QlgObjConfig* cfg = static_cast<QlgObjConfig*>(QlgMem_alloc(sizeof(QlgObjConfig)));
  if (!cfg) return nullptr;
  std::memset(cfg, 0, sizeof(*cfg));
  cfg->refCount = 1;
  cfg->name = QlgMem_strdup(name);
  cfg->children = QlgStringGroup_create();
  cfg->parentName = computeParentName(name);
  if (!cfg->name || !cfg->children || !cfg->parentName) {
    freeConfig(cfg);
    return nullptr;
  }
  return cfg;
}

/* Whether child would now have n (of nLen bytes) as its parent.  Only a
   name below n can; the cheap prefix test spares the store lookups. */
bool movesUnder(const char* child, const char* n, size_t nLen) {
  if (std::strncmp(child, n, nLen) != 0 || child[nLen] != '.') return false;
  return parentLength(child) == nLen;
}

/* Undoes the fallible half of link(). */
void unlinkPartial(QlgObjConfig* n, QlgObjConfig* p, bool addedToParent, char** copies, int nCopies) {
  for (int i = 0; i < nCopies; ++i) QlgMem_free(copies[i]);
  QlgMem_free(copies);
  while (QlgStringGroup_first(n->children))
    QlgStringGroup_removeEntry(n->children, QlgStringGroup_first(n->children));
  if (addedToParent) QlgStringGroup_remove(p->children, n->name);
  QlgStringGroup_remove(g_store.names, n->name);
  QlgStringToObjCfgMap_remove(g_store.map, n->name);
}

/* Inserts n into the store and the tree.  The children of n's parent that
   now lie below n move under it.  1 on success; 0 leaves everything as it
   was (n itself is then still the caller's to free). */
int link(QlgObjConfig* n) {
  if (!QlgStringToObjCfgMap_put(g_store.map, n->name, n)) return 0;
  if (!QlgStringGroup_append(g_store.names, n->name)) {
    QlgStringToObjCfgMap_remove(g_store.map, n->name);
    return 0;
  }
  QlgObjConfig* p = isRootName(n->parentName) ? nullptr : peek(n->parentName);
  if (!p) return 1; /* the root keeps no list of children */

  /* With n in the store, a child of p whose nearest configured prefix is
     now n belongs under n. */
  size_t nLen = std::strlen(n->name);
  int moves = 0;
  for (QlgStringGroupEntry* e = QlgStringGroup_first(p->children); e; e = QlgStringGroup_next(e))
    if (movesUnder(e->key, n->name, nLen)) ++moves;

  char** copies = nullptr;
  int made = 0;
  bool ok = true;
  if (moves > 0) {
    copies = static_cast<char**>(QlgMem_alloc(sizeof(char*) * static_cast<size_t>(moves)));
    ok = copies != nullptr;
  }
  for (QlgStringGroupEntry* e = QlgStringGroup_first(p->children); ok && e; e = QlgStringGroup_next(e)) {
    if (!movesUnder(e->key, n->name, nLen)) continue;
    copies[made] = QlgMem_strdup(n->name);
    if (!copies[made]) {
      ok = false;
      break;
    }
    ++made;
    ok = QlgStringGroup_append(n->children, e->key) != 0;
  }
  bool addedToParent = ok && QlgStringGroup_append(p->children, n->name);
  if (!addedToParent) {
    unlinkPartial(n, p, false, copies, made);
    return 0;
  }

  /* Nothing can fail from here on. */
  int i = 0;
  for (QlgStringGroupEntry* e = QlgStringGroup_first(n->children); e; e = QlgStringGroup_next(e)) {
    QlgObjConfig* k = peek(e->key);
    if (k) {
      QlgMem_free(k->parentName);
      k->parentName = copies[i];
    } else {
      QlgMem_free(copies[i]);
    }
    ++i;
    QlgStringGroup_remove(p->children, e->key);
  }
  QlgMem_free(copies);
  return 1;
}

inline void setFound(int* found, int v) {
  if (found) *found = v;
}

inline bool isUsableName(const char* name) { return name && *name && !isRootName(name); }

}  // namespace

extern "C" {

int QlgObjConfig_startup(void) {
  if (g_store.initialised) return 1;
  g_store.map = QlgStringToObjCfgMap_create();
  g_store.names = QlgStringGroup_create();
  if (!g_store.map || !g_store.names) {
    QlgStringToObjCfgMap_destroy(g_store.map);
    QlgStringGroup_destroy(g_store.names);
    g_store.map = nullptr;
    g_store.names = nullptr;
    return 0;
  }
  g_store.initialised = 1;
  return 1;
}

void QlgObjConfig_shutdown(void) {
  if (!g_store.initialised) return;
  QlgStringToObjCfgMap_destroy(g_store.map);
  QlgStringGroup_destroy(g_store.names);
  g_store.map = nullptr;
  g_store.names = nullptr;
  g_store.initialised = 0;
}

int QlgObjConfig_isStarted(void) { return g_store.initialised; }

QlgObjConfig* QlgObjConfig_addRef(QlgObjConfig* cfg) {
  if (cfg) ++cfg->refCount;
  return cfg;
}

void QlgObjConfig_releaseUnlocked(QlgObjConfig* cfg) {
  if (!cfg) return;
  if (--cfg->refCount > 0) return;
  freeConfig(cfg);
}

QlgObjConfig* QlgObjConfig_find(const char* name) {
  if (!isUsableName(name) || !g_store.initialised) return nullptr;
  QlgObjConfig* cfg = QlgStringToObjCfgMap_find(g_store.map, name);
  if (cfg) return cfg;
  cfg = newConfig(name);
  if (!cfg) return nullptr;
  if (!link(cfg)) {
    freeConfig(cfg);
    return nullptr;
  }
  return cfg; /* the creation reference is the caller's; the map took its own */
}

char* QlgObjConfig_getProperty(const QlgObjConfig* cfg, const char* key, int* found) {
  setFound(found, 0);
  if (!key) return nullptr;
  for (const QlgObjConfig* c = cfg; c;) {
    const char* v = QlgStringToStringMap_peek(c->props, key);
    if (v) {
      char* copy = QlgMem_strdup(v);
      setFound(found, copy != nullptr);
      return copy;
    }
    if (!c->parentName || isRootName(c->parentName)) break;
    c = peek(c->parentName);
  }
  return nullptr;
}

int QlgObjConfig_setProperty(QlgObjConfig* cfg, const char* key, const char* value) {
  if (!cfg || !key || !value) return 0;
  bool created = false;
  if (!cfg->props) {
    cfg->props = QlgProps_create();
    if (!cfg->props) return 0;
    created = true;
  }
  if (QlgProps_setString(cfg->props, key, value)) return 1;
  if (created) {
    QlgProps_destroy(cfg->props);
    cfg->props = nullptr;
  }
  return 0;
}

int QlgObjConfig_define(const char* objectName, const char* property, const char* value) {
  if (!isUsableName(objectName) || !property || !*property || !value) return 0;
  if (!g_store.initialised) return 0;
  QlgObjConfig* existing = peek(objectName);
  if (existing) return QlgObjConfig_setProperty(existing, property, value);

  /* A new configuration gets its property before it enters the store, so
     that a failure leaves no empty configuration behind. */
  QlgObjConfig* cfg = newConfig(objectName);
  if (!cfg) return 0;
  cfg->definedByFile = 1;
  if (!QlgObjConfig_setProperty(cfg, property, value) || !link(cfg)) {
    freeConfig(cfg);
    return 0;
  }
  QlgObjConfig_releaseUnlocked(cfg); /* the store keeps its own reference */
  return 1;
}

char* QlgObjConfig_parentName(QlgObjConfig* cfg) {
  if (!cfg || !cfg->name) return nullptr;
  if (!cfg->parentName) cfg->parentName = computeParentName(cfg->name);
  return QlgMem_strdup(cfg->parentName);
}

const QlgProps* QlgObjConfig_props(const QlgObjConfig* cfg) { return cfg ? cfg->props : nullptr; }

int QlgObjConfig_isDefinedByFile(const QlgObjConfig* cfg) { return cfg ? cfg->definedByFile : 0; }

const QlgStringGroup* QlgObjConfig_allNames(void) { return g_store.names; }

}  // extern "C"
