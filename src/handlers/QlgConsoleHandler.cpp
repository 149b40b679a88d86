// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_consolehandler and qlg_stderrhandler.  Both keep one byte of instance
 * data, the head-written flag, so that the formatter's head appears once
 * before the first event and its tail once at close.  Text reaches the
 * console through QlgI18Msg_print, which converts it to the console codeset.
 * No level test is made here: loggers and filters decide what arrives.
 */
#include "handlers/QlgConsoleHandler.h"

#include <ardel/QlgI18Msg.h>
#include <ardel/QlgMem.h>
#include "handlers/QlgHandler.h"

namespace {

/* The head-written flag of a console-style handler, or null.  Only objects
   whose class creates its data with QlgConsoleHandler_create carry the
   flag, so other handlers' data is never taken for it. */
unsigned char* headFlag(const QlgObject* handler) {
  if (!QlgHandler_isHandler(handler) || handler->cls->createData != QlgConsoleHandler_create)
    return nullptr;
  return static_cast<unsigned char*>(handler->data);
}

/* Writes a text and frees it; nothing for null. */
void writeAndFree(FILE* stream, char* text) {
  if (!text) return;
  QlgI18Msg_print(stream, text);
  QlgMem_free(text);
}

}  // namespace

extern "C" {

void* QlgConsoleHandler_create(void) {
  unsigned char* flag = static_cast<unsigned char*>(QlgMem_alloc(1));
  if (flag) *flag = 0;
  return flag;
}

void QlgConsoleHandler_destroy(void* data) { QlgMem_free(data); }

void QlgConsoleHandler_publish(QlgObject* handler, QlgEvent* event) {
  QlgConsoleHandler_write(handler, event, stdout);
}

void QlgStderrHandler_publish(QlgObject* handler, QlgEvent* event) {
  QlgConsoleHandler_write(handler, event, stderr);
}

void QlgConsoleHandler_open(QlgObject* handler) {
  unsigned char* flag = headFlag(handler);
  if (!flag || *flag == 1) return;
  writeAndFree(stdout, QlgHandler_getHead(handler));
  *flag = 1;
}

void QlgConsoleHandler_close(QlgObject* handler) {
  unsigned char* flag = headFlag(handler);
  if (!flag || !*flag) return;
  writeAndFree(stdout, QlgHandler_getTail(handler));
  *flag = 0;
}

void QlgConsoleHandler_write(QlgObject* handler, QlgEvent* event, FILE* stream) {
  if (!handler || !event || !stream || !handler->logging) return;
  unsigned char* flag = headFlag(handler);
  if (!flag) return;
  if (!*flag) {
    /* The head always goes to standard output, also for the stderr
       handler: intended, and kept. */
    writeAndFree(stdout, QlgHandler_getHead(handler));
    *flag = 1;
  }
  writeAndFree(stream, QlgHandler_format(handler, event));
  /* Chained listeners see the event whether or not any text came out. */
  QlgObject_forwardToListeners(handler, event);
}

}  // extern "C"
