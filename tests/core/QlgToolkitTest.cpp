/*
 * Toolkit start-up and shutdown, the default error objects, and internal
 * messages as they reach standard error.  Every case runs in its own
 * process: the toolkit's state is process-wide.
 */
#include <ardel/QlgLogger.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>

#include <regex>

#include "core/QlgMisc.h"
#include "core/QlgToolkitInt.h"
#include "support/Recorder.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {
const char* kStamp = "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}[+-]\\d\\d:\\d\\d";

bool exists(const char* name) {
  QlgObject* o = QlgObject_find(name);
  QlgObject_release(o);
  return o != nullptr;
}
}  // namespace

TEST(ToolkitStartup, NullPathSucceedsAndWiresTheThreeErrorObjects) {
  inChild([] {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    QlgObject* logger = QlgToolkit_getErrorLogger();
    ASSERT_NE(logger, nullptr);
    EXPECT_STREQ(logger->name, "ardel.errorLogger");
    EXPECT_STREQ(logger->cls->name, "qlg_basiclogger");
    QlgObject* handler = QlgObject_find("ardel.stderrHandler");
    ASSERT_NE(handler, nullptr);
    EXPECT_STREQ(handler->cls->name, "qlg_stderrhandler");
    ASSERT_NE(handler->field2.formatter, nullptr);
    EXPECT_STREQ(handler->field2.formatter->name, "ardel.defaultFormatter");
    ASSERT_NE(logger->field2.listeners, nullptr);
    EXPECT_EQ(logger->field2.listeners->first->value, handler);
    EXPECT_EQ(logger->field2.listeners->first->next, nullptr);
    QlgObject_release(handler);
  });
}

TEST(ToolkitStartup, BuiltInClassesAreRegisteredInTheirFixedOrder) {
  inChild([] {
    QlgToolkit_registerClasses();
    QlgRegistries* reg = QlgToolkit_registries();
    std::vector<std::string> names;
    for (auto* e = reg->classes->first; e; e = e->next) names.push_back(e->key);
    std::vector<std::string> expected = {"qlg_basiclogger", "qlg_pdlogger", "qlg_levelfilter",
                                         "qlg_msgidfilter", "qlg_consolehandler",
                                         "qlg_stderrhandler", "qlg_filehandler", "qlg_tashandler",
                                         "qlg_multiproc_filehandler", "qlg_basicformatter",
                                         "qlg_xmlformatter", "qlg_zarvotraceformatter",
                                         "qlg_ffdc_trigger_handler", "qlg_ffdc_filecopy_handler",
                                         "qlg_sysloghandler", "qlg_asynchandler"};
    EXPECT_EQ(names, expected);
    QlgClass* cls = QlgClass_find("qlg_consolehandler");
    ASSERT_NE(cls, nullptr);
    ASSERT_NE(cls->description, nullptr);
    EXPECT_STREQ(cls->description->catalog, "qlgmsg");
    EXPECT_EQ(cls->description->key, 120u);
    EXPECT_STREQ(cls->description->defaultText, "Handles output to the console\r");
    EXPECT_EQ(QlgClass_find("qlg_stderrhandler")->description, nullptr);
  });
}

TEST(ToolkitStartup, SecondInitializeDoesNotReadTheFileAgain) {
  inChild([] {
    TempDir dir;
    std::string path = dir.write("a.properties", "app.className=qlg_basiclogger\n");
    ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
    unlink(path.c_str());
    CaptureFd err(2);
    EXPECT_TRUE(QlgToolkit_initialize(path.c_str()));
    EXPECT_EQ(err.text(), "");
  });
}

TEST(ToolkitStartup, UnreadableFileReportsKey51AndEmptiesEveryRegistry) {
  inChild([] {
    std::string out;
    {
      CaptureFd err(2);
      EXPECT_FALSE(QlgToolkit_initialize("/nonexistent/dir/TyxTrace.properties"));
      out = err.text();
    }
    EXPECT_NE(out.find("QLG0051E The log manager could not read the properties file "
                       "/nonexistent/dir/TyxTrace.properties.\r\n"),
              std::string::npos)
        << out;
    QlgRegistries* reg = QlgToolkit_registries();
    EXPECT_EQ(reg->classes, nullptr);
    EXPECT_EQ(reg->objects, nullptr);
    EXPECT_EQ(QlgToolkit_getErrorLogger(), nullptr);
    EXPECT_EQ(QlgClass_find("qlg_basiclogger"), nullptr);

    /* A later start begins from scratch. */
    TempDir dir;
    std::string path = dir.write("ok.properties", "# nothing\n");
    ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
    EXPECT_NE(QlgClass_find("qlg_basiclogger"), nullptr);
    EXPECT_TRUE(exists("ardel.errorLogger"));
  });
}

TEST(ToolkitStartup, EnterBeforeInitializeCreatesTheLockAndIsRecursive) {
  inChild([] {
    ASSERT_TRUE(QlgToolkit_enter());
    ASSERT_TRUE(QlgToolkit_enter());
    QlgToolkit_leave();
    QlgToolkit_leave();
    EXPECT_EQ(QlgToolkit_getErrorLogger(), nullptr);
  });
}

TEST(ToolkitStartup, FileConfiguresTheErrorObjects) {
  inChild([] {
    TempDir dir;
    std::string path = dir.write("t.properties",
                                 "ardel.defaultFormatter.separator=|\n"
                                 "ardel.errorLogger.level=WARN\n");
    ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
    EXPECT_EQ(QlgToolkit_getErrorLogger()->field1.level, 5000);
    CaptureFd err(2);
    QlgObject_create("nobody", nullptr); /* key 63 */
    std::string out = err.text();
    EXPECT_TRUE(std::regex_search(out, std::regex(std::string("^") + kStamp +
        "\\|QLGBC0063W A class must be specified before object 'nobody' can be created\\.\r\n$")))
        << out;
  });
}

TEST(InternalMessages, ErrorLevelOnTheErrorLoggerHidesWarningsButNotErrors) {
  inChild([] {
    TempDir dir;
    std::string path = dir.write("t.properties",
                                 "ardel.errorLogger.level=ERROR\n"
                                 "quiet.className=qlg_basiclogger\n");
    ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
    std::string out;
    {
      CaptureFd err(2);
      QlgMisc_report(5000, 36, "QLGFH0036W Could not load codeset %s.\r", QLG_PARM_STRING, "X", 0);
      QlgObject* quiet = QlgObject_create("quiet", nullptr);
      QlgLogger_logMin(quiet, "f.c", "fn", 1, "no listeners", 0); /* key 1, level 6000 */
      QlgObject_release(quiet);
      out = err.text();
    }
    EXPECT_EQ(out.find("QLGFH0036W"), std::string::npos) << out;
    EXPECT_TRUE(std::regex_search(out, std::regex(std::string("^") + kStamp +
        " QLGLG01E No listeners are registered with the logger quiet\\.\r\n$")))
        << out;
  });
}

TEST(InternalMessages, ReportsBeforeStartupAreDroppedSilently) {
  inChild([] {
    CaptureFd err(2);
    QlgMisc_report(6000, 20, "QLGBC0020E Out of memory.\r", 0);
    EXPECT_EQ(err.text(), "");
  });
}

TEST(InternalMessages, StatusReportCarriesTheSystemText) {
  inChild([] {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    CaptureFd err(2);
    ASSERT_TRUE(QlgToolkit_enter());
    QlgMisc_reportStatus(CxStatus_make('p', 2));
    QlgMisc_reportStatus(CxStatus_ok());
    QlgToolkit_leave();
    std::string out = err.text();
    EXPECT_TRUE(std::regex_search(out, std::regex(std::string("^") + kStamp +
        " No such file or directory\n$")))
        << out;
  });
}

TEST(ToolkitShutdown, AReportFromAHandlerClosedDuringShutdownIsDroppedNotSentToAFreedLogger) {
  inChild([] {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    static int closes = 0;
    /* A handler whose close reports, as a file handler does when its last
       write fails. */
    QlgClass_registerHandler("test_reporting_close", nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, [](QlgObject*) {
                               closes++;
                               QlgMisc_report(6000, 20, "QLGBC0020E Out of memory.\r", 0);
                             });
    QlgObject* h = QlgObject_create("late.handler", "test_reporting_close");
    ASSERT_NE(h, nullptr);
    std::string out;
    {
      CaptureFd err(2);
      QlgToolkit_shutdown();
      out = err.text();
    }
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(out, "");
    EXPECT_EQ(QlgToolkit_getErrorLogger(), nullptr);
    EXPECT_EQ(QlgToolkit_registries()->objects, nullptr);
  });
}
