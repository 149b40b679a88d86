// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_ffdc_trigger_handler: first-failure data capture.  The handler reacts
 * only to events that its trigger filter accepts, at most once per repeat
 * interval; for each such event it supplies one dated directory under its
 * base directory and decides, before anything is written, whether the space
 * an action needs still fits in the disk quota of the whole tree.  The
 * file-copy handler (QlgFileCopyHandler) builds on it and does the copying.
 *
 * Everything the handler deletes or creates stays inside the base
 * directory: the tree is walked without following symbolic links, so a
 * link planted in it never leads a quota deletion or a capture elsewhere.
 */
#ifndef ARDEL_QLGFFDCTRIGGERHANDLER_H
#define ARDEL_QLGFFDCTRIGGERHANDLER_H

#include <stdint.h>
#include <ardel/export.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>

ARDEL_BEGIN_C

/* The event property that carries an event's FFDC directory, so that every
   action for one event shares it. */
#define QLG_PROP_FFDCDIR "ffdcDir"

struct QlgFileCopyData;

typedef struct QlgFFDCTriggerData {
  int32_t started;             /* 1 after a start */
  char* baseDir;               /* root of the FFDC tree, "/" separated; null when unset */
  int64_t maxDiskSpace;        /* quota of the whole tree in bytes */
  char* triggerFilterName;
  QlgObject* triggerFilter;    /* resolved at start; one reference held */
  int64_t triggerRepeatTime;   /* milliseconds */
  int64_t lastTrigger;         /* event time of the last trigger; 0: none yet */
  char* quotaPolicy;           /* "QUOTA_IGNORE", "QUOTA_AUTODELETE" or "QUOTA_SUSPEND" */
  double firstWarning;         /* fractions of maxDiskSpace */
  double secondWarning;
  struct QlgFileCopyData* fileCopy; /* null for a plain trigger handler */
  unsigned char warnOnDiskSpace;
} QlgFFDCTriggerData;

void* QlgFFDCTrigger_create(void);
void QlgFFDCTrigger_destroy(void* data);
/* The keys of the trigger handler; any other goes to the handler base. */
void QlgFFDCTrigger_propertyChanged(QlgObject* handler, const char* key);
/* open and close slots of both FFDC classes: start and stop. */
void QlgFFDCTrigger_open(QlgObject* handler);
void QlgFFDCTrigger_close(QlgObject* handler);

/* The handler's record, or null when obj is not an FFDC handler. */
QlgFFDCTriggerData* QlgFFDCTrigger_data(const QlgObject* obj);
/* Resolves the filter and creates the base directory (once). */
void QlgFFDCTrigger_start(QlgObject* handler);
/* 1 when the event starts an FFDC action: the filter accepts it and the
   last trigger lies more than the repeat time before it. */
int QlgFFDCTrigger_isTriggered(QlgObject* handler, QlgEvent* event);
/* The event's FFDC directory "<baseDir>/<yyyy.mm.dd>/", created and kept in
   the event; a new string owned by the caller, null when the directory
   cannot be had. */
char* QlgFFDCTrigger_getFFDCDir(QlgObject* handler, QlgEvent* event);
/* 1 when an action needing neededBytes more bytes may go ahead under the
   quota policy (auto-delete may remove files of the tree first). */
int QlgFFDCTrigger_checkQuota(QlgObject* handler, int64_t neededBytes);

ARDEL_END_C

#endif
