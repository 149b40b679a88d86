// SPDX-License-Identifier: Apache-2.0
/*
 * The printing tracer: one fixed-format line per message, entry or exit on
 * standard output or standard error, flushed at once.  Columns: timestamp,
 * level letter, 8-character component name, 30-character function, thread
 * id, then the text indented by the process-wide entry nesting.
 */
#include <cstring>
#include <ctime>

#include "frontend/CLogWrapperInt.h"
#include "frontend/TracerImpl.h"
#include "platform/CxThread.h"

unsigned StdoutTracer::_nestingLevel = 0;

namespace {

/* Room for the dashes or spaces of a deep nesting; deeper scopes are capped. */
const size_t kIndentSize = 256;

const char* displayName(int component) {
  /* Padded to eight characters on purpose: the padding aligns the columns. */
  switch (component) {
    case 0: return "Hardware";
    case 1: return "Vpd     ";
    case 2: return "Com     ";
    case 3: return "XSE     ";
    case 4: return "FileScan";
    case 5: return "Plugin  ";
    default: return "Unknown ";
  }
}

char levelLetter(int level) {
  switch (level) {
    case 0: return 'F';
    case 1: return 'E';
    case 2: return 'W';
    case 3: return 'I';
    default: return ' ';
  }
}

void timestamp(char (&out)[20]) {
  time_t now = time(nullptr);
  struct tm local;
  if (!localtime_r(&now, &local) || strftime(out, sizeof out, "%y/%m/%d %H:%M:%S", &local) == 0)
    out[0] = '\0';
}

void fillIndent(char (&out)[kIndentSize], size_t count, char c) {
  if (count > kIndentSize - 1) count = kIndentSize - 1;
  memset(out, c, count);
  out[count] = '\0';
}

}  // namespace

StdoutTracer::StdoutTracer(Component component, bool toStderr)
    : _level(0), _component(component), _stream(toStderr ? stderr : stdout) {}

/* Historically this constructor left its fields unset; a working tracer
   needs what the discarded temporary held: level 0, the component and
   standard output. */
StdoutTracer::StdoutTracer(Component component) : StdoutTracer(component, false) {}

StdoutTracer::~StdoutTracer() {}

void StdoutTracer::log(int level, const char*, int, const char* function, const char* message) {
  if (!message || level > _level) return;
  char when[20];
  timestamp(when);
  char indent[kIndentSize];
  fillIndent(indent, _nestingLevel == 0 ? 0 : 2 * static_cast<size_t>(_nestingLevel) + 2, ' ');
  fprintf(_stream, "%s %c [%s] %-30.30s [%04lu] %s%s\n", when, levelLetter(level), displayName(_component),
          function ? function : "", static_cast<unsigned long>(CxThread_getId()), indent, message);
  fflush(_stream);
}

void StdoutTracer::entry(int level, const char*, int, const char* function, const char*) {
  if (level > _level) return;
  char when[20];
  timestamp(when);
  char indent[kIndentSize];
  fillIndent(indent, 2 * static_cast<size_t>(_nestingLevel), '-');
  fprintf(_stream, "%s %c [%s] %-30.30s [%04lu] %s--> ENTRY\n", when, levelLetter(level),
          displayName(_component), function ? function : "", static_cast<unsigned long>(CxThread_getId()),
          indent);
  ++_nestingLevel;
  fflush(_stream);
}

void StdoutTracer::exit(int level, const char*, int, const char* function, const char*) {
  if (level > _level) return;
  CLOGWRAPPER_ASSERT(_nestingLevel > 0);
  /* An unmatched exit must not wrap the counter round to a huge nesting. */
  if (_nestingLevel > 0) --_nestingLevel;
  char when[20];
  timestamp(when);
  char indent[kIndentSize];
  fillIndent(indent, 2 * static_cast<size_t>(_nestingLevel), '-');
  fprintf(_stream, "%s %c [%s] %-30.30s [%04lu] <--%s EXIT\n", when, levelLetter(level),
          displayName(_component), function ? function : "", static_cast<unsigned long>(CxThread_getId()),
          indent);
  fflush(_stream);
}

void StdoutTracer::setLevel(int level) { _level = level; }

int StdoutTracer::getLevel() { return _level; }
