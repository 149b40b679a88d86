// SPDX-License-Identifier: Apache-2.0
/*
 * CxZMSID: recognises the ZMS message ID at the start of a message text
 * ("QLGBC0020E": component letters, a number, a severity letter E, I or W)
 * and splits it into shape, length, ID text and severity.
 *
 * The ID text is copied with its terminator directly in front of the
 * severity field, so for a 10-character ID the terminator lands on the
 * severity: severity then reads 0 and idText holds the ten characters
 * without a terminator.  This overlap is intended; a reader that needs the
 * severity of a 10-character ID takes idText[9].
 */
#ifndef ARDEL_CXZMSID_H
#define ARDEL_CXZMSID_H

#include <stdint.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

typedef struct CxZMSID {
  const char* shapeName; /* e.g. "ORX5.4.1"; "" when not recognised */
  uint32_t shapeNumber;  /* 100 x letters + 10 x digits + 1; 0 when not recognised */
  int32_t length;        /* characters of the ID, severity included; 0 when not recognised */
  char idText[10];       /* the ID, terminated unless it is 10 characters long */
  char severity;         /* the severity letter; 0 after a 10-character ID */
} CxZMSID;

/* Fills *id from the beginning of text and returns id (null for a null id).
   A null or unrecognised text leaves the record empty. */
CxZMSID* CxZMSID_parse(CxZMSID* id, const char* text);

ARDEL_END_C

#endif
