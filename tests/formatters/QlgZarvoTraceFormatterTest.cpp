// SPDX-License-Identifier: Apache-2.0
// The trace formatter: fixed fields; an absent one leaves its separators side by side.
#include <gtest/gtest.h>

#include <vector>

#include <ardel/QlgEvent.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>

namespace {

TEST(QlgZarvoTraceFormatter, WritesEveryFieldInItsPlaceAndIgnoresProperties) {
  setenv("TZ", "UTC0", 1);
  ASSERT_TRUE(QlgToolkit_initialize(nullptr));
  QlgObject* fmt = QlgObject_create("test.zarvo", "qlg_zarvotraceformatter");
  ASSERT_NE(fmt, nullptr);
  QlgObject_storeProperty(fmt, "dateTimeFormat", "%H");  // no propertyChanged slot: no effect
  QlgObject_storeProperty(fmt, "separator", "|");

  using Props = std::vector<std::pair<const char*, const char*>>;
  struct Case { int level; const char* text; const char* cachedId; Props props; const char* rest; };
  const Case cases[] = {
      {4000, "QLGBC0020E Out of memory.", nullptr,
       {{"server", "hostA.example.com"}, {"processId", "1234"}, {"threadId", "5678"},
        {"qlg_prop_srcfile", "scan.c"}, {"qlg_prop_srcfunction", "run"}, {"qlg_prop_srcline", "88"}},
       " - INFO  - hostA - p1234:t5678 - scan.c:run(88) - QLGBC0020E - QLGBC0020E Out of memory.\n"},
      {0, "plain", nullptr, {{"threadId", "7"}, {"qlg_prop_srcfunction", "f"}},
       " - OTHER -  - t7 - f -  - plain\n"},
      {-9999, "x", "ABC0001W", {{"server", "plain"}, {"qlg_prop_srcline", "0"}, {"processId", "0"}},
       " - OTHER - plain - p - () - ABC0001W - x\n"},
      {1000, "", nullptr, {{"qlg_prop_srcfile", "a.c"}}, " -  MAX  -  -  - a.c -  - \n"},
      {7000, "QLGLG01E", nullptr, {}, " - ERROR -  -  -  - QLGLG01E - QLGLG01E\n"},
  };
  for (const Case& c : cases) {
    QlgEvent* e = QlgEvent_createTagged(c.level, nullptr, 0, 0, c.text, 0);
    e->time = 1236704966535;
    if (c.cachedId) QlgEvent_setMessageId(e, c.cachedId);
    for (const auto& p : c.props) QlgEvent_addStringProperty(e, p.first, p.second);
    char* line = fmt->cls->slots.formatter.format(fmt, e);
    EXPECT_EQ(line ? line : "<null>", std::string("\x1E[2009-03-10 17:09:26.535+00:00]") + c.rest) << c.text;
    QlgMem_free(line);
    QlgEvent_free(e);
  }
  QlgObject_release(fmt);
}

// A trace call's source location rides beside the property set; every
// formatter must render it exactly as if it had been filed as properties.
TEST(QlgZarvoTraceFormatter, SourceLocationOfATraceCallReadsLikeItsProperties) {
  setenv("TZ", "UTC0", 1);
  ASSERT_TRUE(QlgToolkit_initialize(nullptr));
  for (const char* cls : {"qlg_zarvotraceformatter", "qlg_xmlformatter", "qlg_basicformatter"}) {
    QlgObject* fmt = QlgObject_create("test.srcloc", cls);
    ASSERT_NE(fmt, nullptr);
    std::string out[2];
    for (int lazy = 0; lazy < 2; ++lazy) {
      QlgEvent* e = QlgEvent_createTagged(2000, nullptr, 0, 0, "text", 0);
      e->time = 1236704966535;
      if (lazy) {
        e->srcFile = "scan.c", e->srcFunction = "run", e->srcLine = 88;
        e->srcFlags = QLG_EVENT_SRC_FILE | QLG_EVENT_SRC_FUNCTION;
      } else {
        QlgEvent_addStringProperty(e, QLG_PROP_SRCFILE, "scan.c");
        QlgEvent_addIntProperty(e, QLG_PROP_SRCLINE, 88);
        QlgEvent_addStringProperty(e, QLG_PROP_SRCFUNCTION, "run");
      }
      char* line = fmt->cls->slots.formatter.format(fmt, e);
      out[lazy] = line ? line : "<null>";
      QlgMem_free(line);
      QlgEvent_free(e);
    }
    EXPECT_TRUE(out[0].find("scan.c") != out[0].npos && out[0].find("88") != out[0].npos) << cls << out[0];
    EXPECT_EQ(out[1], out[0]) << cls;
    QlgObject_release(fmt);
  }
}

}  // namespace
