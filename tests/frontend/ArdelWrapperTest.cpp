// SPDX-License-Identifier: Apache-2.0
// The component logger class: one shared instance per component reached by
// getInstance and the free getters alike, the teardown that empties the slots
// but keeps the records, and the members' forwarding with their gates.
#include <ardel/ArdelWrapper.h>

#include <new>

#include "support/Recorder.h"

using namespace ardeltest;

namespace {

void start(const std::string& logger, const std::string& level) {
  static TempDir dir;
  std::string path = dir.write("TyxTrace.properties", "rec.className=test_recorder\n" + logger +
                                   ".className=qlg_basiclogger\n" + logger + ".listenerNames=rec\n" + logger +
                                   ".level=" + level + "\nnet.loggers.trcLogger.className=qlg_basiclogger\n"
                                   "net.loggers.trcLogger.level=DEBUG_MAX\n");
  ArdelWrapper::initialize(path.c_str());
  ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
  registerRecorder();
  seen().clear();
}

}  // namespace

TEST(ArdelWrapper, OneInstancePerComponentSharedByTheGettersEmptiedByCleanupWithTheRecordKept) {
  inChild([] {
    EXPECT_EQ(ArdelWrapper::getInstance(static_cast<ArdelWrapper::ArdelLogType>(8)), nullptr);
    EXPECT_EQ(ArdelWrapper::getInstance(static_cast<ArdelWrapper::ArdelLogType>(-1)), nullptr);
    start("vpd.loggers.trcLogger", "DEBUG_MIN");
    ArdelWrapper* (*getters[])(void) = {getArdelHw, getArdelSw, getArdelCom, getArdelXse,
                                        getArdelFs, getArdelPlugin, getArdelUse, getArdelNet};
    ArdelWrapper** slots[] = {&ArdelWrapper::HardwareWrapper_, &ArdelWrapper::VpdWrapper_, &ArdelWrapper::ComWrapper_,
                              &ArdelWrapper::XseWrapper_, &ArdelWrapper::FsWrapper_, &ArdelWrapper::PluginWrapper_,
                              &ArdelWrapper::UseWrapper_, &ArdelWrapper::NetWrapper_};
    for (int t = 0; t < 8; ++t) {
      ArdelWrapper* a = ArdelWrapper::getInstance(static_cast<ArdelWrapper::ArdelLogType>(t));
      ASSERT_NE(a, nullptr) << t;
      EXPECT_TRUE(getters[t]() == a && *slots[t] == a) << t;
      for (int u = 0; u < t; ++u) EXPECT_NE(*slots[u], a) << t << " " << u;
    }
    ArdelWrapper* sw = getArdelSw();  // Sw traces through the vpd logger
    EXPECT_EQ(sw->getTrcLevel(), 1);
    sw->traceMIN(7, "v.cpp", "collect", "n=%d", 3);
    getArdelHw()->traceMIN(1, "h.cpp", "scan", "no logger configured");
    EXPECT_EQ(seenList(), "n=3;");
    alignas(ArdelWrapper) unsigned char room[sizeof(ArdelWrapper)];  // the destructor is private
    ArdelWrapper& copy = *new (room) ArdelWrapper(*sw);
    EXPECT_EQ(copy.getTrcLevel(), 1) << "copies share the record";
    copy = *getArdelNet();
    EXPECT_EQ(copy.getTrcLevel(), 4);
    EXPECT_EQ(&(copy = copy), &copy);
    ArdelWrapper::cleanupInstances();
    for (ArdelWrapper** slot : slots) EXPECT_EQ(*slot, nullptr);
    ArdelWrapper::cleanupInstances();  // empty slots are skipped
    ArdelWrapper* again = ArdelWrapper::getInstance(ArdelWrapper::SW);
    EXPECT_EQ(again->getTrcLevel(), 1);
    again->traceMIN(8, "v.cpp", "f", "still here");
    EXPECT_EQ(seenList(), "n=3;still here;");
  });
}

TEST(ArdelWrapper, MembersForwardWithTheirGatesFormattingOnceAndCuttingAt1023) {
  const struct { const char *level, *want, *lines; } cases[] = {
      {"DEBUG_MAX", "Entry fn|in;fn|max;fn|mid;fn|min;Exit fn|out;", "1;2;3;4;5;"}, {"DEBUG_MID", "fn|mid;fn|min;", "3;4;"},
      {"DEBUG_MIN", "fn|min;", "4;"}, {"INFO", "", ""}};
  for (const auto& c : cases) {
    inChild([&c] {
      start("plugin.loggers.trcLogger", c.level);
      ArdelWrapper* p = getArdelPlugin();
      EXPECT_TRUE(p->istraceActive(p->getTrcLevel()) && !p->istraceActive(p->getTrcLevel() + 1));
      p->traceMidEntry(1, "p.cpp", "fn", "in");
      p->traceMAX(2, "p.cpp", "fn", "max");
      p->traceMID(3, "p.cpp", "fn", "mid");
      p->traceMIN(4, "p.cpp", "fn", "min");
      p->traceMidExit(5, "p.cpp", "fn", "out");
      std::string got;
      for (const Seen& s : seen()) got += s.function + "|" + s.text + ";";
      EXPECT_EQ(got, c.want) << c.level;
      EXPECT_EQ(seenList(&Seen::line), c.lines);
      seen().clear();
      p->traceMIN(1, "u.cpp", "f", "%s and %d", "50%d done %s", 7);
      p->traceMIN(2, "u.cpp", "f", "%s", std::string(1500, 'B').c_str());
      if (std::string(c.level) != "INFO") { EXPECT_EQ(seenList(), "50%d done %s and 7;" + std::string(1023, 'B') + ";"); }
    });
  }
}
