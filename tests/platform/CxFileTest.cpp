/*
 * Files, paths and directory listings: the return rules callers rely on.
 */
#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>

#include "platform/CxDirectory.h"
#include "platform/CxFile.h"
#include "platform/CxFilePath.h"
#include "platform/PlatformTestSupport.h"

using ardeltest::readText;
using ardeltest::TempDir;
using ardeltest::writeText;

namespace {

void expectStatus(CxStatus s, char origin, int code) {
  EXPECT_EQ(s.origin, origin);
  EXPECT_EQ(s.code, code);
}

CxFilePath pathOf(const std::string& text) {
  CxFilePath p;
  EXPECT_EQ(CxFilePath_set(&p, text.c_str()), 1);
  return p;
}

struct CxFileTest : ::testing::Test {
  TempDir tmp;
  void SetUp() override { ASSERT_TRUE(tmp.ok()); }
};

}  // namespace

/* ---- CxFilePath ---- */

TEST(CxFilePath, BackslashesBecomeSlashesAndTheLastSeparatorIsRecorded) {
  CxFilePath p;
  ASSERT_EQ(CxFilePath_set(&p, "C:\\logs\\sub/trace.log"), 1);
  EXPECT_STREQ(p.text, "C:/logs/sub/trace.log");
  EXPECT_EQ(p.length, 21);
  EXPECT_EQ(p.lastSep, 11);
}

TEST(CxFilePath, APathWithoutSeparatorHasLastSeparatorMinusOne) {
  CxFilePath p;
  ASSERT_EQ(CxFilePath_set(&p, "trace.log"), 1);
  EXPECT_EQ(p.lastSep, -1);
  EXPECT_EQ(p.length, 9);
}

TEST(CxFilePath, TextMustFitWith259BytesAndTheTerminator) {
  CxFilePath p;
  std::string fits(259, 'a');
  ASSERT_EQ(CxFilePath_set(&p, fits.c_str()), 1);
  EXPECT_EQ(p.length, 259);
  std::string tooLong(260, 'a');
  EXPECT_EQ(CxFilePath_set(&p, tooLong.c_str()), 0);
  EXPECT_EQ(p.length, 0);
  EXPECT_STREQ(p.text, "");
}

TEST(CxFilePath, NullArgumentsAreRefused) {
  CxFilePath p;
  EXPECT_EQ(CxFilePath_set(nullptr, "a"), 0);
  EXPECT_EQ(CxFilePath_set(&p, nullptr), 0);
  EXPECT_EQ(p.length, 0);
}

/* ---- null and empty arguments ---- */

TEST(CxFileArguments, NullOrEmptyArgumentsGiveP22) {
  int fd = 5;
  expectStatus(CxFile_open(&fd, nullptr, CX_O_RDONLY), 'p', 22);
  EXPECT_EQ(fd, -1);
  fd = 5;
  expectStatus(CxFile_open(&fd, "", CX_O_RDONLY), 'p', 22);
  EXPECT_EQ(fd, -1);
  expectStatus(CxFile_open(nullptr, "/tmp", CX_O_RDONLY), 'p', 22);
  expectStatus(CxFile_close(nullptr), 'p', 22);
  int count = 7;
  char buf[4];
  expectStatus(CxFile_read(0, nullptr, 4, &count), 'p', 22);
  EXPECT_EQ(count, -1);
  expectStatus(CxFile_read(0, buf, 4, nullptr), 'p', 22);
  expectStatus(CxFile_write(1, nullptr, 4, &count), 'p', 22);
  expectStatus(CxFile_stat(0, nullptr), 'p', 22);
  CxFileStat st;
  expectStatus(CxFile_statPath(&st, ""), 'p', 22);
  expectStatus(CxFile_statPath(&st, nullptr), 'p', 22);
  expectStatus(CxFile_statPath(nullptr, "/"), 'p', 22);
  expectStatus(CxFile_delete(""), 'p', 22);
  expectStatus(CxFile_rename("", "x"), 'p', 22);
  expectStatus(CxFile_rename("x", nullptr), 'p', 22);
  EXPECT_EQ(CxFile_exists(nullptr), 22);
  EXPECT_EQ(CxFile_isDirectory(nullptr), 22);
  EXPECT_EQ(CxFile_makeDirs(nullptr, 0755), 22);
  CxFilePath empty;
  CxFilePath_set(&empty, "");
  EXPECT_EQ(CxFile_exists(&empty), 22);
  EXPECT_EQ(CxFile_isDirectory(&empty), 22);
  EXPECT_EQ(CxFile_makeDirs(&empty, 0755), 22);
}

TEST(CxFileArguments, FlagsOutsideTheCxSetAreRefused) {
  int fd = 3;
  /* A native O_CREAT slipped in by mistake must not be guessed at. */
  expectStatus(CxFile_open(&fd, "/tmp/never-created", CX_O_RDWR | 0x40), 'p', 22);
  EXPECT_EQ(fd, -1);
  expectStatus(CxFile_open(&fd, "/tmp/never-created", CX_O_WRONLY | CX_O_RDWR), 'p', 22);
  expectStatus(CxFile_seek(0, 0, 7), 'p', 22);
}

/* ---- descriptors ---- */

TEST_F(CxFileTest, OpenMissingFileFailsWithErrnoAndMinusOne) {
  int fd = 4;
  expectStatus(CxFile_open(&fd, tmp.file("missing").c_str(), CX_O_RDONLY), 'p', ENOENT);
  EXPECT_EQ(fd, -1);
}

TEST_F(CxFileTest, CloseAlwaysLeavesMinusOne) {
  int fd = -1;
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, tmp.file("a").c_str(), CX_O_WRONLY | CX_O_CREAT)));
  ASSERT_GE(fd, 0);
  EXPECT_TRUE(CxStatus_isOk(CxFile_close(&fd)));
  EXPECT_EQ(fd, -1);
  /* Closing again fails (bad descriptor) and still leaves -1. */
  expectStatus(CxFile_close(&fd), 'p', EBADF);
  EXPECT_EQ(fd, -1);
  int stale = 1000;
  expectStatus(CxFile_close(&stale), 'p', EBADF);
  EXPECT_EQ(stale, -1);
}

TEST_F(CxFileTest, WrittenBytesReadBackAndCountsAreStored) {
  std::string path = tmp.file("rw");
  int fd = -1;
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), CX_O_RDWR | CX_O_CREAT)));
  int count = 0;
  ASSERT_TRUE(CxStatus_isOk(CxFile_write(fd, "hello world", 11, &count)));
  EXPECT_EQ(count, 11);
  ASSERT_TRUE(CxStatus_isOk(CxFile_seek(fd, 0, CX_SEEK_SET)));
  char buf[32] = {0};
  ASSERT_TRUE(CxStatus_isOk(CxFile_read(fd, buf, sizeof buf, &count)));
  EXPECT_EQ(count, 11);
  EXPECT_EQ(std::string(buf, 11), "hello world");
  ASSERT_TRUE(CxStatus_isOk(CxFile_read(fd, buf, sizeof buf, &count)));
  EXPECT_EQ(count, 0);
  CxFile_close(&fd);
  EXPECT_EQ(readText(path), "hello world");
}

TEST_F(CxFileTest, FailedReadAndWriteStoreCountMinusOne) {
  std::string path = tmp.file("ro");
  ASSERT_TRUE(writeText(path, "data"));
  int fd = -1;
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), CX_O_RDONLY)));
  int count = 5;
  expectStatus(CxFile_write(fd, "x", 1, &count), 'p', EBADF);
  EXPECT_EQ(count, -1);
  CxFile_close(&fd);
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), CX_O_WRONLY)));
  char buf[4];
  count = 5;
  expectStatus(CxFile_read(fd, buf, sizeof buf, &count), 'p', EBADF);
  EXPECT_EQ(count, -1);
  CxFile_close(&fd);
}

TEST_F(CxFileTest, AppendFlagWritesAtTheEndAndTruncFlagEmpties) {
  std::string path = tmp.file("app");
  ASSERT_TRUE(writeText(path, "abc"));
  int fd = -1, count = 0;
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), CX_O_WRONLY | CX_O_APPEND)));
  CxFile_write(fd, "def", 3, &count);
  CxFile_close(&fd);
  EXPECT_EQ(readText(path), "abcdef");
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), CX_O_WRONLY | CX_O_TRUNC)));
  CxFile_close(&fd);
  EXPECT_EQ(readText(path), "");
  expectStatus(CxFile_open(&fd, path.c_str(), CX_O_WRONLY | CX_O_CREAT | CX_O_EXCL), 'p', EEXIST);
}

TEST_F(CxFileTest, CreatedFilesGetOwnerOnlyPermissionUnlessAModeIsGiven) {
  mode_t old = umask(022);
  int fd = -1;
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, tmp.file("p3").c_str(), CX_O_WRONLY | CX_O_CREAT)));
  CxFile_close(&fd);
  ASSERT_TRUE(CxStatus_isOk(CxFile_openMode(&fd, tmp.file("p4").c_str(), CX_O_WRONLY | CX_O_CREAT, 0644)));
  CxFile_close(&fd);
  umask(old);
  struct stat st;
  ASSERT_EQ(stat(tmp.file("p3").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  ASSERT_EQ(stat(tmp.file("p4").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
}

TEST_F(CxFileTest, SeekSucceedsOnlyWhenThePositionEndsAtZero) {
  std::string path = tmp.file("seek");
  ASSERT_TRUE(writeText(path, "0123456789"));
  int fd = -1;
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), CX_O_RDONLY)));
  CxStatus s = CxFile_seek(fd, 0, CX_SEEK_END);
  EXPECT_FALSE(CxStatus_isOk(s));
  EXPECT_EQ(s.origin, 'p');
  /* The position moved all the same: nothing is left to read. */
  char buf[4];
  int count = -1;
  CxFile_read(fd, buf, sizeof buf, &count);
  EXPECT_EQ(count, 0);
  EXPECT_TRUE(CxStatus_isOk(CxFile_seek(fd, 0, CX_SEEK_SET)));
  EXPECT_FALSE(CxStatus_isOk(CxFile_seek(fd, 4, CX_SEEK_SET)));
  EXPECT_TRUE(CxStatus_isOk(CxFile_seek(fd, -4, CX_SEEK_CUR)));
  CxFile_read(fd, buf, 2, &count);
  EXPECT_EQ(std::string(buf, 2), "01");
  CxFile_close(&fd);
  /* The end of an empty file is position 0, so that seek succeeds. */
  ASSERT_TRUE(writeText(path, ""));
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), CX_O_RDONLY)));
  EXPECT_TRUE(CxStatus_isOk(CxFile_seek(fd, 0, CX_SEEK_END)));
  CxFile_close(&fd);
  expectStatus(CxFile_seek(-1, 0, CX_SEEK_SET), 'p', EBADF);
}

TEST_F(CxFileTest, TruncateLeavesSizeZeroAndPositionAtStart) {
  std::string path = tmp.file("trunc");
  ASSERT_TRUE(writeText(path, "some old content"));
  int fd = -1, count = 0;
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), CX_O_RDWR)));
  char buf[4];
  CxFile_read(fd, buf, sizeof buf, &count);
  ASSERT_TRUE(CxStatus_isOk(CxFile_truncate(fd)));
  int64_t size = -1;
  ASSERT_TRUE(CxStatus_isOk(CxFile_stat(fd, &size)));
  EXPECT_EQ(size, 0);
  CxFile_write(fd, "new", 3, &count);
  CxFile_close(&fd);
  EXPECT_EQ(readText(path), "new");
  expectStatus(CxFile_truncate(-1), 'p', EBADF);
}

TEST_F(CxFileTest, TruncateOfAReadOnlyDescriptorFails) {
  std::string path = tmp.file("trunc-ro");
  ASSERT_TRUE(writeText(path, "keep"));
  int fd = -1;
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), CX_O_RDONLY)));
  CxStatus s = CxFile_truncate(fd);
  EXPECT_EQ(s.origin, 'p');
  EXPECT_NE(s.code, 0);
  CxFile_close(&fd);
  EXPECT_EQ(readText(path), "keep");
}

TEST_F(CxFileTest, StatReportsTheSizeOfTheOpenFile) {
  std::string path = tmp.file("size");
  ASSERT_TRUE(writeText(path, std::string(1234, 'z')));
  int fd = -1;
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), CX_O_RDONLY)));
  int64_t size = 0;
  ASSERT_TRUE(CxStatus_isOk(CxFile_stat(fd, &size)));
  EXPECT_EQ(size, 1234);
  CxFile_close(&fd);
  expectStatus(CxFile_stat(fd, &size), 'p', EBADF);
}

TEST_F(CxFileTest, StatPathFillsSizeAndTheThreeTimesInOrder) {
  std::string path = tmp.file("times");
  ASSERT_TRUE(writeText(path, "12345"));
  time_t before = time(nullptr);
  struct timespec times[2];
  times[0].tv_sec = 1000000000; /* access */
  times[0].tv_nsec = 0;
  times[1].tv_sec = 1200000000; /* modification */
  times[1].tv_nsec = 0;
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  CxFileStat st;
  ASSERT_TRUE(CxStatus_isOk(CxFile_statPath(&st, path.c_str())));
  EXPECT_EQ(st.size, 5);
  EXPECT_EQ(st.atime, 1000000000);
  EXPECT_EQ(st.mtime, 1200000000);
  /* Changing the times changed the status, now. */
  EXPECT_GE(st.ctime, (int64_t)before - 1);
  EXPECT_LE(st.ctime, (int64_t)time(nullptr) + 1);
  expectStatus(CxFile_statPath(&st, tmp.file("none").c_str()), 'p', ENOENT);
}

TEST_F(CxFileTest, DeleteRemovesAFileAndReportsAMissingOne) {
  std::string path = tmp.file("del");
  ASSERT_TRUE(writeText(path, "x"));
  EXPECT_TRUE(CxStatus_isOk(CxFile_delete(path.c_str())));
  EXPECT_EQ(access(path.c_str(), F_OK), -1);
  expectStatus(CxFile_delete(path.c_str()), 'p', ENOENT);
}

TEST_F(CxFileTest, RenameReplacesAnExistingTarget) {
  std::string from = tmp.file("from"), to = tmp.file("to");
  ASSERT_TRUE(writeText(from, "new content"));
  ASSERT_TRUE(writeText(to, "old content"));
  ASSERT_TRUE(CxStatus_isOk(CxFile_rename(from.c_str(), to.c_str())));
  EXPECT_EQ(readText(to), "new content");
  EXPECT_EQ(access(from.c_str(), F_OK), -1);
  expectStatus(CxFile_rename(from.c_str(), to.c_str()), 'p', ENOENT);
  EXPECT_EQ(readText(to), "new content");
}

TEST_F(CxFileTest, ExistsAndIsDirectoryReturnPlainErrorNumbers) {
  ASSERT_TRUE(writeText(tmp.file("f"), ""));
  CxFilePath dir = pathOf(tmp.path());
  CxFilePath file = pathOf(tmp.file("f"));
  CxFilePath missing = pathOf(tmp.file("nothing"));
  CxFilePath underFile = pathOf(tmp.file("f") + "/x");
  EXPECT_EQ(CxFile_exists(&dir), 0);
  EXPECT_EQ(CxFile_exists(&file), 0);
  EXPECT_EQ(CxFile_exists(&missing), 2);
  EXPECT_EQ(CxFile_exists(&underFile), 2);
  EXPECT_EQ(CxFile_isDirectory(&dir), 0);
  EXPECT_EQ(CxFile_isDirectory(&file), 20);
  EXPECT_EQ(CxFile_isDirectory(&missing), 2);
  /* Backslashes are separators too. */
  CxFilePath back = pathOf(tmp.path() + "\\f");
  EXPECT_EQ(CxFile_isDirectory(&back), 20);
}

TEST_F(CxFileTest, MakeDirsCreatesEveryMissingLevel) {
  ASSERT_EQ(mkdir(tmp.file("a").c_str(), 0700), 0);
  CxFilePath p = pathOf(tmp.file("a/b/c"));
  EXPECT_EQ(CxFile_makeDirs(&p, 0700), 0);
  struct stat st;
  ASSERT_EQ(stat(tmp.file("a/b").c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
  ASSERT_EQ(stat(tmp.file("a/b/c").c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
  /* An existing directory is success. */
  EXPECT_EQ(CxFile_makeDirs(&p, 0700), 0);
  CxFilePath trailing = pathOf(tmp.file("x/y/"));
  EXPECT_EQ(CxFile_makeDirs(&trailing, 0700), 0);
  ASSERT_EQ(stat(tmp.file("x/y").c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
}

TEST_F(CxFileTest, MakeDirsReturns20ForARegularFileOnThePath) {
  ASSERT_TRUE(writeText(tmp.file("plain"), "x"));
  CxFilePath self = pathOf(tmp.file("plain"));
  EXPECT_EQ(CxFile_makeDirs(&self, 0700), 20);
  CxFilePath below = pathOf(tmp.file("plain/sub/deeper"));
  EXPECT_EQ(CxFile_makeDirs(&below, 0700), 20);
  EXPECT_EQ(access(tmp.file("plain/sub").c_str(), F_OK), -1);
}

TEST_F(CxFileTest, MakeDirsReturnsTheErrnoOfAFailedMkdir) {
  if (geteuid() == 0) GTEST_SKIP() << "permissions do not bind root";
  ASSERT_EQ(mkdir(tmp.file("locked").c_str(), 0500), 0);
  CxFilePath p = pathOf(tmp.file("locked/inner/x"));
  EXPECT_EQ(CxFile_makeDirs(&p, 0700), EACCES);
  chmod(tmp.file("locked").c_str(), 0700);
}

TEST_F(CxFileTest, MakeDirsPassesOnTheErrnoOfMkdirWhereTheSystemRefuses) {
  /* /proc/self exists but takes no new directories, not even from root. */
  CxFilePath p = pathOf("/proc/self/ardel-never-created");
  int e = CxFile_makeDirs(&p, 0700);
  EXPECT_TRUE(e == ENOENT || e == EACCES || e == EPERM) << e;
}

TEST_F(CxFileTest, MakeDirsIgnoresTheModeAndUsesTheDefaultPermission) {
  mode_t old = umask(022);
  CxFilePath p = pathOf(tmp.file("m"));
  EXPECT_EQ(CxFile_makeDirs(&p, 0700), 0);
  umask(old);
  struct stat st;
  ASSERT_EQ(stat(tmp.file("m").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0755u);
}

/* ---- CxDirectory ---- */

TEST_F(CxFileTest, ListingAnEmptyDirectoryYieldsDotsThenAnEmptyName) {
  CxDirectory d;
  ASSERT_TRUE(CxStatus_isOk(CxDirectory_open(&d, tmp.path().c_str())));
  std::multiset<std::string> names;
  char name[64];
  for (int i = 0; i < 2; i++) {
    ASSERT_TRUE(CxStatus_isOk(CxDirectory_next(&d, name, sizeof name)));
    names.insert(name);
  }
  EXPECT_EQ(names, (std::multiset<std::string>{".", ".."}));
  strcpy(name, "junk");
  CxStatus s = CxDirectory_next(&d, name, sizeof name);
  EXPECT_TRUE(CxStatus_isOk(s));
  EXPECT_STREQ(name, "");
  /* Asking past the end keeps answering the end. */
  strcpy(name, "junk");
  EXPECT_TRUE(CxStatus_isOk(CxDirectory_next(&d, name, sizeof name)));
  EXPECT_STREQ(name, "");
  EXPECT_TRUE(CxStatus_isOk(CxDirectory_close(&d)));
}

TEST_F(CxFileTest, ListingReturnsEveryEntryOnceAndCanBeRepeated) {
  ASSERT_TRUE(writeText(tmp.file("one"), ""));
  ASSERT_TRUE(writeText(tmp.file("two"), ""));
  ASSERT_EQ(mkdir(tmp.file("sub").c_str(), 0700), 0);
  std::multiset<std::string> expected{".", "..", "one", "two", "sub"};
  CxDirectory d;
  for (int round = 0; round < 2; round++) {
    ASSERT_TRUE(CxStatus_isOk(CxDirectory_open(&d, (tmp.path() + "/").c_str())));
    std::multiset<std::string> names;
    char name[64];
    for (int i = 0; i < 10; i++) {
      ASSERT_TRUE(CxStatus_isOk(CxDirectory_next(&d, name, sizeof name)));
      if (!name[0]) break;
      names.insert(name);
    }
    EXPECT_EQ(names, expected);
    CxDirectory_close(&d);
  }
}

TEST_F(CxFileTest, LongEntryNamesAreCutToTheBuffer) {
  ASSERT_TRUE(writeText(tmp.file("abcdefghij"), ""));
  CxDirectory d;
  ASSERT_TRUE(CxStatus_isOk(CxDirectory_open(&d, tmp.path().c_str())));
  char name[5];
  std::set<std::string> names;
  for (int i = 0; i < 3; i++) {
    ASSERT_TRUE(CxStatus_isOk(CxDirectory_next(&d, name, sizeof name)));
    names.insert(name);
  }
  EXPECT_EQ(names.count("abcd"), 1u);
  CxDirectory_close(&d);
}

TEST_F(CxFileTest, DirectoryOpenRequiresAnExistingDirectory) {
  ASSERT_TRUE(writeText(tmp.file("file"), ""));
  CxDirectory d;
  expectStatus(CxDirectory_open(&d, tmp.file("file").c_str()), 'p', 22);
  expectStatus(CxDirectory_open(&d, tmp.file("missing").c_str()), 'p', 22);
  expectStatus(CxDirectory_open(&d, ""), 'p', 22);
  expectStatus(CxDirectory_open(&d, nullptr), 'p', 22);
  expectStatus(CxDirectory_open(nullptr, tmp.path().c_str()), 'p', 22);
  /* A record whose open failed cannot be walked. */
  char name[8] = "junk";
  expectStatus(CxDirectory_next(&d, name, sizeof name), 'p', 22);
  EXPECT_STREQ(name, "");
  expectStatus(CxDirectory_next(&d, nullptr, 8), 'p', 22);
  expectStatus(CxDirectory_next(&d, name, 0), 'p', 22);
  expectStatus(CxDirectory_close(nullptr), 'p', 22);
}

TEST_F(CxFileTest, ADirectoryRemovedBeforeTheFirstEntryIsReportedByNext) {
  ASSERT_EQ(mkdir(tmp.file("gone").c_str(), 0700), 0);
  CxDirectory d;
  ASSERT_TRUE(CxStatus_isOk(CxDirectory_open(&d, tmp.file("gone").c_str())));
  ASSERT_EQ(rmdir(tmp.file("gone").c_str()), 0);
  char name[8];
  expectStatus(CxDirectory_next(&d, name, sizeof name), 'p', ENOENT);
  CxDirectory_close(&d);
}
