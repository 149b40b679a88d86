// SPDX-License-Identifier: Apache-2.0
/*
 * Tracer selection: the one process-wide factory chosen by initialize (or
 * by the first getInstance), and the per-component cache every factory
 * keeps.  Both are settled under the toolkit lock and published complete,
 * so threads that make the first request together share one factory and
 * one tracer per component; once settled they are read without a lock.
 */
#include <ardel/Tracer.h>

#include <new>

#include <ardel/QlgToolkit.h>

#include "frontend/CLogWrapperInt.h"
#include "frontend/Published.h"
#include "frontend/TracerImpl.h"

TracerFactory* Tracer::_tracerFactory = nullptr;
bool Tracer::_inited = false;

namespace {

/* Stands in for a tracer that could not be made, so that a caller holding
   the reference from getInstance traces into nothing instead of crashing. */
class SilentTracer : public Tracer {
 public:
  void log(int, const char*, int, const char*, const char*) override {}
  void entry(int, const char*, int, const char*, const char*) override {}
  void exit(int, const char*, int, const char*, const char*) override {}
  void setLevel(int) override {}
  int getLevel() override { return -1; }
};

SilentTracer g_silent;

TracerFactory* makeFactory(Tracer::Type type, const char* path) {
  switch (type) {
    case Tracer::ARDEL: return new (std::nothrow) ArdelTracerFactory(path);
    case Tracer::STDOUT: return new (std::nothrow) StdoutTracerFactory();
    case Tracer::STDERR: return new (std::nothrow) StderrTracerFactory();
    default: return nullptr;
  }
}

}  // namespace

Tracer::~Tracer() {}

int Tracer::initialize(Type type, const char* path) {
  /* The first choice stands; later ones are ignored. */
  if (loadPublished(_inited)) return 0;
  int locked = QlgToolkit_enter();
  if (!_inited) {
    CLOGWRAPPER_ASSERT(_tracerFactory == NULL);
    _tracerFactory = makeFactory(type, path);
    if (_tracerFactory) publish(_inited, true);
  }
  int rc = _inited ? 0 : -1;
  if (locked) QlgToolkit_leave();
  return rc;
}

Tracer& Tracer::getInstance(Component component) {
  if (!loadPublished(_inited)) {
    int locked = QlgToolkit_enter();
    if (!_inited) {
      CLOGWRAPPER_ASSERT(_tracerFactory == NULL);
      int rc = -1;
      _tracerFactory = makeFactory(ARDEL, nullptr);
      if (_tracerFactory) {
        publish(_inited, true);
        rc = 0;
      }
      CLOGWRAPPER_ASSERT(rc == 0);
    }
    if (locked) QlgToolkit_leave();
  }
  CLOGWRAPPER_ASSERT(_tracerFactory != NULL);
  Tracer* tracer = _tracerFactory ? _tracerFactory->create(component) : nullptr;
  return tracer ? *tracer : g_silent;
}

void Tracer::cleanup() {
  int locked = QlgToolkit_enter();
  if (_inited) {
    CLOGWRAPPER_ASSERT(_tracerFactory != NULL);
    delete _tracerFactory;
    _tracerFactory = nullptr;
    publish(_inited, false);
  }
  if (locked) QlgToolkit_leave();
}

TracerFactory::~TracerFactory() {}

void TracerFactory::destroy(Tracer* tracer) { delete tracer; }

CachingTracerFactory::CachingTracerFactory() {
  for (Tracer*& t : _tracers) t = nullptr;
}

CachingTracerFactory::~CachingTracerFactory() {
  for (Tracer*& t : _tracers) {
    destroy(t);
    t = nullptr;
  }
}

Tracer* CachingTracerFactory::create(Tracer::Component component) {
  Tracer* tracer = nullptr;
  if (component >= 0 && component < TRACER_COMPONENTS) {
    tracer = loadPublished(_tracers[component]);
    if (!tracer) {
      int locked = QlgToolkit_enter();
      tracer = loadPublished(_tracers[component]);
      if (!tracer) {
        tracer = make(component);
        publish(_tracers[component], tracer);
      }
      if (locked) QlgToolkit_leave();
    }
  }
  CLOGWRAPPER_ASSERT(tracer != 0);
  return tracer;
}
