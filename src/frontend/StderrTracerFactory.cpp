// SPDX-License-Identifier: Apache-2.0
/*
 * The factory of printing tracers on standard error: the same tracer class
 * as standard output, with the other stream.
 */
#include <new>

#include "frontend/TracerImpl.h"

Tracer* StderrTracerFactory::make(Tracer::Component component) {
  return new (std::nothrow) StdoutTracer(component, true);
}
