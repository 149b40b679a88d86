// SPDX-License-Identifier: Apache-2.0
// Tracers and their factories: the once-only choice of the kind of tracer,
// the per-component cache, the printing tracer's exact line format and
// nesting, and the component-logger tracer's mapping of trace levels onto the
// record's gates.  The choice is process-wide: every scenario runs in a child.
#include <ardel/Tracer.h>

#include "frontend/TracerImpl.h"
#include "platform/CxThread.h"
#include "support/Recorder.h"

using namespace ardeltest;

namespace {

// Each printed line after its time stamp ("dd/dd/dd dd:dd:dd "), the thread
// id shown as "T" and trailing blanks of the function column cut to one.
std::string printed(const std::string& text) {
  char tid[32];
  snprintf(tid, sizeof tid, "[%04lu]", static_cast<unsigned long>(CxThread_getId()));
  std::string out, line;
  std::istringstream in(text);
  while (std::getline(in, line)) {
    EXPECT_TRUE(std::regex_match(line.substr(0, 18), std::regex(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d )"))) << line;
    size_t at = line.find(tid);
    std::string head = line.substr(18, at - 18);
    head.erase(head.find_last_not_of(' ') + 1);
    out += head + " T" + line.substr(at + strlen(tid)) + "\n";
  }
  return out;
}

void startToolkit(const std::string& loggerName, const std::string& level) {
  static TempDir dir;
  std::string path = dir.write("TyxTrace.properties", "rec.className=test_recorder\n" + loggerName +
                                   ".className=qlg_basiclogger\n" + loggerName + ".listenerNames=rec\n" + loggerName +
                                   ".level=" + level + "\n");
  ASSERT_EQ(Tracer::initialize(Tracer::ARDEL, path.c_str()), 0);
  ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
  registerRecorder();
  seen().clear();
}

}  // namespace

TEST(TracerChoice, TheFirstKnownChoiceStandsAndCleanupStartsOver) {
  inChild([] {
    EXPECT_EQ(Tracer::initialize(static_cast<Tracer::Type>(7), nullptr), -1) << "an unknown type leaves the choice open";
    EXPECT_EQ(Tracer::initialize(Tracer::STDOUT, nullptr), 0);
    EXPECT_EQ(Tracer::initialize(Tracer::ARDEL, "/nonexistent/TyxTrace.properties"), 0);
    Tracer& t = Tracer::getInstance(Tracer::COM);
    EXPECT_EQ(&Tracer::getInstance(Tracer::COM), &t);
    EXPECT_NE(&Tracer::getInstance(Tracer::XSE), &t);
    CaptureFd out(1);
    t.log(0, "f.cpp", 1, "fn", "still stdout");
    Tracer::cleanup();
    Tracer::cleanup();  // nothing chosen: no effect
    ASSERT_EQ(Tracer::initialize(Tracer::STDERR, nullptr), 0);
    CaptureFd err(2);
    Tracer::getInstance(Tracer::FILESCAN).log(0, "", 0, "walk", "on stderr");
    EXPECT_EQ(printed(out.text()), "F [Com     ] fn T still stdout\n");
    EXPECT_EQ(printed(err.text()), "F [FileScan] walk T on stderr\n");
    Tracer::cleanup();
    StdoutTracerFactory f;
    EXPECT_EQ(stderrOf([&f] { EXPECT_EQ(f.create(static_cast<Tracer::Component>(6)), nullptr); }).find("tracer != 0") !=
                  std::string::npos, true);
  });
}

TEST(PrintedLines, LettersPaddedNamesThirtyWideFunctionsAndNestingWithDashes) {
  inChild([] {
    StdoutTracer t(Tracer::XSE, false), unknown(static_cast<Tracer::Component>(9), false), plugin(Tracer::PLUGIN, false);
    CaptureFd err(2), out(1);
    EXPECT_EQ(t.getLevel(), 0);
    t.log(1, "", 0, "a", "dropped above level 0");
    t.entry(3, "", 0, "f", "");  // above the level: no line, no nesting
    t.setLevel(3);
    for (int level = 0; level <= 4; ++level) t.log(level, "", 0, "f", "m");
    t.log(3, "", 0, "f", nullptr);  // no message: no line
    unknown.log(0, "", 0, ("start" + std::string(35, 'x')).c_str(), "cut");
    plugin.log(0, "", 0, nullptr, "blank");
    t.entry(3, "", 0, "a", "");
    t.entry(3, "", 0, "b", "");
    plugin.log(0, "", 0, "g", "shared");
    t.exit(3, "", 0, "b", "");
    t.exit(3, "", 0, "a", "");
    t.exit(0, "", 0, "z", "");  // without an entry: an assertion, the counter stays
    EXPECT_EQ(StdoutTracer::_nestingLevel, 0u);
    EXPECT_EQ(printed(out.text()),
              "F [XSE     ] f T m\nE [XSE     ] f T m\nW [XSE     ] f T m\nI [XSE     ] f T m\n"
              "F [Unknown ] start" + std::string(25, 'x') + " T cut\nF [Plugin  ] T blank\nI [XSE     ] a T --> ENTRY\n"
              "I [XSE     ] b T ----> ENTRY\nF [Plugin  ] g T       shared\nI [XSE     ] b T <---- EXIT\n"
              "I [XSE     ] a T <-- EXIT\nF [XSE     ] z T <-- EXIT\n");
    EXPECT_NE(err.text().find("_nestingLevel > 0"), std::string::npos);
  });
}

TEST(ComponentLoggerTracer, LevelsMapOntoTheRecordGatesAndMarksBecomeEntryAndExit) {
  const struct { const char* level; int tracerLevel; const char* want; } cases[] = {
      {"DEBUG_MAX", 3, "3000 3000 2000 1000 1000 1000 "}, {"DEBUG_MID", 2, "3000 3000 2000 "},
      {"DEBUG_MIN", 1, "3000 3000 "}, {"INFO", 3, ""}};
  for (const auto& c : cases) {
    inChild([&c] {
      startToolkit("plugin.loggers.trcLogger", c.level);
      Tracer& t = Tracer::getInstance(Tracer::PLUGIN);
      t.setLevel(0);  // ignored: the level comes from the properties
      EXPECT_EQ(t.getLevel(), c.tracerLevel) << c.level;
      for (int level = -1; level <= 4; ++level) t.log(level, "p.cpp", 9, "fn", "m");
      t.entry(3, "p.cpp", 4, "run", "100% in");
      t.exit(3, "p.cpp", 6, "run", "");
      std::string got;
      for (const auto& e : seen()) got += std::to_string(e.level) + " ";
      EXPECT_EQ(got, c.want) << c.level;
      if (c.tracerLevel == 3 && !seen().empty()) {
        EXPECT_EQ(seenList(&Seen::function), "fn;fn;fn;fn;Entry run;Exit run;");
        EXPECT_EQ(seenList(), "m;m;m;m;100% in;;");
        EXPECT_EQ(seen()[4].line, "4");
      }
    });
  }
}
