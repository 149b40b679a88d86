// SPDX-License-Identifier: Apache-2.0
/*
 * The Windows path rules of the platform layer: a path that begins with
 * "/" is anchored at SystemDrive (and refused without it), drive-letter
 * paths take either slash, and "\" separates as "/" does in every file
 * operation.
 */
#include <string>

#include "platform/CxFile.h"
#include "platform/CxFilePath.h"
#include "support/TestSupport.h"

using namespace ardeltest;

TEST(WindowsPaths, SlashPathsAreAnchoredAtTheSystemDriveAndDriveLettersTakeEitherSlash) {
  TempDir dir;
  ASSERT_EQ(dir.path()[1], ':');
  std::string drive = dir.path().substr(0, 2), rooted = dir.path().substr(2);  // "/users/.../ardel-test-N"
  struct { const char* systemDrive; std::string path; const char* status; const char* lands; } cases[] = {
      {drive.c_str(), rooted + "/anchored.log", "ok", "anchored.log"},
      {nullptr, rooted + "/unanchored.log", "p 22", nullptr},
      {nullptr, dir.path() + "/forward.log", "ok", "forward.log"},
      {nullptr, drive + rooted + "\\back.log", "ok", "back.log"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    EnvVar systemDrive("SystemDrive", c.systemDrive);
    int fd = -1, n = 0;
    EXPECT_EQ(STATUS_OF(CxFile_open(&fd, c.path.c_str(), CX_O_WRONLY | CX_O_CREAT | CX_O_TRUNC)), c.status);
    CxFile_write(fd, "x\n", 2, &n);
    CxFile_close(&fd);
    if (c.lands) { EXPECT_EQ(readFile(dir.file(c.lands)), "x\n"); }
  }
}

TEST(WindowsPaths, BackslashesSeparateInMadeDirectoriesRenamesAndRemovals) {
  TempDir dir;
  std::string deep = dir.path() + "\\a\\b/c";
  CxFilePath p;
  ASSERT_TRUE(CxFilePath_set(&p, deep.c_str()));
  EXPECT_EQ(CxFile_makeDirs(&p, 0700), 0);
  EXPECT_EQ(CxFile_isDirectory(&p), 0);
  dir.write("a/b/c/one.log", "one");
  dir.write("a/b/c/two.log", "two");
  ASSERT_EQ(STATUS_OF(CxFile_rename((deep + "/one.log").c_str(), (deep + "\\two.log").c_str())), "ok");
  EXPECT_EQ(readFile(dir.file("a/b/c/two.log")), "one");
  EXPECT_EQ(STATUS_OF(CxFile_delete((deep + "\\two.log").c_str())), "ok");
  EXPECT_EQ(STATUS_OF(CxFile_delete((deep + "\\two.log").c_str())), "w 2");
}
