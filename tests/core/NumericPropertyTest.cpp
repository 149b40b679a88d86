/*
 * Numbers at and beyond the edges of their type: an integer property or a
 * level outside its range is a value that cannot be read (found 0, the
 * reader's fallback), never a wrapped-around number and never undefined
 * behaviour; the extreme values themselves still read exactly.
 */
#include <ardel/QlgLevel.h>
#include <ardel/QlgLogger.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgProps.h>
#include <ardel/QlgToolkit.h>

#include <climits>
#include <string>

#include "handlers/QlgFileHandler.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

const int kUnread = -1; /* in the table: found must be 0 */

struct Case {
  const char* text;
  int64_t asInt;   /* kUnread: not an int */
  int64_t asInt64; /* kUnread: not an int64; the extremes are listed apart */
};

TEST(NumericProperty, NumbersBeyondTheirTypeCannotBeReadAndTheEdgesReadExactly) {
  const Case cases[] = {
      {"2147483647", INT_MAX, INT_MAX},
      {"-2147483648", INT_MIN, INT_MIN},
      {"2147483648", kUnread, 2147483648LL},
      {"-2147483649", kUnread, -2147483649LL},
      {"4294967297", kUnread, 4294967297LL},
      {"9223372036854775808", kUnread, kUnread},
      {"-9223372036854775809", kUnread, kUnread},
      {"184467440737095516160000", kUnread, kUnread},
      {" \t-0012x", -12, -12},
      {"+7", 7, 7},
      {"- 7", kUnread, kUnread},
  };
  QlgProps* props = QlgProps_create();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    QlgProps_setString(props, "k", c.text);
    int found = -1;
    int32_t i = QlgProps_getInt(props, "k", &found);
    EXPECT_EQ(found, c.asInt != kUnread);
    EXPECT_EQ(i, c.asInt != kUnread ? c.asInt : 0);
    int64_t l = QlgProps_getInt64(props, "k", &found);
    EXPECT_EQ(found, c.asInt64 != kUnread);
    EXPECT_EQ(l, c.asInt64 != kUnread ? c.asInt64 : 0);
    EXPECT_EQ(QlgLevel_parse(c.text), c.asInt != kUnread ? c.asInt : int64_t{QLG_LEVEL_NONE})
        << "a level beyond int is no number and no word";
  }
  int found = 0;
  QlgProps_setString(props, "k", "9223372036854775807");
  EXPECT_EQ(QlgProps_getInt64(props, "k", &found), INT64_MAX);
  QlgProps_setString(props, "k", "-9223372036854775808");
  EXPECT_EQ(QlgProps_getInt64(props, "k", &found), INT64_MIN);
  EXPECT_EQ(found, 1);
  QlgProps_destroy(props);
}

/* The readers' fallbacks: a file handler whose sizes cannot be read takes
   1024 bytes (rollover stays on) and 3 files; a source line of INT_MIN is
   printed as it is. */
TEST(NumericProperty, OutOfRangeHandlerSettingsFallBackAndTheLowestLinePrints) {
  inChild([] {
    TempDir dir;
    std::string path = dir.write("t.properties",
                                 "fh.className=qlg_filehandler\n"
                                 "fh.fileName=" + dir.file("t.log") + "\n"
                                 "fh.maxFileSize=9223372036854775808\n"
                                 "fh.maxFiles=4294967297\n"
                                 "app.className=qlg_basiclogger\n"
                                 "app.level=ALL\n"
                                 "app.listenerNames=out\n"
                                 "out.className=qlg_consolehandler\n");
    ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
    QlgObject* fh = QlgObject_create("fh", nullptr);
    ASSERT_NE(QlgFileHandler_data(fh), nullptr);
    EXPECT_EQ(QlgFileHandler_data(fh)->maxFileSize, 1024);
    EXPECT_EQ(QlgFileHandler_data(fh)->maxFiles, 3);
    QlgObject_release(fh);
    QlgObject* app = QlgObject_create("app", nullptr);
    CaptureFd out(1);
    QlgLogger_logMax(app, "f.c", "fn", static_cast<uint32_t>(INT_MIN), "low", 0);
    std::string printed = out.text();
    EXPECT_NE(printed.find("-2147483648"), std::string::npos) << printed;
    QlgObject_release(app);
  });
}

}  // namespace
