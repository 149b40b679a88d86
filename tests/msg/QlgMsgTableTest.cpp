/*
 * The built-in message table: indexed by key, placeholders numbered in key
 * order, every text ending in a carriage return, and the message IDs that
 * deliberately differ from their keys.
 */
#include <gtest/gtest.h>

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "msg/QlgMsgTable.h"

namespace {

bool isPlaceholder(const char* text) { return strncmp(text, "unused", 6) == 0; }

/* The digits of a message ID such as "QLGBC0020E" (after "QLG" and the
   component letters); -1 when the text does not begin with an ID. */
long idNumber(const char* text) {
  if (strncmp(text, "QLG", 3) != 0) return -1;
  const char* p = text + 3;
  while (isupper(static_cast<unsigned char>(*p))) ++p;
  if (!isdigit(static_cast<unsigned char>(*p))) return -1;
  char* end = nullptr;
  long n = strtol(p, &end, 10);
  if (!(*end == 'E' || *end == 'W' || *end == 'I') || end[1] != ' ') return -1;
  return n;
}

std::string idOf(unsigned key) {
  const char* text = QlgMsgTable_text(key);
  return std::string(text, strcspn(text, " "));
}

TEST(QlgMsgTable, EntryZeroIsTheCatalogNameAndKeysOutsideTheTableHaveNoText) {
  ASSERT_NE(QlgMsgTable_text(0), nullptr);
  EXPECT_STREQ(QlgMsgTable_text(0), "qlgmsg");
  EXPECT_NE(QlgMsgTable_text(QLG_MSG_TABLE_SIZE - 1), nullptr);
  EXPECT_EQ(QlgMsgTable_text(QLG_MSG_TABLE_SIZE), nullptr);
  EXPECT_EQ(QlgMsgTable_text(1000000u), nullptr);
}

TEST(QlgMsgTable, PlaceholdersAreNumberedConsecutivelyInKeyOrder) {
  int next = 0;
  for (unsigned key = 1; key < QLG_MSG_TABLE_SIZE; ++key) {
    const char* text = QlgMsgTable_text(key);
    ASSERT_NE(text, nullptr) << key;
    if (!isPlaceholder(text)) continue;
    char expected[16];
    snprintf(expected, sizeof expected, "unused%03d", next++);
    EXPECT_STREQ(text, expected) << "key " << key;
  }
  EXPECT_EQ(next, 108);
}

TEST(QlgMsgTable, EveryTextEndsWithOneCarriageReturnAndNoLineFeed) {
  int texts = 0;
  for (unsigned key = 1; key < QLG_MSG_TABLE_SIZE; ++key) {
    const char* text = QlgMsgTable_text(key);
    if (isPlaceholder(text)) continue;
    ++texts;
    size_t len = strlen(text);
    ASSERT_GT(len, 1u);
    EXPECT_EQ(text[len - 1], '\r') << "key " << key;
    EXPECT_EQ(strchr(text, '\r'), text + len - 1) << "key " << key;
    EXPECT_EQ(strchr(text, '\n'), nullptr) << "key " << key;
  }
  EXPECT_EQ(texts, 57);
}

TEST(QlgMsgTable, MessageIdsCarryTheirKeyExceptTheKnownShifts) {
  for (unsigned key = 1; key < QLG_MSG_TABLE_SIZE; ++key) {
    const char* text = QlgMsgTable_text(key);
    if (isPlaceholder(text) || (key >= 100 && key <= 142)) continue;
    long id = idNumber(text);
    ASSERT_GE(id, 0) << "key " << key << " has no message ID: " << text;
    long expected = key;
    if (key == 76) expected = 20;
    else if (key >= 93 && key <= 95) expected = key - 1;
    else if (key >= 151 && key <= 155) expected = key - 140;
    else if (key >= 160 && key <= 165) expected = key - 100;
    EXPECT_EQ(id, expected) << "key " << key << ": " << text;
  }
}

TEST(QlgMsgTable, ShortIdsAndShiftedIdsAreSpelledExactly) {
  const std::pair<unsigned, const char*> ids[] = {
      {1, "QLGLG01E"},    {2, "QLGBC02E"},    {3, "QLGBC03E"},    {4, "QLGBC04E"},
      {34, "QLG0034E"},   {51, "QLG0051E"},   {76, "QLGFF0020W"}, {93, "QLGWH0092E"},
      {95, "QLGWH0094W"}, {151, "QLGFF0011E"}, {155, "QLGFF0015I"}, {160, "QLGFF0060W"},
      {165, "QLGFF0065E"}};
  for (const auto& c : ids) EXPECT_EQ(idOf(c.first), c.second) << "key " << c.first;
  EXPECT_TRUE(isPlaceholder(QlgMsgTable_text(92)));
}

/* A key and its exact text. */
struct KeyText {
  unsigned key;
  const char* text;
};

TEST(QlgMsgTable, ClassDescriptionsSitAtKeys100To142WithoutIds) {
  const KeyText texts[] = {{100, "Logger for basic messages\r"},
                           {110, "Filters messages by level\r"},
                           {120, "Handles output to the console\r"},
                           {121, "Handles output to local log files\r"},
                           {130, "Formats a basic message summary.\r"},
                           {131, "Formats all message data as an XML record.\r"}};
  for (const auto& c : texts) EXPECT_STREQ(QlgMsgTable_text(c.key), c.text) << "key " << c.key;
  int descriptions = 0;
  for (unsigned key = 100; key <= 142; ++key) {
    const char* text = QlgMsgTable_text(key);
    if (isPlaceholder(text)) continue;
    ++descriptions;
    EXPECT_EQ(idNumber(text), -1) << "key " << key;
  }
  EXPECT_EQ(descriptions, 10);
}

TEST(QlgMsgTable, TextsKeepTheirHistoricalSpellingAndBlanks) {
  const KeyText texts[] = {
      {20, "QLGBC0020E Out of memory.\r"},
      {30, "QLGBC0030E A value must be specified for the property '%s' .\r"},
      {61, "QLGBC0061W Object '%1$s' exists but is of class '%2$s' instead of '%3$s' .\r"},
      {33, "QLGBC0033E A \"NULL\" value for parameter %1$s was passed to the function "
           "%2$s. The function call will be ignored.\r"},
      {165, "QLGFF0065E The specified zip command '%s'. does not exist or cannot be run.\r"},
      {75, "QLGMP0075W Could not set file %1s to permission mode %2o. The system error code "
           "is %3d.\r"}};
  for (const auto& c : texts) EXPECT_STREQ(QlgMsgTable_text(c.key), c.text) << "key " << c.key;
  EXPECT_NE(strstr(QlgMsgTable_text(154), "percent of the maxiumum disk space"), nullptr);
  EXPECT_NE(strstr(QlgMsgTable_text(161), "cannot be peformed since"), nullptr);
}

}  // namespace
