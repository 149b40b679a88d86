/*
 * Levels, events and loggers: level parsing, thresholds, the tagged
 * argument list, the level property, and delivery under many threads.
 */
#include <ardel/QlgEvent.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgLogger.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>

#include <atomic>
#include <set>
#include <thread>

#include "support/Recorder.h"
#include "support/TestSupport.h"

using namespace ardeltest;

TEST(LevelParse, NumbersKeywordsAndPrefixLeniency) {
  struct Case { const char* text; int level; } cases[] = {
      {"debug_mid", 2000}, {"7", 7}, {"  42abc", 42}, {"-9999", -9999}, {"verbose", -9999},
      {"OFF", 9999}, {"FATAL", 7000}, {"error", 6000}, {"warning", 5000}, {"INFORMATION", 4000},
      {"MIN", 3000}, {"DEBUG_MIN", 3000}, {"Mid", 2000}, {"Maximum", 1000}, {"DEBUG_MAX", 1000},
      {"all", 0}, {"", -9999}, {"WAR", -9999},
  };
  for (const auto& c : cases) EXPECT_EQ(QlgLevel_parse(c.text), c.level) << c.text;
  EXPECT_EQ(QlgLevel_parse(nullptr), -9999);
}

TEST(Events, NullEventAnswersNoLevelAndTimeZero) {
  EXPECT_EQ(QlgEvent_getLevel(nullptr), -9999);
  EXPECT_EQ(QlgEvent_getTime(nullptr), 0);
  EXPECT_EQ(QlgEvent_isMessage(nullptr), 0);
  EXPECT_EQ(QlgEvent_getMessageId(nullptr), nullptr);
}

TEST(Events, TaggedItemsBecomeParametersPropertiesAndLevel) {
  QlgEvent* e = QlgEvent_createTagged(3000, nullptr, 0, 0, "%1$s=%2$d %3$c",
                                      QLG_PARM_STRING, "n", QLG_PARM_INT, 42, 6000,
                                      QLG_PROPERTY, "who", QLG_PARM_STRING, "me",
                                      QLG_PROPERTY, "count", QLG_PARM_INT, 9,
                                      QLG_PARM_CHAR, 'z', 0);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(QlgEvent_getLevel(e), 6000);
  EXPECT_EQ(QlgEvent_isMessage(e), 0);
  char* text = QlgEvent_render(e, nullptr);
  EXPECT_STREQ(text, "n=42 z");
  QlgMem_free(text);
  EXPECT_EQ(propOrDash(e, "who"), "me");
  int found = 0;
  EXPECT_EQ(QlgEvent_getIntProperty(e, "count", &found), 9);
  EXPECT_EQ(found, 1);
  int64_t now = QlgEvent_getTime(e);
  EXPECT_GT(now, 1600000000000LL);
  QlgEvent_free(e);

  QlgEvent* m = QlgEvent_createTagged(5000, "qlgmsg", 1, 20, "QLGBC0020E Out of memory.\r", 0);
  EXPECT_EQ(QlgEvent_isMessage(m), 1);
  QlgEvent_setMessageId(m, "QLGBC0020E");
  char* id = QlgEvent_getMessageId(m);
  EXPECT_STREQ(id, "QLGBC0020E");
  QlgMem_free(id);
  QlgEvent_free(m);
}

TEST(Events, SixtyThreeTagsAreAcceptedSixtyFourAreReported) {
  inChild([] {
    startWithRecorder("");
    auto run = [](int tags) {
      /* tags - 1 level tags, then the end tag (or one more level tag). */
      std::vector<long> v(70, 3000);
      v[tags - 1] = 0;
      CaptureFd err(2);
      QlgEvent* e = QlgEvent_createTagged(1000, nullptr, 0, 0, "t",
          (int)v[0], (int)v[1], (int)v[2], (int)v[3], (int)v[4], (int)v[5], (int)v[6], (int)v[7],
          (int)v[8], (int)v[9], (int)v[10], (int)v[11], (int)v[12], (int)v[13], (int)v[14],
          (int)v[15], (int)v[16], (int)v[17], (int)v[18], (int)v[19], (int)v[20], (int)v[21],
          (int)v[22], (int)v[23], (int)v[24], (int)v[25], (int)v[26], (int)v[27], (int)v[28],
          (int)v[29], (int)v[30], (int)v[31], (int)v[32], (int)v[33], (int)v[34], (int)v[35],
          (int)v[36], (int)v[37], (int)v[38], (int)v[39], (int)v[40], (int)v[41], (int)v[42],
          (int)v[43], (int)v[44], (int)v[45], (int)v[46], (int)v[47], (int)v[48], (int)v[49],
          (int)v[50], (int)v[51], (int)v[52], (int)v[53], (int)v[54], (int)v[55], (int)v[56],
          (int)v[57], (int)v[58], (int)v[59], (int)v[60], (int)v[61], (int)v[62], (int)v[63],
          (int)v[64], 0);
      EXPECT_NE(e, nullptr);
      EXPECT_EQ(QlgEvent_getLevel(e), 3000);
      QlgEvent_free(e);
      return err.text();
    };
    EXPECT_EQ(run(63), "");
    EXPECT_NE(run(64).find("QLGBC0070W The logging method parameter list did not end with a NULL."),
              std::string::npos);
  });
}

TEST(Events, UnknownTagIsReportedAndTheEventKeepsWhatWasRead) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\napp.listenerNames=r\nr.className=test_recorder\n");
    QlgObject* app = QlgObject_create("app", nullptr);
    CaptureFd err(2);
    QlgLogger_logMin(app, nullptr, nullptr, 0, "%1$s-%2$s", QLG_PARM_STRING, "a", 12345,
                     QLG_PARM_STRING, "b", 0);
    std::string out = err.text();
    EXPECT_NE(out.find("QLGBC0071W The logging method's parameter list is missing type markers."),
              std::string::npos) << out;
    ASSERT_EQ(seen().size(), 1u);
    /* One parameter for two positions: the unformatted text is shown. */
    EXPECT_EQ(seen()[0].text, "%1$s-%2$s");
    QlgObject_release(app);
  });
}

TEST(LoggerThreshold, NewLoggerPassesOnlyMinimumTrace) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\napp.listenerNames=r\nr.className=test_recorder\n");
    QlgObject* app = QlgObject_create("app", nullptr);
    EXPECT_EQ(app->field1.level, 3000);
    QlgLogger_logMin(app, nullptr, nullptr, 0, "min", 0);
    QlgLogger_logMid(app, nullptr, nullptr, 0, "mid", 0);
    QlgLogger_logMax(app, nullptr, nullptr, 0, "max", 0);
    ASSERT_EQ(seen().size(), 1u);
    EXPECT_EQ(seen()[0].text, "min");
    EXPECT_TRUE(QlgLogger_isLoggable(app, -9999));
    EXPECT_TRUE(QlgLogger_isLoggable(app, 3000));
    EXPECT_FALSE(QlgLogger_isLoggable(app, 2000));
    EXPECT_FALSE(QlgLogger_isLoggable(nullptr, 9999));
    QlgObject_release(app);
  });
}

TEST(LoggerThreshold, UnknownLevelNamePassesEverything) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\napp.level=verbose\napp.listenerNames=r\n"
          "r.className=test_recorder\n");
    QlgObject* app = QlgObject_create("app", nullptr);
    EXPECT_EQ(app->field1.level, -9999);
    QlgLogger_logMax(app, nullptr, nullptr, 0, "a", 0);
    QlgLogger_logMid(app, nullptr, nullptr, 0, "b", 0);
    QlgLogger_logMin(app, nullptr, nullptr, 0, "c", 0);
    EXPECT_EQ(seen().size(), 3u);
    QlgObject_release(app);
  });
}

TEST(LoggerThreshold, EmptyLevelReportsKey4AndSetsInfo) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\napp.listenerNames=r\nr.className=test_recorder\n"
          "x.y=1\napp.level=\n");
    std::string out;
    QlgObject* app;
    {
      CaptureFd err(2);
      app = QlgObject_create("app", nullptr);
      out = err.text();
    }
    EXPECT_NE(out.find("QLGBC04E Property 'level' will be ignored for 'app' because the value is "
                       "empty or blank.\r\n"),
              std::string::npos) << out;
    EXPECT_EQ(app->field1.level, 4000);
    QlgLogger_logMin(app, nullptr, nullptr, 0, "dropped", 0);
    EXPECT_TRUE(seen().empty());
    QlgObject_release(app);
  });
}

TEST(LoggerThreshold, OffStillPassesLevel9999AndSilencedLoggerDoesNothing) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\napp.level=OFF\napp.listenerNames=r\n"
          "r.className=test_recorder\nmute.className=qlg_basiclogger\nmute.logging=off\n");
    QlgObject* app = QlgObject_create("app", nullptr);
    EXPECT_TRUE(QlgLogger_isLoggable(app, 9999));
    EXPECT_FALSE(QlgLogger_isLoggable(app, 7000));
    QlgObject* mute = QlgObject_create("mute", nullptr);
    CaptureFd err(2);
    QlgLogger_logMin(mute, nullptr, nullptr, 0, "x", 0); /* no listeners, but silent */
    EXPECT_EQ(err.text(), "");
    EXPECT_FALSE(QlgLogger_isLoggable(mute, -9999));
    QlgObject_release(app);
    QlgObject_release(mute);
  });
}

TEST(LoggerEvents, SourceLineIsRecordedOnlyWithAFile) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\napp.listenerNames=r\nr.className=test_recorder\n");
    QlgObject* app = QlgObject_create("app", nullptr);
    QlgLogger_logMin(app, nullptr, "fn", 12, "a", 0);
    QlgLogger_logMin(app, "f.c", nullptr, 0, "b", 0);
    ASSERT_EQ(seen().size(), 2u);
    EXPECT_EQ(seen()[0].file, "-");
    EXPECT_EQ(seen()[0].line, "-");
    EXPECT_EQ(seen()[0].function, "fn");
    EXPECT_EQ(seen()[1].file, "f.c");
    EXPECT_EQ(seen()[1].line, "0");
    EXPECT_EQ(seen()[1].function, "-");
    QlgObject_release(app);
  });
}

namespace {
std::atomic<long> g_counted{0};
std::set<long>* g_ids = nullptr;
void countingPublish(QlgObject*, QlgEvent* event) {
  int found = 0;
  long id = QlgEvent_getInt64Property(event, "id", &found);
  /* Runs under the toolkit lock: the set needs no lock of its own. */
  if (found && g_ids->insert(id).second) g_counted++;
}
}  // namespace

TEST(LoggerThreads, EveryEventFromEightThreadsArrivesExactlyOnce) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\napp.listenerNames=count\ncount.className=test_counting\n");
    QlgClass_registerHandler("test_counting", nullptr, nullptr, nullptr, nullptr, countingPublish,
                             nullptr, nullptr);
    std::set<long> ids;
    g_ids = &ids;
    QlgObject* app = QlgObject_create("app", nullptr);
    ASSERT_NE(app, nullptr);
    const int kThreads = 8, kCalls = 20000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; t++)
      threads.emplace_back([app, t] {
        for (int i = 0; i < kCalls; i++)
          QlgLogger_logMin(app, "t.c", "worker", i, "n %1$d", QLG_PARM_INT, i, QLG_PROPERTY, "id",
                           QLG_PARM_LONG, (long)t * kCalls + i, 0);
      });
    for (auto& th : threads) th.join();
    EXPECT_EQ(g_counted.load(), (long)kThreads * kCalls);
    EXPECT_EQ(ids.size(), (size_t)kThreads * kCalls);
    QlgObject_release(app);
  });
}
