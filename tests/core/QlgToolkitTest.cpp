// SPDX-License-Identifier: Apache-2.0
// Toolkit start-up and shutdown, the default error objects, and internal
// messages as they reach standard error.  Every case runs in its own process.
#include <ardel/QlgLogger.h>

#include "core/QlgMisc.h"
#include "core/QlgToolkitInt.h"
#include "support/Recorder.h"

using namespace ardeltest;

TEST(ToolkitStartup, NullPathWiresTheThreeErrorObjectsAndASecondStartReadsNothing) {
  inChild([] {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    QlgObject* logger = QlgToolkit_getErrorLogger();
    ASSERT_NE(logger, nullptr);
    EXPECT_STREQ(logger->name, "ardel.errorLogger");
    EXPECT_STREQ(logger->cls->name, "qlg_basiclogger");
    QlgObject* handler = QlgObject_find("ardel.stderrHandler");
    EXPECT_EQ(std::string(handler->cls->name) + " " + handler->field2.formatter->name, "qlg_stderrhandler ardel.defaultFormatter");
    EXPECT_TRUE(logger->field2.listeners->first->value == handler && logger->field2.listeners->first->next == nullptr);
    QlgObject_release(handler);
    EXPECT_STREQ(QlgClass_find("qlg_consolehandler")->description->defaultText, "Handles output to the console\r");
    EXPECT_EQ(reportsOf([] { EXPECT_TRUE(QlgToolkit_initialize("/nonexistent/TyxTrace.properties")); }), "");
  });
}

TEST(ToolkitStartup, AnUnreadableFileReportsKey51AndEmptiesEveryRegistryForALaterStart) {
  inChild([] {
    ASSERT_TRUE(QlgToolkit_enter());  // before a start: creates the lock, recursive
    ASSERT_TRUE(QlgToolkit_enter());
    QlgToolkit_leave();
    QlgToolkit_leave();
    EXPECT_EQ(reportsOf([] { QlgMisc_report(6000, 20, "QLGBC0020E Out of memory.\r", 0); }), "")
        << "reports before start-up are dropped";
    EXPECT_EQ(reportsOf([] { EXPECT_FALSE(QlgToolkit_initialize("/nonexistent/dir/TyxTrace.properties")); }),
              "QLG0051E The log manager could not read the properties file /nonexistent/dir/TyxTrace.properties.\r\n");
    QlgRegistries* reg = QlgToolkit_registries();
    EXPECT_TRUE(reg->classes == nullptr && reg->objects == nullptr && QlgToolkit_getErrorLogger() == nullptr);
    EXPECT_EQ(QlgClass_find("qlg_basiclogger"), nullptr);
    TempDir dir;
    ASSERT_TRUE(QlgToolkit_initialize(dir.write("ok.properties", "# nothing\n").c_str()));
    EXPECT_TRUE(QlgClass_find("qlg_basiclogger") && QlgToolkit_getErrorLogger());
  });
}

TEST(InternalMessages, TheFileConfiguresTheErrorObjectsAndTheErrorLevelHidesWarnings) {
  withToolkit("ardel.defaultFormatter.separator=|\nardel.errorLogger.level=ERROR\nquiet.className=qlg_basiclogger\n", [] {
    EXPECT_EQ(QlgToolkit_getErrorLogger()->field1.level, 6000);
    std::string out = stderrOf([] {
      QlgMisc_report(5000, 36, "QLGFH0036W Could not load codeset %s.\r", QLG_PARM_STRING, "X", 0);
      QlgObject* quiet = QlgObject_create("quiet", nullptr);
      QlgLogger_logMin(quiet, "f.c", "fn", 1, "no listeners", 0);  // key 1, level 6000
      QlgObject_release(quiet);
    });
    EXPECT_TRUE(std::regex_match(out, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d)"
                                                 R"(\|QLGLG01E No listeners are registered with the logger quiet\.\r\n)")))
        << out;
  });
}

TEST(InternalMessages, AStatusReportCarriesTheSystemText) {
  inChild([] {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    ASSERT_TRUE(QlgToolkit_enter());
    EXPECT_EQ(reportsOf([] {
      QlgMisc_reportStatus(CxStatus_make('p', 2));
      QlgMisc_reportStatus(CxStatus_ok());
    }), "No such file or directory\n");
    QlgToolkit_leave();
  });
}

TEST(ToolkitShutdown, AReportFromAHandlerClosedDuringShutdownIsDroppedNotSentToAFreedLogger) {
  inChild([] {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    static int closes = 0;
    // A handler whose close reports, as a file handler does when its last write fails.
    QlgClass_registerHandler("test_reporting_close", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             [](QlgObject*) {
                               closes++;
                               QlgMisc_report(6000, 20, "QLGBC0020E Out of memory.\r", 0);
                             });
    ASSERT_NE(QlgObject_create("late.handler", "test_reporting_close"), nullptr);
    EXPECT_EQ(reportsOf([] { QlgToolkit_shutdown(); }), "");
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(QlgToolkit_getErrorLogger(), nullptr);
    EXPECT_EQ(QlgToolkit_registries()->objects, nullptr);
  });
}
