/*
 * A handler class for tests: "test_recorder" keeps what each publish saw
 * (handler name, level, rendered message, source location), so tests can
 * check what reached a handler and in which order.
 */
#ifndef ARDEL_TESTS_RECORDER_H
#define ARDEL_TESTS_RECORDER_H

#include <ardel/QlgEvent.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgObject.h>

#include <string>
#include <vector>

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
  int found = 0;
  char* v = QlgEvent_getStringProperty(event, name, &found);
  std::string s = found && v ? v : "-";
  QlgMem_free(v);
  return s;
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

inline void registerRecorder() {
  QlgClass_registerHandler("test_recorder", nullptr, nullptr, nullptr, QlgObject_basePropertyChanged,
                           recorderPublish, nullptr, nullptr);
}

}  // namespace ardeltest

#endif
