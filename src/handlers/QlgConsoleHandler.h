// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_consolehandler and qlg_stderrhandler: write each event, formatted by
 * the handler's formatter, to standard output or standard error, and pass
 * it on to the handler's own listeners.  The formatter's head is written
 * once before the first event and its tail once at close.
 */
#ifndef ARDEL_QLGCONSOLEHANDLER_H
#define ARDEL_QLGCONSOLEHANDLER_H

#include <stdio.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgEvent.h>

ARDEL_BEGIN_C

/* createData slot: the head-written flag, one byte 0; null when out of memory. */
void* QlgConsoleHandler_create(void);
/* destroyData slot: frees the flag. */
void QlgConsoleHandler_destroy(void* data);
/* publish slots: standard output for the console handler, standard error
   for the stderr handler. */
void QlgConsoleHandler_publish(QlgObject* handler, QlgEvent* event);
void QlgStderrHandler_publish(QlgObject* handler, QlgEvent* event);
/* open slot: writes the head to standard output unless already written. */
void QlgConsoleHandler_open(QlgObject* handler);
/* close slot: writes the tail to standard output if the head was written. */
void QlgConsoleHandler_close(QlgObject* handler);
/* Writes one event to stream (head first, to standard output, if not yet
   written), then forwards the event to the handler's listeners. */
void QlgConsoleHandler_write(QlgObject* handler, QlgEvent* event, FILE* stream);

ARDEL_END_C

#endif
