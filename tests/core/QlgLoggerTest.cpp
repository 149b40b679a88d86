// SPDX-License-Identifier: Apache-2.0
// Levels, events and loggers: level parsing, thresholds, the tagged argument
// list, and delivery under many threads.
#include <ardel/QlgLevel.h>
#include <ardel/QlgLogger.h>

#include <set>
#include <thread>

#include "support/Recorder.h"

using namespace ardeltest;

TEST(LevelParse, NumbersKeywordsAndPrefixLeniency) {
  const struct { const char* text; int level; } cases[] = {
      {"debug_mid", 2000}, {"7", 7}, {"  42abc", 42}, {"-9999", -9999}, {"verbose", -9999}, {"OFF", 9999},
      {"FATAL", 7000}, {"error", 6000}, {"warning", 5000}, {"INFORMATION", 4000}, {"MIN", 3000}, {"DEBUG_MIN", 3000},
      {"Mid", 2000}, {"Maximum", 1000}, {"DEBUG_MAX", 1000}, {"all", 0}, {"", -9999}, {"WAR", -9999}, {nullptr, -9999}};
  for (const auto& c : cases) EXPECT_EQ(QlgLevel_parse(c.text), c.level) << (c.text ? c.text : "(null)");
}

TEST(Events, TaggedItemsBecomeParametersPropertiesAndLevel) {
  EXPECT_TRUE(QlgEvent_getLevel(nullptr) == -9999 && QlgEvent_getTime(nullptr) == 0 && QlgEvent_isMessage(nullptr) == 0);
  EXPECT_EQ(QlgEvent_getMessageId(nullptr), nullptr);
  QlgEvent* e = QlgEvent_createTagged(3000, nullptr, 0, 0, "%1$s=%2$d %3$c", QLG_PARM_STRING, "n", QLG_PARM_INT, 42, 6000,
                                      QLG_PROPERTY, "who", QLG_PARM_STRING, "me", QLG_PROPERTY, "count", QLG_PARM_INT, 9,
                                      QLG_PARM_CHAR, 'z', 0);
  ASSERT_NE(e, nullptr);
  EXPECT_TRUE(QlgEvent_getLevel(e) == 6000 && QlgEvent_isMessage(e) == 0);
  char* text = QlgEvent_render(e, nullptr);
  EXPECT_STREQ(text, "n=42 z");
  QlgMem_free(text);
  EXPECT_EQ(propOrDash(e, "who"), "me");
  int found = 0;
  EXPECT_EQ(QlgEvent_getIntProperty(e, "count", &found), 9);
  EXPECT_EQ(found, 1);
  EXPECT_GT(QlgEvent_getTime(e), 1600000000000LL);
  QlgEvent_free(e);
  QlgEvent* m = QlgEvent_createTagged(5000, "qlgmsg", 1, 20, "QLGBC0020E Out of memory.\r", 0);
  EXPECT_EQ(QlgEvent_isMessage(m), 1);
  QlgEvent_setMessageId(m, "QLGBC0020E");
  char* id = QlgEvent_getMessageId(m);
  EXPECT_STREQ(id, "QLGBC0020E");
  QlgMem_free(id);
  QlgEvent_free(m);
}

TEST(Events, SixtyThreeTagsAreAcceptedSixtyFourOrAnUnknownTagAreReported) {
  withToolkit("app.className=qlg_basiclogger\napp.listenerNames=r\nr.className=test_recorder\n", [] {
    auto run = [](int tags) {  // tags - 1 level tags, then the end tag (or one more level tag)
      std::vector<int> v(70, 3000);
      v[static_cast<size_t>(tags) - 1] = 0;
      return reportsOf([&] {
        QlgEvent* e = QlgEvent_createTagged(1000, nullptr, 0, 0, "t", v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7],
            v[8], v[9], v[10], v[11], v[12], v[13], v[14], v[15], v[16], v[17], v[18], v[19], v[20], v[21], v[22], v[23],
            v[24], v[25], v[26], v[27], v[28], v[29], v[30], v[31], v[32], v[33], v[34], v[35], v[36], v[37], v[38], v[39],
            v[40], v[41], v[42], v[43], v[44], v[45], v[46], v[47], v[48], v[49], v[50], v[51], v[52], v[53], v[54], v[55],
            v[56], v[57], v[58], v[59], v[60], v[61], v[62], v[63], v[64], 0);
        EXPECT_EQ(QlgEvent_getLevel(e), 3000);
        QlgEvent_free(e);
      });
    };
    EXPECT_EQ(run(63), "");
    EXPECT_EQ(run(64), "QLGBC0070W The logging method parameter list did not end with a NULL.\r\n");
    QlgObject* app = QlgObject_create("app", nullptr);
    EXPECT_EQ(reportsOf([app] {
      QlgLogger_logMin(app, nullptr, nullptr, 0, "%1$s-%2$s", QLG_PARM_STRING, "a", 12345, QLG_PARM_STRING, "b", 0);
    }), "QLGBC0071W The logging method's parameter list is missing type markers.\r\n");
    EXPECT_EQ(seenList(), "%1$s-%2$s;") << "one parameter for two positions: the unformatted text";
    QlgObject_release(app);
  });
}

TEST(LoggerThreshold, EachLevelPassesItsCallsAndSourceLinesNeedAFile) {
  const struct { const char *level, *want; int stored; } cases[] = {
      {"", "min;", 3000}, {"DEBUG_MID", "mid;min;", 2000}, {"verbose", "max;mid;min;", -9999}, {"OFF", "", 9999}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.level);
    withToolkit(std::string("app.className=qlg_basiclogger\napp.listenerNames=r\nr.className=test_recorder\n") +
                    (*c.level ? "app.level=" + std::string(c.level) + "\n" : ""),
                [&] {
      QlgObject* app = QlgObject_create("app", nullptr);
      EXPECT_EQ(app->field1.level, c.stored);
      QlgLogger_logMax(app, nullptr, "fn", 12, "max", 0);
      QlgLogger_logMid(app, "f.c", nullptr, 0, "mid", 0);
      QlgLogger_logMin(app, "f.c", "fn", 5, "min", 0);
      EXPECT_EQ(seenList(), c.want);
      EXPECT_TRUE(QlgLogger_isLoggable(app, 9999));
      EXPECT_EQ(QlgLogger_isLoggable(app, c.stored), 1);
      EXPECT_EQ(QlgLogger_isLoggable(app, c.stored - 1), c.stored == -9999);
      const std::string lines = "-;0;5;";  // no line without a file
      EXPECT_EQ(seenList(&Seen::line), lines.substr(lines.size() - 2 * seen().size()));
      QlgObject_release(app);
    });
  }
  withToolkit("app.className=qlg_basiclogger\napp.listenerNames=r\nr.className=test_recorder\nx.y=1\napp.level=\n"
              "mute.className=qlg_basiclogger\nmute.logging=off\n",
              [] {
    QlgObject* app = nullptr;
    EXPECT_EQ(reportsOf([&] { app = QlgObject_create("app", nullptr); }),
              "QLGBC04E Property 'level' will be ignored for 'app' because the value is empty or blank.\r\n");
    EXPECT_EQ(app->field1.level, 4000);
    QlgObject* mute = QlgObject_create("mute", nullptr);
    EXPECT_EQ(reportsOf([mute] { QlgLogger_logMin(mute, nullptr, nullptr, 0, "x", 0); }), "") << "silenced: no report";
    EXPECT_FALSE(QlgLogger_isLoggable(mute, -9999) || QlgLogger_isLoggable(nullptr, 9999));
    QlgObject_release(app);
    QlgObject_release(mute);
  });
}

namespace {
std::set<long>* g_ids = nullptr;
long g_calls = 0;
// Runs under the toolkit lock: the set needs no lock of its own.
void countingPublish(QlgObject*, QlgEvent* event) {
  int found = 0;
  long id = QlgEvent_getInt64Property(event, "id", &found);
  if (found) g_ids->insert(id), g_calls++;
}
}  // namespace

TEST(LoggerThreads, EveryEventFromEightThreadsArrivesExactlyOnce) {
  withToolkit("app.className=qlg_basiclogger\napp.listenerNames=count\ncount.className=test_counting\n", [] {
    QlgClass_registerHandler("test_counting", nullptr, nullptr, nullptr, nullptr, countingPublish, nullptr, nullptr);
    std::set<long> ids;
    g_ids = &ids;
    QlgObject* app = QlgObject_create("app", nullptr);
    const int kThreads = 8, kCalls = 20000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; t++)
      threads.emplace_back([app, t] {
        for (int i = 0; i < kCalls; i++)
          QlgLogger_logMin(app, "t.c", "worker", i, "n %1$d", QLG_PARM_INT, i, QLG_PROPERTY, "id", QLG_PARM_LONG,
                           static_cast<long>(t) * kCalls + i, 0);
      });
    for (auto& th : threads) th.join();
    EXPECT_EQ(ids.size(), static_cast<size_t>(kThreads) * kCalls);
    EXPECT_EQ(g_calls, static_cast<long>(kThreads) * kCalls);
    QlgObject_release(app);
  });
}
