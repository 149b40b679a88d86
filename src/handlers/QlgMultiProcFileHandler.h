// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_multiproc_filehandler: several processes, each with its own toolkit,
 * write one log file with size-based rollover.  The size test, the
 * rollover and the write of one record happen under a cross-process mutex
 * keyed by MPFileSemKey, and the size is read from the file itself at each
 * write because the other processes append to it too.  Rollover copies the
 * active file into backup 1 and truncates it in place, so that every
 * process's open descriptor stays valid.  No head or tail is ever written.
 *
 * Instance data, create, destroy and propertyChanged are the file
 * handler's (handlers/QlgFileHandler.h).
 */
#ifndef ARDEL_QLGMULTIPROCFILEHANDLER_H
#define ARDEL_QLGMULTIPROCFILEHANDLER_H

#include <ardel/export.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>
#include "handlers/QlgFileHandler.h"

ARDEL_BEGIN_C

/* Handler slots. */
void QlgMPFileHandler_publish(QlgObject* handler, QlgEvent* event);
void QlgMPFileHandler_open(QlgObject* handler);
void QlgMPFileHandler_close(QlgObject* handler);

/* Parts of a publish, run while holding the cross-process lock. */
void QlgMPFileHandler_rollover(QlgFileHandlerData* data);
void QlgMPFileHandler_copyTruncate(QlgFileHandlerData* data);
/* One record under the cross-process lock: removal check, size, rollover,
   write, note.  Runs under the toolkit lock, or on a background writer
   while every toolkit-lock holder settles the handler first. */
void QlgMPFileHandler_writeRecord(QlgFileHandlerData* data, const char* bytes, int len);

ARDEL_END_C

#endif
