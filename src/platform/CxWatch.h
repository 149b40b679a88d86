// SPDX-License-Identifier: Apache-2.0
/*
 * CxWatch: notice, without a system call that touches the file, that a file
 * was removed or renamed, or that its name now means something else.  One
 * watch covers the open file itself and its directory (for the name).
 * Asking costs a few loads from memory the kernel marks when something is
 * queued, or, where that cannot be had, one non-blocking read of the queue.
 *
 * Where the platform gives no watch (no support, a limit reached), start
 * fails and the caller looks the path up itself.
 */
#ifndef ARDEL_CXWATCH_H
#define ARDEL_CXWATCH_H

#include <ardel/export.h>

ARDEL_BEGIN_C

/* Longest file-name part (after the last "/") the watch can match. */
#define CX_WATCH_NAME_MAX 255

typedef struct CxWatch {
  int fd;       /* notification queue, -1 when not watching */
  int fileWd;   /* watch of the file */
  int dirWd;    /* watch of its directory */
  char name[CX_WATCH_NAME_MAX + 1]; /* the path's last part */
  unsigned forks;                   /* the process's fork count at start */
  struct CxWatchBell* bell;         /* Linux: the queue's doorbell, or null */
} CxWatch;

/* A record that watches nothing. */
void CxWatch_init(CxWatch* w);
/* Starts watching the file at path and its name in its directory; any
   earlier watch of w is ended first.  1 when watching, 0 when no watch can
   be had (w then watches nothing). */
int CxWatch_start(CxWatch* w, const char* path);
/* 1 when something may have happened to the file or its name since the
   last call (or since start); never blocks.  A record that watches nothing
   answers 1.  In a child process the queue would be shared with the
   parent, so there the watch ends (answering 1) and must be started anew. */
int CxWatch_changed(CxWatch* w);
/* 1 while w watches. */
int CxWatch_active(const CxWatch* w);
/* Ends the watch. */
void CxWatch_stop(CxWatch* w);

ARDEL_END_C

#endif
