// SPDX-License-Identifier: Apache-2.0
/*
 * The Windows rules of the platform layer: paths that begin with "/" are
 * anchored at SystemDrive, drive-letter paths in either slash style, the
 * directory walk and replacing renames, and the named mutex
 * "Global\CX_SEM_KEY_%x" shared by two processes started through
 * CxProcess_start (this program again, in a role given by the environment),
 * including a holder that is killed while it holds the mutex.
 */
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdlib>
#include <set>
#include <string>

#include "platform/CxDirectory.h"
#include "platform/CxFile.h"
#include "platform/CxFilePath.h"
#include "platform/CxMutex.h"
#include "platform/CxProcess.h"
#include "platform/PlatformTestSupport.h"

using namespace ardeltest;

namespace {

const int32_t kKey = 0x7c4d;
const char* kRoleVar = "ARDEL_WIN_MUTEX_ROLE";

std::string role() {
  const char* v = std::getenv(kRoleVar);
  return v ? v : "";
}

/* Starts this program for the role test alone with the role and a file
   for it to signal through. */
CxStatus startRole(CxProcess* child, const std::string& r, const std::string& signalFile) {
  char self[MAX_PATH + 1];
  DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
  self[n < sizeof self ? n : 0] = '\0';
  std::string filter = "--gtest_filter=WindowsMutexRole.Run";
  std::string brief = "--gtest_brief=1";
  char* args[] = {&filter[0], &brief[0], nullptr};
  _putenv_s(kRoleVar, r.c_str());
  _putenv_s("ARDEL_WIN_SIGNAL_FILE", signalFile.c_str());
  CxStatus s = CxProcess_start(child, self, args);
  _putenv_s(kRoleVar, "");
  return s;
}

int exitOf(CxProcess* child, int32_t ms) {
  CxExitInfo info{};
  CxStatus s = CxProcess_waitTimed(child, &info, ms);
  if (!CxStatus_isOk(s)) CxProcess_kill(child);
  CxProcess_close(child);
  return CxStatus_isOk(s) ? info.exitCode : -1;
}

bool waitForFile(const std::string& path, int ms) {
  for (int waited = 0; waited < ms; waited += 20) {
    if (GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES) return true;
    Sleep(20);
  }
  return false;
}

}  // namespace

/* The child side; runs only when started by the tests below.  Exit codes:
   10 the mutex was busy for 300 ms, 11 it was had, 12 it was held until
   killed (never seen), 13 it could not be opened. */
TEST(WindowsMutexRole, Run) {
  std::string r = role();
  if (r.empty()) GTEST_SKIP() << "only run as a child of the mutex tests";
  CxMutex* m = nullptr;
  if (!CxStatus_isOk(CxMutex_createKeyed(&m, kKey))) std::_Exit(13);
  CxStatus s = CxMutex_lockTimed(m, 300);
  if (r == "try") std::_Exit(CxStatus_isOk(s) ? 11 : (s.origin == 'w' && s.code == 258 ? 10 : 14));
  if (!CxStatus_isOk(s)) std::_Exit(10);
  writeText(std::getenv("ARDEL_WIN_SIGNAL_FILE"), "held");
  Sleep(60000);
  std::_Exit(12);
}

TEST(WindowsPaths, SlashPathsAreAnchoredAtTheSystemDriveAndDriveLettersTakeEitherSlash) {
  TempDir dir;
  ASSERT_TRUE(dir.ok());
  ASSERT_EQ(dir.path()[1], ':');
  std::string drive = dir.path().substr(0, 2);
  std::string rooted = dir.path().substr(2);  // "/users/.../ardel-test-N"
  struct { const char* systemDrive; std::string path; char origin; int32_t code; const char* lands; } cases[] = {
      {drive.c_str(), rooted + "/anchored.log", '-', 0, "anchored.log"},
      {nullptr, rooted + "/unanchored.log", 'p', 22, nullptr},
      {nullptr, dir.path() + "/forward.log", '-', 0, "forward.log"},
      {nullptr, drive + rooted + "\\back.log", '-', 0, "back.log"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    _putenv_s("SystemDrive", c.systemDrive ? c.systemDrive : "");
    int fd = -1;
    CxStatus s = CxFile_open(&fd, c.path.c_str(), CX_O_WRONLY | CX_O_CREAT | CX_O_TRUNC);
    EXPECT_EQ(s.origin, c.origin);
    EXPECT_EQ(s.code, c.code);
    if (CxStatus_isOk(s)) {
      int n = 0;
      EXPECT_TRUE(CxStatus_isOk(CxFile_write(fd, "x\n", 2, &n)));
      CxFile_close(&fd);
    }
    EXPECT_EQ(fd, -1);
    if (c.lands) {
      EXPECT_EQ(readText(dir.file(c.lands)), "x\n");
    }
  }
  _putenv_s("SystemDrive", drive.c_str());
}

TEST(WindowsPaths, DirectoriesAreMadeWalkedAndRenamesReplace) {
  TempDir dir;
  std::string deep = dir.path() + "\\a\\b/c";
  CxFilePath p;
  ASSERT_TRUE(CxFilePath_set(&p, deep.c_str()));
  EXPECT_EQ(p.text, dir.path() + "/a/b/c");
  EXPECT_EQ(CxFile_makeDirs(&p, 0700), 0);
  EXPECT_EQ(CxFile_isDirectory(&p), 0);
  ASSERT_TRUE(writeText(dir.file("a/b/c/one.log"), "one"));
  ASSERT_TRUE(writeText(dir.file("a/b/c/two.log"), "two"));
  ASSERT_TRUE(CxStatus_isOk(CxFile_rename((deep + "/one.log").c_str(), (deep + "\\two.log").c_str())));
  EXPECT_EQ(readText(dir.file("a/b/c/two.log")), "one");
  ASSERT_TRUE(CxFilePath_set(&p, (deep + "/two.log").c_str()));
  EXPECT_EQ(CxFile_makeDirs(&p, 0700), 20);
  CxDirectory d;
  ASSERT_TRUE(CxStatus_isOk(CxDirectory_open(&d, deep.c_str())));
  std::set<std::string> names;
  char name[CX_PATH_MAX];
  for (int i = 0; i < 10; i++) {
    ASSERT_TRUE(CxStatus_isOk(CxDirectory_next(&d, name, sizeof name)));
    if (!name[0]) break;
    names.insert(name);
  }
  CxDirectory_close(&d);
  EXPECT_EQ(names, (std::set<std::string>{".", "..", "two.log"}));
  EXPECT_TRUE(CxStatus_isOk(CxFile_delete((deep + "/two.log").c_str())));
  CxStatus s = CxFile_delete((deep + "/two.log").c_str());
  EXPECT_EQ(s.origin, 'w');
  EXPECT_EQ(s.code, 2);
}

TEST(WindowsMutex, TheKeyedMutexExcludesAnotherProcessUntilReleased) {
  if (!role().empty()) GTEST_SKIP();
  TempDir dir;
  CxMutex* m = nullptr;
  ASSERT_TRUE(CxStatus_isOk(CxMutex_createKeyed(&m, kKey)));
  ASSERT_TRUE(CxStatus_isOk(CxMutex_lock(m)));
  CxProcess child{};
  ASSERT_TRUE(CxStatus_isOk(startRole(&child, "try", dir.file("unused"))));
  EXPECT_EQ(exitOf(&child, 30000), 10);
  ASSERT_TRUE(CxStatus_isOk(CxMutex_unlock(m)));
  CxStatus s = CxMutex_unlock(m);
  EXPECT_EQ(s.origin, 'p');
  EXPECT_EQ(s.code, 1);
  ASSERT_TRUE(CxStatus_isOk(startRole(&child, "try", dir.file("unused"))));
  EXPECT_EQ(exitOf(&child, 30000), 11);
  EXPECT_TRUE(CxStatus_isOk(CxMutex_close(&m)));
}

TEST(WindowsMutex, AHolderKilledWhileHoldingItBlocksNobody) {
  if (!role().empty()) GTEST_SKIP();
  TempDir dir;
  std::string signal = dir.file("held");
  CxProcess holder{};
  ASSERT_TRUE(CxStatus_isOk(startRole(&holder, "hold", signal)));
  ASSERT_TRUE(waitForFile(signal, 30000));
  CxMutex* m = nullptr;
  ASSERT_TRUE(CxStatus_isOk(CxMutex_createKeyed(&m, kKey)));
  CxStatus s = CxMutex_lockTimed(m, 200);
  EXPECT_EQ(s.origin, 'w');
  EXPECT_EQ(s.code, CX_MUTEX_TIMED_OUT);
  ASSERT_TRUE(CxStatus_isOk(CxProcess_kill(&holder)));
  CxProcess_close(&holder);
  EXPECT_TRUE(CxStatus_isOk(CxMutex_lockTimed(m, 5000)));
  EXPECT_TRUE(CxStatus_isOk(CxMutex_unlock(m)));
  CxMutex_close(&m);
}
