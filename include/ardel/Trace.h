/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Trace: one scope's trace statement.  Constructing it marks the entry of
 * a function, destroying it marks the exit; in between values are streamed
 * into it and each message is ended by Trace::end, which hands it to the
 * tracer (<ardel/Tracer.h>).  Values streamed while the message's level is
 * above the tracer's level are not even formatted.
 *
 * @code
 *   void scan() {
 *     Trace t(Tracer::getInstance(Tracer::HARDWARE), "scan");
 *     t.warn() << "slow device " << id << Trace::end;
 *   }
 * @endcode
 */
#ifndef ARDEL_TRACE_H
#define ARDEL_TRACE_H

#include <ardel/Tracer.h>
#include <ardel/export.h>
#include <ardel/base/Object.h>
#include <ardel/base/String.h>

#include <stdarg.h>
#include <wchar.h>

#include <string>

class ARDEL_API Trace {
 public:
  /* Value 0 ends a message; other values do nothing. */
  enum Modifier { end = 0 };

  /* An empty function name gives no entry and exit marks. */
  Trace(Tracer& tracer, const char* function);
  Trace(Tracer& tracer, const wchar_t* function);
  virtual ~Trace();

  Trace& operator<<(Trace& self);
  Trace& operator<<(const Object& value);
  Trace& operator<<(const String& value);
  Trace& operator<<(const Modifier& modifier);
  Trace& operator<<(char value);
  Trace& operator<<(int value);
  Trace& operator<<(unsigned int value);
  Trace& operator<<(long value);
  Trace& operator<<(unsigned long value);
  Trace& operator<<(long long value);
  Trace& operator<<(unsigned long long value);
  Trace& operator<<(double value);              /* as %g */
  Trace& operator<<(float value);
  Trace& operator<<(void* value);
  Trace& operator<<(const void* value);         /* hexadecimal address */
  Trace& operator<<(const std::string& value) { return *this << value.c_str(); }
  Trace& operator<<(const char* value);   /* null: "(null)" */
  Trace& operator<<(const wchar_t* value);
  Trace& operator<<(bool value);

  /* The level of the message being built (3 again after each message). */
  Trace& info();
  Trace& warn();
  Trace& error();
  Trace& fatal();
  /* Source position of the message being built. */
  Trace& pos(const char* file, int line);
  /* Appends a hexadecimal dump of length bytes. */
  Trace& hex(const char* data, unsigned int length);
  /* Replaces the message by the error record's report. */
  Trace& dumpError();

 private:
  Trace(const Trace&);
  Trace& operator=(const Trace&);

  const char* format(const char* fmt, ...);
  char* vsprintf(const char* fmt, va_list args);
  void logEntry();
  void logExit();
  void logMessage();
  void resetInfo();
  bool wanted() const { return level_ <= maxLevel_; }

  Tracer& tracer_;
  int level_;
  int maxLevel_;
  String message_;
  String function_;
  String file_;
  int line_;
  char* formatBuffer_;
};

#endif
