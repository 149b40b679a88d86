// SPDX-License-Identifier: Apache-2.0
/*
 * QlgObjConfig: the configuration store and its tree.  A configuration
 * holds the properties filed under one dotted object name; its parent is the
 * longest proper dotted prefix that had a configuration when the parent was
 * first asked for, and "/" (the root, which has no configuration) ends every
 * chain.  The store is process-wide and guarded by the toolkit lock: every
 * function here expects the caller to hold it (the locked public forms are
 * in <ardel/QlgObjConfig.h>).
 */
#ifndef ARDEL_CORE_QLGOBJCONFIG_H
#define ARDEL_CORE_QLGOBJCONFIG_H

#include <stddef.h>
#include <stdint.h>
#include <ardel/QlgObjConfig.h>
#include <ardel/QlgProps.h>
#include "util/QlgStringGroup.h"

ARDEL_BEGIN_C

#define QLG_OBJCONFIG_ROOT "/"

struct QlgObjConfig {
  int32_t refCount;        /* 1 when created; the store holds one more */
  char* name;              /* e.g. "handlers.traceFile" */
  char* parentName;        /* nearest ancestor configuration, or "/" */
  QlgStringGroup* children;/* names of configurations whose parent this is */
  QlgProps* props;         /* own properties in file order; null until the first */
  unsigned char definedByFile; /* first created by an entry of the properties file */
  size_t serial;           /* creation order within the store */
};

/* Creates the store (nothing when it exists).  0 when out of memory: the
   store then stays uninitialised. */
int QlgObjConfig_startup(void);
/* Drops the store's references; configurations still held elsewhere live
   until their last release. */
void QlgObjConfig_shutdown(void);
int QlgObjConfig_isStarted(void);

/* Configuration of name with a reference for the caller, created and linked
   into the tree when absent.  Null for a null or empty name, "/", no store
   or out of memory (the store is then unchanged). */
QlgObjConfig* QlgObjConfig_find(const char* name);
QlgObjConfig* QlgObjConfig_addRef(QlgObjConfig* cfg);
/* The unlocked release, for code that already holds the toolkit lock. */
void QlgObjConfig_releaseUnlocked(QlgObjConfig* cfg);

/* New copy of key's value, from cfg's own properties or else up the chain of
   parents; found (may be null) tells whether any level had it. */
char* QlgObjConfig_getProperty(const QlgObjConfig* cfg, const char* key, int* found);
/* Stores into cfg's own properties.  1 when stored; unchanged otherwise. */
int QlgObjConfig_setProperty(QlgObjConfig* cfg, const char* key, const char* value);
/* The file reader's entry point: files property=value under objectName,
   creating the configuration (marked defined-by-file) when new.  0 when any
   argument is null, the object name or property is empty, or out of memory
   (nothing changes then). */
int QlgObjConfig_define(const char* objectName, const char* property, const char* value);
/* New copy of the parent name ("/" for a top-level name); computed and
   recorded on first use. */
char* QlgObjConfig_parentName(QlgObjConfig* cfg);
/* cfg's own properties, in file order (may be null); owned by cfg. */
const QlgProps* QlgObjConfig_props(const QlgObjConfig* cfg);
int QlgObjConfig_isDefinedByFile(const QlgObjConfig* cfg);
/* Every configuration name in creation order (null before start-up). */
const QlgStringGroup* QlgObjConfig_allNames(void);

ARDEL_END_C

#endif
