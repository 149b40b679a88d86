// SPDX-License-Identifier: Apache-2.0
/*
 * QlgReadProps: reads the toolkit's properties file.  Each entry
 * "object.property = value" is filed under the configuration of its object
 * name, or, when a target property set is given, stored whole into it.
 */
#ifndef ARDEL_QLGREADPROPS_H
#define ARDEL_QLGREADPROPS_H

#include <ardel/export.h>
#include <ardel/QlgProps.h>

ARDEL_BEGIN_C

/* 1 when the whole file was read without error.  A null target files the
   entries through QlgObjConfig_define (the caller holds the toolkit lock).
   Entries read before a failure stay filed.  Open and read failures are
   reported through the internal-message reporter; an invalid escape in a
   value prints message 52 straight to standard error. */
int QlgReadProps_read(const char* path, QlgProps* target);

/* Checking mode, for tools: the same machine, but nothing is filed.  Each
   entry reaches visit with its line, whole key and value (error null); each
   line the reader rejects reaches it with the line, the key read so far
   (may be null) and the reason (value null), and reading goes on with the
   next line.  Returns 1 when the file could be opened and had no error. */
typedef void (*QlgReadPropsVisitFn)(void* context, int line, const char* key, const char* value,
                                    const char* error);
int QlgReadProps_check(const char* path, QlgReadPropsVisitFn visit, void* context);

ARDEL_END_C

#endif
