// SPDX-License-Identifier: Apache-2.0
/*
 * CxSystem: host name, wall-clock time in milliseconds and a plain sleep:
 * the facts every event is stamped with and the pause of writers that wait
 * for room.
 */
#ifndef ARDEL_CXSYSTEM_H
#define ARDEL_CXSYSTEM_H

#include <stddef.h>
#include <stdint.h>
#include <ardel/export.h>
#include "platform/CxStatus.h"

ARDEL_BEGIN_C

/* The host name into buf (size bytes, terminator included).  A name
   without a "." is replaced by its fully qualified form when the resolver
   knows one.  'p' 22 for a null buffer or size 0; 'p' 40 when the name
   cannot be had, or when the lookup fails (the short name then stays in buf). */
CxStatus CxSystem_getHostName(char* buf, size_t size);
/* The qualifying step alone: a name in buf that holds no "." is looked up
   and, when the canonical name holds a ".", replaced by it (cut to size).
   A dotted name is left as it is without any lookup.  'p' 40 when the
   lookup fails, buf unchanged. */
CxStatus CxSystem_qualifyHostName(char* buf, size_t size);
/* Milliseconds since 1970-01-01 UTC. */
int64_t CxSystem_currentTimeMillis(void);
/* A steady clock in milliseconds for intervals, cheap enough to read on
   every record (its resolution may be a few milliseconds). */
int64_t CxSystem_steadyMillis(void);
/* The suite's ini file: $systemroot/tyx/tyx.ini (also SystemRoot), else
   /etc/tyx/tyx.ini; on Windows %systemroot%\tyx\tyx.ini, and no ini file
   when systemroot is unset.  1 when out holds a path, 0 when there is none
   or it does not fit. */
int CxSystem_suiteIniPath(char* out, size_t size);
/* The user's home directory, where a trace file that cannot be written is
   moved: HOME, on Windows HOMEDRIVE followed by HOMEPATH.  1 when known,
   0 when unset or it does not fit. */
int CxSystem_userHome(char* out, size_t size);
/* Suspends the calling thread for ms milliseconds (nothing for ms <= 0). */
void CxSystem_sleepMillis(int32_t ms);

ARDEL_END_C

#endif
