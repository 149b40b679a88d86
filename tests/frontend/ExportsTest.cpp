// SPDX-License-Identifier: Apache-2.0
// The shared library exports exactly its public interface: every C function
// declared ARDEL_API in a public header is a dynamic symbol of libardel.so,
// and no other unmangled name is, so internal helpers (CxFile_open,
// QlgPrintf_vformat...) stay hidden.
#include <filesystem>
#include <regex>
#include <set>

#include "support/TestSupport.h"

TEST(Exports, EveryPublicDeclarationIsExportedAndNothingElseUnmangled) {
  std::set<std::string> exported, declared = {
      "initializeWrapper", "createWrapper", "getCLogHw", "getCLogSw", "getCLogCom", "getCLogXse", "getCLogFs",
      "getCLogPlugin", "getCLogUse", "getCLogNet", "traceEntry", "traceExit", "traceMAX", "traceMID", "traceMIN",
      "istraceActive", "getTrcLevel"};  // the front end's names, whatever the headers say
  const std::regex decl(R"(ARDEL_API\s+[A-Za-z_][\w\s\*]*?\b([A-Za-z_]\w*)\s*\()");
  for (const auto& e : std::filesystem::directory_iterator(ARDEL_SOURCE_DIR "/include/ardel")) {
    if (e.path().extension() != ".h") continue;
    std::string text = ardeltest::readFile(e.path());
    for (std::sregex_iterator it(text.begin(), text.end(), decl), end; it != end; ++it)
      if ((*it)[1] != "class") declared.insert((*it)[1]);
  }
  ASSERT_GT(declared.size(), 67u);
  FILE* nm = popen("nm -D --defined-only '" ARDEL_SHARED_LIBRARY "'", "r");
  ASSERT_NE(nm, nullptr);
  char line[4096];
  for (std::string addr, type, name; std::fgets(line, sizeof line, nm);)
    if (std::istringstream(line) >> addr >> type >> name) exported.insert(name);
  pclose(nm);
  for (const auto& name : declared) { EXPECT_TRUE(exported.count(name)) << "not exported: " << name; }
  // Symbols the linker or a sanitizer adds (ASan marks exported data with __odr_asan.* names).
  const std::set<std::string> tool = {"_init", "_fini", "_edata", "_end", "__bss_start"};
  for (const auto& name : exported)
    EXPECT_TRUE(declared.count(name) || name.rfind("_Z", 0) == 0 || tool.count(name) || name.rfind("__odr_asan", 0) == 0)
        << "exported but not public: " << name;
}
