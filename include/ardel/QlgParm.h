/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Typed parameters.  The kinds are the markers of a log call's tagged
 * argument list and the types of a message's positional parameters.
 */
#ifndef ARDEL_QLGPARM_H
#define ARDEL_QLGPARM_H

#include <ardel/export.h>

ARDEL_BEGIN_C

typedef enum QlgParmKind {
  QLG_PARM_CHAR = 501,   /* char, passed promoted to int */
  QLG_PARM_INT = 502,    /* int */
  QLG_PARM_LONG = 503,   /* long */
  QLG_PARM_FLOAT = 504,  /* float, passed promoted to double */
  QLG_PARM_DOUBLE = 505, /* double */
  QLG_PARM_UCHAR = 506,  /* unsigned char, passed promoted to int */
  QLG_PARM_STRING = 507  /* const char*, copied */
} QlgParmKind;

/* Tag of a named property in a tagged argument list: name, then one typed item. */
#define QLG_PROPERTY 201

typedef struct QlgParm {
  int kind; /* QlgParmKind */
  union {
    char c;
    int i;
    long l;
    float f;
    double d;
    unsigned char uc;
    char* s; /* owned copy when held in a parameter list */
  } value;
} QlgParm;

/* One parameter rendered alone with its kind's default conversion
   ("%c", "%d", "%d", "%f", "%f", "%c", "%s"); an unknown kind gives "".
   Returns a new string (free with QlgMem_free), null when out of memory. */
ARDEL_API char* QlgParm_toString(const QlgParm* parm);

ARDEL_END_C

#endif
