/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Tracer: the per-component sink of trace statements (<ardel/Trace.h>).
 * Which kind of tracer a process gets is chosen once, by Tracer::initialize:
 * tracers that forward to the component loggers, or tracers that print
 * fixed-format lines to standard output or standard error.  Without a prior
 * choice the first getInstance picks the component loggers with the default
 * configuration discovery.  Tracers belong to their factory and are freed by
 * Tracer::cleanup().
 *
 * @code
 *   Tracer::initialize(Tracer::STDOUT, NULL);
 *   Tracer& t = Tracer::getInstance(Tracer::COM);
 *   t.setLevel(3);
 * @endcode
 */
#ifndef ARDEL_TRACER_H
#define ARDEL_TRACER_H

#include <ardel/export.h>

class TracerFactory;

class ARDEL_API Tracer {
 public:
  /* Kind of tracers handed out: component loggers, standard output, standard error. */
  enum Type { ARDEL = 0, STDOUT = 1, STDERR = 2 };

  /* Components with a tracer; numbered as the component records 0..5. */
  enum Component { HARDWARE = 0, VPD = 1, COM = 2, XSE = 3, FILESCAN = 4, PLUGIN = 5 };

  /* Chooses the kind of tracers once.  Returns 0 when a choice is in force
     (this one or an earlier one, which then stays), -1 for an unknown type.
     path names the properties file for ARDEL and is ignored otherwise. */
  static int initialize(Type type, const char* path);

  /* The component's tracer, made on first request by the chosen factory. */
  static Tracer& getInstance(Component component);

  /* Frees the factory and all its tracers; the next getInstance starts over
     with the default choice. */
  static void cleanup();

  /* Levels: 0 fatal, 1 error, 2 warn, 3 info.  A tracer drops what is above
     its own level. */
  virtual void log(int level, const char* file, int line, const char* function, const char* message) = 0;
  virtual void entry(int level, const char* file, int line, const char* function, const char* message) = 0;
  virtual void exit(int level, const char* file, int line, const char* function, const char* message) = 0;
  virtual void setLevel(int level) = 0;
  virtual int getLevel() = 0;

 protected:
  friend class TracerFactory;
  /* Only the owning factory destroys a tracer. */
  virtual ~Tracer();

  static TracerFactory* _tracerFactory;
  static bool _inited;
};

/* Makes and caches one tracer per component; its destructor frees them. */
class ARDEL_API TracerFactory {
 public:
  virtual ~TracerFactory();
  /* The component's tracer (cached); null for an unknown component. */
  virtual Tracer* create(Tracer::Component component) = 0;

 protected:
  static void destroy(Tracer* tracer);
};

#endif
