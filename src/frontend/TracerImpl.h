// SPDX-License-Identifier: Apache-2.0
/*
 * The concrete tracers and their factories, behind the public Tracer and
 * TracerFactory.  Not exported; the tests reach them through the static
 * archive.
 */
#ifndef ARDEL_TRACERIMPL_H
#define ARDEL_TRACERIMPL_H

#include <ardel/CLogWrapper.h>
#include <ardel/Tracer.h>

#include <cstdio>

/* Number of components with a tracer (Tracer::HARDWARE .. Tracer::PLUGIN). */
#define TRACER_COMPONENTS 6

/* Forwards to the component's record: fatal and error at minimum tracing,
   warn at middle, info at maximum. */
class ArdelTracer : public Tracer {
 public:
  explicit ArdelTracer(Component component);
  void log(int level, const char* file, int line, const char* function, const char* message) override;
  void entry(int level, const char* file, int line, const char* function, const char* message) override;
  void exit(int level, const char* file, int line, const char* function, const char* message) override;
  void setLevel(int level) override;
  int getLevel() override;
  ~ArdelTracer() override;

 private:
  CLogWrapper* _logWrapper;
};

/* Prints one fixed-format line per call to standard output or standard error. */
class StdoutTracer : public Tracer {
 public:
  explicit StdoutTracer(Component component);
  StdoutTracer(Component component, bool toStderr);
  void log(int level, const char* file, int line, const char* function, const char* message) override;
  void entry(int level, const char* file, int line, const char* function, const char* message) override;
  void exit(int level, const char* file, int line, const char* function, const char* message) override;
  void setLevel(int level) override;
  int getLevel() override;
  ~StdoutTracer() override;

  /* Open entry marks, shared by every printing tracer of the process. */
  static unsigned _nestingLevel;

 private:
  int _level;
  int _component;
  FILE* _stream;
};

/* The common cache of the three factories: one tracer per component. */
class CachingTracerFactory : public TracerFactory {
 public:
  Tracer* create(Tracer::Component component) override;

 protected:
  CachingTracerFactory();
  ~CachingTracerFactory() override;
  /* Makes the tracer of a component 0..5 (null when that fails). */
  virtual Tracer* make(Tracer::Component component) = 0;

 private:
  Tracer* _tracers[TRACER_COMPONENTS];
};

class ArdelTracerFactory : public CachingTracerFactory {
 public:
  /* Settles the properties path (null: default discovery). */
  explicit ArdelTracerFactory(const char* path);

 protected:
  Tracer* make(Tracer::Component component) override;
};

class StdoutTracerFactory : public CachingTracerFactory {
 protected:
  Tracer* make(Tracer::Component component) override;
};

class StderrTracerFactory : public CachingTracerFactory {
 protected:
  Tracer* make(Tracer::Component component) override;
};

#endif
