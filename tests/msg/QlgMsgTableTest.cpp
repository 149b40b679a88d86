// The built-in message table: indexed by key, every text ending in one
// carriage return, and the message IDs that deliberately differ from their keys.
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

#include "msg/QlgMsgTable.h"
#include "support/TestSupport.h"

namespace {

// The digits of a message ID such as "QLGBC0020E"; -1 when the text does not begin with one.
long idNumber(const char* text) {
  if (strncmp(text, "QLG", 3) != 0) return -1;
  const char* p = text + 3;
  while (isupper(static_cast<unsigned char>(*p))) ++p;
  if (!isdigit(static_cast<unsigned char>(*p))) return -1;
  char* end = nullptr;
  long n = strtol(p, &end, 10);
  return (*end == 'E' || *end == 'W' || *end == 'I') && end[1] == ' ' ? n : -1;
}

TEST(QlgMsgTable, TextsEndInOneCarriageReturnAndCarryTheirKeyExceptTheKnownShifts) {
  EXPECT_STREQ(QlgMsgTable_text(0), "qlgmsg");
  EXPECT_NE(QlgMsgTable_text(QLG_MSG_TABLE_SIZE - 1), nullptr);
  EXPECT_EQ(QlgMsgTable_text(QLG_MSG_TABLE_SIZE), nullptr);
  int texts = 0, descriptions = 0;
  for (unsigned key = 1; key < QLG_MSG_TABLE_SIZE; ++key) {
    const char* text = QlgMsgTable_text(key);
    ASSERT_NE(text, nullptr) << key;
    if (strncmp(text, "unused", 6) == 0) continue;
    ++texts;
    size_t len = strlen(text);
    EXPECT_EQ(strchr(text, '\r'), text + len - 1) << "key " << key;
    EXPECT_EQ(strchr(text, '\n'), nullptr) << "key " << key;
    long expected = key;
    if (key >= 100 && key <= 142) expected = -1, ++descriptions;  // class descriptions have no ID
    else if (key == 76) expected = 20;
    else if (key >= 93 && key <= 95) expected = key - 1;
    else if (key >= 151 && key <= 155) expected = key - 140;
    else if (key >= 160 && key <= 165) expected = key - 100;
    EXPECT_EQ(idNumber(text), expected) << "key " << key << ": " << text;
  }
  EXPECT_EQ(texts, 57);
  EXPECT_EQ(descriptions, 10);
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
