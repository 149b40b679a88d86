// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_ffdc_filecopy_handler: a trigger handler (QlgFFDCTriggerHandler) that,
 * for each triggering event, copies a configured list of files into the
 * event's dated FFDC directory, or packs them into one zip archive there by
 * running an external zip program (never through a shell).  Every event,
 * triggering or not, then goes on to the handler's own listeners.
 *
 * Nothing is ever written outside the day's directory: targets are opened
 * inside it without following links, the archive name must be a plain file
 * name, and the zip run is bounded by zipTimeout so that a hung zip cannot
 * hold the logging thread.
 */
#ifndef ARDEL_QLGFILECOPYHANDLER_H
#define ARDEL_QLGFILECOPYHANDLER_H

#include <stdint.h>
#include <ardel/export.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>

ARDEL_BEGIN_C

/* Milliseconds a zip run may take before it is ended. */
#define QLG_ZIP_TIMEOUT_DEFAULT 60000

typedef struct QlgFileCopyData {
  char* filesToCopy;  /* names separated by single spaces */
  char* zipFileName;  /* null: copy mode */
  char* zipCmdPath;
  int32_t zipTimeout; /* milliseconds */
  int capturing;      /* a capture is under way on this handler */
} QlgFileCopyData;

/* The trigger record with its file-copy block; null when either cannot be
   allocated. */
void* QlgFileCopy_create(void);
void QlgFileCopy_destroy(void* data);
/* "filesToCopy", "zipFileName", "zipCmdPath", "zipTimeout"; other keys go
   to the trigger handler. */
void QlgFileCopy_propertyChanged(QlgObject* handler, const char* key);
void QlgFileCopy_publish(QlgObject* handler, QlgEvent* event);
/* 1 when every character of path may appear in a zip command path. */
int QlgFileCopy_isSafeCommand(const char* path);

ARDEL_END_C

#endif
