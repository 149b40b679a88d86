// SPDX-License-Identifier: Apache-2.0
// Component records and the exported trace calls: the component table, the
// one-time fill and its level mapping, the cached-level gate, the method text
// with its prefix and XML escaping, the 1,023-character cut, and the macros.
// Records are filled once per process, so every scenario runs in a child.
#include <ardel/CLogWrapper.h>
#include <ardel/QlgLogger.h>

#include <climits>
#include <cstdio>

#include "frontend/CLogWrapperInt.h"
#include "support/Recorder.h"

using namespace ardeltest;

namespace {

std::string loggerAt(const std::string& name, const std::string& level) {
  return name + ".className=qlg_basiclogger\n" + name + ".listenerNames=rec\n" + name + ".level=" + level + "\n";
}

// Starts the toolkit from its own file and registers the recorder before any record is filled.
void start(const std::string& properties) {
  static TempDir dir;
  std::string path = dir.write("TyxTrace.properties", "rec.className=test_recorder\n" + properties);
  ASSERT_EQ(initializeWrapper(path.c_str()), static_cast<int>(path.size()));
  ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
  registerRecorder();
  seen().clear();
}

// Runs body in a fresh child on a hw record at the given logger level.
void withHw(const std::string& level, const std::function<void(CLogWrapper*)>& body) {
  inChild([&] {
    start(loggerAt("hw.loggers.trcLogger", level));
    body(getCLogHw());
  });
}

void emitAll(CLogWrapper* w) {
  traceEntry(w, 1, "f.c", "fn", "entry");
  traceExit(w, 2, "f.c", "fn", "exit");
  traceMAX(w, 3, "f.c", "fn", "max");
  traceMID(w, 4, "f.c", "fn", "mid");
  traceMIN(w, 5, "f.c", "fn", "min");
}

std::string take(char* text) {
  std::string s = text ? text : "(null)";
  QlgMem_free(text);
  return s;
}

int g_evaluated = 0;
int countEvaluation() { return ++g_evaluated; }

}  // namespace

TEST(ComponentTable, GettersShareTheRowsFixedLoggerNamesAndLevelsFromTheThresholdAtFill) {
  EXPECT_TRUE(createWrapper(8) == nullptr && createWrapper(-1) == nullptr);
  inChild([] {
    // The pairings that look odd: Sw is the vital-product-data logger, Xse the signature evaluator's.
    const char* names[] = {"hw", "vpd", "common", "sigeval", "fscanner", "plugin", "use", "net"};
    const char* levels[] = {"DEBUG_MAX", "DEBUG_MID", "DEBUG_MIN", "INFO", "ALL", "verbose", "FATAL"};
    const int want[] = {4, 2, 1, 0, 4, 4, 0};
    std::string props;
    for (int t = 0; t < 7; ++t) props += loggerAt(std::string(names[t]) + ".loggers.trcLogger", levels[t]);
    start(props);
    CLogWrapper* (*getters[])(void) = {getCLogHw, getCLogSw, getCLogCom, getCLogXse,
                                       getCLogFs, getCLogPlugin, getCLogUse, getCLogNet};
    std::string err = stderrOf([&] {
      for (int t = 0; t < 8; ++t) {
        CLogWrapper* w = createWrapper(t);
        ASSERT_NE(w, nullptr);
        EXPECT_EQ(getters[t](), w) << t;
        if (t == 7) break;
        EXPECT_EQ(std::string(w->logger->name), std::string(names[t]) + ".loggers.trcLogger");
        EXPECT_EQ(getTrcLevel(w), want[t]) << levels[t];
        EXPECT_EQ(w->active, 1) << "active also at level 0";
      }
    });
    CLogWrapper* net = getCLogNet();  // no logger configured: inactive, emits nothing
    EXPECT_TRUE(net->logger == nullptr && net->active == 0 && getTrcLevel(net) == 0);
    emitAll(net);
    EXPECT_TRUE(seen().empty());
  });
}

// Each level passes the calls at or below it (entry and exit marks at maximum
// only); level 0 passes none although the record is active, and the gate
// reads the record, not the logger's later threshold.
TEST(TraceGate, EachLevelEmitsItsCallsAtTheirToolkitLevelsByTheRecordFilledOnce) {
  const struct { const char *level, *want; bool raiseLogger; } cases[] = {
      {"DEBUG_MAX", "1000 Entry fn entry 1;1000 Exit fn exit 2;1000 fn max 3;2000 fn mid 4;3000 fn min 5;", false},
      {"DEBUG_MID", "2000 fn mid 4;3000 fn min 5;", false}, {"DEBUG_MIN", "3000 fn min 5;", false},
      {"INFO", "", false}, {"DEBUG_MIN", "3000 fn min 5;", true}};
  for (const auto& c : cases) {
    withHw(c.level, [&](CLogWrapper* w) {
      if (c.raiseLogger) w->logger->field1.level = 1000;
      emitAll(w);
      std::string got;
      for (const Seen& s : seen())
        got += std::to_string(s.level) + " " + s.function + " " + s.text + " " + s.line + (s.file == "f.c" ? ";" : "?");
      EXPECT_EQ(got, c.want) << c.level;
      EXPECT_EQ(istraceActive(w, 2), std::string(c.level) == "DEBUG_MID");
    });
  }
  withHw("DEBUG_MIN", [](CLogWrapper* w) {
    traceMID(w, 1, "f.c", "fn", "%s", reinterpret_cast<const char*>(1));  // suppressed: not even formatted
    EXPECT_TRUE(seen().empty());
  });
  CLogWrapper w = {nullptr, 4, 1};
  EXPECT_TRUE(istraceActive(&w, 4) && !istraceActive(&w, 2) && !istraceActive(&w, 1)) << "equality, not at least";
  w.trcLevel = 0;
  EXPECT_TRUE(istraceActive(&w, 0) && getTrcLevel(&w) == 0);
  std::string out = stderrOf([] {
    traceMIN(nullptr, 1, "f.c", "fn", "text");
    EXPECT_EQ(istraceActive(nullptr, 0) + getTrcLevel(nullptr), 0);
  });
  EXPECT_NE(out.find("w != NULL"), std::string::npos) << out;
  EXPECT_NE(out.find("CLogWrapper.cpp"), std::string::npos) << out;
}

TEST(MethodText, OnlyTheMethodNameIsEscapedAndLongTextIsCutAt1023Characters) {
  EXPECT_EQ(take(CLogWrapper_escapeXml("\"&'<>a&&b")), "&quot;&amp;&apos;&lt;&gt;a&amp;&amp;b");
  EXPECT_EQ(take(CLogWrapper_escapeXml("")) + take(CLogWrapper_escapeXml(nullptr)), "(null)");
  EXPECT_EQ(take(CLogWrapper_prefixName("Exit ", "op'<'")), "Exit op&apos;&lt;&apos;");
  EXPECT_EQ(take(CLogWrapper_prefixName("", nullptr)), "");
  EXPECT_NE(stderrOf([] { EXPECT_EQ(take(CLogWrapper_prefixName(nullptr, "m")), "m"); }).find("prefix != NULL"),
            std::string::npos);
  withHw("DEBUG_MAX", [](CLogWrapper* w) {
    std::string longText(2000, 'x'), exact(1023, 'y');
    longText[1022] = 'A';
    traceEntry(w, 1, "a<b>.c", "a<b>", "x<y>&z");
    traceExit(w, 3, "f.c", nullptr, "n");
    traceMIN(w, 1, "f.c", "plain_name", "%s", longText.c_str());
    traceMIN(w, 2, "f.c", "fn", "%s", exact.c_str());
    traceMID(w, 4, "f.c", "fn", "rate %d%s %s", 100, "% s", "50%d done %s");
#define NUMBERS "%d %i %ld %lld %u %lu %llx %X %c%%", INT_MIN, -7, LONG_MIN, LLONG_MIN, UINT_MAX, 0ul, ~0ull, 0xBEEFu, 'q'
    traceMIN(w, 5, "f.c", "fn", NUMBERS);
    char numbers[200];
    snprintf(numbers, sizeof numbers, NUMBERS);
    EXPECT_EQ(seenList(&Seen::function), "Entry a&lt;b&gt;;Exit ;plain_name;fn;fn;fn;");
    EXPECT_EQ(seenList(&Seen::file), "a<b>.c;f.c;f.c;f.c;f.c;f.c;");
    ASSERT_EQ(seen().size(), 6u);
    EXPECT_EQ(seen()[5].text, numbers);
    EXPECT_EQ(seen()[0].text, "x<y>&z");
    EXPECT_EQ(seen()[2].text, longText.substr(0, 1023));
    EXPECT_EQ(seen()[3].text, exact);
    EXPECT_EQ(seen()[4].text, "rate 100% s 50%d done %s");
  });
}

TEST(Macros, SuppressedStatementsDoNotEvaluateTheirArgumentsAndPassedOnesCarryTheirPlace) {
  withHw("DEBUG_MIN", [](CLogWrapper* w) {
    g_evaluated = 0;
    ARDEL_TRACE_ENTRY(w, "%d", countEvaluation());
    ARDEL_TRACE_EXIT(w, "%d", countEvaluation());
    ARDEL_TRACE_MAX(w, "%d", countEvaluation());
    ARDEL_TRACE_MID(w, "%d", countEvaluation());
    EXPECT_EQ(g_evaluated, 0);
    ARDEL_TRACE_MIN(w, "n=%d", countEvaluation());
    int line = __LINE__ - 1;
    EXPECT_EQ(g_evaluated, 1);
    ASSERT_EQ(seen().size(), 1u);
    EXPECT_EQ(seen()[0].text, "n=1");
    EXPECT_EQ(seen()[0].file, __FILE__);
    EXPECT_EQ(seen()[0].line, std::to_string(line));
    EXPECT_EQ(seen()[0].function, "operator()");
  });
  withHw("DEBUG_MAX", [](CLogWrapper* w) {
    ARDEL_TRACE_ENTRY(w, "in");
    ARDEL_TRACE_EXIT(w, "out %s", "now");
    EXPECT_EQ(seenList(&Seen::function), "Entry operator();Exit operator();");
    EXPECT_EQ(seenList(), "in;out now;");
  });
  CLogWrapper* none = nullptr;
  CLogWrapper inactive = {nullptr, 4, 0};
  g_evaluated = 0;
  EXPECT_EQ(stderrOf([&] {
    ARDEL_TRACE_MIN(none, "%d", countEvaluation());
    ARDEL_TRACE_MAX(&inactive, "%d", countEvaluation());
  }), "");
  EXPECT_EQ(g_evaluated, 0);
}
