// SPDX-License-Identifier: Apache-2.0
// The lnav formats in contrib/: files the library wrote in the basic and the
// trace line formats must be recognised by lnav (headless), with the level,
// message ID and source location of every record parsed back.
#include <ardel/QlgToolkit.h>
#include <ardel/log.h>

#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

TEST(LnavFormats, RecordsTheLibraryWroteReadBackFieldByField) {
  if (std::system("command -v lnav >/dev/null 2>&1") != 0) GTEST_SKIP() << "lnav is not installed";
  TempDir dir;
  dir.write("ardel.properties",
            "app.className=qlg_basiclogger\napp.level=ALL\napp.listenerNames=basic trace\n"
            "basic.className=qlg_filehandler\nbasic.fileName=" + dir.file("basic.log") + "\n"
            "trace.className=qlg_filehandler\ntrace.fileName=" + dir.file("trace.log") + "\n"
            "trace.formatterName=traceFormat\ntraceFormat.className=qlg_zarvotraceformatter\n");
  const int line = __LINE__ + 6;  // of the first statement
  inChild([&] {
    QlgToolkit_shutdown();  // other tests of this program may have started it without a file
    ardel_initialize(dir.file("ardel.properties").c_str());
    ArdelLogger* app = ardel_getLogger("app");
    ASSERT_NE(app, nullptr);
    ARDEL_ERROR(app, "QLGTS0001E disk %s is full", "sda");
    ARDEL_WARN(app, "QLGTS0002W retrying");
    ARDEL_DEBUG_MID(app, "plain trace text");
    ardel_releaseLogger(app);
  });
  std::string lnav = "HOME=" + dir.path() + " lnav";
  ASSERT_EQ(std::system((lnav + " -i " ARDEL_SOURCE_DIR "/contrib/lnav/ardel.json >/dev/null 2>&1").c_str()), 0);
  std::string l = std::to_string(line), l2 = std::to_string(line + 1), l3 = std::to_string(line + 2);
  struct Case { const char* table; std::string columns; const char* file; std::string expected; } cases[] = {
      {"ardel_basic_log", "log_level, msgid, line", "basic.log",
       "error,QLGTS0001E," + l + "\nwarning,QLGTS0002W," + l2 + "\ninfo,<NULL>," + l3 + "\n"},
      {"ardel_trace_log", "log_level, msgid, source LIKE '%LnavFormatTest.cpp:%(' || " + l + " || ')'",
       "trace.log", "error,QLGTS0001E,1\nwarning,QLGTS0002W,0\ndebug2,,0\n"},
  };
  for (const Case& c : cases) {
    std::string out = dir.file("out.csv");
    std::string cmd = lnav + " -n -c \";SELECT " + c.columns + " FROM " + c.table + "\" -c ':write-csv-to " + out +
                      "' " + dir.file(c.file) + " >/dev/null 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    std::string csv = readFile(out);
    EXPECT_EQ(csv.substr(csv.find('\n') + 1), c.expected) << c.table << "\n" << readFile(dir.file(c.file));
  }
}

}  // namespace
