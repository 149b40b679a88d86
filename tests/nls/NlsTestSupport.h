// SPDX-License-Identifier: Apache-2.0
// Helpers of the national-language tests: catalogs are compiled from
// message sources by the real ardel-gencat, and a child process gets its
// own environment and a fresh message state.
#ifndef ARDEL_TESTS_NLS_SUPPORT_H
#define ARDEL_TESTS_NLS_SUPPORT_H

#include <ardel/QlgI18Msg.h>
#include "support/TestSupport.h"

namespace nlstest {

// Compiles source into dir/name with ardel-gencat; "" when it fails.
inline std::string gencat(const ardeltest::TempDir& dir, const std::string& name, const std::string& source) {
  std::string src = dir.write(name + ".msg", source);
  std::string out = dir.file(name);
  std::string cmd = std::string("'") + ARDEL_GENCAT + "' '" + src + "' '" + out + "' 2>/dev/null";
  return std::system(cmd.c_str()) == 0 ? out : "";
}

// Sets (or, for nullptr, removes) an environment variable.
inline void env(const char* name, const char* value) {
  if (value)
    setenv(name, value, 1);
  else
    unsetenv(name);
}

// Restarts message rendering so that the environment is read afresh.
inline void restartMessages() {
  QlgI18Msg_shutdown();
  QlgI18Msg_startup();
}

inline std::string render(QlgI18Msg* msg) {
  char* text = QlgI18Msg_render(msg);
  std::string out = text ? text : "<null>";
  QlgMem_free(text);
  QlgI18Msg_free(msg);
  return out;
}

}  // namespace nlstest

#endif
