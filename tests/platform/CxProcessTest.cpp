// SPDX-License-Identifier: Apache-2.0
// Child processes, and the identity of the current process and thread.
// Children are small /bin/sh or coreutils commands.
#include <errno.h>
#include <sys/syscall.h>

#include <thread>
#include <vector>

#include "platform/CxFile.h"
#include "platform/CxProcess.h"
#include "platform/CxThread.h"
#include "support/TestSupport.h"

using ardeltest::statusOf;

namespace {

// Starts program with args and waits; "start status / exited code".
std::string run(const char* program, std::vector<const char*> args) {
  args.push_back(nullptr);
  CxProcess p;
  CxExitInfo info{};
  std::string started = statusOf(CxProcess_start(&p, program, const_cast<char* const*>(args.data())));
  if (started != "ok") return started + " id " + std::to_string(p.id);
  EXPECT_EQ(statusOf(CxProcess_wait(&p, &info, 1)), "ok");
  CxProcess_close(&p);
  return std::to_string(info.exited) + " " + std::to_string(info.exitCode);
}

}  // namespace

TEST(CxProcess, ExitCodesSignalsAndArgumentsReachTheCallerUninterpreted) {
  ardeltest::TempDir tmp;
  std::string out = tmp.file("args.txt"), marker = tmp.file("marker");
  std::string semicolon = "x; touch " + marker;
  EXPECT_EQ(run("/bin/sh", {"-c", "exit 3"}), "1 3");
  EXPECT_EQ(run("/bin/sh", {"-c", "kill -9 $$"}), "1 137") << "128 plus the signal";
  // sh -c script name args...: the script sees name as $0, the rest as "$@".
  EXPECT_EQ(run("/bin/sh", {"-c", "printf '%s\\n' \"$#\" \"$@\" > \"$0\"", out.c_str(), "a", "b c", "", "d"}), "1 0");
  EXPECT_EQ(ardeltest::readFile(out), "4\na\nb c\n\nd\n");
  EXPECT_EQ(run("/bin/cp", {"/proc/self/cmdline", out.c_str()}), "1 0");
  EXPECT_EQ(ardeltest::readFile(out), std::string("/bin/cp\0/proc/self/cmdline\0", 27) + out + std::string(1, '\0'))
      << "the child sees the program as its first word";
  EXPECT_EQ(run("/bin/sh", {"-c", "printf '%s|' \"$@\" > \"$0\"", out.c_str(), semicolon.c_str(), "$HOME", "*"}), "1 0");
  EXPECT_EQ(ardeltest::readFile(out), semicolon + "|$HOME|*|");
  EXPECT_EQ(access(marker.c_str(), F_OK), -1) << "no shell interprets the arguments";
  CxProcess p;
  ASSERT_EQ(statusOf(CxProcess_start(&p, "/bin/true", nullptr)), "ok") << "a null vector starts the program alone";
  CxExitInfo info;
  ASSERT_EQ(statusOf(CxProcess_wait(&p, &info, 1)), "ok");
  EXPECT_EQ(info.exitCode, 0);
  CxProcess_close(&p);
}

TEST(CxProcess, WaitWithoutFlagOnARunningChildReportsNotExitedAndAnEndedOneCanBeAskedAgain) {
  ardeltest::TempDir tmp;
  std::string gate = tmp.file("gate");
  const char* args[] = {"-c", "while [ ! -e \"$0\" ]; do sleep 0.02; done; exit 5", gate.c_str(), nullptr};
  CxProcess p;
  ASSERT_EQ(statusOf(CxProcess_start(&p, "/bin/sh", const_cast<char* const*>(args))), "ok");
  CxExitInfo info;
  memset(&info, 0x55, sizeof info);
  ASSERT_EQ(statusOf(CxProcess_wait(&p, &info, 0)), "ok");
  EXPECT_TRUE(info.exited == 0 && info.exitCode == 0);
  tmp.write("gate", "");
  for (int flag : {1, 0}) {
    memset(&info, 0, sizeof info);
    ASSERT_EQ(statusOf(CxProcess_wait(&p, &info, flag)), "ok");
    EXPECT_TRUE(info.exited == 1 && info.exitCode == 5 && info.reserved1 == 0 && info.reserved2 == 0) << flag;
  }
  EXPECT_EQ(statusOf(CxProcess_close(&p)), "ok");
  EXPECT_EQ(p.id, 0);
}

TEST(CxProcess, ChildrenDoNotInheritTheToolkitsDescriptors) {
  ardeltest::TempDir tmp;
  int fd = -1;
  ASSERT_EQ(statusOf(CxFile_open(&fd, tmp.file("private").c_str(), CX_O_WRONLY | CX_O_CREAT)), "ok");
  int plain = open(tmp.file("inherited").c_str(), O_WRONLY | O_CREAT, 0600);
  EXPECT_EQ(run("/bin/sh", {"-c", ("[ -e /dev/fd/" + std::to_string(fd) + " ]").c_str()}), "1 1");
  // The probe can see an inherited descriptor, so the 1 above means something.
  EXPECT_EQ(run("/bin/sh", {"-c", ("[ -e /dev/fd/" + std::to_string(plain) + " ]").c_str()}), "1 0");
  close(plain);
  CxFile_close(&fd);
}

TEST(CxProcess, ProgramsThatCannotStartAndBadArgumentsLeaveTheHandleEmpty) {
  ardeltest::TempDir tmp;
  chmod(tmp.write("not-executable", "#!/bin/sh\n").c_str(), 0600);
  EXPECT_EQ(run(tmp.file("no-such-program").c_str(), {}), ardeltest::statusText('p', ENOENT) + " id 0");
  EXPECT_EQ(run(tmp.file("not-executable").c_str(), {}), ardeltest::statusText('p', EACCES) + " id 0");
  EXPECT_NE(run("true", {}).substr(0, 2), "ok") << "the program is a path: no search through PATH";
  CxProcess p{};
  CxExitInfo info;
  char buf[260];
  for (const CxStatus& s : {CxProcess_start(&p, "", nullptr), CxProcess_start(&p, nullptr, nullptr),
                            CxProcess_start(nullptr, "/bin/true", nullptr), CxProcess_wait(&p, &info, 1),
                            CxProcess_wait(nullptr, &info, 1), CxProcess_close(nullptr), CxProcess_getcwd(nullptr)})
    EXPECT_EQ(statusOf(s), "p 22");
  EXPECT_EQ(CxProcess_getpid(), static_cast<int32_t>(getpid()));
  ASSERT_EQ(statusOf(CxProcess_getcwd(buf)), "ok");
  char expected[4096];
  EXPECT_STREQ(buf, getcwd(expected, sizeof expected));
}

TEST(CxThread, TheIdIsTheKernelThreadIdDiffersBetweenThreadsAndAForkedChildReportsItsOwnIds) {
  uint32_t mine = CxThread_getId(), other = 0;
  EXPECT_EQ(mine, static_cast<uint32_t>(syscall(SYS_gettid)));
  EXPECT_EQ(CxProcess_getpid(), static_cast<int32_t>(getpid()));
  ardeltest::inChild([] {  // the kept ids must not be the parent's
    EXPECT_EQ(CxProcess_getpid(), static_cast<int32_t>(getpid()));
    EXPECT_EQ(CxThread_getId(), static_cast<uint32_t>(syscall(SYS_gettid)));
  });
  std::thread([&] { other = CxThread_getId(); }).join();
  EXPECT_TRUE(other != 0 && other != mine);
}
