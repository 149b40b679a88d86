// SPDX-License-Identifier: Apache-2.0
/*
 * The factory of printing tracers on standard output.
 */
#include <new>

#include "frontend/TracerImpl.h"

Tracer* StdoutTracerFactory::make(Tracer::Component component) {
  return new (std::nothrow) StdoutTracer(component);
}
