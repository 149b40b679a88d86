// SPDX-License-Identifier: Apache-2.0
/*
 * Configuration discovery by the Windows rules: the ini file under
 * %systemroot%\tyx\tyx.ini (the variable's name in any case), drive-letter
 * homes with backslashes, and HOMEDRIVE followed by HOMEPATH as the place
 * an unwritable trace file moves to.
 */
#include <ardel/CLogWrapper.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgObjConfig.h>
#include <ardel/QlgToolkit.h>

#include <windows.h>

#include <cstdlib>
#include <string>

#include "frontend/CLogWrapperInt.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

/* Sets or clears an environment variable for one test and restores it. */
class EnvVar {
 public:
  EnvVar(const char* name, const char* value) : name_(name), had_(std::getenv(name) != nullptr) {
    if (had_) old_ = std::getenv(name);
    _putenv_s(name, value ? value : "");
  }
  ~EnvVar() { _putenv_s(name_.c_str(), had_ ? old_.c_str() : ""); }

 private:
  std::string name_, old_;
  bool had_;
};

std::string backslashed(std::string p) {
  for (char& c : p) c = c == '/' ? '\\' : c;
  return p;
}

std::string traceFileName() {
  QlgObjConfig* cfg = QlgLogManager_getLogger("handlers.traceFile");
  int found = 0;
  char* v = QlgObject_getProperty(cfg, "fileName", &found);
  std::string s = found && v ? v : "<none>";
  QlgMem_free(v);
  QlgObjConfig_release(cfg);
  return s;
}

}  // namespace

TEST(WindowsIni, TheHomeComesFromTheIniUnderTheSystemRootInAnySpelling) {
  struct { const char* variable; const char* ini; const char* expected; } cases[] = {
      {"systemroot", "TYX_HomeDirectory = E:\\home  \r\n", "E:/home/config/TyxTrace.properties"},
      {"SystemRoot", "x=1\nTYX_HomeDirectory=D:\\suite\\tyx\nTYX_HomeDirectory=F:\\no\n",
       "D:/suite/tyx/config/TyxTrace.properties"},
      {"SYSTEMROOT", "tyx_homedirectory=E:\\home\n", "/config/TyxTrace.properties"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.variable);
    TempDir dir;
    ASSERT_TRUE(CreateDirectoryA(backslashed(dir.file("tyx")).c_str(), nullptr));
    writeFile(dir.file("tyx/tyx.ini"), c.ini);
    EnvVar test("TYX_TEST", nullptr);
    EnvVar root(c.variable, backslashed(dir.path()).c_str());
    int len = initializeWrapper(nullptr);
    EXPECT_EQ(std::string(CLogWrapper_configPath()), c.expected);
    EXPECT_EQ(len, static_cast<int>(std::string(c.expected).size()));
  }
}

TEST(WindowsIni, WithoutTheIniTheDefaultIsOnTheCurrentDrive) {
  TempDir dir;
  EnvVar test("TYX_TEST", nullptr);
  EnvVar root("systemroot", backslashed(dir.path()).c_str());
  EXPECT_EQ(initializeWrapper(nullptr), 27);
  EXPECT_EQ(std::string(CLogWrapper_configPath()), "/config/TyxTrace.properties");
  EXPECT_EQ(initializeWrapper("C:\\a\\b.properties"), 17);
  EXPECT_EQ(std::string(CLogWrapper_configPath()), "C:/a/b.properties");
}

/* A trace file that cannot be appended to (here a directory holds its
   name, which stops even an administrator) moves under HOMEDRIVE +
   HOMEPATH with its base name, backslash separator kept. */
TEST(WindowsTraceFile, AnUnwritableFileMovesToHomeDrivePlusHomePath) {
  inChild([] {
    TempDir dir, home;
    std::string target = backslashed(dir.file("trace.log"));
    ASSERT_TRUE(CreateDirectoryA(target.c_str(), nullptr));
    std::string homePath = backslashed(home.path());
    EnvVar drive("HOMEDRIVE", homePath.substr(0, 2).c_str());
    EnvVar path("HOMEPATH", homePath.substr(2).c_str());
    std::string escaped;
    for (char c : target) escaped += c == '\\' ? std::string("\\\\") : std::string(1, c);
    std::string props = "hw.loggers.trcLogger.className=qlg_basiclogger\n"
                        "handlers.traceFile.fileName=" + escaped + "\n";
    initializeWrapper(dir.write("TyxTrace.properties", props).c_str());
    EXPECT_EQ(getCLogHw()->active, 1);
    EXPECT_EQ(traceFileName(), homePath + "\\trace.log");
    EXPECT_NE(GetFileAttributesA(target.c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0u);
  });
}
