// SPDX-License-Identifier: Apache-2.0
// The message-ID filter: matching, modes in a chain, repeat suppression.
#include <ardel/QlgLogger.h>
#include "filters/QlgMsgIdFilter.h"
#include "support/Recorder.h"

namespace {

using namespace ardeltest;

TEST(QlgMsgIdFilterMatch, TakesFirstOccurrencesAndTheLastPieceMustEndTheId) {
  struct Case { const char* pattern; const char* id; int matches; };
  const Case cases[] = {
      {"*W", "QLGBC0060W", 1},         {"*W*", "QLGBC0060W", 1},   {"*W*", "QLGBC0060WX", 0},
      {"*W", "QLWBC0060W", 0},         {"*w", "QLGBC0060W", 0},    {"QLG*E", "QLGBC0020E", 1},
      {"QLG*E", "QLGBE0001E", 0},      {"QLG*", "QLGBC0020E", 1},  {"QLG", "QLGBC0020E", 0},
      {"QLGBC0020E", "QLGBC0020E", 1}, {"QLGBC0020E", "QLGBC0020", 0}, {"Q*BC*20E", "QLGBC0020E", 1},
      {"*", "anything", 1},            {"**", "", 1},              {"X*", "QLGBC0020E", 0},
  };
  for (const Case& c : cases) EXPECT_EQ(QlgMsgIdFilter_matches(c.pattern, c.id), c.matches) << c.pattern << " " << c.id;
}

TEST(QlgMsgIdFilterChain, PassesOrBlocksByModeAndReportsAnUnknownMode) {
  struct Case { std::string config; std::string stderrHolds; std::vector<std::string> passed; };
  const std::vector<Case> cases = {
      {"", "", {"QLGBC0020E b", "QLGLG01E c", "no id"}},
      {"f.mode=passthru\nf.msgIds=QLG*E\tQLGLG01E\n", "", {"QLGBC0020E b", "QLGLG01E c"}},
      {"f.msgIds=\n", "", {"QLGBC0060W a", "QLGBC0020E b", "QLGLG01E c", "QLGBE0011I d", "no id"}},
      {"f.mode=sometimes\n",
       "QLGFF0020W The property 'mode' for message ID filter f was set to unknown value sometimes.",
       {"QLGBC0020E b", "QLGLG01E c", "no id"}},
  };
  for (const Case& c : cases) {
    inChild([&] {
      CaptureFd err(2);
      startWithRecorder("app.className=qlg_basiclogger\napp.level=ALL\napp.listenerNames=f\n"
                        "f.className=qlg_msgidfilter\nf.listenerNames=rec\nrec.className=test_recorder\n" +
                        c.config);
      QlgObject* app = QlgObject_create("app", nullptr);
      for (const char* text : {"QLGBC0060W a", "QLGBC0020E b", "QLGLG01E c", "QLGBE0011I d", "no id"})
        QlgLogger_logMin(app, nullptr, nullptr, 0, text, 0);
      std::vector<std::string> passed;
      for (const Seen& s : seen()) passed.push_back(s.text);
      EXPECT_EQ(passed, c.passed) << c.config;
      EXPECT_NE(err.text().find(c.stderrHolds), std::string::npos) << c.config;
      QlgObject* shared = QlgObject_find("msgFormatter");
      ASSERT_NE(shared, nullptr);
      EXPECT_STREQ(shared->cls->name, "qlg_xmlformatter");
      QlgObject_release(shared);
      QlgObject_release(app);
    });
  }
}

TEST(QlgMsgIdFilterRepeat, SuppressesRepeatsCountedFromTheLastPass) {
  struct Case { const char* id; std::vector<long long> times; std::vector<int> passes; };
  const Case cases[] = {
      {"QLGBC0020E x", {0, 30000, 59999, 60000}, {1, 0, 0, 1}},  // passes again once the whole interval is over
      {"QLGBC0020E x", {0, 50000, 70000, 100000}, {1, 0, 1, 0}},  // 50000 does not restart the interval
      {"no id", {0, 1}, {1, 1}},
  };
  inChild([&] {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    int serial = 0;
    for (const Case& c : cases) {
      QlgObject* f = QlgObject_create(("rf" + std::to_string(++serial)).c_str(), "qlg_msgidfilter");
      ASSERT_NE(f, nullptr);
      QlgObject_storeProperty(f, "msgIdRepeatTime", "60000");
      QlgObject_storeProperty(f, "msgIdRepeatTime", "abc");  // not a number: 60000 stays
      for (size_t i = 0; i < c.times.size(); ++i) {
        QlgEvent* e = QlgEvent_createTagged(6000, nullptr, 0, 0, c.id, 0);
        e->time = c.times[i];
        EXPECT_EQ(f->cls->slots.filter.isLoggable(f, e), c.passes[i]) << c.id << " at " << c.times[i];
        QlgEvent_free(e);
      }
      QlgObject_release(f);
    }
  });
}

}  // namespace
