/*
 * Child processes, and the identity of the current process and thread.
 * Children are small /bin/sh or coreutils commands; the shell is only ever
 * there because a test asks for it by name.
 */
#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/CxFile.h"
#include "platform/CxProcess.h"
#include "platform/CxThread.h"
#include "platform/PlatformTestSupport.h"

using ardeltest::readText;
using ardeltest::TempDir;
using ardeltest::writeText;

namespace {

struct ChildRun {
  CxStatus started;
  CxExitInfo info;
};

ChildRun runAndWait(const char* program, std::vector<const char*> args) {
  args.push_back(nullptr);
  ChildRun r;
  memset(&r.info, 0, sizeof r.info);
  CxProcess p;
  r.started = CxProcess_start(&p, program, (char* const*)args.data());
  if (CxStatus_isOk(r.started)) {
    EXPECT_TRUE(CxStatus_isOk(CxProcess_wait(&p, &r.info, 1)));
    CxProcess_close(&p);
  }
  return r;
}

/* Runs a child with its standard output sent to a file and returns what
   it printed: the child inherits our standard streams. */
std::string runCapturingStdout(const TempDir& tmp, const char* program, std::vector<const char*> args) {
  std::string out = tmp.file("stdout.txt");
  fflush(stdout);
  int saved = dup(1);
  int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  EXPECT_GE(fd, 0);
  dup2(fd, 1);
  close(fd);
  ChildRun r = runAndWait(program, args);
  dup2(saved, 1);
  close(saved);
  EXPECT_TRUE(CxStatus_isOk(r.started));
  EXPECT_EQ(r.info.exitCode, 0);
  return readText(out);
}

struct CxProcessTest : ::testing::Test {
  TempDir tmp;
  void SetUp() override { ASSERT_TRUE(tmp.ok()); }
};

}  // namespace

TEST_F(CxProcessTest, WaitReportsTheChildsExitCode) {
  ChildRun r = runAndWait("/bin/sh", {"-c", "exit 3"});
  ASSERT_TRUE(CxStatus_isOk(r.started));
  EXPECT_EQ(r.info.exited, 1);
  EXPECT_EQ(r.info.exitCode, 3);
  EXPECT_EQ(r.info.reserved1, 0);
  EXPECT_EQ(r.info.reserved2, 0);
  r = runAndWait("/bin/sh", {"-c", "exit 0"});
  EXPECT_EQ(r.info.exitCode, 0);
}

TEST_F(CxProcessTest, AChildEndedBySignalReportsExited128PlusTheSignal) {
  ChildRun r = runAndWait("/bin/sh", {"-c", "kill -9 $$"});
  ASSERT_TRUE(CxStatus_isOk(r.started));
  EXPECT_EQ(r.info.exited, 1);
  EXPECT_EQ(r.info.exitCode, 128 + 9);
}

TEST_F(CxProcessTest, EachArgumentReachesTheChildAsExactlyOneWord) {
  std::string out = tmp.file("args.txt");
  /* sh -c script name args...: the script sees name as $0, the rest as "$@". */
  ChildRun r = runAndWait("/bin/sh", {"-c", "printf '%s\\n' \"$#\" \"$@\" > \"$0\"", out.c_str(), "a", "b c", "", "d"});
  ASSERT_TRUE(CxStatus_isOk(r.started));
  EXPECT_EQ(readText(out), "4\na\nb c\n\nd\n");
}

TEST_F(CxProcessTest, ArgumentsAreNeverInterpretedByAShell) {
  std::string marker = tmp.file("marker");
  std::string semicolon = "x; touch " + marker;
  std::string printed = runCapturingStdout(tmp, "/bin/echo", {"a", "b  c", "$HOME", semicolon.c_str(), "*"});
  EXPECT_EQ(printed, "a b  c $HOME " + semicolon + " *\n");
  EXPECT_EQ(access(marker.c_str(), F_OK), -1);
}

TEST_F(CxProcessTest, TheChildSeesTheProgramAsItsFirstWord) {
  std::string printed = runCapturingStdout(tmp, "/bin/cat", {"/proc/self/cmdline"});
  EXPECT_EQ(printed, std::string("/bin/cat\0/proc/self/cmdline\0", 28));
}

TEST_F(CxProcessTest, NullArgumentVectorStartsTheProgramAlone) {
  CxProcess p;
  ASSERT_TRUE(CxStatus_isOk(CxProcess_start(&p, "/bin/true", nullptr)));
  CxExitInfo info;
  ASSERT_TRUE(CxStatus_isOk(CxProcess_wait(&p, &info, 1)));
  EXPECT_EQ(info.exitCode, 0);
  CxProcess_close(&p);
}

TEST_F(CxProcessTest, WaitWithoutFlagOnARunningChildReportsNotExited) {
  std::string gate = tmp.file("gate");
  const char* args[] = {"-c", "while [ ! -e \"$0\" ]; do sleep 0.02; done; exit 5", gate.c_str(), nullptr};
  CxProcess p;
  ASSERT_TRUE(CxStatus_isOk(CxProcess_start(&p, "/bin/sh", (char* const*)args)));
  CxExitInfo info;
  memset(&info, 0x55, sizeof info);
  ASSERT_TRUE(CxStatus_isOk(CxProcess_wait(&p, &info, 0)));
  EXPECT_EQ(info.exited, 0);
  EXPECT_EQ(info.exitCode, 0);
  ASSERT_TRUE(writeText(gate, ""));
  ASSERT_TRUE(CxStatus_isOk(CxProcess_wait(&p, &info, 1)));
  EXPECT_EQ(info.exited, 1);
  EXPECT_EQ(info.exitCode, 5);
  /* The result of an ended child can be asked for again, with either flag. */
  memset(&info, 0, sizeof info);
  ASSERT_TRUE(CxStatus_isOk(CxProcess_wait(&p, &info, 0)));
  EXPECT_EQ(info.exited, 1);
  EXPECT_EQ(info.exitCode, 5);
  EXPECT_TRUE(CxStatus_isOk(CxProcess_close(&p)));
  EXPECT_EQ(p.id, 0);
}

TEST_F(CxProcessTest, ChildrenDoNotInheritTheToolkitsDescriptors) {
  int fd = -1;
  ASSERT_TRUE(CxStatus_isOk(CxFile_open(&fd, tmp.file("private").c_str(), CX_O_WRONLY | CX_O_CREAT)));
  int plain = open(tmp.file("inherited").c_str(), O_WRONLY | O_CREAT, 0600);
  ASSERT_GE(plain, 0);
  std::string probe = "[ -e /dev/fd/" + std::to_string(fd) + " ]";
  std::string control = "[ -e /dev/fd/" + std::to_string(plain) + " ]";
  EXPECT_EQ(runAndWait("/bin/sh", {"-c", probe.c_str()}).info.exitCode, 1);
  /* The probe can see an inherited descriptor, so the 1 above means something. */
  EXPECT_EQ(runAndWait("/bin/sh", {"-c", control.c_str()}).info.exitCode, 0);
  close(plain);
  CxFile_close(&fd);
}

TEST_F(CxProcessTest, AProgramThatCannotBeStartedLeavesTheHandleEmpty) {
  CxProcess p;
  p.id = 99;
  const char* none[] = {nullptr};
  CxStatus s = CxProcess_start(&p, tmp.file("no-such-program").c_str(), (char* const*)none);
  EXPECT_EQ(s.origin, 'p');
  EXPECT_EQ(s.code, ENOENT);
  EXPECT_EQ(p.id, 0);
  ASSERT_TRUE(writeText(tmp.file("not-executable"), "#!/bin/sh\n"));
  s = CxProcess_start(&p, tmp.file("not-executable").c_str(), (char* const*)none);
  EXPECT_EQ(s.origin, 'p');
  EXPECT_EQ(s.code, EACCES);
  /* The program is a path: no search through PATH. */
  s = CxProcess_start(&p, "true", (char* const*)none);
  EXPECT_FALSE(CxStatus_isOk(s));
}

TEST_F(CxProcessTest, NullOrEmptyArgumentsGiveP22) {
  CxProcess p;
  CxExitInfo info;
  CxStatus s = CxProcess_start(&p, "", nullptr);
  EXPECT_EQ(s.origin, 'p');
  EXPECT_EQ(s.code, 22);
  s = CxProcess_start(&p, nullptr, nullptr);
  EXPECT_EQ(s.code, 22);
  s = CxProcess_start(nullptr, "/bin/true", nullptr);
  EXPECT_EQ(s.code, 22);
  memset(&p, 0, sizeof p);
  s = CxProcess_wait(&p, &info, 1);
  EXPECT_EQ(s.origin, 'p');
  EXPECT_EQ(s.code, 22);
  EXPECT_EQ(CxProcess_wait(nullptr, &info, 1).code, 22);
  EXPECT_EQ(CxProcess_close(nullptr).code, 22);
  EXPECT_EQ(CxProcess_getcwd(nullptr).code, 22);
}

TEST(CxProcessIdentity, PidAndCurrentDirectoryAreThoseOfThisProcess) {
  EXPECT_EQ(CxProcess_getpid(), (int32_t)getpid());
  char buf[260];
  ASSERT_TRUE(CxStatus_isOk(CxProcess_getcwd(buf)));
  char expected[4096];
  ASSERT_NE(getcwd(expected, sizeof expected), nullptr);
  EXPECT_STREQ(buf, expected);
}

namespace {
void* recordThreadId(void* out) {
  *(uint32_t*)out = CxThread_getId();
  return nullptr;
}
}  // namespace

TEST(CxThreadId, IsTheKernelThreadIdAndDiffersBetweenThreads) {
  uint32_t mine = CxThread_getId();
  EXPECT_EQ(mine, (uint32_t)syscall(SYS_gettid));
  EXPECT_EQ(CxThread_getId(), mine);
  uint32_t other = 0;
  pthread_t t;
  ASSERT_EQ(pthread_create(&t, nullptr, recordThreadId, &other), 0);
  pthread_join(t, nullptr);
  EXPECT_NE(other, 0u);
  EXPECT_NE(other, mine);
}
