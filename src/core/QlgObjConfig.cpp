// SPDX-License-Identifier: Apache-2.0
/*
 * QlgObjConfig: the configuration store and the tree of configurations by
 * dotted names.  Every change to the store either completes or leaves the
 * store exactly as it was: linking a new configuration makes all of its
 * allocations first and only then rewires the tree.
 */
#include "core/QlgObjConfig.h"

#include <ardel/QlgMem.h>
#include <algorithm>
#include <cstring>

#include "core/QlgStringToObjCfgMap.h"
#include "util/QlgKeyIndex.h"
#include "util/QlgStringToStringMap.h"

namespace {

struct Store {
  QlgStringToObjCfgMap* map;  /* name -> configuration, one reference each */
  QlgStringGroup* names;      /* every name in creation order */
  QlgKeyIndex* waiting;       /* configurations by the missing names above them */
  size_t serial;              /* creation count, for the order of children */
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

/* Number of dotted prefixes of cfg's name longer than its parent's name:
   the names whose creation would put a configuration between the two. */
size_t missingPrefixes(const QlgObjConfig* cfg) {
  size_t from = std::strlen(cfg->parentName) + 1, count = 0;
  for (const char* c = cfg->name + from; *c; ++c) count += *c == '.';
  return count;
}

/* Files cfg as waiting under each of those names: when one is created, cfg
   may move under it, and the new configuration finds it here instead of
   looking through every child of its parent.  Room was reserved. */
void fileWaiting(QlgObjConfig* cfg) {
  size_t from = std::strlen(cfg->parentName) + 1;
  size_t hash = QLG_KEYINDEX_SEED;
  for (size_t i = 0; cfg->name[i]; ++i) {
    if (i >= from && cfg->name[i] == '.') QlgKeyIndex_insert(g_store.waiting, hash, cfg, i);
    hash = QlgKeyIndex_hashStep(hash, static_cast<unsigned char>(cfg->name[i]));
  }
}

/* Calls f on every configuration waiting for the name n (nLen bytes); f
   returns true to drop the record. */
template <class F>
void forEachWaiting(const char* n, size_t nLen, F f) {
  size_t hash = QlgKeyIndex_hash(n, nLen);
  size_t cursor = QlgKeyIndex_start(g_store.waiting, hash);
  while (QlgKeyIndexSlot* s = QlgKeyIndex_next(g_store.waiting, hash, &cursor)) {
    QlgObjConfig* k = static_cast<QlgObjConfig*>(s->item);
    if (s->aux != nLen || std::strncmp(k->name, n, nLen) != 0) continue;
    if (f(k)) QlgKeyIndex_removeSlot(g_store.waiting, s, &cursor);
  }
}

/* Children of p that move under the new n, in p's order of children (which
   is the order of creation).  Returns their count; *out is null when none
   or out of memory (then -1). */
long findMovers(const QlgObjConfig* n, const QlgObjConfig* p, QlgObjConfig*** out) {
  size_t nLen = std::strlen(n->name);
  long count = 0;
  auto moves = [&](QlgObjConfig* k) {
    return QlgStringGroup_contains(p->children, k->name) && movesUnder(k->name, n->name, nLen);
  };
  forEachWaiting(n->name, nLen, [&](QlgObjConfig* k) { count += moves(k); return false; });
  *out = nullptr;
  if (count == 0) return 0;
  QlgObjConfig** movers = static_cast<QlgObjConfig**>(QlgMem_alloc(sizeof(QlgObjConfig*) * count));
  if (!movers) return -1;
  long i = 0;
  forEachWaiting(n->name, nLen, [&](QlgObjConfig* k) {
    if (moves(k)) movers[i++] = k;
    return false;
  });
  std::sort(movers, movers + count,
            [](const QlgObjConfig* a, const QlgObjConfig* b) { return a->serial < b->serial; });
  *out = movers;
  return count;
}

/* Undoes the fallible half of link(). */
void unlinkPartial(QlgObjConfig* n, char** copies, long nCopies) {
  for (long i = 0; i < nCopies; ++i) QlgMem_free(copies[i]);
  QlgMem_free(copies);
  while (QlgStringGroup_first(n->children))
    QlgStringGroup_removeEntry(n->children, QlgStringGroup_first(n->children));
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
  n->serial = ++g_store.serial;
  QlgObjConfig* p = isRootName(n->parentName) ? nullptr : peek(n->parentName);
  if (!p) return 1; /* the root keeps no list of children, so nothing waits */

  QlgObjConfig** movers = nullptr;
  long moves = findMovers(n, p, &movers);
  char** copies = nullptr;
  long made = 0;
  bool ok = moves >= 0 &&
            QlgKeyIndex_reserve(&g_store.waiting, g_store.waiting ? g_store.waiting->used + missingPrefixes(n) : missingPrefixes(n));
  if (ok && moves > 0) {
    copies = static_cast<char**>(QlgMem_alloc(sizeof(char*) * static_cast<size_t>(moves)));
    ok = copies != nullptr;
  }
  for (long i = 0; ok && i < moves; ++i) {
    copies[made] = QlgMem_strdup(n->name);
    if (!copies[made]) break;
    ++made;
    ok = QlgStringGroup_append(n->children, movers[i]->name) != 0;
  }
  ok = ok && made == (moves > 0 ? moves : 0) && QlgStringGroup_append(p->children, n->name);
  QlgMem_free(movers);
  if (!ok) {
    unlinkPartial(n, copies, made);
    return 0;
  }

  /* Nothing can fail from here on. */
  long i = 0;
  for (QlgStringGroupEntry* e = QlgStringGroup_first(n->children); e; e = QlgStringGroup_next(e)) {
    QlgObjConfig* k = peek(e->key);
    QlgMem_free(k->parentName);
    k->parentName = copies[i++];
    QlgStringGroup_remove(p->children, e->key);
  }
  QlgMem_free(copies);
  /* n now exists, so nothing waits for its name any more. */
  forEachWaiting(n->name, std::strlen(n->name), [](QlgObjConfig*) { return true; });
  fileWaiting(n);
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
  QlgKeyIndex_destroy(g_store.waiting);
  g_store.map = nullptr;
  g_store.names = nullptr;
  g_store.waiting = nullptr;
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
