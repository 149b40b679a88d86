// SPDX-License-Identifier: Apache-2.0
/*
 * The tracer that forwards to a component record.  Trace levels map onto
 * the record's debug levels so that fatal and error messages appear already
 * at minimum tracing, warnings at middle and information only at maximum.
 */
#include "frontend/CLogWrapperInt.h"
#include "frontend/TracerImpl.h"

ArdelTracer::ArdelTracer(Component component)
    : _logWrapper(component >= 0 && component < TRACER_COMPONENTS ? createWrapper(component) : nullptr) {
  CLOGWRAPPER_ASSERT(_logWrapper != NULL);
}

ArdelTracer::~ArdelTracer() {}

void ArdelTracer::log(int level, const char* file, int line, const char* function, const char* message) {
  switch (level) {
    case 0:
    case 1: traceMIN(_logWrapper, line, file, function, "%s", message); break;
    case 2: traceMID(_logWrapper, line, file, function, "%s", message); break;
    case 3: traceMAX(_logWrapper, line, file, function, "%s", message); break;
    default: break;
  }
}

void ArdelTracer::entry(int, const char* file, int line, const char* function, const char* message) {
  traceEntry(_logWrapper, line, file, function, "%s", message);
}

void ArdelTracer::exit(int, const char* file, int line, const char* function, const char* message) {
  traceExit(_logWrapper, line, file, function, "%s", message);
}

/* The level comes from the properties; callers cannot change it. */
void ArdelTracer::setLevel(int) {}

int ArdelTracer::getLevel() {
  int recordLevel = _logWrapper ? _logWrapper->trcLevel : 0;
  if (recordLevel == ARDEL_TRC_MIN) return 1;
  if (recordLevel == ARDEL_TRC_MID) return 2;
  /* Also for a record at level 0: statements are built and then dropped by
     the record's own gate.  Intended. */
  return 3;
}
