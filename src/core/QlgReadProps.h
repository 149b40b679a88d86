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

ARDEL_END_C

#endif
