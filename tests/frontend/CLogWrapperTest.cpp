/*
 * Component records and the exported trace calls: the component table, the
 * one-time fill and its level mapping, the cached-level gate, the method
 * text with its prefix and XML escaping, the 1,023-character cut, and the
 * convenience macros.  Records are filled once per process, so every
 * scenario that fills one runs in a fresh child.
 */
#include <ardel/CLogWrapper.h>
#include <ardel/QlgLogger.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>

#include <functional>
#include <string>

#include "frontend/CLogWrapperInt.h"
#include "support/Recorder.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

const char kRecorder[] = "rec.className=test_recorder\n";

std::string loggerAt(const std::string& name, const std::string& level) {
  std::string s = name + ".className=qlg_basiclogger\n" + name + ".listenerNames=rec\n";
  if (!level.empty()) s += name + ".level=" + level + "\n";
  return s;
}

/* Starts the toolkit from its own properties file and registers the
   recorder before any record is filled, so the component loggers can name
   it among their listeners. */
void start(const TempDir& dir, const std::string& properties) {
  std::string path = dir.write("TyxTrace.properties", properties);
  ASSERT_EQ(initializeWrapper(path.c_str()), static_cast<int>(path.size()));
  ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
  registerRecorder();
  seen().clear();
}

/* A hw record at the given logger level. */
CLogWrapper* hwAt(const TempDir& dir, const std::string& level) {
  start(dir, std::string(kRecorder) + loggerAt("hw.loggers.trcLogger", level));
  return getCLogHw();
}

/* Runs body in a fresh child on a hw record at the given logger level. */
void withHw(const std::string& level, const std::function<void(CLogWrapper*)>& body) {
  inChild([&] {
    TempDir dir;
    body(hwAt(dir, level));
  });
}

/* The text of a toolkit-allocated string, which is freed. */
std::string take(char* text) {
  std::string s = text ? text : "(null)";
  QlgMem_free(text);
  return s;
}

void emitAll(CLogWrapper* w) {
  traceEntry(w, 1, "f.c", "fn", "entry");
  traceExit(w, 2, "f.c", "fn", "exit");
  traceMAX(w, 3, "f.c", "fn", "max");
  traceMID(w, 4, "f.c", "fn", "mid");
  traceMIN(w, 5, "f.c", "fn", "min");
}

std::string texts() {
  std::string s;
  for (const auto& e : seen()) s += e.text + ";";
  return s;
}

int g_evaluated = 0;
int countEvaluation() { return ++g_evaluated; }

}  // namespace

TEST(ComponentTable, TypesOutsideZeroToSevenGiveNoRecord) {
  EXPECT_EQ(createWrapper(8), nullptr);
  EXPECT_EQ(createWrapper(-1), nullptr);
}

TEST(ComponentTable, GettersShareTheRowsAndTheFixedLoggerNames) {
  inChild([] {
    TempDir dir;
    const char* names[] = {"hw", "vpd", "common", "sigeval", "fscanner", "plugin", "use", "net"};
    std::string props = kRecorder;
    for (const char* n : names) props += loggerAt(std::string(n) + ".loggers.trcLogger", "DEBUG_MIN");
    start(dir, props);
    CLogWrapper* (*getters[])(void) = {getCLogHw,  getCLogSw,     getCLogCom, getCLogXse,
                                       getCLogFs,  getCLogPlugin, getCLogUse, getCLogNet};
    for (int type = 0; type < 8; ++type) {
      CLogWrapper* w = createWrapper(type);
      ASSERT_NE(w, nullptr);
      EXPECT_EQ(getters[type](), w) << type;
      ASSERT_NE(w->logger, nullptr) << type;
      EXPECT_EQ(std::string(w->logger->name), std::string(names[type]) + ".loggers.trcLogger");
    }
    /* The pairings that look odd: Sw is the vital-product-data logger,
       Xse the signature evaluator's. */
    EXPECT_STREQ(getCLogSw()->logger->name, "vpd.loggers.trcLogger");
    EXPECT_STREQ(getCLogXse()->logger->name, "sigeval.loggers.trcLogger");
  });
}

TEST(RecordFill, LevelComesFromTheLoggersThresholdAtFill) {
  inChild([] {
    TempDir dir;
    start(dir, std::string(kRecorder) + loggerAt("hw.loggers.trcLogger", "DEBUG_MAX") +
                   loggerAt("vpd.loggers.trcLogger", "DEBUG_MID") +
                   loggerAt("common.loggers.trcLogger", "DEBUG_MIN") +
                   loggerAt("sigeval.loggers.trcLogger", "INFO") +
                   loggerAt("fscanner.loggers.trcLogger", "ALL") +
                   loggerAt("plugin.loggers.trcLogger", "verbose") +
                   loggerAt("use.loggers.trcLogger", "FATAL"));
    struct { CLogWrapper* w; int level; } cases[] = {
        {getCLogHw(), 4}, {getCLogSw(), 2}, {getCLogCom(), 1}, {getCLogXse(), 0},
        {getCLogFs(), 4}, {getCLogPlugin(), 4}, {getCLogUse(), 0}};
    for (const auto& c : cases) {
      EXPECT_EQ(c.w->trcLevel, c.level) << c.w->logger->name;
      EXPECT_EQ(getTrcLevel(c.w), c.level);
      EXPECT_EQ(c.w->active, 1) << "active also at level 0";
    }
  });
}

TEST(RecordFill, MissingLoggerLeavesTheRecordInactive) {
  inChild([] {
    TempDir dir;
    CaptureFd err(2);
    start(dir, kRecorder);
    CLogWrapper* w = getCLogNet();
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(w->logger, nullptr);
    EXPECT_EQ(w->active, 0);
    EXPECT_EQ(getTrcLevel(w), 0);
    emitAll(w);
    EXPECT_TRUE(seen().empty());
  });
}

TEST(RecordFill, FailedToolkitStartLeavesTheRecordEmptyAndIsNotRetried) {
  inChild([] {
    TempDir dir;
    std::string path = dir.file("later.properties");
    initializeWrapper(path.c_str());
    CaptureFd err(2);
    CLogWrapper* w = getCLogHw();
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(w->logger, nullptr);
    EXPECT_EQ(w->trcLevel, 0);
    EXPECT_EQ(w->active, 0);
    /* The file now exists and would start the toolkit, but the record was
       filled once already. */
    writeFile(path, std::string(kRecorder) + loggerAt("hw.loggers.trcLogger", "DEBUG_MAX"));
    EXPECT_EQ(getCLogHw(), w);
    EXPECT_EQ(w->active, 0);
    EXPECT_EQ(w->logger, nullptr);
    emitAll(w);
  });
}

TEST(TraceGate, MaximumEmitsAllFiveAtTheirToolkitLevels) {
  withHw("DEBUG_MAX", [](CLogWrapper* w) {
    ASSERT_EQ(w->trcLevel, 4);
    emitAll(w);
    ASSERT_EQ(seen().size(), 5u);
    const struct { int level; const char* function; const char* text; const char* line; } want[] = {
        {1000, "Entry fn", "entry", "1"}, {1000, "Exit fn", "exit", "2"}, {1000, "fn", "max", "3"},
        {2000, "fn", "mid", "4"},         {3000, "fn", "min", "5"}};
    for (size_t i = 0; i < 5; ++i) {
      EXPECT_EQ(seen()[i].level, want[i].level) << i;
      EXPECT_EQ(seen()[i].function, want[i].function) << i;
      EXPECT_EQ(seen()[i].text, want[i].text) << i;
      EXPECT_EQ(seen()[i].line, want[i].line) << i;
      EXPECT_EQ(seen()[i].file, "f.c") << i;
      EXPECT_FALSE(seen()[i].isMessage);
    }
  });
}

/* Each level passes the calls at or below it; level 0 passes none although
   the record is active, and the gate reads the record, not the logger. */
TEST(TraceGate, EachLevelEmitsItsCallsByTheRecordFilledOnceNotByTheLoggersLaterLevel) {
  struct { const char *level, *want; bool raiseLogger; } cases[] = {
      {"DEBUG_MID", "mid;min;", false}, {"DEBUG_MIN", "min;", false}, {"INFO", "", false},
      {"DEBUG_MIN", "min;", true}};
  for (const auto& c : cases) {
    withHw(c.level, [&](CLogWrapper* w) {
      ASSERT_EQ(w->active, 1);
      if (c.raiseLogger) {
        w->logger->field1.level = 1000; /* the toolkit would pass everything now */
        EXPECT_EQ(getCLogHw()->trcLevel, 1) << "a later threshold change does not refresh the record";
      }
      emitAll(w);
      EXPECT_EQ(texts(), c.want) << c.level << (c.raiseLogger ? " after raising the logger" : "");
    });
  }
}

TEST(TraceGate, MiddleIsActiveForMidOnlyAndMinimumDoesNotFormatMid) {
  withHw("DEBUG_MID", [](CLogWrapper* w) {
    EXPECT_EQ(istraceActive(w, 2), 1);
    EXPECT_EQ(istraceActive(w, 1), 0);
  });
  withHw("DEBUG_MIN", [](CLogWrapper* w) {
    /* A suppressed call must not even format: a bad argument would crash. */
    traceMID(w, 1, "f.c", "fn", "%s", reinterpret_cast<const char*>(1));
    EXPECT_TRUE(seen().empty());
  });
}

TEST(IsTraceActive, EqualityNotAtLeast) {
  CLogWrapper w = {nullptr, 4, 1};
  EXPECT_EQ(istraceActive(&w, 4), 1);
  EXPECT_EQ(istraceActive(&w, 2), 0);
  EXPECT_EQ(istraceActive(&w, 1), 0);
  w.trcLevel = 0;
  EXPECT_EQ(istraceActive(&w, 0), 1);
  EXPECT_EQ(getTrcLevel(&w), 0);
}

TEST(NullRecord, CallsReportTheAssertionAndCarryOn) {
  CaptureFd err(2);
  traceMIN(nullptr, 1, "f.c", "fn", "text");
  EXPECT_EQ(istraceActive(nullptr, 0), 0);
  EXPECT_EQ(getTrcLevel(nullptr), 0);
  std::string out = err.text();
  EXPECT_NE(out.find("w != NULL"), std::string::npos) << out;
  EXPECT_NE(out.find("CLogWrapper.cpp"), std::string::npos) << out;
  EXPECT_NE(out.find("line "), std::string::npos) << out;
}

TEST(MethodText, OnlyTheMethodNameIsEscaped) {
  withHw("DEBUG_MAX", [](CLogWrapper* w) {
    traceEntry(w, 1, "a<b>.c", "a<b>", "x<y>&z");
    traceMAX(w, 2, "f.c", "a<b>", "m");
    traceExit(w, 3, "f.c", nullptr, "n");
    traceMIN(w, 4, "f.c", "plain_name", "p");
    ASSERT_EQ(seen().size(), 4u);
    EXPECT_EQ(seen()[0].function, "Entry a&lt;b&gt;");
    EXPECT_EQ(seen()[0].file, "a<b>.c");
    EXPECT_EQ(seen()[0].text, "x<y>&z");
    EXPECT_EQ(seen()[1].function, "a&lt;b&gt;");
    EXPECT_EQ(seen()[2].function, "Exit ");
    EXPECT_EQ(seen()[3].function, "plain_name");
  });
}

TEST(MethodText, EscapeXmlReplacesTheFiveSpecials) {
  struct { const char *in, *want; } cases[] = {
      {"\"&'<>", "&quot;&amp;&apos;&lt;&gt;"}, {"a&&b", "a&amp;&amp;b"}, {"no specials", "no specials"},
      {"", ""}, {nullptr, "(null)"}};
  for (const auto& c : cases) EXPECT_EQ(take(CLogWrapper_escapeXml(c.in)), c.want);
}

TEST(MethodText, PrefixNameJoinsAndEscapes) {
  EXPECT_EQ(take(CLogWrapper_prefixName("Entry ", "run")), "Entry run");
  EXPECT_EQ(take(CLogWrapper_prefixName("Exit ", "op'<'")), "Exit op&apos;&lt;&apos;");
  EXPECT_EQ(take(CLogWrapper_prefixName("", nullptr)), "");
}

TEST(MethodText, NullPrefixIsReportedAndTreatedAsEmpty) {
  CaptureFd err(2);
  EXPECT_EQ(take(CLogWrapper_prefixName(nullptr, "m")), "m");
  EXPECT_NE(err.text().find("prefix != NULL"), std::string::npos);
}

TEST(FormattedText, LongTextIsCutAt1023CharactersAndPercentInItArrivesLiterally) {
  withHw("DEBUG_MAX", [](CLogWrapper* w) {
    std::string longText(2000, 'x'), exact(1023, 'y');
    longText[1022] = 'A';
    longText[1023] = 'B';
    traceMIN(w, 1, "f.c", "fn", "%s", longText.c_str());
    traceMIN(w, 2, "f.c", "fn", "%s", exact.c_str());
    traceMIN(w, 3, "f.c", "fn", "%s", "50%d done %s");
    traceMID(w, 4, "f.c", "fn", "rate %d%s", 100, "% s");
    ASSERT_EQ(seen().size(), 4u);
    EXPECT_EQ(seen()[0].text.size(), 1023u);
    EXPECT_EQ(seen()[0].text.back(), 'A');
    EXPECT_EQ(seen()[1].text, exact);
    EXPECT_EQ(seen()[2].text, "50%d done %s");
    EXPECT_EQ(seen()[3].text, "rate 100% s");
  });
}

TEST(Macros, SuppressedStatementsDoNotEvaluateTheirArguments) {
  withHw("DEBUG_MIN", [](CLogWrapper* w) {
    g_evaluated = 0;
    ARDEL_TRACE_ENTRY(w, "%d", countEvaluation());
    ARDEL_TRACE_EXIT(w, "%d", countEvaluation());
    ARDEL_TRACE_MAX(w, "%d", countEvaluation());
    ARDEL_TRACE_MID(w, "%d", countEvaluation());
    EXPECT_EQ(g_evaluated, 0);
    EXPECT_TRUE(seen().empty());
    ARDEL_TRACE_MIN(w, "n=%d", countEvaluation());
    int line = __LINE__ - 1;
    EXPECT_EQ(g_evaluated, 1);
    ASSERT_EQ(seen().size(), 1u);
    EXPECT_EQ(seen()[0].text, "n=1");
    EXPECT_EQ(seen()[0].file, __FILE__);
    EXPECT_EQ(seen()[0].line, std::to_string(line));
    EXPECT_EQ(seen()[0].function, "operator()");
  });
}

TEST(Macros, MaximumEmitsEntryAndExitWithTheEnclosingFunction) {
  withHw("DEBUG_MAX", [](CLogWrapper* w) {
    ARDEL_TRACE_ENTRY(w, "in");
    ARDEL_TRACE_EXIT(w, "out %s", "now");
    ASSERT_EQ(seen().size(), 2u);
    EXPECT_EQ(seen()[0].function, "Entry operator()");
    EXPECT_EQ(seen()[1].function, "Exit operator()");
    EXPECT_EQ(seen()[1].text, "out now");
  });
}

TEST(Macros, NullOrInactiveRecordIsSkippedSilently) {
  CaptureFd err(2);
  CLogWrapper* none = nullptr;
  CLogWrapper inactive = {nullptr, 4, 0};
  g_evaluated = 0;
  ARDEL_TRACE_MIN(none, "%d", countEvaluation());
  ARDEL_TRACE_MAX(&inactive, "%d", countEvaluation());
  EXPECT_EQ(g_evaluated, 0);
  EXPECT_EQ(err.text(), "");
}
