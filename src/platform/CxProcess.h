// SPDX-License-Identifier: Apache-2.0
/*
 * CxProcess: starting an external program as a child process, waiting for
 * it, and the facts of the current process.
 *
 * A child is started from a program path and an argument vector.  The
 * vector holds the arguments only, not the program name: the child sees
 * the program as its first word and then each given argument as one word,
 * exactly as given.  No shell is involved and nothing is quoted.  On POSIX
 * systems an argument holding spaces reaches the child as one word and the
 * program is not searched for in PATH; on Windows the arguments are joined
 * with single spaces into one command line, which the child splits again,
 * and CreateProcess looks the program up as it does.  Callers that need
 * the same result everywhere pass words without spaces and a full path.
 * The child gets the caller's environment, current directory and standard
 * streams, and no other open descriptor.
 */
#ifndef ARDEL_CXPROCESS_H
#define ARDEL_CXPROCESS_H

#include <stddef.h>
#include <stdint.h>
#include <ardel/export.h>
#include "platform/CxStatus.h"

ARDEL_BEGIN_C

/* A child process handle, owned by the caller after a successful start and
   released with CxProcess_close.  A zero-filled record is "no process". */
typedef struct CxProcess {
  int64_t id;       /* platform handle of the child; 0 when none */
  int32_t ended;    /* 1 once the child's end has been collected */
  int32_t exitCode; /* valid when ended */
} CxProcess;

typedef struct CxExitInfo {
  int32_t exited;   /* 1 when the process has ended */
  int32_t exitCode; /* its exit code; 128 + the signal number when a signal ended it */
  int32_t reserved1; /* always 0 */
  int32_t reserved2; /* always 0 */
} CxExitInfo;

/* Starts program with args (a vector ending in null; null means none).
   'p' 22 for a null handle or a null or empty program; 'p' errno when the
   program cannot be started, the handle then left empty. */
CxStatus CxProcess_start(CxProcess* handle, const char* program, char* const args[]);
/* With waitFlag set, waits until the child ends.  With it clear, only
   looks: a running child gives success with exited = 0.  The result of an
   ended child can be asked for again.  'p' 22 for an empty handle. */
CxStatus CxProcess_wait(CxProcess* handle, CxExitInfo* out, int waitFlag);
/* Waits at most timeoutMs milliseconds for the child to end: success with
   exited = 1 when it did, 'w' 258 when the time ran out (the child is then
   still running).  'p' 22 for an empty handle. */
CxStatus CxProcess_waitTimed(CxProcess* handle, CxExitInfo* out, int32_t timeoutMs);
/* Ends the child at once and collects it, so that a hung child never
   outlives the caller's patience.  'p' 22 for an empty handle. */
CxStatus CxProcess_kill(CxProcess* handle);
/* Releases the handle and empties it; does not stop the child.  An ended
   child is collected here; one still running is left to the system, so
   callers that care wait first.  'p' 22 for null. */
CxStatus CxProcess_close(CxProcess* handle);
int32_t CxProcess_getpid(void);
/* Current directory into buf, which holds 260 bytes.  On failure buf is
   empty; 'p' 22 for a null buffer. */
CxStatus CxProcess_getcwd(char* buf);
/* The running program's short name (its file name without directories),
   cut to size - 1 bytes; "" when the platform cannot tell. */
void CxProcess_getProgramName(char* buf, size_t size);
/* Handlers run around fork() in the calling process: prepare before, parent
   and child after, in the respective process.  Where processes are not
   forked (Windows) nothing is registered and the call succeeds. */
CxStatus CxProcess_atFork(void (*prepare)(void), void (*parent)(void), void (*child)(void));

ARDEL_END_C

#endif
