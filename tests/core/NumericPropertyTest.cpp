// SPDX-License-Identifier: Apache-2.0
// Numbers beyond their type: an integer property or a level outside its
// range cannot be read (found 0, then the reader's fallback), it never
// wraps around nor overflows; the extreme values themselves read exactly.
#include <ardel/QlgLevel.h>
#include <ardel/QlgProps.h>

#include <climits>

#include "support/TestSupport.h"

namespace {

const int64_t kNo = INT64_MIN + 1; /* in the table: cannot be read */

TEST(NumericProperty, NumbersBeyondTheirTypeCannotBeReadAndTheEdgesReadExactly) {
  const struct { const char* text; int64_t asInt, asInt64; } cases[] = {
      {"2147483647", INT_MAX, INT_MAX},        {"-2147483648", INT_MIN, INT_MIN},
      {"2147483648", kNo, 2147483648LL},       {"-2147483649", kNo, -2147483649LL},
      {"4294967297", kNo, 4294967297LL},       {"9223372036854775807", kNo, INT64_MAX},
      {"-9223372036854775808", kNo, INT64_MIN}, {"9223372036854775808", kNo, kNo},
      {"-9223372036854775809", kNo, kNo},      {"184467440737095516160000", kNo, kNo},
      {" \t-0012x", -12, -12},                 {"- 7", kNo, kNo},
  };
  QlgProps* props = QlgProps_create();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    QlgProps_setString(props, "k", c.text);
    int found = -1;
    EXPECT_EQ(QlgProps_getInt(props, "k", &found), c.asInt != kNo ? c.asInt : 0);
    EXPECT_EQ(found, c.asInt != kNo);
    EXPECT_EQ(QlgProps_getInt64(props, "k", &found), c.asInt64 != kNo ? c.asInt64 : 0);
    EXPECT_EQ(found, c.asInt64 != kNo);
    EXPECT_EQ(QlgLevel_parse(c.text), c.asInt != kNo ? c.asInt : int64_t{QLG_LEVEL_NONE});
  }
  QlgProps_destroy(props);
}

}  // namespace
