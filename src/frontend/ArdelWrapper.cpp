// SPDX-License-Identifier: Apache-2.0
/*
 * ArdelWrapper: shared per-component handles on the component records.
 * A slot is filled once, under the toolkit lock, and published complete,
 * so threads that ask for a component at the same moment share one handle.
 */
#include <ardel/ArdelWrapper.h>

#include <cstdarg>
#include <cstdio>
#include <new>

#include <ardel/QlgToolkit.h>

#include "frontend/Published.h"
#include "handlers/QlgAsyncHandler.h"

ArdelWrapper* ArdelWrapper::HardwareWrapper_ = nullptr;
ArdelWrapper* ArdelWrapper::VpdWrapper_ = nullptr;
ArdelWrapper* ArdelWrapper::ComWrapper_ = nullptr;
ArdelWrapper* ArdelWrapper::XseWrapper_ = nullptr;
ArdelWrapper* ArdelWrapper::FsWrapper_ = nullptr;
ArdelWrapper* ArdelWrapper::PluginWrapper_ = nullptr;
ArdelWrapper* ArdelWrapper::UseWrapper_ = nullptr;
ArdelWrapper* ArdelWrapper::NetWrapper_ = nullptr;

namespace {

/* Room of one formatted trace text, terminator included. */
const size_t kTextSize = 1024;

ArdelWrapper** slotOf(int type) {
  switch (type) {
    case ArdelWrapper::HW: return &ArdelWrapper::HardwareWrapper_;
    case ArdelWrapper::SW: return &ArdelWrapper::VpdWrapper_;
    case ArdelWrapper::COM: return &ArdelWrapper::ComWrapper_;
    case ArdelWrapper::XSE: return &ArdelWrapper::XseWrapper_;
    case ArdelWrapper::FS: return &ArdelWrapper::FsWrapper_;
    case ArdelWrapper::PLUGIN: return &ArdelWrapper::PluginWrapper_;
    case ArdelWrapper::USE: return &ArdelWrapper::UseWrapper_;
    case ArdelWrapper::NET: return &ArdelWrapper::NetWrapper_;
    default: return nullptr;
  }
}

typedef void (*TraceCall)(CLogWrapper*, int, const char*, const char*, const char*, ...);

/* Formats once here and hands the text over as a plain "%s" argument, so a
   '%' inside the caller's arguments is never interpreted a second time. */
void forward(TraceCall call, CLogWrapper* record, int line, const char* sourceFile,
             const char* methodName, const char* format, va_list args) {
  char text[kTextSize];
  text[0] = '\0';
  if (format) vsnprintf(text, sizeof text, format, args);
  text[kTextSize - 1] = '\0';
  call(record, line, sourceFile, methodName, "%s", text);
}

}  // namespace

ArdelWrapper::ArdelWrapper(const CLogWrapper* record) : record_(const_cast<CLogWrapper*>(record)) {}

ArdelWrapper::ArdelWrapper(const ArdelWrapper& other) : record_(other.record_) {}

ArdelWrapper& ArdelWrapper::operator=(const ArdelWrapper& other) {
  record_ = other.record_;
  return *this;
}

ArdelWrapper::~ArdelWrapper() {}

ArdelWrapper* ArdelWrapper::getInstance(ArdelLogType type) {
  ArdelWrapper** slot = slotOf(type);
  if (!slot) return nullptr;
  ArdelWrapper* w = loadPublished(*slot);
  if (w) return w;
  int locked = QlgToolkit_enter();
  w = loadPublished(*slot);
  if (!w) {
    w = new (std::nothrow) ArdelWrapper(createWrapper(type));
    publish(*slot, w);
  }
  if (locked) QlgToolkit_leave();
  return w;
}

void ArdelWrapper::flush() { QlgAsyncHandler_flushAll(); }

void ArdelWrapper::cleanupInstances() {
  /* Queued records first, while every handler is still whole. */
  QlgAsyncHandler_flushAll();
  /* The historical teardown order, kept as it is. */
  static const ArdelLogType order[] = {SW, HW, XSE, COM, FS, PLUGIN, USE, NET};
  int locked = QlgToolkit_enter();
  for (ArdelLogType type : order) {
    ArdelWrapper** slot = slotOf(type);
    if (*slot) {
      delete *slot;
      publish(*slot, static_cast<ArdelWrapper*>(nullptr));
    }
  }
  if (locked) QlgToolkit_leave();
}

void ArdelWrapper::initialize(const char* path) { (void)initializeWrapper(path); }

#define ARDEL_WRAPPER_TRACE(member, call)                                                      \
  void ArdelWrapper::member(int line, const char* sourceFile, const char* methodName,          \
                            const char* format, ...) {                                         \
    va_list args;                                                                              \
    va_start(args, format);                                                                    \
    forward(call, record_, line, sourceFile, methodName, format, args);                        \
    va_end(args);                                                                              \
  }

ARDEL_WRAPPER_TRACE(traceMAX, ::traceMAX)
ARDEL_WRAPPER_TRACE(traceMID, ::traceMID)
ARDEL_WRAPPER_TRACE(traceMIN, ::traceMIN)
ARDEL_WRAPPER_TRACE(traceMidEntry, ::traceEntry)
ARDEL_WRAPPER_TRACE(traceMidExit, ::traceExit)

#undef ARDEL_WRAPPER_TRACE

bool ArdelWrapper::istraceActive(int level) { return ::istraceActive(record_, level) != 0; }

int ArdelWrapper::getTrcLevel() { return ::getTrcLevel(record_); }

ArdelWrapper* getArdelHw(void) { return ArdelWrapper::getInstance(ArdelWrapper::HW); }
ArdelWrapper* getArdelSw(void) { return ArdelWrapper::getInstance(ArdelWrapper::SW); }
ArdelWrapper* getArdelCom(void) { return ArdelWrapper::getInstance(ArdelWrapper::COM); }
ArdelWrapper* getArdelXse(void) { return ArdelWrapper::getInstance(ArdelWrapper::XSE); }
ArdelWrapper* getArdelFs(void) { return ArdelWrapper::getInstance(ArdelWrapper::FS); }
ArdelWrapper* getArdelPlugin(void) { return ArdelWrapper::getInstance(ArdelWrapper::PLUGIN); }
ArdelWrapper* getArdelUse(void) { return ArdelWrapper::getInstance(ArdelWrapper::USE); }
ArdelWrapper* getArdelNet(void) { return ArdelWrapper::getInstance(ArdelWrapper::NET); }
