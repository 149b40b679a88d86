// SPDX-License-Identifier: Apache-2.0
// File modes, directory permissions and the status-change time, which only
// POSIX systems have (Windows has a creation time, which Wine does not keep).
#include <errno.h>

#include "platform/CxFile.h"
#include "platform/CxFilePath.h"
#include "support/TestSupport.h"

namespace {

CxFilePath pathOf(const std::string& text) {
  CxFilePath p;
  CxFilePath_set(&p, text.c_str());
  return p;
}
mode_t modeOf(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_mode & 0777 : 0;
}

}  // namespace

TEST(CxFilePosix, CreatedFilesGetOwnerOnlyPermissionUnlessAModeIsGivenAndDirectoriesTheDefault) {
  ardeltest::TempDir tmp;
  int fd = -1;
  mode_t old = umask(022);
  ASSERT_EQ(STATUS_OF(CxFile_open(&fd, tmp.file("p3").c_str(), CX_O_WRONLY | CX_O_CREAT)), "ok");
  CxFile_close(&fd);
  ASSERT_EQ(STATUS_OF(CxFile_openMode(&fd, tmp.file("p4").c_str(), CX_O_WRONLY | CX_O_CREAT, 0644)), "ok");
  CxFile_close(&fd);
  CxFilePath m = pathOf(tmp.file("m"));
  EXPECT_EQ(CxFile_makeDirs(&m, 0700), 0);
  umask(old);
  EXPECT_EQ(modeOf(tmp.file("p3")), 0600u);
  EXPECT_EQ(modeOf(tmp.file("p4")), 0644u);
  EXPECT_EQ(modeOf(tmp.file("m")), 0755u) << "makeDirs ignores the mode and uses the default";
  time_t before = time(nullptr);
  ASSERT_TRUE(ardeltest::setFileTimes(tmp.file("p3"), 1000000000, 1200000000));
  CxFileStat st;
  ASSERT_EQ(STATUS_OF(CxFile_statPath(&st, tmp.file("p3").c_str())), "ok");
  EXPECT_TRUE(st.atime == 1000000000 && st.mtime == 1200000000);
  EXPECT_TRUE(st.ctime >= before - 1 && st.ctime <= time(nullptr) + 1) << "setting the times is a status change";
  CxFilePath proc = pathOf("/proc/self/ardel-never-created");  // takes no new directories, not even from root
  int e = CxFile_makeDirs(&proc, 0700);
  EXPECT_TRUE(e == ENOENT || e == EACCES || e == EPERM) << e;
  if (geteuid() == 0) return;  // permissions do not bind root
  ASSERT_EQ(mkdir(tmp.file("locked").c_str(), 0500), 0);
  CxFilePath locked = pathOf(tmp.file("locked/inner/x"));
  EXPECT_EQ(CxFile_makeDirs(&locked, 0700), EACCES);
  chmod(tmp.file("locked").c_str(), 0700);
}
