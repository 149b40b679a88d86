// SPDX-License-Identifier: Apache-2.0
/*
 * CxStatus: the outcome of every platform utility, returned by value.
 * origin '-' is success (code 0); 'p' carries an errno value (22 for a null
 * or empty argument); 'w' a native system error code (also 258, timed out).
 */
#ifndef ARDEL_CXSTATUS_H
#define ARDEL_CXSTATUS_H

#include <stdint.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

typedef struct CxStatus {
  char origin;
  int32_t code;
} CxStatus;

#define CX_STATUS_OK_ORIGIN '-'

static inline CxStatus CxStatus_make(char origin, int32_t code) {
  CxStatus s;
  s.origin = origin;
  s.code = code;
  return s;
}
static inline CxStatus CxStatus_ok(void) { return CxStatus_make('-', 0); }
static inline int CxStatus_isOk(CxStatus s) { return s.origin == '-'; }

ARDEL_END_C

#endif
