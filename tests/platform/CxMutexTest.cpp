/*
 * The toolkit's recursive lock and the named mutex shared between
 * processes.  Cross-process cases fork real children; each child opens the
 * name itself and reports through its exit code or a pipe.  Every test
 * works in a private TMPDIR so that no lock file is shared with anything
 * else on the machine.
 */
#include <gtest/gtest.h>

#include <dirent.h>
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "platform/CxMutex.h"
#include "platform/PlatformTestSupport.h"
#include "util/QlgMemTest.h"

using ardeltest::TempDir;
using ardeltest::writeText;

namespace {

#define EXPECT_STATUS(call, o, c)     \
  do {                                \
    CxStatus s_ = (call);             \
    EXPECT_EQ(s_.origin, o) << #call; \
    EXPECT_EQ(s_.code, c) << #call;   \
  } while (0)
#define ASSERT_OK(call) ASSERT_TRUE(CxStatus_isOk(call)) << #call
#define EXPECT_OK(call) EXPECT_TRUE(CxStatus_isOk(call)) << #call

mode_t modeOf(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_mode & 0777 : 0;
}

bool isTimedOut(CxStatus s) { return s.origin == 'w' && s.code == CX_MUTEX_TIMED_OUT; }

int64_t monotonicMs() {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (int64_t)t.tv_sec * 1000 + t.tv_nsec / 1000000;
}

/* One byte from fd within ms milliseconds, or -1. */
int readByte(int fd, int ms) {
  struct pollfd p = {fd, POLLIN, 0};
  if (poll(&p, 1, ms) != 1) return -1;
  char c;
  return read(fd, &c, 1) == 1 ? c : -1;
}

void sendByte(int fd, char c) { (void)!write(fd, &c, 1); }

int exitCodeOf(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

int openFdCount() {
  int n = 0;
  DIR* d = opendir("/proc/self/fd");
  if (!d) return -1;
  while (readdir(d)) n++;
  closedir(d);
  return n;
}

class CxMutexTest : public ::testing::Test {
 protected:
  TempDir tmp;
  const char* saved = getenv("TMPDIR");
  std::string savedTmpdir = saved ? saved : "";

  void SetUp() override {
    ASSERT_TRUE(tmp.ok());
    setenv("TMPDIR", tmp.path().c_str(), 1);
  }
  void TearDown() override { saved ? setenv("TMPDIR", savedTmpdir.c_str(), 1) : unsetenv("TMPDIR"); }

  CxMutex* named(const char* name) {
    CxMutex* m = nullptr;
    EXPECT_OK(CxMutex_createNamed(&m, name));
    return m;
  }
};

/* Child bodies: they return the child's exit code and never touch gtest. */
int childTimedLock(const char* name, int32_t ms, bool expectLock) {
  CxMutex* m = nullptr;
  if (!CxStatus_isOk(CxMutex_createNamed(&m, name))) return 10;
  int64_t start = monotonicMs();
  CxStatus s = CxMutex_lockTimed(m, ms);
  int64_t waited = monotonicMs() - start;
  int rc;
  if (expectLock) {
    rc = CxStatus_isOk(s) ? 0 : 11;
    if (rc == 0 && !CxStatus_isOk(CxMutex_unlock(m))) rc = 12;
  } else {
    rc = !isTimedOut(s) ? 13 : (waited < ms - 10 ? 14 : 0);
  }
  CxMutex_close(&m);
  return rc;
}

template <typename Body>
pid_t forkChild(Body body) {
  fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}

}  // namespace

/* ---- across processes ---- */

TEST_F(CxMutexTest, ASecondProcessBlocksWhileTheFirstHoldsTheNamedMutex) {
  CxMutex* m = named("block");
  ASSERT_OK(CxMutex_lock(m));
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  pid_t pid = forkChild([&] {
    close(p[0]);
    CxMutex* c = nullptr;
    if (!CxStatus_isOk(CxMutex_createNamed(&c, "block"))) return 10;
    sendByte(p[1], 'w');
    if (!CxStatus_isOk(CxMutex_lock(c))) return 11;
    sendByte(p[1], 'g');
    CxMutex_unlock(c);
    CxMutex_close(&c);
    return 0;
  });
  ASSERT_GT(pid, 0);
  close(p[1]);
  ASSERT_EQ(readByte(p[0], 5000), 'w');
  EXPECT_EQ(readByte(p[0], 300), -1) << "the child got the mutex while it was held";
  ASSERT_OK(CxMutex_unlock(m));
  EXPECT_EQ(readByte(p[0], 5000), 'g');
  EXPECT_EQ(exitCodeOf(pid), 0);
  close(p[0]);
  CxMutex_close(&m);
}

TEST_F(CxMutexTest, LockTimedGivesUpAfterItsTimeoutWithW258) {
  CxMutex* m = named("timed");
  ASSERT_OK(CxMutex_lock(m));
  pid_t pid = forkChild([] { return childTimedLock("timed", 300, false); });
  EXPECT_EQ(exitCodeOf(pid), 0) << "13: not 'w' 258, 14: gave up early";
  ASSERT_OK(CxMutex_unlock(m));
  /* Released, the same short wait succeeds. */
  pid = forkChild([] { return childTimedLock("timed", 300, true); });
  EXPECT_EQ(exitCodeOf(pid), 0);
  CxMutex_close(&m);
}

TEST_F(CxMutexTest, TheCallersDefaultWaitOutlastsAHoldThatDefeatsAShortOne) {
  EXPECT_EQ(CX_MUTEX_WAIT_MS, 10000);
  CxMutex* m = named("default");
  ASSERT_OK(CxMutex_lock(m));
  pid_t shortWaiter = forkChild([] { return childTimedLock("default", 100, false); });
  pid_t defaultWaiter = forkChild([] { return childTimedLock("default", CX_MUTEX_WAIT_MS, true); });
  EXPECT_EQ(exitCodeOf(shortWaiter), 0);
  usleep(200 * 1000);
  ASSERT_OK(CxMutex_unlock(m));
  EXPECT_EQ(exitCodeOf(defaultWaiter), 0);
  CxMutex_close(&m);
}

TEST_F(CxMutexTest, AHolderKilledWithSigkillReleasesTheNamedMutex) {
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  pid_t pid = forkChild([&] {
    close(p[0]);
    CxMutex* c = nullptr;
    if (!CxStatus_isOk(CxMutex_createNamed(&c, "killed")) || !CxStatus_isOk(CxMutex_lock(c))) return 10;
    sendByte(p[1], 'h');
    for (;;) pause();
  });
  ASSERT_GT(pid, 0);
  close(p[1]);
  ASSERT_EQ(readByte(p[0], 5000), 'h');
  CxMutex* m = named("killed");
  EXPECT_TRUE(isTimedOut(CxMutex_lockTimed(m, 100)));
  ASSERT_EQ(kill(pid, SIGKILL), 0);
  EXPECT_OK(CxMutex_lockTimed(m, 1000));
  EXPECT_EQ(exitCodeOf(pid), 100 + SIGKILL);
  CxMutex_unlock(m);
  CxMutex_close(&m);
  close(p[0]);
}

/* ---- within one process ---- */

namespace {
struct Shared {
  CxMutex* m;
  long counter;
  int failures;
};

void* bumpCounter(void* arg) {
  Shared* s = (Shared*)arg;
  for (int i = 0; i < 200; i++) {
    if (!CxStatus_isOk(CxMutex_lock(s->m))) {
      s->failures++;
      continue;
    }
    long v = s->counter;
    sched_yield();
    s->counter = v + 1;
    CxMutex_unlock(s->m);
  }
  return nullptr;
}

struct Attempt {
  CxMutex* m;
  CxStatus (*op)(CxMutex*);
  CxStatus result;
};

/* The outcome of op(m) run by another thread. */
CxStatus onOtherThread(CxMutex* m, CxStatus (*op)(CxMutex*)) {
  Attempt a = {m, op, CxStatus_make('?', -1)};
  pthread_t t;
  pthread_create(&t, nullptr, [](void* p) -> void* {
    Attempt* a = (Attempt*)p;
    a->result = a->op(a->m);
    return nullptr;
  }, &a);
  pthread_join(t, nullptr);
  return a.result;
}

/* The outcome of a short lockTimed made by another thread. */
CxStatus lockFromOtherThread(CxMutex* m) {
  return onOtherThread(m, [](CxMutex* m) {
    CxStatus s = CxMutex_lockTimed(m, 50);
    if (CxStatus_isOk(s)) CxMutex_unlock(m);
    return s;
  });
}
}  // namespace

TEST_F(CxMutexTest, ThreadsSharingOneNamedHandleAreSerialised) {
  Shared s = {named("threads"), 0, 0};
  pthread_t t[4];
  for (auto& th : t) ASSERT_EQ(pthread_create(&th, nullptr, bumpCounter, &s), 0);
  for (auto& th : t) pthread_join(th, nullptr);
  EXPECT_EQ(s.failures, 0);
  EXPECT_EQ(s.counter, 800);
  ASSERT_OK(CxMutex_lock(s.m));
  EXPECT_TRUE(isTimedOut(lockFromOtherThread(s.m)));
  CxMutex_unlock(s.m);
  EXPECT_OK(lockFromOtherThread(s.m));
  CxMutex_close(&s.m);
}

/* The unnamed mutex is probed from another thread; the named one through a
   second handle of the same name in this process, so its file lock must also
   be kept until the last unlock. */
TEST_F(CxMutexTest, BothMutexesAreRecursiveAndTwoHandlesOfOneNameExcludeEachOther) {
  CxMutex* m = nullptr;
  ASSERT_OK(CxMutex_create(&m));
  CxMutex* b = named("recursive");
  for (CxMutex* a : {m, named("recursive")}) {
    bool isNamed = a != m;
    auto probe = [&] { return isNamed ? CxMutex_lockTimed(b, 30) : lockFromOtherThread(m); };
    ASSERT_OK(CxMutex_lock(a));
    ASSERT_OK(CxMutex_lockTimed(a, 0));
    ASSERT_OK(CxMutex_unlock(a));
    EXPECT_TRUE(isTimedOut(probe())) << "one unlock released two holds";
    ASSERT_OK(CxMutex_unlock(a));
    EXPECT_OK(probe());
    CxMutex_close(&a);
    if (isNamed) {
      /* Closing the other handle must not drop b's lock. */
      CxMutex* c = named("recursive");
      EXPECT_TRUE(isTimedOut(CxMutex_lockTimed(c, 30)));
      CxMutex_close(&c);
      CxMutex_unlock(b);
    }
  }
  CxMutex_close(&b);
}

TEST_F(CxMutexTest, UnlockByAThreadThatDoesNotHoldItFailsAndChangesNothing) {
  CxMutex* kinds[2] = {nullptr, named("owner")};
  ASSERT_OK(CxMutex_create(&kinds[0]));
  for (CxMutex* m : kinds) {
    EXPECT_STATUS(CxMutex_unlock(m), 'p', EPERM);
    ASSERT_OK(CxMutex_lock(m));
    /* Another thread's unlock is refused; the hold survives it. */
    EXPECT_STATUS(onOtherThread(m, CxMutex_unlock), 'p', EPERM);
    EXPECT_TRUE(isTimedOut(lockFromOtherThread(m)));
    EXPECT_OK(CxMutex_unlock(m));
    CxMutex_close(&m);
  }
}

/* ---- names, lock files and arguments ---- */

TEST_F(CxMutexTest, AKeyNamesTheLockFileInLowerCaseHexInTmpdir) {
  mode_t old = umask(077);
  CxMutex* m = nullptr;
  CxStatus s = CxMutex_createKeyed(&m, 31821);
  umask(old);
  ASSERT_OK(s);
  /* Every user's processes must be able to open it, whatever our umask. */
  EXPECT_EQ(modeOf(tmp.file("CX_SEM_KEY_7c4d")), 0666u);
  CxMutex_close(&m);
  /* Closing leaves the file for the other processes. */
  EXPECT_EQ(access(tmp.file("CX_SEM_KEY_7c4d").c_str(), F_OK), 0);
  ASSERT_OK(CxMutex_createKeyed(&m, -1));
  EXPECT_EQ(access(tmp.file("CX_SEM_KEY_ffffffff").c_str(), F_OK), 0);
  CxMutex_close(&m);
}

TEST_F(CxMutexTest, AnExistingLockFileOfOursIsWidenedTo0666) {
  /* A file left narrow (by an older process or by hand) must not keep other
     users out. */
  ASSERT_TRUE(writeText(tmp.file("existing"), ""));
  ASSERT_EQ(chmod(tmp.file("existing").c_str(), 0600), 0);
  CxMutex* m = named("existing");
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(modeOf(tmp.file("existing")), 0666u);
  CxMutex_close(&m);
}

TEST_F(CxMutexTest, ASymbolicLinkPlantedAtTheLockPathIsRefused) {
  std::string victim = tmp.file("victim");
  ASSERT_TRUE(writeText(victim, "secret"));
  ASSERT_EQ(chmod(victim.c_str(), 0600), 0);
  ASSERT_EQ(symlink(victim.c_str(), tmp.file("CX_SEM_KEY_1").c_str()), 0);
  CxMutex* m = nullptr;
  EXPECT_STATUS(CxMutex_createKeyed(&m, 1), 'p', ELOOP);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(modeOf(victim), 0600u);
}

TEST_F(CxMutexTest, WithoutTmpdirTheLockFileGoesToSlashTmp) {
  unsetenv("TMPDIR");
  std::string name = "ardel-test-" + std::to_string(getpid());
  CxMutex* m = nullptr;
  ASSERT_OK(CxMutex_createNamed(&m, name.c_str()));
  std::string path = "/tmp/" + name;
  EXPECT_EQ(access(path.c_str(), F_OK), 0);
  CxMutex_close(&m);
  unlink(path.c_str());
}

TEST_F(CxMutexTest, BadNamesAndNullArgumentsGiveP22AndCloseNullsTheHandle) {
  CxMutex* m = (CxMutex*)&m;
  EXPECT_STATUS(CxMutex_createNamed(&m, nullptr), 'p', 22);
  EXPECT_EQ(m, nullptr);
  EXPECT_STATUS(CxMutex_createNamed(&m, ""), 'p', 22);
  EXPECT_STATUS(CxMutex_createNamed(&m, "../escape"), 'p', 22);
  std::string longest(CX_MUTEX_NAME_MAX, 'n');
  EXPECT_OK(CxMutex_createNamed(&m, longest.c_str()));
  EXPECT_OK(CxMutex_close(&m));
  EXPECT_EQ(m, nullptr) << "closing sets the handle to null";
  std::string tooLong(CX_MUTEX_NAME_MAX + 1, 'n');
  EXPECT_STATUS(CxMutex_createNamed(&m, tooLong.c_str()), 'p', 22);
  EXPECT_STATUS(CxMutex_createNamed(nullptr, "x"), 'p', 22);
  EXPECT_STATUS(CxMutex_create(nullptr), 'p', 22);
  EXPECT_STATUS(CxMutex_lock(nullptr), 'p', 22);
  EXPECT_STATUS(CxMutex_lockTimed(nullptr, 10), 'p', 22);
  EXPECT_STATUS(CxMutex_unlock(nullptr), 'p', 22);
  EXPECT_STATUS(CxMutex_close(nullptr), 'p', 22);
  m = nullptr;
  EXPECT_STATUS(CxMutex_close(&m), 'p', 22);
}

TEST_F(CxMutexTest, OutOfMemoryGivesP12AndLeaksNothing) {
  int fds = openFdCount();
  for (int named = 0; named < 2; named++) {
    CxMutex* m = (CxMutex*)&m;
    QlgMem_failAt(1);
    CxStatus s = named ? CxMutex_createNamed(&m, "oom") : CxMutex_create(&m);
    EXPECT_EQ(QlgMem_failed(), 1);
    QlgMem_failAt(0);
    EXPECT_STATUS(s, 'p', ENOMEM);
    EXPECT_EQ(m, nullptr);
  }
  EXPECT_EQ(openFdCount(), fds);
}
