/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The toolkit's object system.  A class is a named record of function
 * pointers of one kind (logger, filter, handler, formatter); an object is a
 * named, reference-counted instance of a class, configured from properties
 * and wired to its listeners.  The registry holds one reference of its own:
 * an object lives while anybody else holds it, and the last outside release
 * removes it from the registry.
 */
#ifndef ARDEL_QLGOBJECT_H
#define ARDEL_QLGOBJECT_H

#include <stdint.h>
#include <ardel/export.h>
#include <ardel/QlgProps.h>
#include <ardel/QlgI18Msg.h>

ARDEL_BEGIN_C

typedef enum QlgClassKind {
  QLG_KIND_LOGGER = 101,
  QLG_KIND_FILTER = 102,
  QLG_KIND_HANDLER = 103,
  QLG_KIND_FORMATTER = 104
} QlgClassKind;

struct QlgObject;
struct QlgEvent;
struct QlgListenerGroup;
struct QlgLocale;

typedef void* (*QlgCreateDataFn)(void);
typedef void (*QlgDestroyDataFn)(void* data);
typedef void (*QlgPropertyChangedFn)(struct QlgObject* obj, const char* key);
typedef void (*QlgEventFn)(struct QlgObject* obj, struct QlgEvent* event);
typedef int (*QlgIsLoggableFn)(struct QlgObject* obj, struct QlgEvent* event);
typedef void (*QlgObjectFn)(struct QlgObject* obj);
typedef char* (*QlgFormatFn)(struct QlgObject* formatter, struct QlgEvent* event);
typedef char* (*QlgHeadTailFn)(struct QlgObject* formatter);
typedef char* (*QlgFormatMessageFn)(const QlgI18Msg* msg, const struct QlgLocale* locale);

typedef struct QlgClass {
  int32_t kind; /* QlgClassKind */
  char* name;
  QlgI18Msg* description;
  union {
    struct { QlgEventFn log; } logger;
    struct { QlgEventFn receive; QlgIsLoggableFn isLoggable; QlgEventFn forward; } filter;
    struct { QlgEventFn publish; QlgObjectFn open; QlgObjectFn close; } handler;
    struct { QlgFormatFn format; QlgHeadTailFn getHead; QlgHeadTailFn getTail; QlgFormatMessageFn formatMessage; } formatter;
  } slots;
  QlgCreateDataFn createData;
  QlgDestroyDataFn destroyData;
  QlgPropertyChangedFn propertyChanged;
} QlgClass;

typedef struct QlgObject {
  QlgClass* cls;
  int32_t refCount;
  char* name;
  unsigned char logging; /* 0 silences the object */
  union {                /* logger, filter: level; handler: listeners; formatter: separator */
    int32_t level;
    struct QlgListenerGroup* listeners;
    char* text;
  } field1;
  union {                /* logger, filter: listeners; handler: formatter; formatter: date-time format */
    struct QlgListenerGroup* listeners;
    struct QlgObject* formatter;
    char* text;
  } field2;
  union {                /* handler: a 32-bit value; formatter: owned normalised locale */
    int32_t value;
    struct QlgLocale* locale;
  } field3;
  QlgProps* props;       /* own properties, null until the first is stored */
  void* data;            /* what the class's createData returned */
} QlgObject;

/* Class registration: ignored for a null name or a name already registered.
   Null slots get the documented defaults. */
ARDEL_API void QlgClass_registerLogger(const char* name, const QlgI18Msg* description,
    QlgCreateDataFn createData, QlgDestroyDataFn destroyData,
    QlgPropertyChangedFn propertyChanged, QlgEventFn log);
ARDEL_API void QlgClass_registerFilter(const char* name, const QlgI18Msg* description,
    QlgCreateDataFn createData, QlgDestroyDataFn destroyData,
    QlgPropertyChangedFn propertyChanged, QlgEventFn receive, QlgIsLoggableFn isLoggable,
    QlgEventFn forward);
ARDEL_API void QlgClass_registerHandler(const char* name, const QlgI18Msg* description,
    QlgCreateDataFn createData, QlgDestroyDataFn destroyData,
    QlgPropertyChangedFn propertyChanged, QlgEventFn publish, QlgObjectFn open,
    QlgObjectFn close);
ARDEL_API void QlgClass_registerFormatter(const char* name, const QlgI18Msg* description,
    QlgCreateDataFn createData, QlgDestroyDataFn destroyData,
    QlgPropertyChangedFn propertyChanged, QlgFormatFn format, QlgHeadTailFn getHead,
    QlgHeadTailFn getTail, QlgFormatMessageFn formatMessage);
ARDEL_API QlgClass* QlgClass_find(const char* name);
ARDEL_API void QlgClass_free(QlgClass* cls);

/* Finds the named object or creates it (class from the call or from its
   configuration), under the toolkit lock.  The caller owns one reference. */
ARDEL_API QlgObject* QlgObject_create(const char* name, const char* className);
/* The unlocked form, for code already under the toolkit lock. */
ARDEL_API QlgObject* QlgObject_findOrCreate(const char* name, const char* className);
/* Registered object with a reference added, or null. */
ARDEL_API QlgObject* QlgObject_find(const char* name);
ARDEL_API QlgObject* QlgObject_addRef(QlgObject* obj);
ARDEL_API void QlgObject_release(QlgObject* obj);
ARDEL_API void QlgObject_storeProperty(QlgObject* obj, const char* key, const char* value);
ARDEL_API int QlgObject_configure(QlgObject* obj, const char* name);
ARDEL_API char* QlgObject_getString(const QlgObject* obj, const char* key, int* found);
ARDEL_API int32_t QlgObject_getInt(const QlgObject* obj, const char* key, int* found);
ARDEL_API int64_t QlgObject_getInt64(const QlgObject* obj, const char* key, int* found);
ARDEL_API double QlgObject_getDouble(const QlgObject* obj, const char* key, int* found);
ARDEL_API int QlgObject_getBool(const QlgObject* obj, const char* key, int* found);
ARDEL_API int QlgObject_isLogging(const QlgObject* obj);
ARDEL_API void QlgObject_addListener(QlgObject* obj, QlgObject* listener);
ARDEL_API void* QlgObject_getData(const QlgObject* obj);

/* Defaults that user classes may use or call. */
ARDEL_API void QlgObject_basePropertyChanged(QlgObject* obj, const char* key);
ARDEL_API void QlgObject_forwardToListeners(QlgObject* obj, struct QlgEvent* event);
ARDEL_API void QlgObject_filterReceive(QlgObject* filter, struct QlgEvent* event);
ARDEL_API int QlgObject_levelIsLoggable(QlgObject* filter, struct QlgEvent* event);

ARDEL_END_C

#endif
