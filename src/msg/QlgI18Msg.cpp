// SPDX-License-Identifier: Apache-2.0
/*
 * QlgI18Msg: translatable messages.  A message names its text by catalog,
 * set and key and carries the English default text and typed parameters.
 * Rendering never fails because of the catalog: a missing catalog, a
 * missing message or a text that cannot be formatted all end in the default
 * text.  QlgI18Msg_print is the one place where toolkit text meets the
 * console, so the console codeset conversion lives here too: a character
 * the console cannot show becomes "?", and text is cut at the last whole
 * character that fits the work area.
 */
#include <ardel/QlgI18Msg.h>

#include <string.h>

#include <ardel/QlgMem.h>
#include "msg/QlgI18MsgCatalog.h"
#include "msg/QlgParmList.h"
#include "msg/QlgPrintf.h"
#include "nls/QlgCatalog.h"
#include "nls/QlgCodeset.h"
#include "nls/QlgNls.h"

namespace {

/* Size of the work area through which console output passes; longer text
   is cut there. */
const int kPrintArea = 4095;

/* Converters opened at start-up: UTF-8 decodes catalog texts, the console
   converter encodes what goes to standard output and standard error.  The
   two spare slots belong to codeset-aware time formatting and are only
   closed here.  Read-only after start-up. */
QlgCodeset* s_utf8 = nullptr;
QlgCodeset* s_console = nullptr;
QlgCodeset* s_spare[2] = {nullptr, nullptr};

/* The console speaks the codeset of the user's locale ("DOS" names it). */
QlgCodeset* openConsoleConverter(void) {
  QlgCodeset* cs = QlgCodeset_open("DOS");
  return cs ? cs : QlgCodeset_open("UTF8");
}

void closeSlot(QlgCodeset** slot) {
  if (*slot) QlgCodeset_close(*slot);
  *slot = nullptr;
}

void addParm(QlgI18Msg* msg, const QlgParm& parm) { QlgI18Msg_addParm(msg, &parm); }

/* Copies text into area (kPrintArea bytes plus terminator), cut at the area. */
void copyToArea(const char* text, char* area) {
  size_t n = strlen(text);
  if (n > static_cast<size_t>(kPrintArea)) n = kPrintArea;
  memcpy(area, text, n);
  area[n] = '\0';
}

}  // namespace

extern "C" {

QlgI18Msg* QlgI18Msg_create(const char* catalog, uint32_t set, uint32_t key, const char* defaultText) {
  QlgI18Msg* msg = static_cast<QlgI18Msg*>(QlgMem_alloc(sizeof(QlgI18Msg)));
  if (!msg) return nullptr;
  memset(msg, 0, sizeof *msg);
  msg->set = set;
  msg->key = key;
  msg->catalog = QlgMem_strdup(catalog);
  msg->defaultText = QlgMem_strdup(defaultText);
  if ((catalog && !msg->catalog) || (defaultText && !msg->defaultText)) {
    QlgI18Msg_free(msg);
    return nullptr;
  }
  return msg;
}

void QlgI18Msg_free(QlgI18Msg* msg) {
  if (!msg) return;
  QlgMem_free(msg->catalog);
  QlgMem_free(msg->defaultText);
  QlgParmList_free(msg->parms);
  QlgMem_free(msg);
}

QlgI18Msg* QlgI18Msg_copy(const QlgI18Msg* msg) {
  if (!msg) return nullptr;
  QlgI18Msg* copy = QlgI18Msg_create(msg->catalog, msg->set, msg->key, msg->defaultText);
  if (!copy) return nullptr;
  if (msg->parms) {
    copy->parms = QlgParmList_copy(msg->parms);
    if (!copy->parms) {
      QlgI18Msg_free(copy);
      return nullptr;
    }
  }
  copy->catalogContext = msg->catalogContext; /* shared, never owned */
  copy->locale = msg->locale;
  return copy;
}

void QlgI18Msg_setSet(QlgI18Msg* msg, uint32_t set) {
  if (msg) msg->set = set;
}

void QlgI18Msg_setKey(QlgI18Msg* msg, uint32_t key) {
  if (msg) msg->key = key;
}

void QlgI18Msg_setDefaultText(QlgI18Msg* msg, const char* text) {
  if (!msg) return;
  QlgMem_free(msg->defaultText);
  msg->defaultText = QlgMem_strdup(text);
}

void QlgI18Msg_setCatalog(QlgI18Msg* msg, const char* catalog) {
  if (!msg) return;
  QlgMem_free(msg->catalog);
  msg->catalog = QlgMem_strdup(catalog);
}

void QlgI18Msg_setLocale(QlgI18Msg* msg, const struct QlgLocale* locale) {
  if (msg) msg->locale = locale;
}

void QlgI18Msg_addChar(QlgI18Msg* msg, char v) { addParm(msg, QlgParm_ofChar(v)); }

void QlgI18Msg_addInt(QlgI18Msg* msg, int v) { addParm(msg, QlgParm_ofInt(v)); }

void QlgI18Msg_addLong(QlgI18Msg* msg, long v) { addParm(msg, QlgParm_ofLong(v)); }

void QlgI18Msg_addFloat(QlgI18Msg* msg, float v) { addParm(msg, QlgParm_ofFloat(v)); }

void QlgI18Msg_addDouble(QlgI18Msg* msg, double v) { addParm(msg, QlgParm_ofDouble(v)); }

void QlgI18Msg_addUChar(QlgI18Msg* msg, unsigned char v) { addParm(msg, QlgParm_ofUChar(v)); }

void QlgI18Msg_addString(QlgI18Msg* msg, const char* v) { addParm(msg, QlgParm_ofString(v)); }

void QlgI18Msg_addParm(QlgI18Msg* msg, const QlgParm* parm) {
  if (!msg || !parm) return;
  if (!msg->parms) msg->parms = QlgParmList_create();
  QlgParmList_add(msg->parms, parm);
}

char* QlgI18Msg_render(const QlgI18Msg* msg) {
  if (!msg) return nullptr;
  /* Catalog texts are wanted as UTF-8, also before start-up. */
  char* translated = msg->catalog ? QlgI18Msg_catalogText(msg, s_utf8 ? s_utf8 : QlgCodeset_utf8()) : nullptr;
  const char* text = translated ? translated : msg->defaultText;
  char* out = text ? QlgPrintf_formatParms(text, msg->parms) : nullptr;
  QlgMem_free(translated);
  /* A rejected format or a missing parameter shows the unformatted default. */
  if (!out) out = QlgMem_strdup(msg->defaultText);
  return out;
}

void QlgI18Msg_print(FILE* stream, const char* text) {
  if (!stream || !text) return;
  char area[kPrintArea + 1];
  bool console = stream == stdout || stream == stderr;
  /* UTF-8 to UTF-8 is a plain copy: skip the per-character walk. */
  const char* consoleName = s_console ? QlgCodeset_name(s_console) : nullptr;
  if (console && consoleName && strcmp(consoleName, "UTF8") != 0)
    QlgCodeset_convert(s_console, text, -1, area, kPrintArea + 1);
  else
    copyToArea(text, area);
  fputs(area, stream);
}

void QlgI18Msg_startup(void) {
  QlgNls_startup();
  if (!s_utf8) s_utf8 = QlgCodeset_open("UTF8");
  if (!s_console) s_console = openConsoleConverter();
}

void QlgI18Msg_shutdown(void) {
  closeSlot(&s_utf8);
  closeSlot(&s_console);
  closeSlot(&s_spare[0]);
  closeSlot(&s_spare[1]);
  QlgCatalog_shutdown();
  QlgNls_shutdown();
}

}  // extern "C"
