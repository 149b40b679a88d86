// SPDX-License-Identifier: Apache-2.0
/*
 * QlgCatalog: loading catalog files, the catalog cache and lookups.
 *
 * Opening reads only the header and the set records, checking every
 * record, index and text block against the file's size; a set's texts and
 * index are read on its first lookup and checked again (keys ascending,
 * every text offset inside the block and every text terminated inside it).
 * A set that fails those checks stays unusable and yields default texts.
 *
 * Conversions into a codeset other than UTF-8 are made on first request,
 * per message: index entries may share texts, so converting a whole set up
 * front could cost far more than the file's size.
 */
#include "nls/QlgCatalog.h"

#include <string.h>

#include <ardel/QlgMem.h>
#include "nls/QlgCodeset.h"
#include "nls/QlgNls.h"
#include "platform/CxFile.h"
#include "platform/CxFileRead.h"

namespace {

/* Larger files are not catalogs this library wrote; refusing them bounds
   what one file can make us allocate. */
const int64_t kMaxFileSize = 16 * 1024 * 1024;
/* Loaded sets may hold at most this many times the file's size: an honest
   catalog needs under five (56 bytes in memory per 12-byte index entry),
   while sets that all claim the same large index would need far more. */
const int64_t kMaxLoadFactor = 8;
const int kFirstSlots = 10;

enum SetState { kNotLoaded = -1, kLoaded = 0, kDamaged = 1 };

struct Message {
  uint32_t key;
  uint32_t offset;
  uint32_t third;
  const char* raw;
  char* inDefault;      /* lazily converted into the default codeset */
  QlgCodeset* defaultCs;
  char* inOther;        /* lazily converted into a caller's codeset */
  QlgCodeset* otherCs;
};

struct Set {
  uint32_t number;
  uint32_t next;
  uint32_t indexOffset;
  uint32_t textOffset;
  uint32_t textSize;
  uint32_t count;
  int state;
  Message* messages;
  char* text;
};

struct Entry {
  char* path;
  QlgCatalog* cat;
  uint64_t stamp;
  int inUse;
};

Entry* g_entries = nullptr;
int g_slots = 0;
uint64_t g_stamp = 0;

uint32_t be32(const unsigned char* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
         (static_cast<uint32_t>(p[2]) << 8) | p[3];
}

bool fits(uint64_t offset, uint64_t length, int64_t size) {
  return offset <= static_cast<uint64_t>(size) && length <= static_cast<uint64_t>(size) - offset;
}

}  // namespace

struct QlgCatalog {
  int flags;
  int fd;
  int64_t size;
  int64_t loaded; /* bytes held by loaded sets */
  int setCount;
  Set* sets;
};

namespace {

void freeSetData(Set* s) {
  if (s->messages) {
    for (uint32_t i = 0; i < s->count; i++) {
      QlgMem_free(s->messages[i].inDefault);
      QlgMem_free(s->messages[i].inOther);
    }
  }
  QlgMem_free(s->messages);
  QlgMem_free(s->text);
  s->messages = nullptr;
  s->text = nullptr;
}

void destroy(QlgCatalog* cat) {
  if (!cat) return;
  for (int i = 0; i < cat->setCount; i++) freeSetData(&cat->sets[i]);
  QlgMem_free(cat->sets);
  CxFile_close(&cat->fd);
  QlgMem_free(cat);
}

/* Reads the set records along the chain; false for a damaged file. */
bool readSets(QlgCatalog* cat, uint32_t wanted, uint32_t first) {
  cat->sets = static_cast<Set*>(QlgMem_alloc(sizeof(Set) * wanted));
  if (!cat->sets) return false;
  /* Deleted records do not count, so a chain may be longer than the set
     count, but never longer than the records the file can hold: a loop in
     the chain ends there. */
  uint64_t steps = static_cast<uint64_t>(cat->size) / QLG_CATALOG_SET_SIZE;
  uint32_t offset = first;
  while (static_cast<uint32_t>(cat->setCount) < wanted) {
    if (steps-- == 0 || !fits(offset, QLG_CATALOG_SET_SIZE, cat->size)) return false;
    unsigned char r[QLG_CATALOG_SET_SIZE];
    if (!CxStatus_isOk(CxFileRead_at(cat->fd, offset, r, sizeof r))) return false;
    Set s = {be32(r), be32(r + 4), be32(r + 8), be32(r + 12), be32(r + 16), be32(r + 20), kNotLoaded,
             nullptr, nullptr};
    offset = s.next;
    if (be32(r + 24) != 0) continue;
    if (!fits(s.indexOffset, static_cast<uint64_t>(s.count) * QLG_CATALOG_ENTRY_SIZE, cat->size) ||
        !fits(s.textOffset, s.textSize, cat->size))
      return false;
    /* Lookups bisect over set numbers. */
    if (cat->setCount > 0 && cat->sets[cat->setCount - 1].number >= s.number) return false;
    cat->sets[cat->setCount++] = s;
  }
  return true;
}

QlgCatalog* load(const char* path, int flags) {
  QlgCatalog* cat = static_cast<QlgCatalog*>(QlgMem_alloc(sizeof(QlgCatalog)));
  if (!cat) return nullptr;
  memset(cat, 0, sizeof *cat);
  cat->flags = flags;
  unsigned char h[QLG_CATALOG_HEADER_SIZE];
  bool ok = CxStatus_isOk(CxFileRead_open(&cat->fd, path, &cat->size)) && cat->size <= kMaxFileSize &&
            cat->size >= QLG_CATALOG_HEADER_SIZE &&
            CxStatus_isOk(CxFileRead_at(cat->fd, 0, h, sizeof h)) &&
            memcmp(h, QLG_CATALOG_MAGIC, 8) == 0 && be32(h + 8) == QLG_CATALOG_VERSION;
  uint32_t wanted = ok ? be32(h + 20) : 0;
  ok = ok && wanted >= 1 && wanted <= cat->size / QLG_CATALOG_SET_SIZE && readSets(cat, wanted, be32(h + 24));
  if (!ok) {
    destroy(cat);
    return nullptr;
  }
  return cat;
}

/* Reads a set's index and texts and checks them. */
void loadSet(QlgCatalog* cat, Set* s) {
  s->state = kDamaged;
  int64_t cost = static_cast<int64_t>(s->count) * static_cast<int64_t>(sizeof(Message)) + s->textSize;
  if (cat->loaded + cost > kMaxLoadFactor * cat->size) return;
  size_t indexBytes = static_cast<size_t>(s->count) * QLG_CATALOG_ENTRY_SIZE;
  unsigned char* index = static_cast<unsigned char*>(QlgMem_alloc(indexBytes ? indexBytes : 1));
  s->messages = static_cast<Message*>(QlgMem_alloc(sizeof(Message) * (s->count ? s->count : 1)));
  s->text = static_cast<char*>(QlgMem_alloc(static_cast<size_t>(s->textSize) + 1));
  bool allocated = index && s->messages && s->text;
  bool ok = allocated &&
            CxStatus_isOk(CxFileRead_at(cat->fd, s->textOffset, s->text, s->textSize)) &&
            CxStatus_isOk(CxFileRead_at(cat->fd, s->indexOffset, index, indexBytes));
  for (uint32_t i = 0; ok && i < s->count; i++) {
    const unsigned char* e = index + static_cast<size_t>(i) * QLG_CATALOG_ENTRY_SIZE;
    Message m = {be32(e), be32(e + 4), be32(e + 8), nullptr, nullptr, nullptr, nullptr, nullptr};
    ok = m.offset < s->textSize && memchr(s->text + m.offset, '\0', s->textSize - m.offset) &&
         (i == 0 || s->messages[i - 1].key < m.key);
    m.raw = s->text + m.offset;
    s->messages[i] = m;
  }
  QlgMem_free(index);
  if (ok) {
    s->state = kLoaded;
    cat->loaded += cost;
    return;
  }
  /* Memory may be there next time; a set whose contents are wrong never
     gets better. */
  if (s->messages) memset(s->messages, 0, sizeof(Message) * (s->count ? s->count : 1));
  freeSetData(s);
  s->state = allocated ? kDamaged : kNotLoaded;
}

/* Bisection whose first probe is the given position when it is in range. */
template <class T, class Num>
int bisect(const T* items, int count, uint32_t wanted, int firstProbe, Num number) {
  int lo = 0, hi = count - 1;
  int probe = firstProbe >= 0 && firstProbe < count ? firstProbe : (lo + hi) / 2;
  while (lo <= hi) {
    uint32_t n = number(items[probe]);
    if (n == wanted) return probe;
    if (n < wanted)
      lo = probe + 1;
    else
      hi = probe - 1;
    probe = lo + (hi - lo) / 2;
  }
  return -1;
}

/* The text converted into cs, made on first request and kept. */
const char* converted(Message* m, QlgCodeset* cs, char** slot, QlgCodeset** slotCs) {
  if (*slot && *slotCs == cs) return *slot;
  QlgMem_free(*slot);
  *slot = nullptr;
  size_t len = strlen(m->raw);
  if (len > (1u << 28)) return m->raw;
  size_t room = 2 * len + 1;
  *slot = static_cast<char*>(QlgMem_alloc(room));
  if (!*slot) return m->raw;
  *slotCs = cs;
  QlgCodeset_convert(cs, m->raw, static_cast<int>(len), *slot, static_cast<int>(room));
  return *slot;
}

int findEntry(const char* path) {
  for (int i = 0; i < g_slots; i++)
    if (g_entries[i].path && strcmp(g_entries[i].path, path) == 0) return i;
  return -1;
}

/* A slot for a new entry: an empty one, else the least recently used one
   not in use (its catalog closed), else the table doubled. */
int freeSlot() {
  int best = -1;
  for (int i = 0; i < g_slots; i++) {
    if (!g_entries[i].path) return i;
    if (!g_entries[i].inUse && (best < 0 || g_entries[i].stamp < g_entries[best].stamp)) best = i;
  }
  if (best >= 0) {
    destroy(g_entries[best].cat);
    QlgMem_free(g_entries[best].path);
    g_entries[best] = Entry{nullptr, nullptr, 0, 0};
    return best;
  }
  int grown = g_slots ? g_slots * 2 : kFirstSlots;
  Entry* e = static_cast<Entry*>(QlgMem_realloc(g_entries, sizeof(Entry) * static_cast<size_t>(grown)));
  if (!e) return -1;
  memset(e + g_slots, 0, sizeof(Entry) * static_cast<size_t>(grown - g_slots));
  g_entries = e;
  int first = g_slots;
  g_slots = grown;
  return first;
}

}  // namespace

extern "C" {

QlgCatalog* QlgCatalog_openFile(const char* path, int flags) {
  if (!path || !*path) return nullptr;
  int i = findEntry(path);
  if (i >= 0) {
    g_entries[i].stamp = ++g_stamp;
    g_entries[i].inUse = 1;
    return g_entries[i].cat;
  }
  char* copy = QlgMem_strdup(path);
  QlgCatalog* cat = copy ? load(path, flags) : nullptr;
  int slot = cat ? freeSlot() : -1;
  if (slot < 0) {
    destroy(cat);
    QlgMem_free(copy);
    return nullptr;
  }
  g_entries[slot] = Entry{copy, cat, ++g_stamp, 1};
  return cat;
}

QlgCatalog* QlgCatalog_open(const char* name, int flags, const char* locale) {
  char path[4096];
  if (!QlgNls_findCatalog(name, flags, nullptr, locale, path, sizeof path)) return nullptr;
  return QlgCatalog_openFile(path, flags);
}

const char* QlgCatalog_getMessage(QlgCatalog* cat, int set, int key, const char* defaultText, QlgCodeset* cs) {
  if (!cat || set < 0) return defaultText;
  int si = bisect(cat->sets, cat->setCount, static_cast<uint32_t>(set), set,
                  [](const Set& s) { return s.number; });
  if (si < 0) return defaultText;
  Set* s = &cat->sets[si];
  if (s->state == kNotLoaded) loadSet(cat, s);
  if (s->state != kLoaded || key < 1) return defaultText;
  int mi = bisect(s->messages, static_cast<int>(s->count), static_cast<uint32_t>(key), key - 1,
                  [](const Message& m) { return m.key; });
  if (mi < 0) return defaultText;
  Message* m = &s->messages[mi];
  if (cs == QlgCodeset_utf8()) return m->raw;
  if (cs) return converted(m, cs, &m->inOther, &m->otherCs);
  QlgCodeset* def = QlgNls_defaultCodeset();
  if (def == QlgCodeset_utf8()) return m->raw;
  return converted(m, def, &m->inDefault, &m->defaultCs);
}

void QlgCatalog_close(QlgCatalog* cat) {
  if (!cat) return;
  for (int i = 0; i < g_slots; i++)
    if (g_entries[i].cat == cat) g_entries[i].inUse = 0;
}

int QlgCatalog_isCached(const char* path) { return path && findEntry(path) >= 0; }

int QlgCatalog_cacheSlots(void) { return g_slots; }

void QlgCatalog_shutdown(void) {
  for (int i = 0; i < g_slots; i++) {
    destroy(g_entries[i].cat);
    QlgMem_free(g_entries[i].path);
  }
  QlgMem_free(g_entries);
  g_entries = nullptr;
  g_slots = 0;
}

int QlgCatalog_visit(QlgCatalog* cat, QlgCatalogVisitor fn, void* ctx) {
  if (!cat || !fn) return 0;
  for (int i = 0; i < cat->setCount; i++) {
    Set* s = &cat->sets[i];
    if (s->state == kNotLoaded) loadSet(cat, s);
    if (s->state != kLoaded) return 0;
    fn(ctx, s->number, 0, nullptr);
    for (uint32_t k = 0; k < s->count; k++) fn(ctx, s->number, s->messages[k].key, s->messages[k].raw);
  }
  return 1;
}

}  // extern "C"
