// SPDX-License-Identifier: Apache-2.0
/*
 * QlgCatalog: message catalog files.  A catalog holds numbered sets of
 * numbered UTF-8 texts; a text is fetched by (set, key), and the caller's
 * default text is returned when it is missing.  Opened catalogs stay in a
 * process-wide cache (the file kept open) and a set's texts are read on its
 * first use.
 *
 * File format, every integer an unsigned 32-bit big-endian value and every
 * offset absolute:
 *   header (28 bytes): magic "*nazgul*", version 1, two unused words, number
 *     of live sets (at least 1), offset of the first set record;
 *   set record (28 bytes): set number, next record, message index offset,
 *     text block offset, text block size, message count, deleted mark
 *     (non-zero: skipped); live sets in ascending number along the chain;
 *   message index: 12 bytes per message, ascending key: key, text offset
 *     within the block, an unused word;
 *   texts: NUL-terminated inside their block.
 *
 * Catalog files are untrusted: every offset, count and length is checked
 * against the file's size and a damaged file (or set) yields the default
 * texts, never a read outside what was read from the file.
 *
 * Not thread-safe by itself: callers hold the toolkit lock.
 */
#ifndef ARDEL_QLGCATALOG_H
#define ARDEL_QLGCATALOG_H

#include <stdint.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

struct QlgCodeset;
typedef struct QlgCatalog QlgCatalog;

#define QLG_CATALOG_MAGIC "*nazgul*"
#define QLG_CATALOG_VERSION 1
#define QLG_CATALOG_HEADER_SIZE 28
#define QLG_CATALOG_SET_SIZE 28
#define QLG_CATALOG_ENTRY_SIZE 12

/* Finds the catalog file of a name (a name with "/" or "\" is the file
   itself) for a locale (null: the user's language) and opens it; null when
   there is none or it is damaged.  flags: QLG_NLS_* search flags. */
QlgCatalog* QlgCatalog_open(const char* name, int flags, const char* locale);
/* Opens the catalog file at path (through the cache). */
QlgCatalog* QlgCatalog_openFile(const char* path, int flags);
/* Text of (set, key), or defaultText itself when it is missing.  cs null:
   in the default codeset; the built-in UTF-8 converter: the raw text; any
   other: converted through it.  The text belongs to the catalog. */
const char* QlgCatalog_getMessage(QlgCatalog* cat, int set, int key, const char* defaultText,
                                  struct QlgCodeset* cs);
/* Marks the catalog no longer in use; it stays open and cached. */
void QlgCatalog_close(QlgCatalog* cat);

/* 1 when the exact path is in the cache. */
int QlgCatalog_isCached(const char* path);
/* Number of cache slots (0 before the first open). */
int QlgCatalog_cacheSlots(void);
/* Closes every cached catalog and frees the cache. */
void QlgCatalog_shutdown(void);

/* Walks every live set in file order: fn once for the set with key 0 and
   a null text, then once per message with its raw UTF-8 text.  0 when a
   set cannot be read. */
typedef void (*QlgCatalogVisitor)(void* ctx, uint32_t set, uint32_t key, const char* text);
int QlgCatalog_visit(QlgCatalog* cat, QlgCatalogVisitor fn, void* ctx);

ARDEL_END_C

#endif
