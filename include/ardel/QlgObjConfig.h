/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Object configurations: the properties file files every entry
 * "object.property=value" under the configuration of its object name, and
 * configurations inherit from their dotted ancestors ("handlers" is read
 * through "handlers.traceFile").  These are the public, locked forms; each
 * takes the toolkit lock for its duration.
 */
#ifndef ARDEL_QLGOBJCONFIG_H
#define ARDEL_QLGOBJCONFIG_H

#include <ardel/export.h>

ARDEL_BEGIN_C

typedef struct QlgObjConfig QlgObjConfig;

/* The configuration of name, created empty when absent; the caller owns one
   reference (QlgObjConfig_release).  Null for a null or empty name, for "/"
   (the root has no configuration), before start-up or when out of memory. */
ARDEL_API QlgObjConfig* QlgLogManager_getLogger(const char* name);
/* New copy (QlgMem_free) of key's value in cfg or its nearest ancestor that
   has it; found (may be null) is 1 when some level had the key. */
ARDEL_API char* QlgObject_getProperty(QlgObjConfig* cfg, const char* key, int* found);
/* Stores key=value among cfg's own properties; 1 when stored. */
ARDEL_API int QlgObject_setProperty(QlgObjConfig* cfg, const char* key, const char* value);
/* Gives up one reference; the last one frees the configuration. */
ARDEL_API void QlgObjConfig_release(QlgObjConfig* cfg);

ARDEL_END_C

#endif
