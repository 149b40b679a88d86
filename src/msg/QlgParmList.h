/*
 * QlgParmList: the ordered, owned list of typed parameters of a message.
 * The order of adding is the argument order of positional conversions.
 */
#ifndef ARDEL_QLGPARMLIST_H
#define ARDEL_QLGPARMLIST_H

#include <ardel/QlgParm.h>

ARDEL_BEGIN_C

typedef struct QlgParmList {
  int count;
  int capacity;
  QlgParm* items; /* string values are owned copies */
} QlgParmList;

QlgParmList* QlgParmList_create(void);
/* Frees every owned string, the array and the record. */
void QlgParmList_free(QlgParmList* list);
/* Appends a copy of parm (a string value is duplicated).  0 when out of
   memory or on a null argument; the list is then unchanged. */
int QlgParmList_add(QlgParmList* list, const QlgParm* parm);
int QlgParmList_count(const QlgParmList* list);
/* The i-th parameter (0-based) or null; still owned by the list. */
const QlgParm* QlgParmList_get(const QlgParmList* list, int i);
/* Deep copy; null when out of memory or for a null list. */
QlgParmList* QlgParmList_copy(const QlgParmList* list);

ARDEL_END_C

#endif
