/*
 * The component logger class: one shared instance per component reached by
 * getInstance and by the free getters alike, the teardown that empties the
 * slots but keeps the records, the members' forwarding with their gates
 * (entry and exit marks at maximum tracing only), and the formatting done
 * once before the hand-over.  Records are filled once per process, so every
 * scenario that fills one runs in a fresh child.
 */
#include <ardel/ArdelWrapper.h>
#include <ardel/QlgToolkit.h>

#include <new>
#include <string>

#include "support/Recorder.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

const char kRecorder[] = "rec.className=test_recorder\n";

std::string loggerAt(const std::string& name, const std::string& level) {
  return name + ".className=qlg_basiclogger\n" + name + ".listenerNames=rec\n" + name +
         ".level=" + level + "\n";
}

/* Starts the toolkit from its own file and registers the recorder before
   any record is filled, so the component loggers find it. */
void start(const TempDir& dir, const std::string& properties) {
  std::string path = dir.write("TyxTrace.properties", properties);
  ArdelWrapper::initialize(path.c_str());
  ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
  registerRecorder();
  seen().clear();
}

std::string texts() {
  std::string s;
  for (const auto& e : seen()) s += e.function + "|" + e.text + ";";
  return s;
}

}  // namespace

TEST(InstanceSlots, TypesOutsideTheTableGiveNoInstance) {
  inChild([] {
    EXPECT_EQ(ArdelWrapper::getInstance(static_cast<ArdelWrapper::ArdelLogType>(8)), nullptr);
    EXPECT_EQ(ArdelWrapper::getInstance(static_cast<ArdelWrapper::ArdelLogType>(-1)), nullptr);
    EXPECT_EQ(ArdelWrapper::NetWrapper_, nullptr);
    EXPECT_EQ(ArdelWrapper::HardwareWrapper_, nullptr);
  });
}

TEST(InstanceSlots, GetInstanceAndTheFreeGettersShareOneObjectPerComponent) {
  inChild([] {
    TempDir dir;
    start(dir, kRecorder);
    ArdelWrapper* (*getters[])(void) = {getArdelHw,  getArdelSw,     getArdelCom, getArdelXse,
                                        getArdelFs,  getArdelPlugin, getArdelUse, getArdelNet};
    ArdelWrapper** slots[] = {&ArdelWrapper::HardwareWrapper_, &ArdelWrapper::VpdWrapper_,
                              &ArdelWrapper::ComWrapper_,      &ArdelWrapper::XseWrapper_,
                              &ArdelWrapper::FsWrapper_,       &ArdelWrapper::PluginWrapper_,
                              &ArdelWrapper::UseWrapper_,      &ArdelWrapper::NetWrapper_};
    for (int t = 0; t < 8; ++t) {
      ArdelWrapper* a = ArdelWrapper::getInstance(static_cast<ArdelWrapper::ArdelLogType>(t));
      ASSERT_NE(a, nullptr) << t;
      EXPECT_EQ(getters[t](), a) << t;
      EXPECT_EQ(*slots[t], a) << t;
      for (int u = 0; u < t; ++u) EXPECT_NE(*slots[u], a) << t << " " << u;
    }
  });
}

TEST(InstanceSlots, SwInstanceTracesThroughTheVpdLogger) {
  inChild([] {
    TempDir dir;
    start(dir, std::string(kRecorder) + loggerAt("vpd.loggers.trcLogger", "DEBUG_MIN"));
    ArdelWrapper* sw = getArdelSw();
    ASSERT_EQ(sw, ArdelWrapper::getInstance(ArdelWrapper::SW));
    EXPECT_EQ(sw->getTrcLevel(), 1);
    sw->traceMIN(7, "v.cpp", "collect", "n=%d", 3);
    ASSERT_EQ(seen().size(), 1u);
    EXPECT_EQ(seen()[0].text, "n=3");
    EXPECT_EQ(seen()[0].level, 3000);
    // The hardware record has no logger configured: nothing reaches the recorder.
    getArdelHw()->traceMIN(1, "h.cpp", "scan", "x");
    EXPECT_EQ(seen().size(), 1u);
  });
}

TEST(Cleanup, EmptiesEverySlotAndKeepsTheRecords) {
  inChild([] {
    TempDir dir;
    start(dir, std::string(kRecorder) + loggerAt("common.loggers.trcLogger", "DEBUG_MID"));
    for (int t = 0; t < 8; ++t) ArdelWrapper::getInstance(static_cast<ArdelWrapper::ArdelLogType>(t));
    int before = getArdelCom()->getTrcLevel();
    EXPECT_EQ(before, 2);
    ArdelWrapper::cleanupInstances();
    EXPECT_EQ(ArdelWrapper::HardwareWrapper_, nullptr);
    EXPECT_EQ(ArdelWrapper::VpdWrapper_, nullptr);
    EXPECT_EQ(ArdelWrapper::ComWrapper_, nullptr);
    EXPECT_EQ(ArdelWrapper::XseWrapper_, nullptr);
    EXPECT_EQ(ArdelWrapper::FsWrapper_, nullptr);
    EXPECT_EQ(ArdelWrapper::PluginWrapper_, nullptr);
    EXPECT_EQ(ArdelWrapper::UseWrapper_, nullptr);
    EXPECT_EQ(ArdelWrapper::NetWrapper_, nullptr);
    ArdelWrapper* again = ArdelWrapper::getInstance(ArdelWrapper::COM);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->getTrcLevel(), before);
    again->traceMID(1, "c.cpp", "f", "still here");
    EXPECT_EQ(texts(), "f|still here;");
    ArdelWrapper::cleanupInstances();
    ArdelWrapper::cleanupInstances();  // empty slots are skipped
    EXPECT_EQ(ArdelWrapper::ComWrapper_, nullptr);
  });
}

TEST(Cleanup, CopiesShareTheRecord) {
  inChild([] {
    TempDir dir;
    start(dir, std::string(kRecorder) + loggerAt("hw.loggers.trcLogger", "DEBUG_MIN") +
                   loggerAt("net.loggers.trcLogger", "DEBUG_MAX"));
    // The destructor is private, so the copy lives in storage of our own.
    alignas(ArdelWrapper) unsigned char room[sizeof(ArdelWrapper)];
    ArdelWrapper& copy = *new (room) ArdelWrapper(*getArdelHw());
    EXPECT_EQ(copy.getTrcLevel(), 1);
    copy = *getArdelNet();
    EXPECT_EQ(copy.getTrcLevel(), 4);
    EXPECT_EQ(&(copy = copy), &copy);
  });
}

TEST(Gates, MembersForwardToTheMatchingCallsWithTheirGates) {
  struct Case {
    const char* level;
    const char* want;
  } cases[] = {
      {"DEBUG_MAX", "Entry fn|in;fn|max;fn|mid;fn|min;Exit fn|out;"},
      {"DEBUG_MID", "fn|mid;fn|min;"},
      {"DEBUG_MIN", "fn|min;"},
      {"INFO", ""},
  };
  for (const Case& c : cases) {
    inChild([&c] {
      TempDir dir;
      start(dir, std::string(kRecorder) + loggerAt("plugin.loggers.trcLogger", c.level));
      ArdelWrapper* p = getArdelPlugin();
      p->traceMidEntry(1, "p.cpp", "fn", "in");
      p->traceMAX(2, "p.cpp", "fn", "max");
      p->traceMID(3, "p.cpp", "fn", "mid");
      p->traceMIN(4, "p.cpp", "fn", "min");
      p->traceMidExit(5, "p.cpp", "fn", "out");
      EXPECT_EQ(texts(), c.want) << c.level;
    });
  }
}

TEST(Gates, MarksCarryLevelSourceFileAndLine) {
  inChild([] {
    TempDir dir;
    start(dir, std::string(kRecorder) + loggerAt("fscanner.loggers.trcLogger", "DEBUG_MAX"));
    getArdelFs()->traceMidEntry(11, "s.cpp", "walk", "go");
    getArdelFs()->traceMIN(12, "s.cpp", "walk", "m");
    ASSERT_EQ(seen().size(), 2u);
    EXPECT_EQ(seen()[0].level, 1000);
    EXPECT_EQ(seen()[0].file, "s.cpp");
    EXPECT_EQ(seen()[0].line, "11");
    EXPECT_EQ(seen()[1].level, 3000);
    EXPECT_EQ(seen()[1].line, "12");
  });
}

TEST(Gates, IstraceActiveMeansExactlyThatLevel) {
  inChild([] {
    TempDir dir;
    start(dir, std::string(kRecorder) + loggerAt("sigeval.loggers.trcLogger", "DEBUG_MAX"));
    ArdelWrapper* x = getArdelXse();
    EXPECT_EQ(x->getTrcLevel(), 4);
    EXPECT_TRUE(x->istraceActive(4));
    EXPECT_FALSE(x->istraceActive(1));
    EXPECT_FALSE(x->istraceActive(2));
  });
}

TEST(Formatting, TextIsCutAt1023CharactersAndFormattedOnlyOnce) {
  inChild([] {
    TempDir dir;
    start(dir, std::string(kRecorder) + loggerAt("use.loggers.trcLogger", "DEBUG_MIN"));
    ArdelWrapper* u = getArdelUse();
    std::string longText(1500, 'B');
    u->traceMIN(1, "u.cpp", "f", "%s", longText.c_str());
    u->traceMIN(2, "u.cpp", "f", "%s and %d", "50%d done %s", 7);
    ASSERT_EQ(seen().size(), 2u);
    EXPECT_EQ(seen()[0].text, std::string(1023, 'B'));
    EXPECT_EQ(seen()[1].text, "50%d done %s and 7");
  });
}
