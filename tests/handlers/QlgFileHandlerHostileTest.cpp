// SPDX-License-Identifier: Apache-2.0
/*
 * Both file handler classes against hostile or unlucky paths: a FIFO where
 * the log file should be, a symbolic link planted in a directory others
 * can write, and (for the multi-process class) a file removed or renamed
 * under the writers.
 */
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "handlers/FileHandlerFixture.h"

namespace {

using ardeltest::CaptureFd;
using ardeltest::readFile;
using HostilePathTest = fhtest::FileHandlerFixture;

const char* const kClasses[] = {"qlg_filehandler", "qlg_multiproc_filehandler"};

/* Opening a FIFO for writing waits for a reader, and writing one waits once
   its buffer is full: the handler must do neither, report the path, and
   use it once it is a file again.  The alarm turns a wait into a failure. */
TEST_F(HostilePathTest, FifoAtTheLogPathIsReportedNeverWaitedOnAndRetried) {
  for (const char* cls : kClasses) {
    SCOPED_TRACE(cls);
    std::string path = dir_.file(std::string(cls) + ".log");
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    ardeltest::inChild([&] {
      alarm(20);
      QlgObject* h = handler({{"fileName", path}}, false, cls);
      {
        CaptureFd err(2);
        log(h, {"lost"});
        EXPECT_HAS(err.text(), strerror(ENXIO));
      }
      ASSERT_EQ(unlink(path.c_str()), 0);
      log(h, {"kept"});
      EXPECT_EQ(readFile(path), "kept\n");
    });
  }
}

/* A link at the log name in a directory anyone can write is followed only
   when its owner is the process's user or the directory's owner. */
TEST_F(HostilePathTest, LinkPlantedInASharedDirectoryIsFollowedOnlyForTrustedOwners) {
  if (geteuid() != 0) GTEST_SKIP() << "planting a link owned by another user needs root";
  const uid_t other = 54321;
  struct { uid_t linkOwner, dirOwner; bool followed; } cases[] = {
      {other, 0, false}, {other, other, true}, {0, other, true}};
  int n = 0;
  for (const char* cls : kClasses) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(cls) + " link " + std::to_string(c.linkOwner) + " dir " +
                   std::to_string(c.dirOwner));
      std::string shared = dir_.file("pub" + std::to_string(++n));
      std::string target = dir_.write("secret" + std::to_string(n), "secret\n");
      ASSERT_EQ(mkdir(shared.c_str(), 0777), 0);
      ASSERT_EQ(chmod(shared.c_str(), 0777), 0);
      ASSERT_EQ(chown(shared.c_str(), c.dirOwner, c.dirOwner), 0);
      ASSERT_EQ(symlink(target.c_str(), (shared + "/app.log").c_str()), 0);
      ASSERT_EQ(lchown((shared + "/app.log").c_str(), c.linkOwner, c.linkOwner), 0);
      CaptureFd err(2);
      log(handler({{"fileName", shared + "/app.log"}}, false, cls), {"x"});
      EXPECT_EQ(readFile(target), c.followed ? "secret\nx\n" : "secret\n");
      if (!c.followed) { EXPECT_HAS(err.text(), strerror(ELOOP)); }
    }
  }
}

/* What logrotate and tidy users do to a shared file: every writer notices
   and writes to the path again, directory included. */
TEST_F(HostilePathTest, MultiProcessFileRemovedOrRenamedIsOpenedAgainAtItsPath) {
  std::string sub = dir_.file("sub"), path = sub + "/mp.log";
  struct { const char* what; std::function<void()> act; std::string oldFile; } cases[] = {
      {"removed", [&] { ASSERT_EQ(unlink(path.c_str()), 0); }, ""},
      {"renamed", [&] { ASSERT_EQ(rename(path.c_str(), dir_.file("moved.log").c_str()), 0); },
       dir_.file("moved.log")},
      {"directory removed", [&] { ASSERT_EQ(system(("rm -rf '" + sub + "'").c_str()), 0); }, ""}};
  for (auto& c : cases) {
    SCOPED_TRACE(c.what);
    QlgObject* h = handler({{"fileName", path}}, false, "qlg_multiproc_filehandler");
    log(h, {"before"});
    c.act();
    log(h, {"after"});
    EXPECT_EQ(readFile(path), "after\n");
    if (!c.oldFile.empty()) { EXPECT_EQ(readFile(c.oldFile), "before\n"); }
    h->cls->slots.handler.close(h);
    unlink(path.c_str());
  }
}

}  // namespace
