// SPDX-License-Identifier: Apache-2.0
/*
 * QlgProps: the property set of objects, configurations and events.  It is
 * a QlgStringToStringMap: every value is kept as text, typed getters parse
 * it afresh on each read with the scanf rules, and typed setters render
 * through the parameter printer so that a stored number reads exactly as it
 * would print in a message.
 */
#include <ardel/QlgProps.h>

#include <ardel/QlgMem.h>
#include <ardel/QlgParm.h>
#include <cinttypes>
#include <cstdio>

#include "msg/QlgParmList.h"
#include "util/CxChars.h"
#include "util/QlgStringToStringMap.h"
#include "util/CxHot.h"

namespace {

inline void setFound(int* found, int v) {
  if (found) *found = v;
}

/* The stored text of key, or null: a null set reads as an empty one. */
inline const char* valueOf(const QlgProps* props, const char* key) {
  return QlgStringToStringMap_peek(props, key);
}

int storeParm(QlgProps* props, const char* key, const QlgParm& parm) {
  if (!props || !key) return 0;
  char* text = QlgParm_toString(&parm);
  if (!text) return 0;
  int ok = QlgStringToStringMap_put(props, key, text);
  QlgMem_free(text);
  return ok;
}

}  // namespace

extern "C" {

QlgProps* QlgProps_create(void) { return QlgStringToStringMap_create(); }
CX_HOT void QlgProps_destroy(QlgProps* props) { QlgStringToStringMap_destroy(props); }

char* QlgProps_getString(const QlgProps* props, const char* key, int* found) {
  char* copy = QlgMem_strdup(valueOf(props, key));
  setFound(found, copy != nullptr);
  return copy;
}

int QlgProps_getBool(const QlgProps* props, const char* key, int* found) {
  const char* v = valueOf(props, key);
  if (v && CxChars_compareNoCase(v, "true") == 0) {
    setFound(found, 1);
    return 1;
  }
  setFound(found, v && CxChars_compareNoCase(v, "false") == 0);
  return 0;
}

/* The scanf "%d" reading, except that a number beyond the type's range
   cannot be read (found 0) instead of wrapping around. */
int32_t QlgProps_getInt(const QlgProps* props, const char* key, int* found) {
  int64_t n = 0;
  int ok = CxChars_scanInteger(valueOf(props, key), INT32_MIN, INT32_MAX, &n);
  setFound(found, ok);
  return ok ? static_cast<int32_t>(n) : 0;
}

int64_t QlgProps_getInt64(const QlgProps* props, const char* key, int* found) {
  int64_t n = 0;
  int ok = CxChars_scanInteger(valueOf(props, key), INT64_MIN, INT64_MAX, &n);
  setFound(found, ok);
  return ok ? n : 0;
}

double QlgProps_getDouble(const QlgProps* props, const char* key, int* found) {
  const char* v = valueOf(props, key);
  double d = 0.0;
  int ok = v && std::sscanf(v, "%lf", &d) == 1;
  setFound(found, ok);
  return ok ? d : 0.0;
}

int QlgProps_setString(QlgProps* props, const char* key, const char* value) {
  if (!props || !key || !value) return 0;
  return QlgStringToStringMap_put(props, key, value);
}

int QlgProps_setBool(QlgProps* props, const char* key, unsigned char value) {
  return QlgProps_setString(props, key, value == 1 ? "true" : "false");
}

int QlgProps_setInt(QlgProps* props, const char* key, int value) {
  return storeParm(props, key, QlgParm_ofInt(value));
}

int QlgProps_setLong(QlgProps* props, const char* key, long value) {
  return storeParm(props, key, QlgParm_ofLong(value));
}

int QlgProps_setFloat(QlgProps* props, const char* key, float value) {
  return storeParm(props, key, QlgParm_ofFloat(value));
}

int QlgProps_setDouble(QlgProps* props, const char* key, double value) {
  return storeParm(props, key, QlgParm_ofDouble(value));
}

int QlgProps_setUChar(QlgProps* props, const char* key, unsigned char value) {
  return storeParm(props, key, QlgParm_ofUChar(value));
}

}  // extern "C"
