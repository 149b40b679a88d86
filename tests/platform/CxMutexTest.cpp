// SPDX-License-Identifier: Apache-2.0
// The toolkit's recursive lock and the named mutex shared between processes.
// Cross-process cases fork real children; each child opens the name itself
// and reports through its exit code or a pipe.  Every test works in a private
// TMPDIR so that no lock file is shared with anything else on the machine.
#include <errno.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/CxMutex.h"
#include "support/TestSupport.h"

namespace {

using ardeltest::statusOf;
using ardeltest::statusText;

const std::string kTimedOut = "w 258";

mode_t modeOf(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_mode & 0777 : 0;
}

// One byte from fd within ms milliseconds, or -1.
int readByte(int fd, int ms) {
  struct pollfd p = {fd, POLLIN, 0};
  char c;
  return poll(&p, 1, ms) == 1 && read(fd, &c, 1) == 1 ? c : -1;
}

int exitCodeOf(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

// A child that opens name, reports 'w', waits for the mutex (with ms, or
// without limit when ms < 0) and reports 'g' or 't'; the exit code says
// whether the outcome matched expectLock (0) and how long it waited.
pid_t waiter(const char* name, int ms, bool expectLock, int pipeOut = -1) {
  fflush(nullptr);
  pid_t pid = fork();
  if (pid != 0) return pid;
  CxMutex* m = nullptr;
  if (!CxStatus_isOk(CxMutex_createNamed(&m, name))) _exit(10);
  if (pipeOut >= 0) (void)!write(pipeOut, "w", 1);
  struct timespec a, b;
  clock_gettime(CLOCK_MONOTONIC, &a);
  errno = ENOENT;  // a stale errno must not turn a granted lock into a failure
  std::string s = statusOf(ms < 0 ? CxMutex_lock(m) : CxMutex_lockTimed(m, ms));
  clock_gettime(CLOCK_MONOTONIC, &b);
  long waited = (b.tv_sec - a.tv_sec) * 1000 + (b.tv_nsec - a.tv_nsec) / 1000000;
  if (pipeOut >= 0) (void)!write(pipeOut, s == "ok" ? "g" : "t", 1);
  int rc = expectLock ? (s == "ok" ? 0 : 11) : (s != kTimedOut ? 13 : waited < ms - 10 ? 14 : 0);
  if (s == "ok" && statusOf(CxMutex_unlock(m)) != "ok") rc = 12;
  CxMutex_close(&m);
  _exit(rc);
}

class CxMutexTest : public ::testing::Test {
 protected:
  void SetUp() override { setenv("TMPDIR", tmp.path().c_str(), 1); }
  void TearDown() override { saved ? setenv("TMPDIR", savedTmpdir.c_str(), 1) : unsetenv("TMPDIR"); }
  CxMutex* named(const char* name) {
    CxMutex* m = nullptr;
    EXPECT_EQ(statusOf(CxMutex_createNamed(&m, name)), "ok");
    return m;
  }
  ardeltest::TempDir tmp;
  const char* saved = getenv("TMPDIR");
  std::string savedTmpdir = saved ? saved : "";
};

// The outcome of op(m) run by another thread.
std::string onOtherThread(CxMutex* m, CxStatus (*op)(CxMutex*)) {
  std::string out;
  std::thread([&] { out = statusOf(op(m)); }).join();
  return out;
}

// A short lockTimed made by another thread, released again when it succeeds.
std::string lockFromOtherThread(CxMutex* m) {
  return onOtherThread(m, [](CxMutex* m) {
    CxStatus s = CxMutex_lockTimed(m, 50);
    if (CxStatus_isOk(s)) CxMutex_unlock(m);
    return s;
  });
}

}  // namespace

TEST_F(CxMutexTest, ASecondProcessBlocksWhileTheFirstHoldsTheNamedMutex) {
  CxMutex* m = named("block");
  ASSERT_EQ(statusOf(CxMutex_lock(m)), "ok");
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  pid_t pid = waiter("block", -1, true, p[1]);
  close(p[1]);
  ASSERT_EQ(readByte(p[0], 5000), 'w');
  EXPECT_EQ(readByte(p[0], 300), -1) << "the child got the mutex while it was held";
  ASSERT_EQ(statusOf(CxMutex_unlock(m)), "ok");
  EXPECT_EQ(readByte(p[0], 5000), 'g');
  EXPECT_EQ(exitCodeOf(pid), 0);
  close(p[0]);
  CxMutex_close(&m);
}

TEST_F(CxMutexTest, LockTimedGivesUpAfterItsTimeoutWhileTheDefaultWaitOutlastsTheHold) {
  CxMutex* m = named("timed");
  ASSERT_EQ(statusOf(CxMutex_lock(m)), "ok");
  pid_t shortWaiter = waiter("timed", 300, false);
  pid_t defaultWaiter = waiter("timed", CX_MUTEX_WAIT_MS, true);
  EXPECT_EQ(exitCodeOf(shortWaiter), 0) << "13: not 'w' 258, 14: gave up early";
  ASSERT_EQ(statusOf(CxMutex_unlock(m)), "ok");
  EXPECT_EQ(exitCodeOf(defaultWaiter), 0);
  EXPECT_EQ(exitCodeOf(waiter("timed", 300, true)), 0) << "released, the same short wait succeeds";
  CxMutex_close(&m);
}

TEST_F(CxMutexTest, AHolderKilledWithSigkillReleasesTheNamedMutex) {
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    CxMutex* c = nullptr;
    if (!CxStatus_isOk(CxMutex_createNamed(&c, "killed")) || !CxStatus_isOk(CxMutex_lock(c))) _exit(10);
    (void)!write(p[1], "h", 1);
    for (;;) pause();
  }
  close(p[1]);
  ASSERT_EQ(readByte(p[0], 5000), 'h');
  CxMutex* m = named("killed");
  EXPECT_EQ(statusOf(CxMutex_lockTimed(m, 100)), kTimedOut);
  ASSERT_EQ(kill(pid, SIGKILL), 0);
  EXPECT_EQ(statusOf(CxMutex_lockTimed(m, 1000)), "ok");
  EXPECT_EQ(exitCodeOf(pid), 100 + SIGKILL);
  CxMutex_unlock(m);
  CxMutex_close(&m);
  close(p[0]);
}

TEST_F(CxMutexTest, ThreadsSharingOneNamedHandleAreSerialisedAndOnlyTheHolderMayUnlock) {
  CxMutex* shared = named("threads");
  long counter = 0;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++)
    threads.emplace_back([&] {
      for (int i = 0; i < 200; i++) {
        if (!CxStatus_isOk(CxMutex_lock(shared))) {
          failures++;
          continue;
        }
        long v = counter;
        sched_yield();  // widen the window a missing exclusion would leave
        counter = v + 1;
        CxMutex_unlock(shared);
      }
    });
  for (auto& th : threads) th.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(counter, 800);
  CxMutex_close(&shared);
  CxMutex* kinds[2] = {nullptr, named("owner")};
  ASSERT_EQ(statusOf(CxMutex_create(&kinds[0])), "ok");
  for (CxMutex* m : kinds) {
    EXPECT_EQ(statusOf(CxMutex_unlock(m)), statusText('p', EPERM));
    ASSERT_EQ(statusOf(CxMutex_lock(m)), "ok");
    EXPECT_EQ(onOtherThread(m, CxMutex_unlock), statusText('p', EPERM)) << "another thread's unlock is refused";
    EXPECT_EQ(lockFromOtherThread(m), kTimedOut) << "the hold survives it";
    EXPECT_EQ(statusOf(CxMutex_unlock(m)), "ok");
    EXPECT_EQ(lockFromOtherThread(m), "ok");
    CxMutex_close(&m);
  }
}

// The unnamed mutex is probed from another thread; the named one through a
// second handle of the same name in this process, so its file lock must also
// be kept until the last unlock and survive closing another handle.
TEST_F(CxMutexTest, BothMutexesAreRecursiveAndTwoHandlesOfOneNameExcludeEachOther) {
  CxMutex* m = nullptr;
  ASSERT_EQ(statusOf(CxMutex_create(&m)), "ok");
  CxMutex* b = named("recursive");
  for (CxMutex* a : {m, named("recursive")}) {
    bool isNamed = a != m;
    auto probe = [&] { return isNamed ? statusOf(CxMutex_lockTimed(b, 30)) : lockFromOtherThread(m); };
    ASSERT_EQ(statusOf(CxMutex_lock(a)), "ok");
    ASSERT_EQ(statusOf(CxMutex_lockTimed(a, 0)), "ok");
    ASSERT_EQ(statusOf(CxMutex_unlock(a)), "ok");
    EXPECT_EQ(probe(), kTimedOut) << "one unlock released two holds";
    ASSERT_EQ(statusOf(CxMutex_unlock(a)), "ok");
    EXPECT_EQ(probe(), "ok");
    CxMutex_close(&a);
    if (isNamed) {
      CxMutex* c = named("recursive");
      EXPECT_EQ(statusOf(CxMutex_lockTimed(c, 30)), kTimedOut);
      CxMutex_close(&c);
      CxMutex_unlock(b);
    }
  }
  CxMutex_close(&b);
}

TEST_F(CxMutexTest, LockFilesAreNamedInTmpdirOpenToEveryUserAndNeverFollowAPlantedLink) {
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
  m = named("existing");
  EXPECT_EQ(modeOf(tmp.file("existing")), 0666u);
  CxMutex_close(&m);
  std::string victim = tmp.write("victim", "secret");
  ASSERT_EQ(chmod(victim.c_str(), 0600), 0);
  ASSERT_EQ(symlink(victim.c_str(), tmp.file("CX_SEM_KEY_1").c_str()), 0);
  EXPECT_EQ(statusOf(CxMutex_createKeyed(&m, 1)), statusText('p', ELOOP));
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(modeOf(victim), 0600u);
  unsetenv("TMPDIR");
  std::string name = "ardel-test-" + std::to_string(getpid());
  ASSERT_EQ(statusOf(CxMutex_createNamed(&m, name.c_str())), "ok");
  EXPECT_EQ(access(("/tmp/" + name).c_str(), F_OK), 0) << "without TMPDIR the lock file goes to /tmp";
  CxMutex_close(&m);
  unlink(("/tmp/" + name).c_str());
}

TEST_F(CxMutexTest, BadNamesNullArgumentsAndOutOfMemoryAreRefusedLeavingNoHandle) {
  CxMutex* m = reinterpret_cast<CxMutex*>(&m);
  std::string longest(CX_MUTEX_NAME_MAX, 'n'), tooLong(CX_MUTEX_NAME_MAX + 1, 'n');
  for (const char* bad : {static_cast<const char*>(nullptr), "", "../escape", tooLong.c_str()}) {
    EXPECT_EQ(statusOf(CxMutex_createNamed(&m, bad)), "p 22");
    EXPECT_EQ(m, nullptr);
  }
  EXPECT_EQ(statusOf(CxMutex_createNamed(&m, longest.c_str())), "ok");
  EXPECT_EQ(statusOf(CxMutex_close(&m)), "ok");
  EXPECT_EQ(m, nullptr) << "closing sets the handle to null";
  for (const CxStatus& s : {CxMutex_createNamed(nullptr, "x"), CxMutex_create(nullptr), CxMutex_lock(nullptr),
                            CxMutex_lockTimed(nullptr, 10), CxMutex_unlock(nullptr), CxMutex_close(nullptr), CxMutex_close(&m)})
    EXPECT_EQ(statusOf(s), "p 22");
  auto fds = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
  auto before = fds();
  for (int isNamed = 0; isNamed < 2; isNamed++) {
    m = reinterpret_cast<CxMutex*>(&m);
    QlgMem_failAt(1);
    CxStatus s = isNamed ? CxMutex_createNamed(&m, "oom") : CxMutex_create(&m);
    QlgMem_failAt(0);
    EXPECT_EQ(statusOf(s), statusText('p', ENOMEM));
    EXPECT_EQ(m, nullptr);
  }
  EXPECT_EQ(fds(), before) << "no descriptor leaks";
}
