/*
 * Tracers and their factories: the once-only choice of the kind of tracer,
 * the per-component cache, the printing tracer's exact line format (level
 * letter, padded component name, 30-column function, thread id, nesting
 * with dashes and indentation) and its level test, and the component-logger
 * tracer's mapping of trace levels onto the record's gates.  The choice is
 * process-wide, so every scenario runs in a fresh child.
 */
#include <ardel/QlgToolkit.h>
#include <ardel/Tracer.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "frontend/TracerImpl.h"
#include "platform/CxThread.h"
#include "support/Recorder.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  std::string l;
  while (std::getline(in, l)) out.push_back(l);
  return out;
}

/* Everything after the timestamp, which is checked once on its own. */
std::string afterTime(const std::string& line) { return line.size() > 18 ? line.substr(18) : line; }

std::string tid() {
  char buf[32];
  snprintf(buf, sizeof buf, "[%04lu]", static_cast<unsigned long>(CxThread_getId()));
  return buf;
}

std::string pad30(const std::string& s) { return (s + std::string(30, ' ')).substr(0, 30); }

const char kRecorder[] = "rec.className=test_recorder\n";

void startToolkit(const TempDir& dir, const std::string& loggerName, const std::string& level,
                  std::string* pathOut) {
  std::string props = std::string(kRecorder) + loggerName + ".className=qlg_basiclogger\n" + loggerName +
                      ".listenerNames=rec\n" + loggerName + ".level=" + level + "\n";
  *pathOut = dir.write("TyxTrace.properties", props);
  ASSERT_EQ(Tracer::initialize(Tracer::ARDEL, pathOut->c_str()), 0);
  ASSERT_TRUE(QlgToolkit_initialize(pathOut->c_str()));
  registerRecorder();
  seen().clear();
}

}  // namespace

TEST(TracerChoice, FirstKnownChoiceStandsAndLaterOnesAreIgnored) {
  inChild([] {
    EXPECT_EQ(Tracer::initialize(Tracer::STDOUT, nullptr), 0);
    EXPECT_EQ(Tracer::initialize(Tracer::ARDEL, "/nonexistent/TyxTrace.properties"), 0);
    Tracer& t = Tracer::getInstance(Tracer::COM);
    CaptureFd out(1);
    t.log(0, "f.cpp", 1, "fn", "still stdout");
    EXPECT_NE(out.text().find("still stdout"), std::string::npos);
  });
}

TEST(TracerChoice, UnknownTypeLeavesTheChoiceOpenForTheDefault) {
  inChild([] {
    EXPECT_EQ(Tracer::initialize(static_cast<Tracer::Type>(7), nullptr), -1);
    TempDir dir;
    std::string path = dir.write("TyxTrace.properties", std::string(kRecorder) +
                                                            "hw.loggers.trcLogger.className=qlg_basiclogger\n"
                                                            "hw.loggers.trcLogger.listenerNames=rec\n"
                                                            "hw.loggers.trcLogger.level=DEBUG_MIN\n");
    ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
    registerRecorder();
    Tracer& t = Tracer::getInstance(Tracer::HARDWARE);
    // The default picks the component loggers: their level comes from the record.
    EXPECT_EQ(t.getLevel(), 1);
    CaptureFd out(1);
    t.log(1, "h.cpp", 3, "scan", "to the logger");
    EXPECT_EQ(out.text(), "");
    ASSERT_EQ(seen().size(), 1u);
    EXPECT_EQ(seen()[0].text, "to the logger");
  });
}

TEST(TracerChoice, CleanupStartsOverWithTheDefault) {
  inChild([] {
    ASSERT_EQ(Tracer::initialize(Tracer::STDERR, nullptr), 0);
    Tracer::cleanup();
    Tracer::cleanup();  // nothing chosen: no effect
    EXPECT_EQ(Tracer::initialize(Tracer::STDOUT, nullptr), 0);
    Tracer& t = Tracer::getInstance(Tracer::VPD);
    CaptureFd out(1);
    t.log(0, "", 0, "f", "after cleanup");
    EXPECT_NE(out.text().find("after cleanup"), std::string::npos);
    Tracer::cleanup();
  });
}

TEST(FactoryCache, SameComponentGivesTheSameTracer) {
  inChild([] {
    ASSERT_EQ(Tracer::initialize(Tracer::STDOUT, nullptr), 0);
    Tracer& a = Tracer::getInstance(Tracer::COM);
    EXPECT_EQ(&Tracer::getInstance(Tracer::COM), &a);
    EXPECT_NE(&Tracer::getInstance(Tracer::XSE), &a);
    Tracer::cleanup();
  });
}

TEST(FactoryCache, UnknownComponentIsAnAssertionAndNoTracer) {
  inChild([] {
    StdoutTracerFactory f;
    CaptureFd err(2);
    EXPECT_EQ(f.create(static_cast<Tracer::Component>(6)), nullptr);
    EXPECT_EQ(f.create(static_cast<Tracer::Component>(-1)), nullptr);
    std::string text = err.text();
    EXPECT_NE(text.find("tracer != 0"), std::string::npos) << text;
    EXPECT_NE(f.create(Tracer::PLUGIN), nullptr);
  });
}

TEST(PrintedLines, FatalLineHasLetterComponentFunctionColumnAndThreadId) {
  inChild([] {
    ASSERT_EQ(Tracer::initialize(Tracer::STDOUT, nullptr), 0);
    Tracer& t = Tracer::getInstance(Tracer::COM);
    EXPECT_EQ(t.getLevel(), 0);
    CaptureFd out(1);
    t.log(1, "f.cpp", 1, "fn", "an error");  // above level 0: dropped
    t.log(0, "f.cpp", 1, "fn", "a fatal");
    std::vector<std::string> l = lines(out.text());
    ASSERT_EQ(l.size(), 1u);
    EXPECT_TRUE(std::regex_match(l[0].substr(0, 17), std::regex(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d)")))
        << l[0];
    EXPECT_EQ(l[0][17], ' ');
    EXPECT_EQ(afterTime(l[0]), "F [Com     ] " + pad30("fn") + " " + tid() + " a fatal");
  });
}

TEST(PrintedLines, LevelLettersFollowTheMessageLevel) {
  inChild([] {
    StdoutTracer t(Tracer::HARDWARE, false);
    t.setLevel(3);
    EXPECT_EQ(t.getLevel(), 3);
    CaptureFd out(1);
    for (int level = 0; level <= 4; ++level) t.log(level, "", 0, "f", "m");
    t.log(3, "", 0, "f", nullptr);  // no message: no line
    std::vector<std::string> l = lines(out.text());
    ASSERT_EQ(l.size(), 4u);
    const char letters[] = "FEWI";
    for (int i = 0; i < 4; ++i) EXPECT_EQ(afterTime(l[i]).substr(0, 13), std::string(1, letters[i]) + " [Hardware] ");
  });
}

TEST(PrintedLines, NamesArePaddedAndFunctionColumnIsThirtyWide) {
  inChild([] {
    StdoutTracer unknown(static_cast<Tracer::Component>(9), false);
    StdoutTracer plugin(Tracer::PLUGIN, false);
    CaptureFd out(1);
    std::string longName(40, 'x');
    longName.replace(0, 5, "start");
    unknown.log(0, "", 0, longName.c_str(), "cut");
    plugin.log(0, "", 0, nullptr, "blank");
    std::vector<std::string> l = lines(out.text());
    ASSERT_EQ(l.size(), 2u);
    EXPECT_EQ(afterTime(l[0]), "F [Unknown ] " + longName.substr(0, 30) + " " + tid() + " cut");
    EXPECT_EQ(afterTime(l[1]), "F [Plugin  ] " + std::string(30, ' ') + " " + tid() + " blank");
  });
}

TEST(PrintedLines, StderrFactoryPrintsToStandardError) {
  inChild([] {
    ASSERT_EQ(Tracer::initialize(Tracer::STDERR, nullptr), 0);
    Tracer& t = Tracer::getInstance(Tracer::FILESCAN);
    CaptureFd err(2);
    CaptureFd out(1);
    t.log(0, "", 0, "walk", "on stderr");
    EXPECT_EQ(out.text(), "");
    std::vector<std::string> l = lines(err.text());
    ASSERT_EQ(l.size(), 1u);
    EXPECT_EQ(afterTime(l[0]), "F [FileScan] " + pad30("walk") + " " + tid() + " on stderr");
    Tracer::cleanup();
  });
}

TEST(Nesting, EntriesAndExitsIndentWithDashesAndMessagesWithSpaces) {
  inChild([] {
    StdoutTracer t(Tracer::XSE, false);
    t.setLevel(3);
    CaptureFd out(1);
    t.log(3, "", 0, "a", "top");
    t.entry(3, "", 0, "a", "");
    t.log(3, "", 0, "a", "in one");
    t.entry(3, "", 0, "b", "");
    t.log(3, "", 0, "b", "in two");
    t.exit(3, "", 0, "b", "");
    t.exit(3, "", 0, "a", "");
    std::vector<std::string> l = lines(out.text());
    ASSERT_EQ(l.size(), 7u);
    std::string head = "I [XSE     ] ";
    EXPECT_EQ(afterTime(l[0]), head + pad30("a") + " " + tid() + " top");
    EXPECT_EQ(afterTime(l[1]), head + pad30("a") + " " + tid() + " --> ENTRY");
    EXPECT_EQ(afterTime(l[2]), head + pad30("a") + " " + tid() + "     in one");
    EXPECT_EQ(afterTime(l[3]), head + pad30("b") + " " + tid() + " ----> ENTRY");
    EXPECT_EQ(afterTime(l[4]), head + pad30("b") + " " + tid() + "       in two");
    EXPECT_EQ(afterTime(l[5]), head + pad30("b") + " " + tid() + " <---- EXIT");
    EXPECT_EQ(afterTime(l[6]), head + pad30("a") + " " + tid() + " <-- EXIT");
    EXPECT_EQ(StdoutTracer::_nestingLevel, 0u);
  });
}

TEST(Nesting, MarksAboveTheLevelPrintNothingAndDoNotNest) {
  inChild([] {
    StdoutTracer t(Tracer::VPD, false);
    CaptureFd out(1);
    t.entry(3, "", 0, "f", "");
    EXPECT_EQ(StdoutTracer::_nestingLevel, 0u);
    t.exit(3, "", 0, "f", "");
    EXPECT_EQ(out.text(), "");
  });
}

TEST(Nesting, NestingIsSharedBetweenTracers) {
  inChild([] {
    StdoutTracer a(Tracer::VPD, false), b(Tracer::COM, false);
    CaptureFd out(1);
    a.entry(0, "", 0, "f", "");
    b.log(0, "", 0, "g", "shifted");
    std::vector<std::string> l = lines(out.text());
    ASSERT_EQ(l.size(), 2u);
    EXPECT_EQ(afterTime(l[1]), "F [Com     ] " + pad30("g") + " " + tid() + "     shifted");
  });
}

TEST(Nesting, ExitWithoutEntryIsAnAssertionAndKeepsTheCounter) {
  inChild([] {
    StdoutTracer t(Tracer::COM, false);
    CaptureFd err(2);
    CaptureFd out(1);
    t.exit(0, "", 0, "f", "");
    EXPECT_NE(err.text().find("_nestingLevel > 0"), std::string::npos);
    EXPECT_EQ(StdoutTracer::_nestingLevel, 0u);
    std::vector<std::string> l = lines(out.text());
    ASSERT_EQ(l.size(), 1u);
    EXPECT_EQ(afterTime(l[0]), "F [Com     ] " + pad30("f") + " " + tid() + " <-- EXIT");
  });
}

TEST(ComponentLoggerTracer, LevelsMapOntoTheRecordGates) {
  struct Case {
    const char* level;
    int tracerLevel;
    const char* want;  // levels seen by the recorder for log 0..4, entry, exit
  } cases[] = {
      {"DEBUG_MAX", 3, "3000 3000 2000 1000 1000 1000 "},
      {"DEBUG_MID", 2, "3000 3000 2000 "},
      {"DEBUG_MIN", 1, "3000 3000 "},
      {"INFO", 3, ""},
  };
  for (const Case& c : cases) {
    inChild([&c] {
      TempDir dir;
      std::string path;
      startToolkit(dir, "plugin.loggers.trcLogger", c.level, &path);
      Tracer& t = Tracer::getInstance(Tracer::PLUGIN);
      EXPECT_EQ(t.getLevel(), c.tracerLevel) << c.level;
      t.setLevel(0);  // ignored: the level comes from the properties
      EXPECT_EQ(t.getLevel(), c.tracerLevel) << c.level;
      for (int level = -1; level <= 4; ++level) t.log(level, "p.cpp", 9, "fn", "m");
      t.entry(3, "p.cpp", 9, "fn", "in");
      t.exit(3, "p.cpp", 9, "fn", "out");
      std::string got;
      for (const auto& e : seen()) got += std::to_string(e.level) + " ";
      EXPECT_EQ(got, c.want) << c.level;
      Tracer::cleanup();
    });
  }
}

TEST(ComponentLoggerTracer, EntryAndExitBecomeTheRecordMarks) {
  inChild([] {
    TempDir dir;
    std::string path;
    startToolkit(dir, "common.loggers.trcLogger", "DEBUG_MAX", &path);
    Tracer& t = Tracer::getInstance(Tracer::COM);
    t.entry(3, "c.cpp", 4, "run", "100% in");
    t.log(0, "c.cpp", 5, "run", "boom %s");
    t.exit(3, "c.cpp", 6, "run", "");
    ASSERT_EQ(seen().size(), 3u);
    EXPECT_EQ(seen()[0].function, "Entry run");
    EXPECT_EQ(seen()[0].text, "100% in");
    EXPECT_EQ(seen()[0].line, "4");
    EXPECT_EQ(seen()[1].text, "boom %s");
    EXPECT_EQ(seen()[1].file, "c.cpp");
    EXPECT_EQ(seen()[2].function, "Exit run");
    Tracer::cleanup();
  });
}
