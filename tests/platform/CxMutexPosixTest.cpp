// SPDX-License-Identifier: Apache-2.0
// The named mutex's lock files, which only POSIX systems have: where they
// are, their mode, no planted link followed; on Linux their lock word, which
// a hold whose handle is gone or a word another program scribbled over
// delays by at most a wait slice, never for the whole timeout.
#include <fcntl.h>
#include <stdint.h>
#include <unistd.h>

#include <string>

#include "platform/CxMutex.h"
#include "support/TestSupport.h"

namespace {

using ardeltest::statusOf;
using ardeltest::statusText;

class CxMutexFilesTest : public ::testing::Test {
 protected:
  ardeltest::TempDir tmp;
  ardeltest::EnvVar tmpdir{"TMPDIR", tmp.path().c_str()};
};

mode_t modeOf(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_mode & 0777 : 0;
}

}  // namespace

TEST_F(CxMutexFilesTest, LockFilesAreNamedInTmpdirOpenToEveryUserAndNeverFollowAPlantedLink) {
  mode_t old = umask(077);
  CxMutex* m = nullptr;
  CxStatus s = CxMutex_createKeyed(&m, 31821);
  umask(old);
  ASSERT_EQ(statusOf(s), "ok");
  EXPECT_EQ(modeOf(tmp.file("CX_SEM_KEY_7c4d")), 0666u) << "whatever our umask";
  CxMutex_close(&m);
  EXPECT_EQ(access(tmp.file("CX_SEM_KEY_7c4d").c_str(), F_OK), 0) << "closing leaves the file for the others";
  ASSERT_EQ(statusOf(CxMutex_createKeyed(&m, -1)), "ok");
  EXPECT_EQ(access(tmp.file("CX_SEM_KEY_ffffffff").c_str(), F_OK), 0);
  CxMutex_close(&m);
  chmod(tmp.write("existing", "").c_str(), 0600);  // left narrow by an older process or by hand
  ASSERT_EQ(statusOf(CxMutex_createNamed(&m, "existing")), "ok");
  EXPECT_EQ(modeOf(tmp.file("existing")), 0666u);
  CxMutex_close(&m);
  std::string victim = tmp.write("victim", "secret");
  ASSERT_EQ(chmod(victim.c_str(), 0600), 0);
  ASSERT_EQ(symlink(victim.c_str(), tmp.file("CX_SEM_KEY_1").c_str()), 0);
  EXPECT_EQ(statusOf(CxMutex_createKeyed(&m, 1)), statusText('p', ELOOP));
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(modeOf(victim), 0600u);
  ardeltest::setEnv("TMPDIR", nullptr);
  std::string name = "ardel-test-" + std::to_string(getpid());
  ASSERT_EQ(statusOf(CxMutex_createNamed(&m, name.c_str())), "ok");
  EXPECT_EQ(access(("/tmp/" + name).c_str(), F_OK), 0) << "without TMPDIR the lock file goes to /tmp";
  CxMutex_close(&m);
  unlink(("/tmp/" + name).c_str());
}

#if defined(__linux__)

TEST_F(CxMutexFilesTest, AHandleClosedWhileHoldingReleasesTheMutexToTheOthers) {
  CxMutex *holder = nullptr, *other = nullptr;
  ASSERT_EQ(statusOf(CxMutex_createNamed(&holder, "closed")), "ok");
  ASSERT_EQ(statusOf(CxMutex_createNamed(&other, "closed")), "ok");
  ASSERT_EQ(statusOf(CxMutex_lock(holder)), "ok");
  EXPECT_EQ(statusOf(CxMutex_lockTimed(other, 120)), "w 258") << "held: the other handle waits";
  CxMutex_close(&holder);
  EXPECT_EQ(statusOf(CxMutex_lockTimed(other, 1000)), "ok");
  EXPECT_EQ(statusOf(CxMutex_unlock(other)), "ok");
  CxMutex_close(&other);
}

TEST_F(CxMutexFilesTest, AWordWrittenByAnotherProgramIsTakenOverAndTheMutexKeepsWorking) {
  const uint64_t scribbles[] = {
      0xffffffffffffffffull,  // a holder no handle can be
      0x0000000780000005ull,  // slot 5, unclaimed, with a waiter
      0x0000000000000001ull,  // slot 1, unclaimed
  };
  for (uint64_t word : scribbles) {
    CxMutex* m = nullptr;
    ASSERT_EQ(statusOf(CxMutex_createNamed(&m, "scribbled")), "ok");
    int fd = open(tmp.file("scribbled").c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(pwrite(fd, &word, sizeof word, 0), (ssize_t)sizeof word);
    close(fd);
    struct timespec a, b;
    clock_gettime(CLOCK_MONOTONIC, &a);
    EXPECT_EQ(statusOf(CxMutex_lockTimed(m, CX_MUTEX_WAIT_MS)), "ok") << std::hex << word;
    clock_gettime(CLOCK_MONOTONIC, &b);
    EXPECT_LT((b.tv_sec - a.tv_sec) * 1000 + (b.tv_nsec - a.tv_nsec) / 1000000, 2000) << std::hex << word;
    EXPECT_EQ(statusOf(CxMutex_unlock(m)), "ok");
    EXPECT_EQ(statusOf(CxMutex_lockTimed(m, 0)), "ok") << "released properly afterwards";
    EXPECT_EQ(statusOf(CxMutex_unlock(m)), "ok");
    CxMutex_close(&m);
  }
}
#endif
