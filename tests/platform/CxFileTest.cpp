// SPDX-License-Identifier: Apache-2.0
// Files, paths and directory listings: the return rules callers rely on.
#include <errno.h>

#include <filesystem>
#include <set>

#include "platform/CxDirectory.h"
#include "platform/CxFile.h"
#include "platform/CxFilePath.h"
#include "support/TestSupport.h"

using ardeltest::readFile;
using ardeltest::statusText;

namespace {

CxFilePath pathOf(const std::string& text) {
  CxFilePath p;
  EXPECT_EQ(CxFilePath_set(&p, text.c_str()), 1);
  return p;
}
std::string ebadf() { return statusText('p', EBADF); }

struct CxFileTest : ::testing::Test {
  ardeltest::TempDir tmp;
  int fd = -1;
  void TearDown() override { CxFile_close(&fd); }
  // Writes content to name (when given) and opens it into fd.
  std::string open(const std::string& name, int flags, const char* content = nullptr) {
    if (content) tmp.write(name, content);
    EXPECT_EQ(STATUS_OF(CxFile_open(&fd, tmp.file(name).c_str(), flags)), "ok") << name;
    return tmp.file(name);
  }
  // Every entry of a listing up to its end, read into a buffer of size bytes; past the end it keeps answering the end.
  std::multiset<std::string> list(const std::string& dir, size_t size = 64) {
    CxDirectory d;
    std::multiset<std::string> names;
    EXPECT_EQ(STATUS_OF(CxDirectory_open(&d, dir.c_str())), "ok");
    char name[64] = "junk";
    for (int i = 0; i < 12 && name[0]; i++) {
      EXPECT_EQ(STATUS_OF(CxDirectory_next(&d, name, size)), "ok");
      if (name[0]) names.insert(name);
    }
    EXPECT_EQ(STATUS_OF(CxDirectory_next(&d, name, size)), "ok");
    EXPECT_STREQ(name, "");
    EXPECT_EQ(STATUS_OF(CxDirectory_close(&d)), "ok");
    return names;
  }
};

}  // namespace

TEST(CxFilePath, BackslashesBecomeSlashesTheLastSeparatorIsRecordedAndTextFits259Bytes) {
  const struct { std::string in; int ok; std::string text; int length, lastSep; } cases[] = {
      {"C:\\logs\\sub/trace.log", 1, "C:/logs/sub/trace.log", 21, 11}, {"trace.log", 1, "trace.log", 9, -1},
      {std::string(259, 'a'), 1, std::string(259, 'a'), 259, -1}, {std::string(260, 'a'), 0, "", 0, -1}};
  for (const auto& c : cases) {
    CxFilePath p;
    ASSERT_EQ(CxFilePath_set(&p, c.in.c_str()), c.ok) << c.in;
    EXPECT_TRUE(p.text == c.text && p.length == c.length && (!c.ok || p.lastSep == c.lastSep)) << c.in;
  }
  CxFilePath p;
  EXPECT_EQ(CxFilePath_set(nullptr, "a") + CxFilePath_set(&p, nullptr), 0);
  EXPECT_EQ(p.length, 0);
}

TEST(CxFileArguments, NullEmptyOrForeignArgumentsGiveP22) {
  int fd = 5, count = 7;
  char buf[4];
  CxFileStat st;
  CxFilePath empty;
  CxFilePath_set(&empty, "");
  const CxStatus refused[] = {
      CxFile_open(nullptr, "/tmp", CX_O_RDONLY), CxFile_close(nullptr), CxFile_read(0, buf, 4, nullptr),
      CxFile_write(1, nullptr, 4, &count), CxFile_stat(0, nullptr), CxFile_statPath(&st, ""),
      CxFile_statPath(&st, nullptr), CxFile_statPath(nullptr, "/"), CxFile_delete(""), CxFile_rename("", "x"),
      CxFile_rename("x", nullptr), CxFile_seek(0, 0, 7), CxFile_read(0, nullptr, 4, &count),
      // a native O_CREAT slipped in by mistake must not be guessed at
      CxFile_open(&fd, "/tmp/never-created", CX_O_RDWR | 0x40), CxFile_open(&fd, "/tmp/never-created", CX_O_WRONLY | CX_O_RDWR),
      CxFile_open(&fd, nullptr, CX_O_RDONLY), CxFile_open(&fd, "", CX_O_RDONLY)};
  for (const CxStatus& s : refused) EXPECT_EQ(STATUS_OF(s), "p 22");
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(count, -1);
  for (CxFilePath* p : {static_cast<CxFilePath*>(nullptr), &empty})
    EXPECT_TRUE(CxFile_exists(p) == 22 && CxFile_isDirectory(p) == 22 && CxFile_makeDirs(p, 0755) == 22);
}

TEST_F(CxFileTest, DescriptorsReadWriteAppendTruncateAndAlwaysCloseToMinusOne) {
  fd = 4;
  EXPECT_EQ(STATUS_OF(CxFile_open(&fd, tmp.file("missing").c_str(), CX_O_RDONLY)), statusText('p', ENOENT));
  EXPECT_EQ(fd, -1);
  std::string path = open("rw", CX_O_RDWR | CX_O_CREAT);
  int count = 0;
  char buf[32] = {0};
  ASSERT_EQ(STATUS_OF(CxFile_write(fd, "hello world", 11, &count)), "ok");
  EXPECT_EQ(count, 11);
  EXPECT_EQ(STATUS_OF(CxFile_flush(fd)), "ok");
  ASSERT_EQ(STATUS_OF(CxFile_seek(fd, 0, CX_SEEK_SET)), "ok");
  ASSERT_EQ(STATUS_OF(CxFile_read(fd, buf, sizeof buf, &count)), "ok");
  EXPECT_EQ(std::string(buf, count), "hello world");
  ASSERT_EQ(STATUS_OF(CxFile_read(fd, buf, sizeof buf, &count)), "ok");
  EXPECT_EQ(count, 0);
  EXPECT_EQ(STATUS_OF(CxFile_close(&fd)), "ok");
  for (int start : {-1, 1000}) {  // closing again, or a stale number, still leaves -1
    fd = start;
    EXPECT_EQ(STATUS_OF(CxFile_close(&fd)), ebadf());
    EXPECT_EQ(fd, -1);
  }
  EXPECT_EQ(STATUS_OF(CxFile_flush(-1)), ebadf());
  open("rw", CX_O_WRONLY | CX_O_APPEND);
  CxFile_write(fd, "!", 1, &count);
  EXPECT_EQ(STATUS_OF(CxFile_read(fd, buf, sizeof buf, &count)), ebadf());
  EXPECT_EQ(count, -1);
  CxFile_close(&fd);
  EXPECT_EQ(readFile(path), "hello world!");
  open("rw", CX_O_RDONLY);
  EXPECT_EQ(STATUS_OF(CxFile_write(fd, "x", 1, &count)), ebadf());
  EXPECT_EQ(count, -1);
  EXPECT_EQ(CxFile_truncate(fd).origin, 'p') << "not through a read-only descriptor";
  CxFile_close(&fd);
  EXPECT_EQ(STATUS_OF(CxFile_open(&fd, path.c_str(), CX_O_WRONLY | CX_O_CREAT | CX_O_EXCL)), statusText('p', EEXIST));
  open("rw", CX_O_RDWR);
  CxFile_read(fd, buf, 4, &count);
  ASSERT_EQ(STATUS_OF(CxFile_truncate(fd)), "ok");
  int64_t size = -1;
  ASSERT_EQ(STATUS_OF(CxFile_stat(fd, &size)), "ok");
  EXPECT_EQ(size, 0);
  CxFile_write(fd, "new", 3, &count);
  CxFile_close(&fd);
  EXPECT_EQ(readFile(path), "new") << "truncate leaves the position at the start";
  EXPECT_EQ(STATUS_OF(CxFile_truncate(-1)), ebadf());
  EXPECT_EQ(STATUS_OF(CxFile_stat(-1, &size)), ebadf());
  open("rw", CX_O_WRONLY | CX_O_TRUNC);
  CxFile_close(&fd);
  EXPECT_EQ(readFile(path), "");
}

TEST_F(CxFileTest, SeekSucceedsOnlyWhenThePositionEndsAtZero) {
  open("seek", CX_O_RDONLY, "0123456789");
  EXPECT_EQ(CxFile_seek(fd, 0, CX_SEEK_END).origin, 'p');
  char buf[4];
  int count = -1;
  CxFile_read(fd, buf, sizeof buf, &count);
  EXPECT_EQ(count, 0) << "the position moved all the same";
  EXPECT_EQ(STATUS_OF(CxFile_seek(fd, 0, CX_SEEK_SET)), "ok");
  EXPECT_EQ(CxFile_seek(fd, 4, CX_SEEK_SET).origin, 'p');
  EXPECT_EQ(STATUS_OF(CxFile_seek(fd, -4, CX_SEEK_CUR)), "ok");
  CxFile_read(fd, buf, 2, &count);
  EXPECT_EQ(std::string(buf, 2), "01");
  CxFile_close(&fd);
  open("seek", CX_O_RDONLY, "");
  EXPECT_EQ(STATUS_OF(CxFile_seek(fd, 0, CX_SEEK_END)), "ok") << "the end of an empty file is position 0";
  EXPECT_EQ(STATUS_OF(CxFile_seek(-1, 0, CX_SEEK_SET)), ebadf());
}

TEST_F(CxFileTest, ExistsIsDirectoryAndMakeDirsReturnPlainErrorNumbers) {
  tmp.write("f", "");
  // path, exists, isDirectory, makeDirs (-1: not asked); backslashes are separators too
  const struct { std::string path; int exists, isDir, make; } cases[] = {
      {tmp.path(), 0, 0, 0}, {tmp.file("f"), 0, 20, 20}, {tmp.file("nothing"), 2, 2, -1}, {tmp.file("f") + "/x", 2, -1, 20},
      {tmp.path() + "\\f", -1, 20, -1}, {tmp.file("f/sub/deeper"), -1, -1, 20}, {tmp.file("a/b/c"), -1, -1, 0},
      {tmp.file("a/b/c"), 0, 0, 0}, {tmp.file("x/y/"), -1, -1, 0}, {tmp.file("x/y"), -1, 0, -1}};
  for (const auto& c : cases) {
    CxFilePath p = pathOf(c.path);
    if (c.make >= 0) { EXPECT_EQ(CxFile_makeDirs(&p, 0700), c.make) << c.path; }
    if (c.exists >= 0) { EXPECT_EQ(CxFile_exists(&p), c.exists) << c.path; }
    if (c.isDir >= 0) { EXPECT_EQ(CxFile_isDirectory(&p), c.isDir) << c.path; }
  }
  EXPECT_FALSE(std::filesystem::exists(tmp.file("f/sub")));
}

TEST_F(CxFileTest, ListingsYieldEveryEntryOnceCutLongNamesAndNeedAnExistingDirectory) {
  EXPECT_EQ(list(tmp.path()), (std::multiset<std::string>{".", ".."}));
  tmp.write("one", "");
  tmp.write("abcdefghij", "");
  ASSERT_TRUE(std::filesystem::create_directory(tmp.file("sub")));
  const std::multiset<std::string> all{".", "..", "one", "abcdefghij", "sub"};
  EXPECT_EQ(list(tmp.path() + "/"), all);
  EXPECT_EQ(list(tmp.path() + "/"), all) << "a listing can be repeated";
  EXPECT_EQ(list(tmp.path(), 5), (std::multiset<std::string>{".", "..", "one", "abcd", "sub"}));
  CxDirectory d;
  const std::string file = tmp.file("one"), missing = tmp.file("missing");
  for (const char* bad : {file.c_str(), missing.c_str(), "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(STATUS_OF(CxDirectory_open(&d, bad)), "p 22");
  EXPECT_EQ(STATUS_OF(CxDirectory_open(nullptr, tmp.path().c_str())), "p 22");
  char name[8] = "junk";  // a record whose open failed cannot be walked
  EXPECT_EQ(STATUS_OF(CxDirectory_next(&d, name, sizeof name)), "p 22");
  EXPECT_STREQ(name, "");
  EXPECT_EQ(STATUS_OF(CxDirectory_next(&d, nullptr, 8)), "p 22");
  EXPECT_EQ(STATUS_OF(CxDirectory_next(&d, name, 0)), "p 22");
  EXPECT_EQ(STATUS_OF(CxDirectory_close(nullptr)), "p 22");
  ASSERT_EQ(STATUS_OF(CxDirectory_open(&d, tmp.file("sub").c_str())), "ok");
  ASSERT_TRUE(std::filesystem::remove(tmp.file("sub")));
  EXPECT_TRUE(ardeltest::isNotFound(STATUS_OF(CxDirectory_next(&d, name, sizeof name)))) << "removed before the first entry";
  CxDirectory_close(&d);
}
