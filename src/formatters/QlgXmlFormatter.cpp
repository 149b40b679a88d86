// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_xmlformatter.  A record is built in the thread's record buffer from
 * one walk over the event's properties: the walk picks out the identity,
 * source and correlation values and tells whether free attributes follow,
 * so no property is looked up by name while a record is written.
 *
 * Texts go into the record as they stand wherever they cannot break it.
 * Message texts and parameters are CDATA; a "]]>" inside splits the section
 * and a carriage return is written as a character reference between
 * sections, so a parser reads back exactly what was logged.  Other values
 * (attributes, keys, identity) are escaped only where a character would
 * break the record; a reference that is already well formed (a front end
 * may escape a method name itself) is kept.  Characters XML cannot carry at
 * all become visible stand-ins: a control character its control picture
 * (U+2400 + code), a byte that is no UTF-8 the replacement character.
 */
#include "formatters/QlgXmlFormatter.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <ardel/QlgLevel.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>
#include "formatters/QlgBasicFormatter.h"
#include "formatters/QlgRecordBuffer.h"
#include "msg/CxZMSID.h"
#include "msg/QlgMsgTable.h"
#include "msg/QlgParmList.h"
#include "util/QlgStringToStringMap.h"

namespace {

// --- XML text ------------------------------------------------------------

/* Bytes of the well-formed UTF-8 sequence at p, 0 when it is malformed;
   *excluded tells whether it names a character XML does not admit. */
int utf8SequenceLength(const unsigned char* p, bool* excluded) {
  *excluded = false;
  unsigned char c = p[0];
  auto cont = [](unsigned char b) { return (b & 0xC0) == 0x80; };
  if (c < 0x80) return 1;
  if (c >= 0xC2 && c <= 0xDF) return cont(p[1]) ? 2 : 0;
  if (c >= 0xE0 && c <= 0xEF) {
    unsigned char lo = c == 0xE0 ? 0xA0 : 0x80;
    unsigned char hi = c == 0xED ? 0x9F : 0xBF; /* no surrogates */
    if (p[1] < lo || p[1] > hi || !cont(p[2])) return 0;
    /* U+FFFE and U+FFFF are no XML characters. */
    *excluded = c == 0xEF && p[1] == 0xBF && (p[2] == 0xBE || p[2] == 0xBF);
    return 3;
  }
  if (c >= 0xF0 && c <= 0xF4) {
    unsigned char lo = c == 0xF0 ? 0x90 : 0x80;
    unsigned char hi = c == 0xF4 ? 0x8F : 0xBF;
    if (p[1] < lo || p[1] > hi || !cont(p[2]) || !cont(p[3])) return 0;
    return 4;
  }
  return 0;
}

bool isXmlChar(uint32_t c) {
  return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
         (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

/* Length of the well-formed entity or character reference at p (which
   points at "&"), 0 when there is none. */
size_t referenceLength(const char* p) {
  static const char* const kNames[] = {"&lt;", "&gt;", "&amp;", "&quot;", "&apos;"};
  for (const char* name : kNames)
    if (strncmp(p, name, strlen(name)) == 0) return strlen(name);
  if (p[1] != '#') return 0;
  bool hex = p[2] == 'x';
  const char* q = p + (hex ? 3 : 2);
  uint32_t value = 0;
  int digits = 0;
  for (; digits < 8; ++q, ++digits) {
    char c = *q;
    int d = c >= '0' && c <= '9' ? c - '0'
            : hex && c >= 'a' && c <= 'f' ? c - 'a' + 10
            : hex && c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
    if (d < 0) break;
    value = value * (hex ? 16 : 10) + static_cast<uint32_t>(d);
  }
  if (digits == 0 || *q != ';' || !isXmlChar(value)) return 0;
  return static_cast<size_t>(q + 1 - p);
}

/* Writes text either as CDATA sections or as escaped character data
   (attribute values additionally keep their tabs and line ends). */
class XmlWriter {
 public:
  enum Mode { kCData, kContent, kAttribute };
  XmlWriter(CxStringBuff* b, Mode mode) : b_(b), mode_(mode) {}

  bool write(const char* text) {
    const char* p = text ? text : "";
    run_ = p;
    while (ok_ && *p) {
      unsigned char c = static_cast<unsigned char>(*p);
      if (c >= 0x20 && c < 0x80) {
        p = plainAscii(p);
      } else if (c == '\t' || c == '\n') {
        if (mode_ == kAttribute) replace(p, 1, c == '\t' ? "&#9;" : "&#10;", false);
        ++p;
      } else if (c == '\r') {
        replace(p, 1, "&#13;", false); /* outside any CDATA section */
        ++p;
      } else if (c < 0x20) {
        char picture[4] = {'\xE2', '\x90', static_cast<char>(0x80 + c), '\0'};
        replace(p, 1, picture, true);
        ++p;
      } else {
        bool excluded = false;
        int n = utf8SequenceLength(reinterpret_cast<const unsigned char*>(p), &excluded);
        if (n == 0) n = 1, excluded = true;
        if (excluded) replace(p, n, "\xEF\xBF\xBD", true);
        p += n;
      }
    }
    flush(p);
    if (mode_ == kCData) {
      if (!wrote_) put("<![CDATA[", 9), open_ = true;
      if (open_) put("]]>", 3);
    }
    return ok_;
  }

 private:
  /* Advances over one printable ASCII character, handling the few that
     need care in this mode. */
  const char* plainAscii(const char* p) {
    char c = *p;
    if (mode_ == kCData) {
      if (c == ']' && p[1] == ']' && p[2] == '>') {
        flush(p + 2);               /* "]]" stays in this section ... */
        put("]]>", 3);              /* ... which ends before the ">" */
        open_ = false;
        run_ = p + 2;
        return p + 3;
      }
      return p + 1;
    }
    switch (c) {
      case '<': replace(p, 1, "&lt;", false); return p + 1;
      case '>': replace(p, 1, "&gt;", false); return p + 1;
      case '"': replace(p, 1, "&quot;", false); return p + 1;
      case '&': {
        size_t n = referenceLength(p);
        if (n) return p + n;
        replace(p, 1, "&amp;", false);
        return p + 1;
      }
      default: return p + 1;
    }
  }

  void put(const char* s, int n) {
    if (ok_ && !QlgRecord_put(b_, s, static_cast<size_t>(n))) ok_ = false;
    wrote_ = true;
  }
  void openSection() {
    if (mode_ == kCData && !open_) {
      put("<![CDATA[", 9);
      open_ = true;
    }
  }
  /* Writes the pending run of plain text up to end. */
  void flush(const char* end) {
    if (end > run_) {
      openSection();
      put(run_, static_cast<int>(end - run_));
    }
    run_ = end;
  }
  /* Writes the pending run, then with for the n bytes at p: inside a CDATA
     section when inSection, else between sections (or escaped text). */
  void replace(const char* p, int n, const char* with, bool inSection) {
    flush(p);
    if (mode_ == kCData) {
      if (inSection) {
        openSection();
      } else if (open_) {
        put("]]>", 3);
        open_ = false;
      }
    }
    put(with, static_cast<int>(strlen(with)));
    run_ = p + n;
  }

  CxStringBuff* b_;
  Mode mode_;
  const char* run_ = nullptr;
  bool open_ = false;
  bool wrote_ = false;
  bool ok_ = true;
};

bool appendCData(CxStringBuff* b, const char* text) { return XmlWriter(b, XmlWriter::kCData).write(text); }
bool appendContent(CxStringBuff* b, const char* text) { return XmlWriter(b, XmlWriter::kContent).write(text); }
bool appendAttribute(CxStringBuff* b, const char* text) { return XmlWriter(b, XmlWriter::kAttribute).write(text); }

// --- the event's properties ------------------------------------------------

/* The reserved properties: they have elements of their own and never
   appear among the free attributes. */
enum Field {
  kServer, kServerFormat, kProduct, kComponent, kProductInstance, kSrcFile, kSrcFunction,
  kSrcLine, kThreadId, kProcessId, kCorrelationId, kClient, kFieldCount
};

int reservedField(const char* key) {
  struct Name { const char* text; Field field; };
  static const Name kNames[] = {
      {"server", kServer},           {"serverFormat", kServerFormat},
      {"product", kProduct},         {"component", kComponent},
      {"productInstance", kProductInstance}, {QLG_PROP_SRCFILE, kSrcFile},
      {QLG_PROP_SRCFUNCTION, kSrcFunction},  {QLG_PROP_SRCLINE, kSrcLine},
      {"threadId", kThreadId},       {"processId", kProcessId},
      {"correlationId", kCorrelationId}, {"client", kClient},
  };
  /* The first letter rules out almost every other key at once. */
  char first = key[0];
  if (first != 's' && first != 'p' && first != 'c' && first != 'q' && first != 't') return -1;
  for (const Name& n : kNames)
    if (n.text[0] == first && strcmp(n.text, key) == 0) return n.field;
  return -1;
}

struct EventFields {
  const char* value[kFieldCount];
  bool hasFree;
  char lineText[16];  /* a trace call's line, which the event holds as a number */
};

void collectFields(const QlgEvent* event, EventFields* f) {
  memset(f, 0, sizeof *f);
  for (const QlgStringToStringMapEntry* e = event ? QlgStringToStringMap_first(event->props) : nullptr;
       e; e = e->next) {
    int field = reservedField(e->key);
    if (field < 0)
      f->hasFree = true;
    else
      f->value[field] = e->value ? e->value : "";
  }
  /* A trace call's source location is kept beside the property set. */
  if (event && (event->srcFlags & QLG_EVENT_SRC_FILE)) {
    f->value[kSrcFile] = event->srcFile ? event->srcFile : "";
    snprintf(f->lineText, sizeof f->lineText, "%d", static_cast<int>(event->srcLine));
    f->value[kSrcLine] = f->lineText;
  }
  if (event && (event->srcFlags & QLG_EVENT_SRC_FUNCTION))
    f->value[kSrcFunction] = event->srcFunction ? event->srcFunction : "";
}

/* "%I64d" of a property text: leading blanks, a sign, digits. */
bool parseInt64(const char* text, int64_t* out) {
  const char* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
  bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  if (*p < '0' || *p > '9') return false;
  uint64_t v = 0;
  for (; *p >= '0' && *p <= '9'; ++p) v = v * 10 + static_cast<uint64_t>(*p - '0');
  *out = negative ? static_cast<int64_t>(0 - v) : static_cast<int64_t>(v);
  return true;
}

int64_t numberOf(const char* text) {
  int64_t v = 0;
  return parseInt64(text, &v) ? v : 0;
}

// --- record parts -----------------------------------------------------------


/* An identity element "<open>value</close>" when the event has the value. */
bool appendElement(CxStringBuff* b, const char* open, const char* value, const char* close) {
  if (!value) return true;
  return QlgRecord_putText(b, open) && appendContent(b, value) && QlgRecord_putText(b, close);
}

bool appendIdentityOf(CxStringBuff* b, const EventFields& f, bool component, bool product,
                      bool productInstance, bool server) {
  bool ok = true;
  if (server && f.value[kServer]) {
    ok = QlgRecord_put(b, " <Server Format=\"") &&
         (!f.value[kServerFormat] || appendAttribute(b, f.value[kServerFormat])) && QlgRecord_put(b, "\">") &&
         appendContent(b, f.value[kServer]) && QlgRecord_put(b, "</Server>\n");
  }
  if (ok && product) ok = appendElement(b, " <ProductId>", f.value[kProduct], "</ProductId>\n");
  if (ok && component) ok = appendElement(b, " <Component>", f.value[kComponent], "</Component>\n");
  if (ok && productInstance)
    ok = appendElement(b, " <ProductInstance>", f.value[kProductInstance], "</ProductInstance>\n");
  return ok;
}

bool appendSourceOf(CxStringBuff* b, const EventFields& f, bool* written) {
  *written = f.value[kSrcFile] != nullptr;
  if (!*written) return true;
  bool ok = QlgRecord_put(b, " <Source FileName=\"") && appendAttribute(b, f.value[kSrcFile]);
  if (ok && f.value[kSrcFunction]) ok = QlgRecord_put(b, "\" Method=\"") && appendAttribute(b, f.value[kSrcFunction]);
  /* A line of 0 is written as no digits at all: intended. */
  if (ok && f.value[kSrcLine])
    ok = QlgRecord_put(b, "\" Line=\"") && CxStringBuff_appendInt64(b, numberOf(f.value[kSrcLine]));
  return ok && QlgRecord_put(b, "\"/>\n");
}

bool appendFreeAttributes(CxStringBuff* b, const QlgEvent* event) {
  bool any = false;
  bool ok = true;
  for (const QlgStringToStringMapEntry* e = QlgStringToStringMap_first(event->props); ok && e; e = e->next) {
    if (reservedField(e->key) >= 0) continue;
    if (!any) ok = QlgRecord_put(b, " <LogAttribs>");
    any = true;
    ok = ok && QlgRecord_put(b, "<Key>") && appendContent(b, e->key) && QlgRecord_put(b, "</Key><Value>") &&
         appendContent(b, e->value) && QlgRecord_put(b, "</Value>");
  }
  return ok && (!any || QlgRecord_put(b, "</LogAttribs>\n"));
}

bool appendTranslationInfo(CxStringBuff* b, const QlgI18Msg* msg) {
  if (!msg) return true;
  bool ok = QlgRecord_put(b, " <TranslationInfo Type=\"XPG4\" Catalog=\"") && appendAttribute(b, msg->catalog) &&
            QlgRecord_put(b, "\" MsgKey=\"") && CxStringBuff_appendUInt64(b, msg->key) &&
            QlgRecord_put(b, "\" SetId=\"") && CxStringBuff_appendUInt64(b, msg->set) && QlgRecord_put(b, "\">");
  int count = QlgParmList_count(msg->parms);
  for (int i = 0; ok && i < count; ++i) {
    const QlgParm* parm = QlgParmList_get(msg->parms, i);
    ok = QlgRecord_put(b, "<Param>");
    if (parm->kind == QLG_PARM_STRING) {
      ok = ok && appendCData(b, parm->value.s);
    } else {
      char* text = QlgParm_toString(parm);
      ok = ok && text && appendCData(b, text);
      QlgMem_free(text);
    }
    ok = ok && QlgRecord_put(b, "</Param>");
  }
  return ok && QlgRecord_put(b, "</TranslationInfo>\n");
}

bool appendTime(CxStringBuff* b, const QlgObject* formatter, int64_t ms) {
  bool ok = QlgRecord_put(b, " <Time Millis=\"") && CxStringBuff_appendInt64(b, ms) && QlgRecord_put(b, "\">");
  char* stamp = QlgBasicFormatter_timeStamp(formatter, ms);
  if (!stamp) {
    QlgMisc_report(6000, 20, QlgMsgTable_text(20), 0);
  } else {
    ok = ok && appendContent(b, stamp);
    QlgMem_free(stamp);
  }
  return ok && QlgRecord_put(b, "</Time>\n");
}

/* The record proper, after the preamble. */
bool appendRecord(CxStringBuff* b, QlgObject* formatter, const QlgXmlFormatterData* flags,
                  QlgEvent* event, const EventFields& f) {
  bool message = flags->forceAsMessage;
  if (flags->forceAsMessage == flags->forceAsTrace) message = QlgEvent_isMessage(event) != 0;
  int32_t level = QlgEvent_getLevel(event);
  if (formatter->field3.locale) QlgEvent_setLocale(event, formatter->field3.locale);
  /* The standard rendering, not the class's formatMessage slot. */
  char* text = QlgEvent_render(event, nullptr);

  bool ok;
  if (message) {
    char parsed[11];
    const char* id = event->messageId && *event->messageId
                         ? event->messageId
                         : QlgXmlFormatter_idOfText(text, parsed);
    ok = QlgRecord_put(b, "<Message Id=\"") && appendAttribute(b, *id ? id : "None");
    if (ok && level != QLG_LEVEL_NONE) ok = QlgRecord_put(b, "\" Severity=\"") && QlgXmlFormatter_appendLevel(b, level);
    ok = ok && QlgRecord_put(b, "\">\n");
  } else if (level != QLG_LEVEL_NONE) {
    ok = QlgRecord_put(b, "<Trace Level=\"") && QlgXmlFormatter_appendLevel(b, level) && QlgRecord_put(b, "\">\n");
  } else {
    ok = QlgRecord_put(b, "<Trace>\n");
  }
  ok = ok && appendTime(b, formatter, QlgEvent_getTime(event)) &&
       appendIdentityOf(b, f, !flags->singleComponent, !flags->singleProduct,
                        !flags->singleProductId, !flags->singleServer) &&
       QlgRecord_put(b, " <LogText>") && appendCData(b, text) && QlgRecord_put(b, "</LogText>\n");
  QlgMem_free(text);
  if (ok && f.hasFree) ok = appendFreeAttributes(b, event);

  bool source = false;
  if (ok && message) {
    ok = appendSourceOf(b, f, &source) && appendTranslationInfo(b, event->message);
  } else if (ok) {
    ok = appendSourceOf(b, f, &source) &&
         (source || QlgRecord_put(b, " <Source FileName=\"None\" Method=\"None\"/>\n"));
    /* Thread numbers are unsigned, as the system hands them out. */
    if (ok && f.value[kThreadId])
      ok = QlgRecord_put(b, " <Thread>") &&
           CxStringBuff_appendUInt64(b, static_cast<uint32_t>(numberOf(f.value[kThreadId]))) &&
           QlgRecord_put(b, "</Thread>\n");
    if (ok && f.value[kProcessId])
      ok = QlgRecord_put(b, " <Process>") && CxStringBuff_appendInt64(b, numberOf(f.value[kProcessId])) &&
           QlgRecord_put(b, "</Process>\n");
  }
  ok = ok && appendElement(b, " <CorrelationId>", f.value[kCorrelationId], "</CorrelationId>\n") &&
       appendElement(b, " <Principal>", f.value[kClient], "</Principal>\n");
  return ok && (message ? QlgRecord_put(b, "</Message>\n") : QlgRecord_put(b, "</Trace>\n"));
}

QlgXmlFormatterData* dataOf(const QlgObject* formatter) {
  return formatter ? static_cast<QlgXmlFormatterData*>(formatter->data) : nullptr;
}

}  // namespace

extern "C" {

void* QlgXmlFormatter_create(void) {
  QlgXmlFormatterData* d = static_cast<QlgXmlFormatterData*>(QlgMem_alloc(sizeof(QlgXmlFormatterData)));
  if (!d) return nullptr;
  memset(d, 0, sizeof *d);
  d->first = 1;
  return d;
}

void QlgXmlFormatter_propertyChanged(QlgObject* formatter, const char* key) {
  if (!formatter || !key) return;
  struct Flag { const char* name; size_t offset; };
  static const Flag kFlags[] = {
      {"singleComponent", offsetof(QlgXmlFormatterData, singleComponent)},
      {"singleProduct", offsetof(QlgXmlFormatterData, singleProduct)},
      {"singleProductId", offsetof(QlgXmlFormatterData, singleProductId)},
      {"singleServer", offsetof(QlgXmlFormatterData, singleServer)},
      {"forceAsMessage", offsetof(QlgXmlFormatterData, forceAsMessage)},
      {"forceAsTrace", offsetof(QlgXmlFormatterData, forceAsTrace)},
  };
  for (const Flag& flag : kFlags) {
    if (strcmp(key, flag.name) != 0) continue;
    QlgXmlFormatterData* d = dataOf(formatter);
    if (d)
      reinterpret_cast<unsigned char*>(d)[flag.offset] =
          QlgObject_getBool(formatter, key, nullptr) ? 1 : 0;
    return;
  }
  QlgBasicFormatter_propertyChanged(formatter, key);
}

char* QlgXmlFormatter_getHead(QlgObject* formatter) {
  QlgXmlFormatterData* d = dataOf(formatter);
  if (d) d->first = 1;
  return nullptr;
}

char* QlgXmlFormatter_format(QlgObject* formatter, QlgEvent* event) {
  QlgXmlFormatterData* d = dataOf(formatter);
  if (!d || !event || !formatter->cls || formatter->cls->kind != QLG_KIND_FORMATTER) return nullptr;
  EventFields fields;
  collectFields(event, &fields);
  QlgRecordBuffer record;
  CxStringBuff* b = record.get();
  bool preamble = d->first;
  bool ok = !preamble || appendIdentityOf(b, fields, d->singleComponent, d->singleProduct,
                                          d->singleProductId, d->singleServer);
  char* text = ok && appendRecord(b, formatter, d, event, fields) ? record.copy() : nullptr;
  /* A record lost for want of memory takes the preamble with it: the next
     record written carries it instead. */
  if (text && preamble) d->first = 0;
  return text;
}

int QlgXmlFormatter_appendIdentity(CxStringBuff* text, const QlgEvent* event, int component,
                                   int product, int productInstance, int server) {
  if (!text) return 0;
  EventFields f;
  collectFields(event, &f);
  return appendIdentityOf(text, f, component, product, productInstance, server);
}

const char* QlgXmlFormatter_levelName(int32_t level) {
  switch (level) {
    case QLG_LEVEL_DEBUG_MAX: return "MAX";
    case QLG_LEVEL_DEBUG_MID: return "MID";
    case QLG_LEVEL_DEBUG_MIN: return "MIN";
    case QLG_LEVEL_INFO: return "INFO";
    case QLG_LEVEL_WARN: return "WARN";
    case QLG_LEVEL_ERROR:
    case QLG_LEVEL_FATAL: return "ERROR";
    default: return "OTHER";
  }
}

int QlgXmlFormatter_appendLevel(CxStringBuff* text, int32_t level) {
  return QlgRecord_putText(text, QlgXmlFormatter_levelName(level));
}

int QlgXmlFormatter_appendSource(CxStringBuff* text, const QlgEvent* event) {
  if (!text) return 0;
  EventFields f;
  collectFields(event, &f);
  bool written = false;
  return appendSourceOf(text, f, &written) && written;
}

char* QlgXmlFormatter_idOfText(const char* text, char* id) {
  CxZMSID parsed;
  CxZMSID_parse(&parsed, text);
  /* A ten-character ID fills idText without a terminator. */
  memcpy(id, parsed.idText, static_cast<size_t>(parsed.length));
  id[parsed.length] = '\0';
  return id;
}

void QlgXmlFormatter_cacheMessageId(QlgObject* formatter, QlgEvent* event) {
  if (!event || event->messageId) return;
  QlgFormatMessageFn render = formatter && formatter->cls && formatter->cls->kind == QLG_KIND_FORMATTER
                                  ? formatter->cls->slots.formatter.formatMessage
                                  : nullptr;
  char* text = QlgEvent_render(event, render);
  char id[11];
  QlgEvent_setMessageId(event, QlgXmlFormatter_idOfText(text, id));
  QlgMem_free(text);
}

}  // extern "C"
