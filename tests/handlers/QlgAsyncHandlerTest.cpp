// SPDX-License-Identifier: Apache-2.0
// qlg_asynchandler: nothing lost and each thread's order kept under BLOCK,
// the overflow policies dropping and reporting exactly what did not fit,
// the caller's event arriving as the caller made it, the queue drained by
// exit(), and a forked child that keeps logging.
#include <string.h>

#include <thread>

#include <ardel/QlgLogger.h>
#include <ardel/log.h>
#include "handlers/HandlerHarness.h"
#include "handlers/QlgAsyncHandler.h"
#include "msg/QlgParmList.h"
#include "platform/CxSystem.h"

namespace {

using namespace htest;

const int kThreads = 4;
const int kPerThread = 250000;

// "t%d n%d" records checked as they arrive: each thread's numbers in order
// (so with no fault, every record is counted in g_next).
int g_next[kThreads];
long g_faults;
void sequencePublish(QlgObject*, QlgEvent* e) {
  const QlgParmList* p = e->message ? e->message->parms : nullptr;
  int t = p && p->count == 2 ? p->items[0].value.i : -1;
  if (t < 0 || t >= kThreads || p->items[1].value.i != g_next[t]) g_faults++;
  else g_next[t]++;
}

// What a record carried besides what the recorder keeps.
std::string g_threadId;
int64_t g_time;
void propsPublish(QlgObject*, QlgEvent* e) {
  const char* v = QlgEvent_peekString(e, "threadId");
  g_threadId = v ? v : "-";
  g_time = e->time;
}

class AsyncHandlerTest : public htest::HandlerTest {
 protected:
  void SetUp() override {
    HandlerTest::SetUp();
    QlgClass_registerHandler("test_async_sequence", nullptr, nullptr, nullptr,
                             QlgObject_basePropertyChanged, sequencePublish, nullptr, nullptr);
    QlgClass_registerHandler("test_async_props", nullptr, nullptr, nullptr,
                             QlgObject_basePropertyChanged, propsPublish, nullptr, nullptr);
    memset(g_next, 0, sizeof g_next);
    g_faults = 0;
  }
  // No thread outlives a test: later tests fork.
  void TearDown() override {
    QlgAsyncHandler_stopAll(1);
    HandlerTest::TearDown();
  }
  // logger -> async handler with props -> a listener of class out.
  QlgObject* chain(Props props, const char* out) {
    listener_ = make(out);
    props.push_back({"listenerNames", listener_->name});
    async_ = make("qlg_asynchandler", props);
    return make("qlg_basiclogger", {{"listenerNames", async_->name}});
  }

  QlgObject* async_ = nullptr;
  QlgObject* listener_ = nullptr;
};

TEST_F(AsyncHandlerTest, BlockLosesNothingAndKeepsEachThreadsOrder) {
  QlgObject* logger = chain({}, "test_async_sequence");
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; t++)
    threads.emplace_back([logger, t] {
      for (int i = 0; i < kPerThread; i++)
        QlgLogger_logMin(logger, __FILE__, "worker", __LINE__, "t%d n%d", QLG_PARM_INT, t,
                         QLG_PARM_INT, i, 0);
    });
  for (auto& t : threads) t.join();
  ardel_flush();
  EXPECT_EQ(g_faults, 0);
  for (int t = 0; t < kThreads; t++) EXPECT_EQ(g_next[t], kPerThread) << "thread " << t;
  EXPECT_EQ(QlgAsyncHandler_droppedCount(async_), 0u);
}

TEST_F(AsyncHandlerTest, FullQueueKeepsDropsAndReportsExactlyWhatDidNotFit) {
  struct Case { const char* policy; std::string delivered; uint64_t dropped; } cases[] = {
      {"BLOCK", "r0;r1;r2;r3;r4;r5;r6;r7;r8;r9;", 0}, {"DROP_NEW", "r0;r1;r2;r3;", 6}, {"OVERRUN_OLDEST", "r6;r7;r8;r9;", 6}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.policy);
    seen().clear();
    QlgObject* logger = chain({{"queueSize", "4"}, {"overflowPolicy", c.policy}}, "test_recorder");
    CaptureFd err(2);
    QlgAsyncHandler_hold(async_, 1); /* a listener that takes nothing for now */
    for (int i = 0; i < 10; i++)
      QlgLogger_logMin(logger, nullptr, nullptr, 0, "r%d", QLG_PARM_INT, i, 0);
    EXPECT_EQ(QlgAsyncHandler_droppedCount(async_), c.dropped);
    QlgAsyncHandler_hold(async_, 0);
    ardel_flush();
    // The delivered records, then the one report of what was lost.
    std::string got = seenList(), report = got.substr(std::min(got.size(), c.delivered.size()));
    EXPECT_EQ(got.substr(0, c.delivered.size()), c.delivered);
    EXPECT_EQ(htest::count(report, ";"), c.dropped ? 1u : 0u) << report;
    EXPECT_EQ(htest::count(report, "QLGAH0181W") + htest::count(report, "dropped 6 records since"), c.dropped ? 2u : 0u);
    EXPECT_EQ(htest::count(err.text(), "QLGAH0181W"), c.dropped ? 1u : 0u);
  }
}

TEST_F(AsyncHandlerTest, RecordCarriesTheCallersTextLocationTimeAndProperties) {
  QlgObject* logger = chain({}, "test_recorder");
  QlgObject_addListener(listener_, make("test_async_props"));
  QlgAsyncHandler_hold(async_, 1);
  char name[16];
  strcpy(name, "disk0");
  int64_t before = CxSystem_currentTimeMillis();
  QlgLogger_logMin(logger, "scan.c", "probe", 42, "found %s", QLG_PARM_STRING, name, QLG_PROPERTY,
                   "threadId", QLG_PARM_LONG, 4711L, 0);
  int64_t after = CxSystem_currentTimeMillis();
  strcpy(name, "XXXXX"); /* the caller's buffer is reused before delivery */
  usleep(20000);
  QlgAsyncHandler_hold(async_, 0);
  ardel_flush();
  ASSERT_EQ(seen().size(), 1u);
  EXPECT_EQ(seen()[0].text, "found disk0");
  EXPECT_EQ(seen()[0].level, QLG_LEVEL_DEBUG_MIN);
  EXPECT_EQ(seen()[0].file + ":" + seen()[0].function + ":" + seen()[0].line, "scan.c:probe:42");
  EXPECT_EQ(g_threadId, "4711");
  EXPECT_GE(g_time, before);
  EXPECT_LE(g_time, after);
}

TEST_F(AsyncHandlerTest, BadPropertyValuesAreReportedAndIgnored) {
  const Props bad = {{"queueSize", "0"}, {"queueSize", "12x"}, {"overflowPolicy", "LATER"},
                     {"flushIntervalMs", "-1"}, {"logInternalErrs", "maybe"}};
  for (const auto& p : bad) {
    std::string text = ardeltest::stderrOf([&] { chain({p}, "test_recorder"); });
    EXPECT_HAS(text, "QLGAH0180W Property '" + p.first + "'");
    EXPECT_HAS(text, "'" + p.second + "'");
  }
}

TEST_F(AsyncHandlerTest, ExitDrainsTheQueueIntoTheFile) {
  ardeltest::TempDir dir;
  ardeltest::inChild([&] {
    QlgObject* logger = chain({{"queueSize", "64"}}, "qlg_filehandler");
    QlgObject_storeProperty(listener_, "fileName", dir.file("exit.log").c_str());
    for (int i = 0; i < 1000; i++)
      QlgLogger_logMin(logger, nullptr, nullptr, 0, "exit record %d", QLG_PARM_INT, i, 0);
    exit(0); /* as a return from main */
  });
  std::string text = ardeltest::readFile(dir.file("exit.log"));
  EXPECT_EQ(htest::count(text, "exit record "), 1000u);
  EXPECT_NE(text.find("exit record 999"), std::string::npos);
}

TEST_F(AsyncHandlerTest, ForkedChildKeepsLoggingAndParentIsUntouched) {
  QlgObject* logger = chain({}, "test_recorder");
  QlgLogger_logMin(logger, nullptr, nullptr, 0, "before", 0);
  ardel_flush();
  usleep(100000); /* the thread back asleep: a fork must not catch it holding the lock */
  ardeltest::inChild([&] {
    QlgLogger_logMin(logger, nullptr, nullptr, 0, "child", 0);
    ardel_flush();
    EXPECT_EQ(seenList(), "before;child;");
  });
  QlgLogger_logMin(logger, nullptr, nullptr, 0, "after", 0);
  ardel_flush();
  EXPECT_EQ(seenList(), "before;after;");
}

}  // namespace
