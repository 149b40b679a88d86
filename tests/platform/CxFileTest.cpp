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

#define EXPECT_STATUS(call, o, c)   \
  do {                              \
    CxStatus s_ = (call);           \
    EXPECT_EQ(s_.origin, o) << #call; \
    EXPECT_EQ(s_.code, c) << #call;   \
  } while (0)
#define ASSERT_OK(call) ASSERT_TRUE(CxStatus_isOk(call)) << #call

namespace {

CxFilePath pathOf(const std::string& text) {
  CxFilePath p;
  EXPECT_EQ(CxFilePath_set(&p, text.c_str()), 1);
  return p;
}
int exists(const std::string& text) {
  CxFilePath p = pathOf(text);
  return CxFile_exists(&p);
}
int isDirectory(const std::string& text) {
  CxFilePath p = pathOf(text);
  return CxFile_isDirectory(&p);
}
int makeDirs(const std::string& text) {
  CxFilePath p = pathOf(text);
  return CxFile_makeDirs(&p, 0700);
}
mode_t modeOf(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_mode : 0;
}

struct CxFileTest : ::testing::Test {
  TempDir tmp;
  int fd = -1;
  void SetUp() override { ASSERT_TRUE(tmp.ok()); }
  void TearDown() override {
    if (fd >= 0) CxFile_close(&fd);
  }
  /* Writes content to name (when given) and opens it into fd. */
  std::string open(const std::string& name, int flags, const char* content = nullptr) {
    std::string path = tmp.file(name);
    if (content) { EXPECT_TRUE(writeText(path, content)); }
    EXPECT_TRUE(CxStatus_isOk(CxFile_open(&fd, path.c_str(), flags))) << name;
    return path;
  }
  /* Every entry of a listing up to its end, reading names into a buffer of size bytes. */
  std::multiset<std::string> list(const std::string& dir, size_t size = 64) {
    CxDirectory d;
    std::multiset<std::string> names;
    EXPECT_TRUE(CxStatus_isOk(CxDirectory_open(&d, dir.c_str())));
    char name[64];
    for (int i = 0; i < 10; i++) {
      EXPECT_TRUE(CxStatus_isOk(CxDirectory_next(&d, name, size)));
      if (!name[0]) break;
      names.insert(name);
    }
    /* Asking past the end keeps answering the end. */
    strcpy(name, "junk");
    EXPECT_TRUE(CxStatus_isOk(CxDirectory_next(&d, name, size)));
    EXPECT_STREQ(name, "");
    EXPECT_TRUE(CxStatus_isOk(CxDirectory_close(&d)));
    return names;
  }
};

}  // namespace

/* ---- CxFilePath ---- */

TEST(CxFilePath, BackslashesBecomeSlashesTheLastSeparatorIsRecordedAndTextFits259Bytes) {
  struct { std::string in; int ok; std::string text; int length, lastSep; } cases[] = {
      {"C:\\logs\\sub/trace.log", 1, "C:/logs/sub/trace.log", 21, 11},
      {"trace.log", 1, "trace.log", 9, -1},
      {std::string(259, 'a'), 1, std::string(259, 'a'), 259, -1},
      {std::string(260, 'a'), 0, "", 0, -1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in);
    CxFilePath p;
    ASSERT_EQ(CxFilePath_set(&p, c.in.c_str()), c.ok);
    EXPECT_EQ(p.text, c.text);
    EXPECT_EQ(p.length, c.length);
    if (c.ok) { EXPECT_EQ(p.lastSep, c.lastSep); }
  }
}

TEST(CxFilePath, NullArgumentsAreRefused) {
  CxFilePath p;
  EXPECT_EQ(CxFilePath_set(nullptr, "a"), 0);
  EXPECT_EQ(CxFilePath_set(&p, nullptr), 0);
  EXPECT_EQ(p.length, 0);
}

/* ---- null and empty arguments ---- */

TEST(CxFileArguments, NullOrEmptyArgumentsGiveP22) {
  int fd = 5, count = 7;
  EXPECT_STATUS(CxFile_open(&fd, nullptr, CX_O_RDONLY), 'p', 22);
  EXPECT_EQ(fd, -1);
  fd = 5;
  EXPECT_STATUS(CxFile_open(&fd, "", CX_O_RDONLY), 'p', 22);
  EXPECT_EQ(fd, -1);
  EXPECT_STATUS(CxFile_open(nullptr, "/tmp", CX_O_RDONLY), 'p', 22);
  EXPECT_STATUS(CxFile_close(nullptr), 'p', 22);
  char buf[4];
  EXPECT_STATUS(CxFile_read(0, nullptr, 4, &count), 'p', 22);
  EXPECT_EQ(count, -1);
  EXPECT_STATUS(CxFile_read(0, buf, 4, nullptr), 'p', 22);
  EXPECT_STATUS(CxFile_write(1, nullptr, 4, &count), 'p', 22);
  EXPECT_STATUS(CxFile_stat(0, nullptr), 'p', 22);
  CxFileStat st;
  EXPECT_STATUS(CxFile_statPath(&st, ""), 'p', 22);
  EXPECT_STATUS(CxFile_statPath(&st, nullptr), 'p', 22);
  EXPECT_STATUS(CxFile_statPath(nullptr, "/"), 'p', 22);
  EXPECT_STATUS(CxFile_delete(""), 'p', 22);
  EXPECT_STATUS(CxFile_rename("", "x"), 'p', 22);
  EXPECT_STATUS(CxFile_rename("x", nullptr), 'p', 22);
  CxFilePath empty;
  CxFilePath_set(&empty, "");
  for (CxFilePath* p : {(CxFilePath*)nullptr, &empty}) {
    EXPECT_EQ(CxFile_exists(p), 22);
    EXPECT_EQ(CxFile_isDirectory(p), 22);
    EXPECT_EQ(CxFile_makeDirs(p, 0755), 22);
  }
}

TEST(CxFileArguments, FlagsOutsideTheCxSetAreRefused) {
  int fd = 3;
  /* A native O_CREAT slipped in by mistake must not be guessed at. */
  EXPECT_STATUS(CxFile_open(&fd, "/tmp/never-created", CX_O_RDWR | 0x40), 'p', 22);
  EXPECT_EQ(fd, -1);
  EXPECT_STATUS(CxFile_open(&fd, "/tmp/never-created", CX_O_WRONLY | CX_O_RDWR), 'p', 22);
  EXPECT_STATUS(CxFile_seek(0, 0, 7), 'p', 22);
}

/* ---- descriptors ---- */

TEST_F(CxFileTest, OpenMissingFileFailsWithErrnoAndMinusOne) {
  fd = 4;
  EXPECT_STATUS(CxFile_open(&fd, tmp.file("missing").c_str(), CX_O_RDONLY), 'p', ENOENT);
  EXPECT_EQ(fd, -1);
}

TEST_F(CxFileTest, CloseAlwaysLeavesMinusOne) {
  open("a", CX_O_WRONLY | CX_O_CREAT);
  ASSERT_GE(fd, 0);
  EXPECT_TRUE(CxStatus_isOk(CxFile_close(&fd)));
  EXPECT_EQ(fd, -1);
  /* Closing again, or a stale number, fails (bad descriptor) and still leaves -1. */
  for (int start : {-1, 1000}) {
    fd = start;
    EXPECT_STATUS(CxFile_close(&fd), 'p', EBADF);
    EXPECT_EQ(fd, -1);
  }
}

TEST_F(CxFileTest, WrittenBytesReadBackAndCountsAreStored) {
  std::string path = open("rw", CX_O_RDWR | CX_O_CREAT);
  int count = 0;
  ASSERT_OK(CxFile_write(fd, "hello world", 11, &count));
  EXPECT_EQ(count, 11);
  ASSERT_OK(CxFile_seek(fd, 0, CX_SEEK_SET));
  char buf[32] = {0};
  ASSERT_OK(CxFile_read(fd, buf, sizeof buf, &count));
  EXPECT_EQ(std::string(buf, count), "hello world");
  ASSERT_OK(CxFile_read(fd, buf, sizeof buf, &count));
  EXPECT_EQ(count, 0);
  CxFile_close(&fd);
  EXPECT_EQ(readText(path), "hello world");
}

TEST_F(CxFileTest, FailedReadAndWriteStoreCountMinusOne) {
  char buf[4];
  int count = 5;
  open("ro", CX_O_RDONLY, "data");
  EXPECT_STATUS(CxFile_write(fd, "x", 1, &count), 'p', EBADF);
  EXPECT_EQ(count, -1);
  CxFile_close(&fd);
  open("ro", CX_O_WRONLY);
  count = 5;
  EXPECT_STATUS(CxFile_read(fd, buf, sizeof buf, &count), 'p', EBADF);
  EXPECT_EQ(count, -1);
}

TEST_F(CxFileTest, AppendFlagWritesAtTheEndTruncFlagEmptiesAndExclRefusesAnExistingFile) {
  int count = 0;
  std::string path = open("app", CX_O_WRONLY | CX_O_APPEND, "abc");
  CxFile_write(fd, "def", 3, &count);
  CxFile_close(&fd);
  EXPECT_EQ(readText(path), "abcdef");
  open("app", CX_O_WRONLY | CX_O_TRUNC);
  CxFile_close(&fd);
  EXPECT_EQ(readText(path), "");
  EXPECT_STATUS(CxFile_open(&fd, path.c_str(), CX_O_WRONLY | CX_O_CREAT | CX_O_EXCL), 'p', EEXIST);
}

TEST_F(CxFileTest, CreatedFilesGetOwnerOnlyPermissionUnlessAModeIsGiven) {
  mode_t old = umask(022);
  open("p3", CX_O_WRONLY | CX_O_CREAT);
  CxFile_close(&fd);
  ASSERT_OK(CxFile_openMode(&fd, tmp.file("p4").c_str(), CX_O_WRONLY | CX_O_CREAT, 0644));
  umask(old);
  EXPECT_EQ(modeOf(tmp.file("p3")) & 0777, 0600u);
  EXPECT_EQ(modeOf(tmp.file("p4")) & 0777, 0644u);
}

TEST_F(CxFileTest, SeekSucceedsOnlyWhenThePositionEndsAtZero) {
  std::string path = open("seek", CX_O_RDONLY, "0123456789");
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
  open("seek", CX_O_RDONLY, "");
  EXPECT_TRUE(CxStatus_isOk(CxFile_seek(fd, 0, CX_SEEK_END)));
  EXPECT_STATUS(CxFile_seek(-1, 0, CX_SEEK_SET), 'p', EBADF);
}

TEST_F(CxFileTest, TruncateLeavesSizeZeroAndPositionAtStartButNotThroughAReadOnlyDescriptor) {
  int count = 0;
  int64_t size = -1;
  char buf[4];
  std::string path = open("trunc", CX_O_RDWR, "some old content");
  CxFile_read(fd, buf, sizeof buf, &count);
  ASSERT_OK(CxFile_truncate(fd));
  ASSERT_OK(CxFile_stat(fd, &size));
  EXPECT_EQ(size, 0);
  CxFile_write(fd, "new", 3, &count);
  CxFile_close(&fd);
  EXPECT_EQ(readText(path), "new");
  EXPECT_STATUS(CxFile_truncate(-1), 'p', EBADF);
  open("trunc", CX_O_RDONLY, "keep");
  CxStatus s = CxFile_truncate(fd);
  EXPECT_EQ(s.origin, 'p');
  EXPECT_NE(s.code, 0);
  EXPECT_EQ(readText(path), "keep");
}

TEST_F(CxFileTest, StatReportsTheSizeOfTheOpenFile) {
  open("size", CX_O_RDONLY, std::string(1234, 'z').c_str());
  int64_t size = 0;
  ASSERT_OK(CxFile_stat(fd, &size));
  EXPECT_EQ(size, 1234);
  CxFile_close(&fd);
  EXPECT_STATUS(CxFile_stat(fd, &size), 'p', EBADF);
}

TEST_F(CxFileTest, StatPathFillsSizeAndTheThreeTimesInOrder) {
  std::string path = tmp.file("times");
  ASSERT_TRUE(writeText(path, "12345"));
  time_t before = time(nullptr);
  struct timespec times[2] = {{1000000000, 0}, {1200000000, 0}}; /* access, modification */
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  CxFileStat st;
  ASSERT_OK(CxFile_statPath(&st, path.c_str()));
  EXPECT_EQ(st.size, 5);
  EXPECT_EQ(st.atime, 1000000000);
  EXPECT_EQ(st.mtime, 1200000000);
  /* Changing the times changed the status, now. */
  EXPECT_GE(st.ctime, (int64_t)before - 1);
  EXPECT_LE(st.ctime, (int64_t)time(nullptr) + 1);
  EXPECT_STATUS(CxFile_statPath(&st, tmp.file("none").c_str()), 'p', ENOENT);
}

TEST_F(CxFileTest, DeleteRemovesAFileAndReportsAMissingOne) {
  std::string path = tmp.file("del");
  ASSERT_TRUE(writeText(path, "x"));
  EXPECT_TRUE(CxStatus_isOk(CxFile_delete(path.c_str())));
  EXPECT_EQ(access(path.c_str(), F_OK), -1);
  EXPECT_STATUS(CxFile_delete(path.c_str()), 'p', ENOENT);
}

TEST_F(CxFileTest, RenameReplacesAnExistingTarget) {
  std::string from = tmp.file("from"), to = tmp.file("to");
  ASSERT_TRUE(writeText(from, "new content"));
  ASSERT_TRUE(writeText(to, "old content"));
  ASSERT_OK(CxFile_rename(from.c_str(), to.c_str()));
  EXPECT_EQ(readText(to), "new content");
  EXPECT_EQ(access(from.c_str(), F_OK), -1);
  EXPECT_STATUS(CxFile_rename(from.c_str(), to.c_str()), 'p', ENOENT);
  EXPECT_EQ(readText(to), "new content");
}

TEST_F(CxFileTest, ExistsAndIsDirectoryReturnPlainErrorNumbers) {
  ASSERT_TRUE(writeText(tmp.file("f"), ""));
  /* name, exists, isDirectory; backslashes are separators too */
  struct { std::string path; int exists, isDir; } cases[] = {
      {tmp.path(), 0, 0}, {tmp.file("f"), 0, 20}, {tmp.file("nothing"), 2, 2},
      {tmp.file("f") + "/x", 2, -1}, {tmp.path() + "\\f", -1, 20}};
  for (const auto& c : cases) {
    if (c.exists >= 0) { EXPECT_EQ(exists(c.path), c.exists) << c.path; }
    if (c.isDir >= 0) { EXPECT_EQ(isDirectory(c.path), c.isDir) << c.path; }
  }
}

TEST_F(CxFileTest, MakeDirsCreatesEveryMissingLevelAndAcceptsAnExistingDirectory) {
  ASSERT_EQ(mkdir(tmp.file("a").c_str(), 0700), 0);
  EXPECT_EQ(makeDirs(tmp.file("a/b/c")), 0);
  EXPECT_TRUE(S_ISDIR(modeOf(tmp.file("a/b"))));
  EXPECT_TRUE(S_ISDIR(modeOf(tmp.file("a/b/c"))));
  EXPECT_EQ(makeDirs(tmp.file("a/b/c")), 0);
  EXPECT_EQ(makeDirs(tmp.file("x/y/")), 0);
  EXPECT_TRUE(S_ISDIR(modeOf(tmp.file("x/y"))));
}

TEST_F(CxFileTest, MakeDirsReturns20ForARegularFileOnThePath) {
  ASSERT_TRUE(writeText(tmp.file("plain"), "x"));
  EXPECT_EQ(makeDirs(tmp.file("plain")), 20);
  EXPECT_EQ(makeDirs(tmp.file("plain/sub/deeper")), 20);
  EXPECT_EQ(access(tmp.file("plain/sub").c_str(), F_OK), -1);
}

TEST_F(CxFileTest, MakeDirsReturnsTheErrnoOfAFailedMkdir) {
  /* /proc/self exists but takes no new directories, not even from root. */
  int e = makeDirs("/proc/self/ardel-never-created");
  EXPECT_TRUE(e == ENOENT || e == EACCES || e == EPERM) << e;
  if (geteuid() == 0) GTEST_SKIP() << "permissions do not bind root";
  ASSERT_EQ(mkdir(tmp.file("locked").c_str(), 0500), 0);
  EXPECT_EQ(makeDirs(tmp.file("locked/inner/x")), EACCES);
  chmod(tmp.file("locked").c_str(), 0700);
}

TEST_F(CxFileTest, MakeDirsIgnoresTheModeAndUsesTheDefaultPermission) {
  mode_t old = umask(022);
  EXPECT_EQ(makeDirs(tmp.file("m")), 0);
  umask(old);
  EXPECT_EQ(modeOf(tmp.file("m")) & 0777, 0755u);
}

/* ---- CxDirectory ---- */

TEST_F(CxFileTest, ListingYieldsEveryEntryOnceThenAnEmptyNameAndCanBeRepeated) {
  EXPECT_EQ(list(tmp.path()), (std::multiset<std::string>{".", ".."}));
  ASSERT_TRUE(writeText(tmp.file("one"), ""));
  ASSERT_TRUE(writeText(tmp.file("two"), ""));
  ASSERT_EQ(mkdir(tmp.file("sub").c_str(), 0700), 0);
  std::multiset<std::string> expected{".", "..", "one", "two", "sub"};
  EXPECT_EQ(list(tmp.path() + "/"), expected);
  EXPECT_EQ(list(tmp.path() + "/"), expected);
}

TEST_F(CxFileTest, LongEntryNamesAreCutToTheBuffer) {
  ASSERT_TRUE(writeText(tmp.file("abcdefghij"), ""));
  EXPECT_EQ(list(tmp.path(), 5), (std::multiset<std::string>{".", "..", "abcd"}));
}

TEST_F(CxFileTest, DirectoryOpenRequiresAnExistingDirectory) {
  ASSERT_TRUE(writeText(tmp.file("file"), ""));
  CxDirectory d;
  EXPECT_STATUS(CxDirectory_open(&d, tmp.file("file").c_str()), 'p', 22);
  EXPECT_STATUS(CxDirectory_open(&d, tmp.file("missing").c_str()), 'p', 22);
  EXPECT_STATUS(CxDirectory_open(&d, ""), 'p', 22);
  EXPECT_STATUS(CxDirectory_open(&d, nullptr), 'p', 22);
  EXPECT_STATUS(CxDirectory_open(nullptr, tmp.path().c_str()), 'p', 22);
  /* A record whose open failed cannot be walked. */
  char name[8] = "junk";
  EXPECT_STATUS(CxDirectory_next(&d, name, sizeof name), 'p', 22);
  EXPECT_STREQ(name, "");
  EXPECT_STATUS(CxDirectory_next(&d, nullptr, 8), 'p', 22);
  EXPECT_STATUS(CxDirectory_next(&d, name, 0), 'p', 22);
  EXPECT_STATUS(CxDirectory_close(nullptr), 'p', 22);
}

TEST_F(CxFileTest, ADirectoryRemovedBeforeTheFirstEntryIsReportedByNext) {
  ASSERT_EQ(mkdir(tmp.file("gone").c_str(), 0700), 0);
  CxDirectory d;
  ASSERT_OK(CxDirectory_open(&d, tmp.file("gone").c_str()));
  ASSERT_EQ(rmdir(tmp.file("gone").c_str()), 0);
  char name[8];
  EXPECT_STATUS(CxDirectory_next(&d, name, sizeof name), 'p', ENOENT);
  CxDirectory_close(&d);
}
