// SPDX-License-Identifier: Apache-2.0
// Allocation failures during start-up, object creation and a log call: every
// single failure point must end in a described outcome (a report, a null, a
// dropped event), never a crash and never a leak.  Each failure point runs in
// its own process; under LeakSanitizer each also checks nothing became unreachable.
#include <ardel/QlgLogger.h>

#include "support/Recorder.h"

extern "C" int __lsan_do_recoverable_leak_check(void) __attribute__((weak));

using namespace ardeltest;

namespace {

// Counts the allocation attempts of op in a fresh process, then fails each
// in turn in a process of its own; check runs after op in the same child.
void sweep(const std::function<void()>& setup, const std::function<void()>& op, const std::function<void()>& check) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  long total = 0;
  inChild([&] {
    setup();
    QlgMem_failAt(0);
    op();
    long n = QlgMem_allocCount();
    ASSERT_EQ(write(fds[1], &n, sizeof n), static_cast<ssize_t>(sizeof n));
  });
  ASSERT_EQ(read(fds[0], &total, sizeof total), static_cast<ssize_t>(sizeof total));
  close(fds[0]);
  close(fds[1]);
  ASSERT_GT(total, 0);
  for (long i = 1; i <= total && !::testing::Test::HasFailure(); i++) {
    SCOPED_TRACE("failing allocation " + std::to_string(i) + " of " + std::to_string(total));
    inChild([&] {
      setup();
      QlgMem_failAt(i);
      op();
      EXPECT_TRUE(QlgMem_failed());
      QlgMem_failAt(0);
      CaptureFd err(2);  // reports of the degraded toolkit are expected
      check();
      if (&__lsan_do_recoverable_leak_check) { EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0); }
    });
  }
}

const std::string& configPath() {
  static TempDir dir;
  static std::string path = dir.write("fault.properties",
      "app.className=qlg_basiclogger\napp.level=DEBUG_MIN\napp.listenerNames=flt rec\nflt.className=qlg_levelfilter\n"
      "flt.listenerNames=out\nout.className=qlg_consolehandler\nout.logging=off\nrec.className=test_recorder\n"
      "wide.className=qlg_basiclogger\nwide.listenerNames=r1 r2 r3 r4 r5 r6 r7 r8 r9 r10\n"
      "r1.className=test_recorder\nr2.className=test_recorder\nr3.className=test_recorder\nr4.className=test_recorder\n"
      "r5.className=test_recorder\nr6.className=test_recorder\nr7.className=test_recorder\nr8.className=test_recorder\n"
      "r9.className=test_recorder\nr10.className=test_recorder\n");
  return path;
}

void started() {
  ASSERT_TRUE(QlgToolkit_initialize(configPath().c_str()));
  registerRecorder();
}

void logTo(const char* name) {
  QlgObject* o = QlgObject_find(name);
  QlgLogger_logMin(o, "file.c", "function", 42, "%1$s and %2$d", QLG_PARM_STRING, "text", QLG_PARM_INT, 7, 0);
  QlgObject_release(o);
}

}  // namespace

TEST(FaultInjection, StartupSurvivesEveryAllocationFailure) {
  sweep([] {}, [] { stderrOf([] { QlgToolkit_initialize(configPath().c_str()); }); },
        [] {
          // Whatever state the failed start left, the toolkit still works.
          if (!QlgToolkit_getErrorLogger()) QlgToolkit_initialize(configPath().c_str());
          registerRecorder();
          QlgObject* app = QlgObject_create("app", nullptr);
          if (app) logTo("app");
          QlgObject_release(app);
        });
}

TEST(FaultInjection, ObjectCreationReportsOrReturnsNullButNeverCrashes) {
  sweep(started, [] { stderrOf([] { QlgObject_release(QlgObject_create("app", nullptr)); }); },
        [] {
          QlgObject* app = QlgObject_create("app", nullptr);
          ASSERT_NE(app, nullptr);
          QlgObject_release(app);
        });
}

// A log call delivers its event whole or drops it, to every listener of a wide group or to none.
TEST(FaultInjection, ALogCallDeliversTheEventWholeEverywhereOrDropsIt) {
  for (const char* logger : {"app", "wide"}) {
    size_t listeners = std::string(logger) == "app" ? 1 : 10;
    sweep([logger] {
            started();
            QlgObject_create(logger, nullptr);
            seen().clear();
          },
          [logger] { stderrOf([logger] { logTo(logger); }); },
          [logger, listeners] {
            EXPECT_TRUE(seen().empty() || seen().size() == listeners) << seen().size();
            for (const Seen& s : seen()) EXPECT_TRUE(s.text == "text and 7" || s.text == "%1$s and %2$d") << s.text;
            seen().clear();
            logTo(logger);
            std::string all;
            for (size_t i = 0; i < listeners; i++) all += "text and 7;";
            EXPECT_EQ(seenList(), all);
            QlgObject_release(QlgObject_find(logger));
          });
  }
}
