// SPDX-License-Identifier: Apache-2.0
// The built-in message table: indexed by key, every text ending in one
// carriage return, with the spelling users already search their logs for.
#include <cstring>
#include <string>

#include "msg/QlgMsgTable.h"
#include "support/TestSupport.h"

namespace {

TEST(QlgMsgTable, TextsAreIndexedByKeyAndEndInOneCarriageReturn) {
  EXPECT_STREQ(QlgMsgTable_text(0), "qlgmsg");
  EXPECT_EQ(QlgMsgTable_text(QLG_MSG_TABLE_SIZE), nullptr);
  for (unsigned key = 1; key < QLG_MSG_TABLE_SIZE; ++key) {
    const char* text = QlgMsgTable_text(key);
    ASSERT_NE(text, nullptr) << key;
    if (strncmp(text, "unused", 6) != 0) { EXPECT_EQ(strpbrk(text, "\r\n"), text + strlen(text) - 1) << key; }
  }
}

TEST(QlgMsgTable, TextsKeepTheirHistoricalSpellingAndBlanks) {
  const std::pair<unsigned, const char*> texts[] = {
      {1, "QLGLG01E No listeners are registered with the logger %s.\r"},
      {20, "QLGBC0020E Out of memory.\r"},
      {30, "QLGBC0030E A value must be specified for the property '%s' .\r"},
      {61, "QLGBC0061W Object '%1$s' exists but is of class '%2$s' instead of '%3$s' .\r"},
      {165, "QLGFF0065E The specified zip command '%s'. does not exist or cannot be run.\r"},
      {75, "QLGMP0075W Could not set file %1s to permission mode %2o. The system error code is %3d.\r"},
      {120, "Handles output to the console\r"}};
  for (const auto& c : texts) EXPECT_STREQ(QlgMsgTable_text(c.first), c.second) << "key " << c.first;
  EXPECT_NE(strstr(QlgMsgTable_text(154), "percent of the maxiumum disk space"), nullptr);
  EXPECT_NE(strstr(QlgMsgTable_text(161), "cannot be peformed since"), nullptr);
}

}  // namespace
