// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_xmlformatter: each event as one XML element, <Message> for a
 * catalogued message and <Trace> for trace text, carrying time, identity,
 * text, free attributes, source location, translation data and correlation
 * data.  Records follow one another without a declaration or a root element.
 * Identity elements that stay the same for a whole file can be written once,
 * before its first record, instead of in every record.
 *
 * The same module computes an event's message ID for the message-ID filter
 * and the problem-determination logger, which each share one formatter
 * object of this class for the purpose.
 */
#ifndef ARDEL_QLGXMLFORMATTER_H
#define ARDEL_QLGXMLFORMATTER_H

#include <stdint.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>
#include "util/CxStringBuff.h"

ARDEL_BEGIN_C

/* Instance data: seven one-byte flags. */
typedef struct QlgXmlFormatterData {
  unsigned char first;            /* next record opens a file: write the preamble */
  unsigned char singleComponent;  /* Component once per file */
  unsigned char singleProduct;    /* ProductId once per file */
  unsigned char singleProductId;  /* ProductInstance once per file */
  unsigned char singleServer;     /* Server once per file */
  unsigned char forceAsMessage;   /* every event as Message ... */
  unsigned char forceAsTrace;     /* ... or as Trace; both set act as neither */
} QlgXmlFormatterData;

/* createData slot: the flags, first set and the rest clear; null when out
   of memory. */
void* QlgXmlFormatter_create(void);
/* propertyChanged slot: the six boolean properties set their flags (a value
   that is not a boolean clears it); other keys go to the basic formatter. */
void QlgXmlFormatter_propertyChanged(QlgObject* formatter, const char* key);
/* format slot: one record ending in a line end, preceded by the file's
   identity preamble when it is the first after a head request. */
char* QlgXmlFormatter_format(QlgObject* formatter, QlgEvent* event);
/* getHead slot: writes nothing (null) but makes the next record the first
   of a file, so every newly opened file gets the preamble again. */
char* QlgXmlFormatter_getHead(QlgObject* formatter);

/* The record's parts, each appended to text; 0 when memory runs out. */
int QlgXmlFormatter_appendIdentity(CxStringBuff* text, const QlgEvent* event, int component,
                                   int product, int productInstance, int server);
int QlgXmlFormatter_appendLevel(CxStringBuff* text, int32_t level);
/* 1 when a Source element was written (the event has a source file). */
int QlgXmlFormatter_appendSource(CxStringBuff* text, const QlgEvent* event);

/* The level names of the Severity and Level attributes. */
const char* QlgXmlFormatter_levelName(int32_t level);
/* Caches the event's message ID unless it has one: the ID at the start of
   the message as rendered by the formatter's formatMessage slot, or the
   empty text when the message starts with none. */
void QlgXmlFormatter_cacheMessageId(QlgObject* formatter, QlgEvent* event);
/* Copies the ZMS message ID at the start of text into id (11 bytes);
   id is empty when text starts with none.  Returns id. */
char* QlgXmlFormatter_idOfText(const char* text, char* id);

ARDEL_END_C

#endif
