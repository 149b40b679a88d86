// SPDX-License-Identifier: Apache-2.0
// A handler class for tests: "test_recorder" keeps what each publish saw
// (handler name, level, rendered message, source location), so tests can
// check what reached a handler and in which order.
#ifndef ARDEL_TESTS_RECORDER_H
#define ARDEL_TESTS_RECORDER_H

#include <ardel/QlgEvent.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>

#include <regex>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace ardeltest {

struct Seen {
  std::string handler;
  int level;
  std::string text;
  bool isMessage;
  std::string file;  /* "-" when absent */
  std::string function;
  std::string line;
};

inline std::vector<Seen>& seen() {
  static std::vector<Seen> events;
  return events;
}

inline std::string propOrDash(QlgEvent* event, const char* name) {
  /* peek, as the syslog and application-server handlers read a trace
     event's source location without filling in its property set */
  const char* v = QlgEvent_peekString(event, name);
  return v ? v : "-";
}

inline void recorderPublish(QlgObject* handler, QlgEvent* event) {
  if (!handler->logging) return;
  char* text = QlgEvent_render(event, nullptr);
  seen().push_back(Seen{handler->name, QlgEvent_getLevel(event), text ? text : "",
                        QlgEvent_isMessage(event) != 0, propOrDash(event, QLG_PROP_SRCFILE),
                        propOrDash(event, QLG_PROP_SRCFUNCTION), propOrDash(event, QLG_PROP_SRCLINE)});
  QlgMem_free(text);
  QlgObject_forwardToListeners(handler, event);
}

// Formatter slots for handler tests: the bare message text and a line
// end, and fixed head and tail lines.
inline char* bareMessage(QlgObject*, QlgEvent* event) {
  std::string text = std::string(event->message->defaultText) + "\n";
  return QlgMem_strdup(text.c_str());
}
inline char* headText(QlgObject*) { return QlgMem_strdup("HEAD\n"); }
inline char* tailText(QlgObject*) { return QlgMem_strdup("TAIL\n"); }

inline void registerRecorder() {
  QlgClass_registerHandler("test_recorder", nullptr, nullptr, nullptr, QlgObject_basePropertyChanged,
                           recorderPublish, nullptr, nullptr);
}

// Starts the toolkit on a properties text written to a temporary file,
// registers the recorder and forgets what it saw before.  For a child
// process: the toolkit starts once per process.
inline void startWithRecorder(const std::string& properties) {
  static TempDir dir;
  std::string path = dir.write("t.properties", properties);
  ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
  registerRecorder();
  seen().clear();
}

// Runs body in a child process on a toolkit started afresh from properties.
inline void withToolkit(const std::string& properties, const std::function<void()>& body) {
  inChild([&] {
    QlgToolkit_shutdown();
    startWithRecorder(properties);
    body();
  });
}

// The internal reports body writes to standard error, without the time
// stamp that opens each of them.
inline std::string reportsOf(const std::function<void()>& body) {
  static const std::regex stamp("(^|\n)\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}[+-]\\d\\d:\\d\\d ");
  return std::regex_replace(stderrOf(body), stamp, "$1");
}

// One field of every recorded event, each followed by a semicolon.
inline std::string seenList(std::string Seen::*field = &Seen::text) {
  std::string s;
  for (const Seen& e : seen()) s += e.*field + ";";
  return s;
}

}  // namespace ardeltest

#endif
