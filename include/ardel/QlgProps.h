/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * QlgProps: the ordered text-to-text property set of objects, configurations
 * and events.  Values are stored as text; typed getters parse on every read
 * (scanf rules: leading blanks skipped, trailing characters ignored) and
 * typed setters render through the parameter printer.
 */
#ifndef ARDEL_QLGPROPS_H
#define ARDEL_QLGPROPS_H

#include <stdint.h>
#include <ardel/export.h>

ARDEL_BEGIN_C

struct QlgStringToStringMap;
typedef struct QlgStringToStringMap QlgProps;

ARDEL_API QlgProps* QlgProps_create(void);
ARDEL_API void QlgProps_destroy(QlgProps* props);

/* Getters: found (may be null) is set to 1 when a value was found and converted. */
ARDEL_API char* QlgProps_getString(const QlgProps* props, const char* key, int* found);
ARDEL_API int QlgProps_getBool(const QlgProps* props, const char* key, int* found);
ARDEL_API int32_t QlgProps_getInt(const QlgProps* props, const char* key, int* found);
ARDEL_API int64_t QlgProps_getInt64(const QlgProps* props, const char* key, int* found);
ARDEL_API double QlgProps_getDouble(const QlgProps* props, const char* key, int* found);

/* Setters: 1 when stored; 0 on a null argument, a failed rendering or no memory. */
ARDEL_API int QlgProps_setString(QlgProps* props, const char* key, const char* value);
ARDEL_API int QlgProps_setBool(QlgProps* props, const char* key, unsigned char value);
ARDEL_API int QlgProps_setInt(QlgProps* props, const char* key, int value);
ARDEL_API int QlgProps_setLong(QlgProps* props, const char* key, long value);
ARDEL_API int QlgProps_setFloat(QlgProps* props, const char* key, float value);
ARDEL_API int QlgProps_setDouble(QlgProps* props, const char* key, double value);
ARDEL_API int QlgProps_setUChar(QlgProps* props, const char* key, unsigned char value);

ARDEL_END_C

#endif
