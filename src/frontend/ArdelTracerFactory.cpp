// SPDX-License-Identifier: Apache-2.0
/*
 * The factory of tracers that forward to the component loggers.  Making it
 * settles the properties path; the toolkit itself starts with the first
 * record a tracer fills.
 */
#include <new>

#include "frontend/TracerImpl.h"

ArdelTracerFactory::ArdelTracerFactory(const char* path) { (void)initializeWrapper(path); }

Tracer* ArdelTracerFactory::make(Tracer::Component component) {
  return new (std::nothrow) ArdelTracer(component);
}
