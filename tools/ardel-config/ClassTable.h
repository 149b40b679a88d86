// SPDX-License-Identifier: Apache-2.0
/*
 * What the configuration tool knows about the built-in classes: for each
 * class its kind and every property it reads, with the property's type, its
 * default and what the class checks.  One table serves both the checker
 * (unknown properties, values that do not read as their type) and the
 * class reference in docs/ (generated from it, so the two cannot drift).
 */
#ifndef ARDEL_TOOLS_CLASSTABLE_H
#define ARDEL_TOOLS_CLASSTABLE_H

#include <stddef.h>

enum class PropType {
  Text,        /* any text */
  Level,       /* a level name or number */
  Int,         /* decimal 32-bit integer */
  Int64,       /* decimal 64-bit integer */
  Bool,        /* true/false, any case (`logging`, which also reads on/off, is an Enum) */
  Names,       /* object names separated by white space */
  ObjectName,  /* one object name */
  Enum,        /* one of the words listed in `choices` */
  Permission,  /* octal permission digits such as 640 */
};

struct PropertyInfo {
  const char* name;
  PropType type;
  const char* defaultValue; /* as a user reads it: "3000 (DEBUG_MIN)", "none" */
  const char* checks;       /* what happens with a bad value, with the message ID */
  const char* choices;      /* Enum only: accepted words separated by "|" */
};

struct ClassInfo {
  const char* name;     /* "qlg_filehandler" */
  int kind;             /* QlgClassKind: 101 logger, 102 filter, 103 handler, 104 formatter */
  const char* summary;  /* one sentence */
  const PropertyInfo* properties; /* class-specific ones; common ones come from kindProperties */
  size_t count;
};

/* Every built-in class, in registration order. */
const ClassInfo* ClassTable_classes(size_t* count);
const ClassInfo* ClassTable_find(const char* className);
/* Properties every object of a kind reads (className, logging, listenerNames,
   description keys, a handler's formatterName, ...). */
const PropertyInfo* ClassTable_kindProperties(int kind, size_t* count);

#endif
