// SPDX-License-Identifier: Apache-2.0
// The toolkit's recursive lock and the named mutex shared between processes.
// Cross-process cases run workers in processes of their own; each opens the
// name itself, marks its steps by creating files and reports its outcome
// through its exit code.  Every test works in a private TMPDIR so that no
// lock file is shared with anything else on the machine.
#include <errno.h>

#include <atomic>
#include <sstream>
#include <thread>
#include <vector>

#include "platform/CxMutex.h"
#include "platform/CxSystem.h"
#include "support/TestSupport.h"

namespace {

using ardeltest::statusOf;
using ardeltest::statusText;
using ardeltest::waitForFile;

const std::string kTimedOut = "w 258";

// Arguments "name ms expectLock marks": opens name, creates marks + "w",
// waits for the mutex (with ms, or without limit when ms < 0) and creates
// marks + "g" when granted; the exit code says whether the outcome matched
// expectLock (0) and how long it waited.
ARDEL_TEST_WORKER(waiter) {
  std::istringstream in(arg);
  std::string name, marks;
  int ms = 0, expectLock = 0;
  in >> name >> ms >> expectLock >> std::ws;
  std::getline(in, marks);
  CxMutex* m = nullptr;
  if (!CxStatus_isOk(CxMutex_createNamed(&m, name.c_str()))) return 10;
  ardeltest::writeFile(marks + "w", "");
  int64_t start = CxSystem_steadyMillis();
  errno = ENOENT;  // a stale errno must not turn a granted lock into a failure
  std::string s = statusOf(ms < 0 ? CxMutex_lock(m) : CxMutex_lockTimed(m, ms));
  int64_t waited = CxSystem_steadyMillis() - start;
  if (s == "ok") ardeltest::writeFile(marks + "g", "");
  int rc = expectLock ? (s == "ok" ? 0 : 11) : (s != kTimedOut ? 13 : waited < ms - 20 ? 14 : 0);
  if (s == "ok" && statusOf(CxMutex_unlock(m)) != "ok") rc = 12;
  CxMutex_close(&m);
  return rc;
}

// Arguments "name marks": takes the mutex, creates marks + "h" and holds it
// until killed.
ARDEL_TEST_WORKER(holder) {
  std::istringstream in(arg);
  std::string name, marks;
  in >> name >> std::ws;
  std::getline(in, marks);
  CxMutex* m = nullptr;
  if (!CxStatus_isOk(CxMutex_createNamed(&m, name.c_str())) || !CxStatus_isOk(CxMutex_lock(m))) return 10;
  ardeltest::writeFile(marks + "h", "");
  for (;;) CxSystem_sleepMillis(1000);
}

class CxMutexTest : public ::testing::Test {
 protected:
  CxMutex* named(const char* name) {
    CxMutex* m = nullptr;
    EXPECT_EQ(statusOf(CxMutex_createNamed(&m, name)), "ok");
    return m;
  }
  CxProcess startWaiter(const char* name, int ms, bool expectLock, const std::string& marks) {
    return ardeltest::startWorker(waiter, std::string(name) + " " + std::to_string(ms) + " " +
                                                std::to_string(expectLock) + " " + tmp.file(marks));
  }
  int exitCodeOf(CxProcess child) { return ardeltest::finishWorker(child, time(nullptr) + 60); }
  ardeltest::TempDir tmp;
  ardeltest::EnvVar tmpdir{"TMPDIR", tmp.path().c_str()};
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
  CxProcess child = startWaiter("block", -1, true, "");
  ASSERT_TRUE(waitForFile(tmp.file("w"), 20000));
  EXPECT_FALSE(waitForFile(tmp.file("g"), 300)) << "the child got the mutex while it was held";
  ASSERT_EQ(statusOf(CxMutex_unlock(m)), "ok");
  EXPECT_TRUE(waitForFile(tmp.file("g"), 5000));
  EXPECT_EQ(exitCodeOf(child), 0);
  CxMutex_close(&m);
}

TEST_F(CxMutexTest, LockTimedGivesUpAfterItsTimeoutWhileTheDefaultWaitOutlastsTheHold) {
  CxMutex* m = named("timed");
  ASSERT_EQ(statusOf(CxMutex_lock(m)), "ok");
  CxProcess shortWaiter = startWaiter("timed", 300, false, "short-");
  CxProcess defaultWaiter = startWaiter("timed", CX_MUTEX_WAIT_MS, true, "default-");
  EXPECT_EQ(exitCodeOf(shortWaiter), 0) << "13: not 'w' 258, 14: gave up early";
  ASSERT_TRUE(waitForFile(tmp.file("default-w"), 5000));
  ASSERT_EQ(statusOf(CxMutex_unlock(m)), "ok");
  EXPECT_EQ(exitCodeOf(defaultWaiter), 0);
  EXPECT_EQ(exitCodeOf(startWaiter("timed", 300, true, "")), 0) << "released, the same short wait succeeds";
  CxMutex_close(&m);
}

TEST_F(CxMutexTest, AHolderKilledWhileHoldingReleasesTheNamedMutex) {
  CxProcess child = ardeltest::startWorker(holder, "killed " + tmp.file(""));
  ASSERT_TRUE(waitForFile(tmp.file("h"), 20000));
  CxMutex* m = named("killed");
  EXPECT_EQ(statusOf(CxMutex_lockTimed(m, 100)), kTimedOut);
  ASSERT_EQ(statusOf(CxProcess_kill(&child)), "ok");
  EXPECT_EQ(statusOf(CxMutex_lockTimed(m, 1000)), "ok");
  EXPECT_EQ(exitCodeOf(child), 137) << "128 plus SIGKILL's number, the same on Windows";
  CxMutex_unlock(m);
  CxMutex_close(&m);
}

TEST_F(CxMutexTest, ThreadsSharingOneNamedHandleAreSerialisedAndOnlyTheHolderMayUnlock) {
  CxMutex* shared = named("threads");
  long counter = 0;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; i++) {
        // Half the threads try first, as the toolkit does.
        if (!(t % 2 && CxStatus_isOk(CxMutex_tryLock(shared))) && !CxStatus_isOk(CxMutex_lock(shared))) {
          failures++;
          continue;
        }
        long v = counter;
        std::this_thread::yield();  // widen the window a missing exclusion would leave
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
    EXPECT_EQ(onOtherThread(m, CxMutex_tryLock), kTimedOut);
    EXPECT_EQ(statusOf(CxMutex_unlock(m)), "ok");
    EXPECT_EQ(lockFromOtherThread(m), "ok");
    CxMutex_close(&m);
  }
}

// Both are probed from another thread, the named one through a second
// handle of its name, whose hold must also be kept until the last unlock
// and survive closing another handle of that name.
TEST_F(CxMutexTest, BothMutexesAreRecursiveAndTwoHandlesOfOneNameExcludeEachOther) {
  CxMutex* m = nullptr;
  ASSERT_EQ(statusOf(CxMutex_create(&m)), "ok");
  CxMutex* b = named("recursive");
  for (CxMutex* a : {m, named("recursive")}) {
    CxMutex* probed = a == m ? m : b;
    ASSERT_EQ(statusOf(CxMutex_lock(a)), "ok");
    ASSERT_EQ(statusOf(CxMutex_tryLock(a)), "ok");
    ASSERT_EQ(statusOf(CxMutex_unlock(a)), "ok");
    EXPECT_EQ(lockFromOtherThread(probed), kTimedOut) << "one unlock released two holds";
    ASSERT_EQ(statusOf(CxMutex_unlock(a)), "ok");
    EXPECT_EQ(lockFromOtherThread(probed), "ok");
    CxMutex_close(&a);
  }
  ASSERT_EQ(statusOf(CxMutex_lock(b)), "ok");
  CxMutex* c = named("recursive");
  CxMutex_close(&c);
  c = named("recursive");
  EXPECT_EQ(lockFromOtherThread(c), kTimedOut) << "closing another handle released the hold";
  CxMutex_unlock(b);
  CxMutex_close(&b);
  CxMutex_close(&c);
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
                            CxMutex_tryLock(nullptr), CxMutex_lockTimed(nullptr, 10), CxMutex_unlock(nullptr), CxMutex_close(nullptr), CxMutex_close(&m)})
    EXPECT_EQ(statusOf(s), "p 22");
  long before = ardeltest::openHandleCount();
  for (int isNamed = 0; isNamed < 2; isNamed++) {
    m = reinterpret_cast<CxMutex*>(&m);
    QlgMem_failAt(1);
    CxStatus s = isNamed ? CxMutex_createNamed(&m, "oom") : CxMutex_create(&m);
    QlgMem_failAt(0);
    EXPECT_EQ(statusOf(s), statusText('p', ENOMEM));
    EXPECT_EQ(m, nullptr);
  }
  EXPECT_EQ(ardeltest::openHandleCount(), before) << "no descriptor leaks";
}
