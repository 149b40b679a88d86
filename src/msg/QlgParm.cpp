// SPDX-License-Identifier: Apache-2.0
/*
 * QlgParm: one typed parameter rendered on its own, with the default
 * conversion of its kind.  The positional printf engine does the work, so a
 * parameter prints alone exactly as it would inside a message.
 */
#include <ardel/QlgParm.h>
#include <ardel/QlgMem.h>

#include "msg/QlgParmList.h"
#include "msg/QlgPrintf.h"

namespace {

const char* defaultFormat(int kind) {
  switch (kind) {
    case QLG_PARM_CHAR:
    case QLG_PARM_UCHAR:
      return "%c";
    case QLG_PARM_INT:
    case QLG_PARM_LONG:
      return "%d";
    case QLG_PARM_FLOAT:
    case QLG_PARM_DOUBLE:
      return "%f";
    case QLG_PARM_STRING:
      return "%s";
    default:
      return nullptr;
  }
}

/* Decimal text of an integer: what "%d" prints, without the engine's parse
   and its 1 KiB buffer (event source lines take this path on every call). */
char* decimal(long value) {
  char digits[24];
  char* p = digits + sizeof digits;
  *--p = '\0';
  unsigned long magnitude = value < 0 ? 0UL - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
  do {
    *--p = static_cast<char>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude);
  if (value < 0) *--p = '-';
  return QlgMem_strdup(p);
}

}  // namespace

extern "C" {

char* QlgParm_toString(const QlgParm* parm) {
  if (!parm) return nullptr;
  const char* format = defaultFormat(parm->kind);
  /* An unknown kind, or a string parameter without text, renders as "". */
  if (!format || (parm->kind == QLG_PARM_STRING && !parm->value.s)) return QlgMem_strdup("");
  if (parm->kind == QLG_PARM_INT) return decimal(parm->value.i);
  if (parm->kind == QLG_PARM_LONG) return decimal(parm->value.l);
  /* A one-item list over the caller's parameter: nothing is copied. */
  QlgParm item = *parm;
  QlgParmList list = {1, 1, &item};
  return QlgPrintf_formatParms(format, &list);
}

}  // extern "C"
