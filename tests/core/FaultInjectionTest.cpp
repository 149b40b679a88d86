/*
 * Allocation failures during start-up, object creation and a log call:
 * every single failure point must end in a described outcome (a report, a
 * null, a dropped event), never a crash and never a leak.  Each failure
 * point runs in its own process; under LeakSanitizer each one also checks
 * that nothing became unreachable.
 */
#include <ardel/QlgLogger.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>

#include "support/Recorder.h"
#include "support/TestSupport.h"
#include "util/QlgMemTest.h"

extern "C" int __lsan_do_recoverable_leak_check(void) __attribute__((weak));

using namespace ardeltest;

namespace {

const char* kConfig =
    "app.className=qlg_basiclogger\n"
    "app.level=DEBUG_MIN\n"
    "app.listenerNames=flt rec\n"
    "flt.className=qlg_levelfilter\n"
    "flt.listenerNames=out\n"
    "out.className=qlg_consolehandler\n"
    "out.logging=off\n"
    "rec.className=test_recorder\n";

void expectNoLeak() {
  if (&__lsan_do_recoverable_leak_check) {
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
  }
}

/* Counts the allocation attempts of op in a fresh process. */
long countAllocations(const std::function<void()>& setup, const std::function<void()>& op) {
  int fds[2];
  if (pipe(fds) != 0) return 0;
  pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    setup();
    QlgMem_failAt(0);
    op();
    long n = QlgMem_allocCount();
    if (write(fds[1], &n, sizeof n) != (ssize_t)sizeof n) _exit(2);
    _exit(0);
  }
  close(fds[1]);
  long n = 0;
  if (read(fds[0], &n, sizeof n) != (ssize_t)sizeof n) n = 0;
  close(fds[0]);
  int status;
  waitpid(pid, &status, 0);
  return n;
}

/* Fails each allocation of op in turn; check runs after op in the same child. */
void sweep(const std::function<void()>& setup, const std::function<void()>& op,
           const std::function<void()>& check) {
  long total = countAllocations(setup, op);
  ASSERT_GT(total, 0);
  for (long i = 1; i <= total; i++) {
    SCOPED_TRACE("failing allocation " + std::to_string(i) + " of " + std::to_string(total));
    inChild([&] {
      setup();
      QlgMem_failAt(i);
      op();
      EXPECT_TRUE(QlgMem_failed());
      QlgMem_failAt(0);
      CaptureFd err(2); /* reports of the degraded toolkit are expected */
      check();
      expectNoLeak();
    });
    if (::testing::Test::HasFailure()) break;
  }
}

std::string configPath() {
  static TempDir dir;
  static std::string path = dir.write("fault.properties", kConfig);
  return path;
}

}  // namespace

TEST(FaultInjection, StartupSurvivesEveryAllocationFailure) {
  std::string path = configPath();
  sweep([] {},
        [&] {
          CaptureFd err(2);
          QlgToolkit_initialize(path.c_str());
        },
        [&] {
          /* Whatever state the failed start left, the toolkit still works. */
          if (!QlgToolkit_getErrorLogger()) QlgToolkit_initialize(path.c_str());
          registerRecorder();
          QlgObject* app = QlgObject_create("app", nullptr);
          if (app) {
            QlgLogger_logMin(app, "f.c", "fn", 1, "%1$s", QLG_PARM_STRING, "after", 0);
            QlgObject_release(app);
          }
        });
}

TEST(FaultInjection, ObjectCreationReportsOrReturnsNullButNeverCrashes) {
  std::string path = configPath();
  sweep([&] {
          ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
          registerRecorder();
        },
        [] {
          CaptureFd err(2);
          QlgObject* app = QlgObject_create("app", nullptr);
          QlgObject_release(app);
        },
        [] {
          QlgObject* app = QlgObject_create("app", nullptr);
          ASSERT_NE(app, nullptr);
          QlgObject_release(app);
        });
}

TEST(FaultInjection, LogCallDeliversOrDropsTheEvent) {
  std::string path = configPath();
  static QlgObject* app = nullptr;
  sweep([&] {
          ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
          registerRecorder();
          app = QlgObject_create("app", nullptr);
          seen().clear();
        },
        [] {
          CaptureFd err(2);
          QlgLogger_logMin(app, "file.c", "function", 42, "%1$s and %2$d", QLG_PARM_STRING,
                           "text", QLG_PARM_INT, 7, 0);
        },
        [] {
          ASSERT_LE(seen().size(), 1u);
          if (!seen().empty()) {
            EXPECT_FALSE(seen()[0].text.empty());
          }
          seen().clear();
          QlgLogger_logMin(app, "file.c", "function", 42, "%1$s and %2$d", QLG_PARM_STRING,
                           "text", QLG_PARM_INT, 7, 0);
          ASSERT_EQ(seen().size(), 1u);
          EXPECT_EQ(seen()[0].text, "text and 7");
          QlgObject_release(app);
        });
}

TEST(FaultInjection, AWideListenerGroupGetsTheEventWholeOrNotAtAll) {
  static TempDir dir;
  static std::string path = dir.write(
      "wide.properties",
      "wide.className=qlg_basiclogger\nwide.listenerNames=r1 r2 r3 r4 r5 r6 r7 r8 r9 r10\n"
      "r1.className=test_recorder\nr2.className=test_recorder\nr3.className=test_recorder\n"
      "r4.className=test_recorder\nr5.className=test_recorder\nr6.className=test_recorder\n"
      "r7.className=test_recorder\nr8.className=test_recorder\nr9.className=test_recorder\n"
      "r10.className=test_recorder\n");
  static QlgObject* wide = nullptr;
  sweep([&] {
          ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
          registerRecorder();
          wide = QlgObject_create("wide", nullptr);
          seen().clear();
        },
        [] {
          CaptureFd err(2);
          QlgLogger_logMin(wide, nullptr, nullptr, 0, "plain", 0);
        },
        [] {
          /* Either every listener saw it or none did. */
          EXPECT_TRUE(seen().empty() || seen().size() == 10u) << seen().size();
          seen().clear();
          QlgLogger_logMin(wide, nullptr, nullptr, 0, "plain", 0);
          EXPECT_EQ(seen().size(), 10u);
          QlgObject_release(wide);
        });
}
