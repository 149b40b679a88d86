// SPDX-License-Identifier: Apache-2.0
// The shared library exports exactly its public interface: every C function
// declared ARDEL_API in a public header is a dynamic symbol of libardel.so,
// and no other unmangled name is, so internal helpers stay hidden.
#include <gtest/gtest.h>

#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

std::set<std::string> exportedSymbols() {
  std::set<std::string> names;
  std::string cmd = std::string("nm -D --defined-only '") + ARDEL_SHARED_LIBRARY + "'";
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return names;
  char line[4096];
  while (std::fgets(line, sizeof line, p)) {
    std::istringstream in(line);
    std::string addr, type, name;
    if (in >> addr >> type >> name) names.insert(name);
  }
  pclose(p);
  return names;
}

// Names of the C functions that public headers declare with ARDEL_API.
std::set<std::string> declaredPublicFunctions() {
  std::set<std::string> names;
  std::string dir = std::string(ARDEL_SOURCE_DIR) + "/include/ardel";
  DIR* d = opendir(dir.c_str());
  if (!d) return names;
  std::regex decl(R"(ARDEL_API\s+[A-Za-z_][\w\s\*]*?\b([A-Za-z_]\w*)\s*\()");
  while (dirent* e = readdir(d)) {
    std::string file = e->d_name;
    if (file.size() < 3 || file.substr(file.size() - 2) != ".h") continue;
    std::ifstream in(dir + "/" + file);
    std::stringstream ss;
    ss << in.rdbuf();
    std::string text = ss.str();
    for (std::sregex_iterator it(text.begin(), text.end(), decl), end; it != end; ++it) {
      std::string name = (*it)[1];
      if (name != "class") names.insert(name);
    }
  }
  closedir(d);
  return names;
}

// Symbols the linker or a sanitizer adds (ASan marks exported data with
// __odr_asan.* names).
bool isToolSymbol(const std::string& s) {
  return s == "_init" || s == "_fini" || s == "_edata" || s == "_end" || s == "__bss_start" ||
         s.rfind("__odr_asan", 0) == 0;
}

}  // namespace

// Internal helpers (CxFile_open, QlgPrintf_vformat...) are caught by the
// second loop: nothing unmangled is exported unless a public header declares it.
TEST(Exports, EveryPublicDeclarationIsExportedAndNothingElseUnmangled) {
  std::set<std::string> exported = exportedSymbols();
  std::set<std::string> declared = declaredPublicFunctions();
  ASSERT_GT(declared.size(), 50u);
  for (const char* name : {"initializeWrapper", "createWrapper", "getCLogHw", "getCLogSw", "getCLogCom", "getCLogXse",
                           "getCLogFs", "getCLogPlugin", "getCLogUse", "getCLogNet", "traceEntry", "traceExit",
                           "traceMAX", "traceMID", "traceMIN", "istraceActive", "getTrcLevel"})
    declared.insert(name);  // the front end's names, whatever the headers say
  for (const auto& name : declared) {
    EXPECT_TRUE(exported.count(name)) << "not exported: " << name;
  }
  for (const auto& name : exported) {
    if (name.rfind("_Z", 0) == 0 || isToolSymbol(name)) continue;
    EXPECT_TRUE(declared.count(name)) << "exported but not public: " << name;
  }
}
