// SPDX-License-Identifier: Apache-2.0
// Child processes by the POSIX rules: signals, no search through PATH and
// no inherited descriptors.
#include <vector>

#include "platform/CxFile.h"
#include "platform/CxProcess.h"
#include "support/TestSupport.h"

using ardeltest::statusOf;

namespace {

// Starts program with args and waits; "exited code", or the failed start.
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

TEST(CxProcessPosix, SignalsPathAndDescriptorsFollowThePosixRules) {
  ardeltest::TempDir tmp;
  EXPECT_EQ(run("/bin/sh", {"-c", "kill -9 $$"}), "1 137") << "128 plus the signal";
  EXPECT_NE(run("true", {}).substr(0, 2), "ok") << "the program is a path: no search through PATH";
  int fd = -1;
  ASSERT_EQ(statusOf(CxFile_open(&fd, tmp.file("private").c_str(), CX_O_WRONLY | CX_O_CREAT)), "ok");
  int plain = open(tmp.file("inherited").c_str(), O_WRONLY | O_CREAT, 0600);
  EXPECT_EQ(run("/bin/sh", {"-c", ("[ -e /dev/fd/" + std::to_string(fd) + " ]").c_str()}), "1 1");
  // The probe can see an inherited descriptor, so the 1 above means something.
  EXPECT_EQ(run("/bin/sh", {"-c", ("[ -e /dev/fd/" + std::to_string(plain) + " ]").c_str()}), "1 0");
  close(plain);
  CxFile_close(&fd);
}
