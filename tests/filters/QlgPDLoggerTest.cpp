// SPDX-License-Identifier: Apache-2.0
// The pd logger: identity stamped in order, message ID settled, reports.
#include <sched.h>

#include <ardel/QlgLogger.h>
#include "platform/CxProcess.h"
#include "platform/CxSystem.h"
#include "platform/CxThread.h"
#include "support/Recorder.h"
#include "util/QlgStringToStringMap.h"

namespace {

using namespace ardeltest;

// Per event: "key=value;" of every property in order, then "id=" and the ID.
std::vector<std::string> g_stamped;

void capturePublish(QlgObject*, QlgEvent* event) {
  std::string line;
  for (auto* e = QlgStringToStringMap_first(event->props); e; e = e->next) line += std::string(e->key) + "=" + e->value + ";";
  g_stamped.push_back(line + "id=" + (event->messageId ? event->messageId : "<null>"));
}

// Starts the toolkit on config, logs texts through the logger "pd" and
// hands it back.
QlgObject* logThroughPd(const std::string& config, std::initializer_list<const char*> texts) {
  startWithRecorder("pd.className=qlg_pdlogger\npd.level=ALL\ncap.className=test_capture\n" + config);
  QlgClass_registerHandler("test_capture", nullptr, nullptr, nullptr, nullptr, capturePublish, nullptr, nullptr);
  QlgObject* pd = QlgObject_create("pd", nullptr);
  EXPECT_NE(pd, nullptr);
  for (const char* text : texts) QlgLogger_logMin(pd, nullptr, nullptr, 0, text, 0);
  return pd;
}

std::string processAndThread() {
  return "processId=" + std::to_string(CxProcess_getpid()) + ";threadId=" + std::to_string(CxThread_getId()) + ";";
}

TEST(QlgPDLogger, StampsIdentityProcessAndThreadAndCachesTheMessageId) {
  inChild([] {
    QlgObject* pd = logThroughPd("pd.listenerNames=cap\npd.organization=\npd.product=ardel\npd.product=tk\n",
                                 {"QLGBC0020E Out of memory.", "plain"});
    char host[256];
    CxSystem_getHostName(host, sizeof host);
    const std::string props = "organization=;product=tk;server=" + std::string(host) + ";serverFormat=IP;" +
                              processAndThread();
    EXPECT_EQ(g_stamped, (std::vector<std::string>{props + "id=QLGBC0020E", props + "id="}));
    pd->cls->slots.logger.log(pd, nullptr);  // a null event reaches no listener
    EXPECT_EQ(g_stamped.size(), 2u);
    QlgObject* shared = QlgObject_find("ardel.pdMsgIdFormatter");
    ASSERT_NE(shared, nullptr);
    EXPECT_STREQ(shared->cls->name, "qlg_xmlformatter");
    QlgObject_release(shared);
    QlgObject_release(pd);
  });
}

TEST(QlgPDLogger, AHostWithoutANameIsReportedAndLeftOut) {
  inChild([] {
    if (unshare(CLONE_NEWUTS) != 0 || sethostname("", 0) != 0) GTEST_SKIP() << "no UTS namespace here";
    CaptureFd err(2);
    QlgObject_release(logThroughPd("pd.listenerNames=cap\n", {"x"}));
    EXPECT_NE(err.text().find("QLGLG0035E A logger of class qlg_pdlogger could not get the host name."),
              std::string::npos);
    EXPECT_EQ(g_stamped, std::vector<std::string>{"serverFormat=IP;" + processAndThread() + "id="});
  });
}

}  // namespace
