// SPDX-License-Identifier: Apache-2.0
/*
 * QlgParmList: the ordered list of a message's typed parameters.  The list
 * owns a copy of every string it holds, so a message can outlive the
 * caller's text; the order of adding is the argument order of positional
 * conversions.
 */
#include "msg/QlgParmList.h"

#include <ardel/QlgMem.h>

#include <climits>
#include <cstring>
#include "util/CxHot.h"

namespace {

const int kFirstCapacity = 4;

/* Copies parm into *out, duplicating a string value; false when out of memory. */
bool copyParm(const QlgParm* parm, QlgParm* out) {
  *out = *parm;
  if (parm->kind == QLG_PARM_STRING && parm->value.s) {
    out->value.s = QlgMem_strdup(parm->value.s);
    if (!out->value.s) return false;
  }
  return true;
}

void dropParm(QlgParm* parm) {
  if (parm->kind == QLG_PARM_STRING) QlgMem_free(parm->value.s);
}

}  // namespace

extern "C" {

QlgParmList* QlgParmList_create(void) {
  QlgParmList* list = static_cast<QlgParmList*>(QlgMem_alloc(sizeof(QlgParmList)));
  if (!list) return nullptr;
  list->count = 0;
  list->capacity = 0;
  list->items = nullptr;
  return list;
}

CX_HOT void QlgParmList_free(QlgParmList* list) {
  if (!list) return;
  for (int i = 0; i < list->count; i++) dropParm(&list->items[i]);
  QlgMem_free(list->items);
  QlgMem_free(list);
}

int QlgParmList_add(QlgParmList* list, const QlgParm* parm) {
  if (!list || !parm) return 0;
  if (list->count == list->capacity) {
    if (list->capacity > INT_MAX / 2 / static_cast<int>(sizeof(QlgParm))) return 0;
    int cap = list->capacity ? list->capacity * 2 : kFirstCapacity;
    QlgParm* items = static_cast<QlgParm*>(QlgMem_realloc(list->items, sizeof(QlgParm) * static_cast<size_t>(cap)));
    if (!items) return 0;
    list->items = items;
    list->capacity = cap;
  }
  if (!copyParm(parm, &list->items[list->count])) return 0;
  list->count++;
  return 1;
}

int QlgParmList_count(const QlgParmList* list) { return list ? list->count : 0; }

const QlgParm* QlgParmList_get(const QlgParmList* list, int i) {
  if (!list || i < 0 || i >= list->count) return nullptr;
  return &list->items[i];
}

QlgParmList* QlgParmList_copy(const QlgParmList* list) {
  if (!list) return nullptr;
  QlgParmList* copy = QlgParmList_create();
  if (!copy) return nullptr;
  for (int i = 0; i < list->count; i++) {
    if (!QlgParmList_add(copy, &list->items[i])) {
      QlgParmList_free(copy);
      return nullptr;
    }
  }
  return copy;
}

}  // extern "C"
