// SPDX-License-Identifier: Apache-2.0
// Loggers of your own: found by dotted name (inheriting from configured
// ancestors), writing exactly the statements at or above their level with
// file and line; a suppressed statement evaluates nothing, unconfigured names
// give no logger, and a changed level applies at once.
#include <ardel/log.h>

#include <regex>

#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

int s_evaluated = 0;
int sideEffect() { return ++s_evaluated; }

std::string configFor(const TempDir& dir, const std::string& level) {
  return "app.className=qlg_basiclogger\n"
         "app.level=" + level + "\n"
         "app.listenerNames=app.file\n"
         "app.file.className=qlg_filehandler\n"
         "app.file.fileName=" + dir.file("app.log") + "\n";
}

}  // namespace

TEST(ArdelLog, StatementsAtOrAboveTheLevelAreWrittenWithTheirSource) {
  inChild([] {
    TempDir dir;
    std::string path = dir.write("TyxTrace.properties", configFor(dir, "WARN"));
    ASSERT_EQ(ardel_initialize(path.c_str()), static_cast<int>(path.size()));
    ArdelLogger* log = ardel_getLogger("app.db.pool"); /* inherits from "app" */
    ASSERT_NE(log, nullptr);
    EXPECT_TRUE(ardel_isEnabled(log, QLG_LEVEL_WARN) == 1 && ardel_isEnabled(log, QLG_LEVEL_INFO) == 0);

    s_evaluated = 0;
    ARDEL_DEBUG_MAX(log, "max %d", sideEffect());
    ARDEL_DEBUG_MID(log, "mid %d", sideEffect());
    ARDEL_DEBUG_MIN(log, "min %d", sideEffect());
    ARDEL_INFO(log, "info %d", sideEffect());
    EXPECT_EQ(s_evaluated, 0) << "a suppressed statement evaluated its arguments";
    int warnLine = __LINE__ + 1;
    ARDEL_WARN(log, "disk %d%% full", 91);
    ARDEL_ERROR(log, "cannot open %s", "db.sqlite");
    ARDEL_FATAL(log, "%s", "giving up");
    ARDEL_LOG(nullptr, QLG_LEVEL_FATAL, "never %d", sideEffect());
    EXPECT_EQ(s_evaluated, 0);
    ardel_releaseLogger(log);

    std::string text = readFile(dir.file("app.log"));
    EXPECT_TRUE(std::regex_search(text, std::regex("ArdelLogTest.cpp[^\n]*" + std::to_string(warnLine) +
                                                   "[^\n]*disk 91% full[\\s\\S]*cannot open db.sqlite[\\s\\S]*giving up"))) << text;
    EXPECT_EQ(text.find("info"), std::string::npos) << text;

    // Unconfigured names and handlers give no logger; the level is read live.
    for (const char* none : {"other.thing", "", static_cast<const char*>(nullptr), "app.file"})
      EXPECT_EQ(ardel_getLogger(none), nullptr) << (none ? none : "null");
    log = ardel_getLogger("app");
    ASSERT_NE(log, nullptr);
    QlgObject_storeProperty(log, "level", "INFO");
    EXPECT_EQ(ardel_isEnabled(log, QLG_LEVEL_INFO), 1);
    ARDEL_INFO(log, "now visible");
    ardel_releaseLogger(log);
    EXPECT_NE(readFile(dir.file("app.log")).find("now visible"), std::string::npos);
  });
}
