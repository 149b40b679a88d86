// SPDX-License-Identifier: Apache-2.0
/*
 * Class registration.  A class is registered once by name and lives until
 * toolkit shutdown; a second registration of the same name is ignored so
 * that the first definition stays in force.  Empty slots get named default
 * functions, so dispatch never has to test for them.
 */
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>
#include <ardel/QlgMem.h>
#include <cstring>

#include "core/QlgBuiltins.h"
#include "formatters/QlgBasicFormatter.h"
#include "core/QlgToolkitInt.h"
#include "msg/QlgMsgTable.h"

namespace {

void handlerDoNothingPublish(QlgObject*, QlgEvent*) {}
void handlerDoNothing(QlgObject*) {}
char* formatterNoText(QlgObject*) { return nullptr; }

/* Builds the record and files it; reports key 20 when memory runs out. */
QlgClass* registerClass(QlgClassKind kind, const char* name, const QlgI18Msg* description,
                        QlgCreateDataFn createData, QlgDestroyDataFn destroyData,
                        QlgPropertyChangedFn propertyChanged) {
  QlgToolkit_registerClasses();
  QlgRegistries* reg = QlgToolkit_registries();
  if (!name || !reg->classes || QlgStringToObjClassMap_contains(reg->classes, name)) return nullptr;
  QlgClass* cls = static_cast<QlgClass*>(QlgMem_alloc(sizeof(QlgClass)));
  if (cls) {
    std::memset(cls, 0, sizeof(QlgClass));
    cls->kind = kind;
    cls->name = QlgMem_strdup(name);
    cls->description = description ? QlgI18Msg_copy(description) : nullptr;
    cls->createData = createData;
    cls->destroyData = destroyData;
    cls->propertyChanged = propertyChanged;
  }
  if (!cls || !cls->name || (description && !cls->description) ||
      !QlgStringToObjClassMap_put(reg->classes, name, cls)) {
    QlgClass_free(cls);
    QlgMisc_report(6000, 20, QlgMsgTable_text(20), 0);
    return nullptr;
  }
  /* The class stays usable even if its name cannot be listed by kind. */
  QlgStringGroup_append(reg->classNames[kind - QLG_KIND_LOGGER], name);
  return cls;
}

}  // namespace

extern "C" {

void QlgClass_registerLogger(const char* name, const QlgI18Msg* description,
                             QlgCreateDataFn createData, QlgDestroyDataFn destroyData,
                             QlgPropertyChangedFn propertyChanged, QlgEventFn log) {
  QlgClass* cls = registerClass(QLG_KIND_LOGGER, name, description, createData, destroyData,
                                propertyChanged);
  if (cls) cls->slots.logger.log = log ? log : QlgObject_forwardToListeners;
}

void QlgClass_registerFilter(const char* name, const QlgI18Msg* description,
                             QlgCreateDataFn createData, QlgDestroyDataFn destroyData,
                             QlgPropertyChangedFn propertyChanged, QlgEventFn receive,
                             QlgIsLoggableFn isLoggable, QlgEventFn forward) {
  QlgClass* cls = registerClass(QLG_KIND_FILTER, name, description, createData, destroyData,
                                propertyChanged);
  if (!cls) return;
  cls->slots.filter.receive = receive ? receive : QlgObject_filterReceive;
  cls->slots.filter.isLoggable = isLoggable ? isLoggable : QlgObject_levelIsLoggable;
  cls->slots.filter.forward = forward ? forward : QlgObject_forwardToListeners;
}

void QlgClass_registerHandler(const char* name, const QlgI18Msg* description,
                              QlgCreateDataFn createData, QlgDestroyDataFn destroyData,
                              QlgPropertyChangedFn propertyChanged, QlgEventFn publish,
                              QlgObjectFn open, QlgObjectFn close) {
  QlgClass* cls = registerClass(QLG_KIND_HANDLER, name, description, createData, destroyData,
                                propertyChanged);
  if (!cls) return;
  cls->slots.handler.publish = publish ? publish : handlerDoNothingPublish;
  cls->slots.handler.open = open ? open : handlerDoNothing;
  cls->slots.handler.close = close ? close : handlerDoNothing;
}

void QlgClass_registerFormatter(const char* name, const QlgI18Msg* description,
                                QlgCreateDataFn createData, QlgDestroyDataFn destroyData,
                                QlgPropertyChangedFn propertyChanged, QlgFormatFn format,
                                QlgHeadTailFn getHead, QlgHeadTailFn getTail,
                                QlgFormatMessageFn formatMessage) {
  QlgClass* cls = registerClass(QLG_KIND_FORMATTER, name, description, createData, destroyData,
                                propertyChanged);
  if (!cls) return;
  cls->slots.formatter.format = format ? format : QlgBuiltins_defaultFormat();
  cls->slots.formatter.getHead = getHead ? getHead : formatterNoText;
  cls->slots.formatter.getTail = getTail ? getTail : formatterNoText;
  cls->slots.formatter.formatMessage = formatMessage ? formatMessage : QlgBasicFormatter_renderMessage;
}

QlgClass* QlgClass_find(const char* name) {
  return QlgStringToObjClassMap_find(QlgToolkit_registries()->classes, name);
}

void QlgClass_free(QlgClass* cls) {
  if (!cls) return;
  QlgMem_free(cls->name);
  QlgI18Msg_free(cls->description);
  QlgMem_free(cls);
}

}  // extern "C"
