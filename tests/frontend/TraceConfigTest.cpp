// SPDX-License-Identifier: Apache-2.0
// Configuration discovery: the properties path from a given path, the
// TYX_TEST home or the suite's ini file; in-place trimming; and the check
// that the trace file named by the properties can be appended to, with its
// move to the home directory when it cannot.
#include <ardel/CLogWrapper.h>
#include <ardel/QlgObjConfig.h>

#include <filesystem>
#include <regex>

#include "frontend/CLogWrapperInt.h"
#include "support/Recorder.h"

using namespace ardeltest;

namespace {

// initializeWrapper(NULL) in a child under a system root holding tyx/tyx.ini
// (none when null), with TYX_TEST and the root's two spellings as given (on
// Windows they are one variable, so the unused one is cleared first).
void expectPathFromIni(const char* ini, const char* tyxTest, bool upperRoot, const std::string& want) {
  inChild([&] {
    TempDir dir;
    std::string root = dir.file("sysroot");
    if (ini && std::filesystem::create_directories(root + "/tyx")) writeFile(root + "/tyx/tyx.ini", ini);
    setEnv("TYX_TEST", tyxTest);
    setEnv(upperRoot ? "systemroot" : "SystemRoot", nullptr);
    setEnv(upperRoot ? "SystemRoot" : "systemroot", root.c_str());
    EXPECT_EQ(initializeWrapper(nullptr), static_cast<int>(want.size()));
    EXPECT_EQ(CLogWrapper_configPath(), want) << (ini ? ini : "no ini");
  });
}

// Fills the hw record with a properties file that names traceFile (none
// when empty) as the trace file, the user's home set to home (unset when
// null); the trace file's name afterwards.
std::string checkedName(const TempDir& dir, const std::string& traceFile, const char* home) {
  setHome(home);
  std::string props = "hw.loggers.trcLogger.className=qlg_basiclogger\nhw.loggers.trcLogger.level=DEBUG_MIN\n";
  if (!traceFile.empty()) props += "handlers.traceFile.fileName=" + std::regex_replace(traceFile, std::regex(R"(\\)"), R"(\\)") + "\n";
  initializeWrapper(dir.write("TyxTrace.properties", props).c_str());
  EXPECT_EQ(getCLogHw()->active, 1);
  QlgObjConfig* cfg = QlgLogManager_getLogger("handlers.traceFile");
  int found = 0;
  char* v = QlgObject_getProperty(cfg, "fileName", &found);
  std::string name = found && v ? v : "<none>";
  QlgMem_free(v);
  QlgObjConfig_release(cfg);
  return name;
}

}  // namespace

TEST(InitializeWrapper, GivenPathIsKeptWithSlashesNothingAppendedAndCutAt1024Bytes) {
  std::string longPath(1500, 'p');
  struct { std::string in; int len; std::string path; } cases[] = {
      {"C:\\a\\b.properties", 17, "C:/a/b.properties"}, {"/etc/x.properties", 17, "/etc/x.properties"},
      {"", 0, ""}, {longPath, 1024, longPath.substr(0, 1024)}};
  for (const auto& c : cases) {
    EXPECT_EQ(initializeWrapper(c.in.c_str()), c.len) << c.in;
    EXPECT_EQ(std::string(CLogWrapper_configPath()), c.path);
  }
}

// The key is matched case-sensitively after trimming, the line split at
// its first equals sign (key and value trimmed in place, a blank one down to
// nothing), and only the first matching line counts; TYX_TEST
// wins over the ini, and SystemRoot serves when systemroot is unset.
TEST(InitializeWrapper, TheHomeComesFromTyxTestOrTheFirstTrimmedCaseSensitiveIniLine) {
  struct { const char *ini, *tyxTest; bool upperRoot; const char* path; } cases[] = {
      {"[tyx]\n  TYX_HomeDirectory =  E:\\home  \r\n", nullptr, false, "E:/home/config/TyxTrace.properties"},
      {"tyx_homedirectory=E:\\home\n", nullptr, false, "/config/TyxTrace.properties"},
      {"no equals here\n \t= \t\nOther=1\nTYX_HomeDirectory=/first\nTYX_HomeDirectory=/second\n", nullptr, false,
       "/first/config/TyxTrace.properties"},
      {"TYX_HomeDirectory=/a=b\n", nullptr, false, "/a=b/config/TyxTrace.properties"},
      {"TYX_Other=/x\n\n", nullptr, false, "/config/TyxTrace.properties"},
      {nullptr, nullptr, false, "/config/TyxTrace.properties"},
      {"TYX_HomeDirectory=/from/ini\n", "D:\\t", false, "D:/t/config/TyxTrace.properties"},
      {"TYX_HomeDirectory=/upper\n", nullptr, true, "/upper/config/TyxTrace.properties"}};
  for (const auto& c : cases) expectPathFromIni(c.ini, c.tyxTest, c.upperRoot, c.path);
}

// A writable name is kept (a new file is only probed, an existing one left
// intact, a missing directory not made); a name that cannot be appended to
// (a directory stands there, which stops root too) moves to the home
// directory under its base name, a backslash also separating it (POSIX
// takes it as a plain character in a file name, Windows as a separator).
// Without a home the name stays; without a name nothing is checked.
TEST(TraceFileCheck, WritableNamesAreKeptAndUnwritableOnesMoveHomeUnderTheirBaseName) {
  struct { const char *name, *content, *makeFirst; bool block, hasHome; const char* movedTo; } cases[] = {
      {"new.log", nullptr, nullptr, false, true, nullptr},
      {"old.log", "earlier lines\n", nullptr, false, true, nullptr},
      {"absent/trace.log", nullptr, nullptr, false, true, nullptr},
      {"trace.log", nullptr, nullptr, true, true, "/trace.log"},
      {"sub\\t.log", nullptr, "sub", true, true, "\\t.log"},
      {"trace.log", nullptr, nullptr, true, false, nullptr},
      {"", nullptr, nullptr, false, true, nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    inChild([&] {
      TempDir dir, home;
      std::string target = *c.name ? dir.file(c.name) : "";
      if (c.content) writeFile(target, c.content);
      if (c.makeFirst) { ASSERT_TRUE(std::filesystem::create_directory(dir.file(c.makeFirst))); }
      if (c.block) { ASSERT_TRUE(std::filesystem::create_directory(target)); }
      std::string expected = !*c.name ? "<none>" : c.movedTo ? home.path() + c.movedTo : target;
      EXPECT_EQ(checkedName(dir, target, c.hasHome ? home.path().c_str() : nullptr), expected);
      if (c.content) {
        EXPECT_EQ(readFile(target), c.content);
      } else if (!c.block && *c.name) {
        EXPECT_FALSE(std::filesystem::exists(target) || std::filesystem::exists(dir.file("absent")));
      }
    });
  }
}
