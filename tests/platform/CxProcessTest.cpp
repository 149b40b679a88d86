// SPDX-License-Identifier: Apache-2.0
// Child processes, and the identity of the current process and thread.
// Children are this test program started again to run one worker.
#include <errno.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "platform/CxProcess.h"
#include "platform/CxSystem.h"
#include "platform/CxThread.h"
#include "support/TestSupport.h"

using ardeltest::startSelf;
using ardeltest::statusOf;

namespace {

// Writes every word of its command line, each followed by "|", to the file
// named by arg; exits with the number of words.
ARDEL_TEST_WORKER(echoArgs) {
  std::string words;
  for (const std::string& w : ::testing::internal::GetArgvs()) words += w + "|";
  ardeltest::writeFile(arg, words);
  return static_cast<int>(::testing::internal::GetArgvs().size());
}
ARDEL_TEST_WORKER(exitWith) { return std::stoi(arg); }

// Waits for a started child; "exited code", or why it is not there.
std::string outcome(CxProcess p) {
  if (p.id == 0) return "not started";
  CxExitInfo info{};
  EXPECT_EQ(statusOf(CxProcess_wait(&p, &info, 1)), "ok");
  CxProcess_close(&p);
  return std::to_string(info.exited) + " " + std::to_string(info.exitCode);
}

}  // namespace

// Windows joins the arguments with single spaces into one command line,
// unquoted, so there an argument holding a space is two words and an empty
// one none; no shell ever sees them.
TEST(CxProcess, ExitCodesAndArgumentsReachTheChildUninterpreted) {
  ardeltest::TempDir tmp;
  EXPECT_EQ(outcome(startSelf("exitWith", "3")), "1 3");
  EXPECT_EQ(outcome(startSelf("exitWith", "0")), "1 0");
  std::string out = tmp.file("args.txt");
  EXPECT_EQ(outcome(startSelf("echoArgs", out, {"a", "b c", "", "d", "x;", "$HOME", "*", "%PATH%"})), "1 9");
  EXPECT_EQ(ardeltest::readFile(out), ardeltest::selfPath() + "|" +
                                          (ardeltest::kArgumentsSplitAtSpaces ? "a|b|c|d|" : "a|b c||d|") +
                                          "x;|$HOME|*|%PATH%|")
      << "the child sees the program as its first word";
  CxProcess p;
  ardeltest::EnvVar worker("ARDEL_TEST_WORKER", "echoArgs"), arg("ARDEL_TEST_ARG", out.c_str());
  ASSERT_EQ(statusOf(CxProcess_start(&p, ardeltest::selfPath().c_str(), nullptr)), "ok")
      << "a null vector starts the program alone";
  EXPECT_EQ(outcome(p), "1 1");
}

TEST(CxProcess, ProgramsThatCannotStartAndBadArgumentsLeaveTheHandleEmpty) {
  ardeltest::TempDir tmp;
  CxProcess p{};
  p.id = 99;
  EXPECT_TRUE(ardeltest::isNotFound(statusOf(CxProcess_start(&p, tmp.file("no-such-program").c_str(), nullptr))));
  EXPECT_EQ(p.id, 0);
  std::string script = tmp.write("not-a-program", "#!/bin/sh\n");
  std::filesystem::permissions(script, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  p.id = 99;
  EXPECT_NE(statusOf(CxProcess_start(&p, script.c_str(), nullptr)), "ok");
  EXPECT_EQ(p.id, 0);
  CxExitInfo info;
  char buf[260];
  for (const CxStatus& s : {CxProcess_start(&p, "", nullptr), CxProcess_start(&p, nullptr, nullptr),
                            CxProcess_start(nullptr, "/bin/true", nullptr), CxProcess_wait(&p, &info, 1),
                            CxProcess_wait(nullptr, &info, 1), CxProcess_close(nullptr), CxProcess_getcwd(nullptr)})
    EXPECT_EQ(statusOf(s), "p 22");
  EXPECT_EQ(CxProcess_getpid(), ardeltest::systemProcessId());
  ASSERT_EQ(statusOf(CxProcess_getcwd(buf)), "ok");
  EXPECT_EQ(buf, std::filesystem::current_path().string());
}

TEST(CxThread, TheIdIsTheSystemThreadIdDiffersBetweenThreadsAndAFreshProcessReportsItsOwnIds) {
  uint32_t mine = CxThread_getId(), other = 0;
  EXPECT_EQ(mine, ardeltest::systemThreadId());
  EXPECT_EQ(CxProcess_getpid(), ardeltest::systemProcessId());
  ardeltest::inChild([] {  // the kept ids must not be the parent's
    EXPECT_EQ(CxProcess_getpid(), ardeltest::systemProcessId());
    EXPECT_EQ(CxThread_getId(), ardeltest::systemThreadId());
  });
  std::thread([&] { other = CxThread_getId(); }).join();
  EXPECT_TRUE(other != 0 && other != mine);
}
