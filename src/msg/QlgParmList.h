// SPDX-License-Identifier: Apache-2.0
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

struct QlgI18Msg;
/* Appends a copy of parm to a message's parameters (the typed
   QlgI18Msg_add* forms in one); null arguments are ignored. */
void QlgI18Msg_addParm(struct QlgI18Msg* msg, const QlgParm* parm);

ARDEL_END_C

#ifdef __cplusplus
/* One parameter of each kind: the single place where a value becomes a
   typed parameter, for messages, properties and events alike. */
inline QlgParm QlgParm_make(int kind) {
  QlgParm p;
  p.kind = kind;
  p.value.l = 0;
  return p;
}
inline QlgParm QlgParm_ofChar(char v) { QlgParm p = QlgParm_make(QLG_PARM_CHAR); p.value.c = v; return p; }
inline QlgParm QlgParm_ofInt(int v) { QlgParm p = QlgParm_make(QLG_PARM_INT); p.value.i = v; return p; }
inline QlgParm QlgParm_ofLong(long v) { QlgParm p = QlgParm_make(QLG_PARM_LONG); p.value.l = v; return p; }
inline QlgParm QlgParm_ofFloat(float v) { QlgParm p = QlgParm_make(QLG_PARM_FLOAT); p.value.f = v; return p; }
inline QlgParm QlgParm_ofDouble(double v) { QlgParm p = QlgParm_make(QLG_PARM_DOUBLE); p.value.d = v; return p; }
inline QlgParm QlgParm_ofUChar(unsigned char v) { QlgParm p = QlgParm_make(QLG_PARM_UCHAR); p.value.uc = v; return p; }
/* The string is not copied here; a parameter list stores its own copy. */
inline QlgParm QlgParm_ofString(const char* v) { QlgParm p = QlgParm_make(QLG_PARM_STRING); p.value.s = const_cast<char*>(v); return p; }
#endif

#endif
