// SPDX-License-Identifier: Apache-2.0
// Internal messages as they reach standard error through the error objects
// that the properties file configures.
#include <ardel/QlgLogger.h>

#include "core/QlgMisc.h"
#include "support/Recorder.h"

using namespace ardeltest;

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
