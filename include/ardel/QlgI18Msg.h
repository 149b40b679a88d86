/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * QlgI18Msg: a translatable message.  It names its text by catalog, set and
 * key, carries the English default text used when no catalog has it, and a
 * list of typed parameters filled in by the positional printf.
 */
#ifndef ARDEL_QLGI18MSG_H
#define ARDEL_QLGI18MSG_H

#include <stdint.h>
#include <stdio.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

struct QlgParmList;
struct QlgLocale;

typedef struct QlgI18Msg {
  char* catalog;                 /* owned; null: the default text is used */
  uint32_t set;
  uint32_t key;
  char* defaultText;             /* owned UTF-8 */
  struct QlgParmList* parms;     /* owned; created on the first add */
  void* catalogContext;          /* passed through to the catalog opener */
  const struct QlgLocale* locale;/* not owned: locale to render in, null for the user's */
} QlgI18Msg;

/* Name of the toolkit's own catalog. */
#define QLG_MSG_CATALOG "qlgmsg"

ARDEL_API QlgI18Msg* QlgI18Msg_create(const char* catalog, uint32_t set, uint32_t key, const char* defaultText);
ARDEL_API void QlgI18Msg_free(QlgI18Msg* msg);
ARDEL_API QlgI18Msg* QlgI18Msg_copy(const QlgI18Msg* msg);
ARDEL_API void QlgI18Msg_setSet(QlgI18Msg* msg, uint32_t set);
ARDEL_API void QlgI18Msg_setKey(QlgI18Msg* msg, uint32_t key);
ARDEL_API void QlgI18Msg_setDefaultText(QlgI18Msg* msg, const char* text);
ARDEL_API void QlgI18Msg_setCatalog(QlgI18Msg* msg, const char* catalog);
ARDEL_API void QlgI18Msg_setLocale(QlgI18Msg* msg, const struct QlgLocale* locale);
ARDEL_API void QlgI18Msg_addChar(QlgI18Msg* msg, char v);
ARDEL_API void QlgI18Msg_addInt(QlgI18Msg* msg, int v);
ARDEL_API void QlgI18Msg_addLong(QlgI18Msg* msg, long v);
ARDEL_API void QlgI18Msg_addFloat(QlgI18Msg* msg, float v);
ARDEL_API void QlgI18Msg_addDouble(QlgI18Msg* msg, double v);
ARDEL_API void QlgI18Msg_addUChar(QlgI18Msg* msg, unsigned char v);
ARDEL_API void QlgI18Msg_addString(QlgI18Msg* msg, const char* v);
/* New UTF-8 text (QlgMem_free); falls back to a copy of the default text
   when the catalog, the message or the formatting fails.  Null for null. */
ARDEL_API char* QlgI18Msg_render(const QlgI18Msg* msg);
/* Writes UTF-8 text to a stream; standard output and standard error get it
   converted to the console codeset through a 4095-byte work area. */
ARDEL_API void QlgI18Msg_print(FILE* stream, const char* text);
ARDEL_API void QlgI18Msg_startup(void);
ARDEL_API void QlgI18Msg_shutdown(void);

ARDEL_END_C

#endif
