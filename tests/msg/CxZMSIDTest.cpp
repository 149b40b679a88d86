/*
 * ZMS message-ID recognition: the eleven admitted shapes, the order in which
 * they are tried, and the overlap of a 10-character ID's terminator with the
 * severity field.
 */
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "msg/CxZMSID.h"

namespace {

struct Shape {
  const char* text;
  const char* shape;
  uint32_t number;
  int32_t length;
};

const Shape kShapes[] = {
    {"QLG003E rest", "ORX3.3.1", 331, 7},      {"QLG0034E rest", "ORX3.4.1", 341, 8},
    {"QLG00345W", "ORX3.5.1", 351, 9},         {"QLG003456I", "ORX3.6.1", 361, 10},
    {"ABCD123E", "ORX4.3.1", 431, 8},          {"ABCD1234W", "ORX4.4.1", 441, 9},
    {"ABCD12345I", "ORX4.5.1", 451, 10},       {"QLGLG01E No listeners", "ORX5.2.1", 521, 8},
    {"QLGBC123I", "ORX5.3.1", 531, 9},         {"QLGBC0020E Out of memory.", "ORX5.4.1", 541, 10},
    {"abcdef123W", "ORX6.3.1", 631, 10},
};

TEST(CxZMSID, EachAdmittedShapeIsRecognisedWithItsNumberAndLength) {
  for (const Shape& s : kShapes) {
    SCOPED_TRACE(s.text);
    CxZMSID id;
    ASSERT_EQ(CxZMSID_parse(&id, s.text), &id);
    EXPECT_STREQ(id.shapeName, s.shape);
    EXPECT_EQ(id.shapeNumber, s.number);
    EXPECT_EQ(id.length, s.length);
    EXPECT_EQ(std::string(id.idText, static_cast<size_t>(s.length)), std::string(s.text, static_cast<size_t>(s.length)));
  }
}

TEST(CxZMSID, ShortIdsKeepTheirSeverityAndTerminator) {
  CxZMSID id;
  CxZMSID_parse(&id, "QLGLG01E No listeners");
  EXPECT_STREQ(id.idText, "QLGLG01E");
  EXPECT_EQ(id.severity, 'E');
  CxZMSID_parse(&id, "QLG00345W");
  EXPECT_EQ(id.severity, 'W');
}

TEST(CxZMSID, ATenCharacterIdsTerminatorLandsOnTheSeverityField) {
  CxZMSID id;
  CxZMSID_parse(&id, "QLGBC0020E Out of memory.");
  EXPECT_EQ(id.severity, '\0');
  EXPECT_EQ(id.idText[9], 'E') << "the severity is the ID text's last character";
  EXPECT_EQ(std::strncmp(id.idText, "QLGBC0020E", 10), 0);
}

TEST(CxZMSID, ShapesAreTriedInTheDocumentedOrder) {
  CxZMSID id;
  /* Four letters then digits: a severity at 7 is the 3-digit form... */
  EXPECT_STREQ(CxZMSID_parse(&id, "ABCD123E4567")->shapeName, "ORX4.3.1");
  /* ...a digit at 7 and a severity at 8 the 4-digit form. */
  EXPECT_STREQ(CxZMSID_parse(&id, "ABCD1234E")->shapeName, "ORX4.4.1");
  /* Six or more letters always take the 6-letter branch. */
  EXPECT_STREQ(CxZMSID_parse(&id, "ABCDEFG123E")->shapeName, "");
  /* Characters after the severity letter are not examined. */
  EXPECT_STREQ(CxZMSID_parse(&id, "QLG0034Exyz")->shapeName, "ORX3.4.1");
}

TEST(CxZMSID, FiveLettersTwoDigitsAndASeverityAtEightTakeTheThreeDigitShape) {
  /* After the two-digit and four-digit tests fail, a five-letter ID needs
     only its severity at position 8; position 7 is not examined again. */
  CxZMSID id;
  CxZMSID_parse(&id, "QLGBC12xE rest");
  EXPECT_STREQ(id.shapeName, "ORX5.3.1");
  EXPECT_EQ(id.shapeNumber, 531u);
  EXPECT_EQ(id.length, 9);
  EXPECT_STREQ(id.idText, "QLGBC12xE");
  EXPECT_EQ(id.severity, 'E');
  /* A severity at 7 still wins first: the two-digit shape. */
  EXPECT_STREQ(CxZMSID_parse(&id, "QLGBC12WE")->shapeName, "ORX5.2.1");
  /* Without a severity at 8 nothing fits. */
  EXPECT_STREQ(CxZMSID_parse(&id, "QLGBC12xx")->shapeName, "");
}

TEST(CxZMSID, ALowerCaseSeverityIsNotRecognised) {
  CxZMSID id;
  CxZMSID_parse(&id, "qlg0034e");
  EXPECT_STREQ(id.shapeName, "");
  EXPECT_EQ(id.shapeNumber, 0u);
  EXPECT_EQ(id.length, 0);
}

TEST(CxZMSID, UnrecognisedTextsYieldAnEmptyRecord) {
  const char* texts[] = {"QL0034E", "Q1234E", "", "QLG0034X", "QLG0034", "QLG00E", "QLGBC0020", "QLGBCD0020E"};
  for (const char* t : texts) {
    SCOPED_TRACE(t);
    CxZMSID id;
    std::memset(&id, 0x5A, sizeof(id));
    CxZMSID_parse(&id, t);
    EXPECT_STREQ(id.shapeName, "");
    EXPECT_EQ(id.shapeNumber, 0u);
    EXPECT_EQ(id.length, 0);
    EXPECT_EQ(id.idText[0], '\0');
    EXPECT_EQ(id.severity, '\0');
  }
}

TEST(CxZMSID, NullArgumentsAreTolerated) {
  CxZMSID id;
  std::memset(&id, 0x5A, sizeof(id));
  EXPECT_EQ(CxZMSID_parse(&id, nullptr), &id);
  EXPECT_STREQ(id.shapeName, "");
  EXPECT_EQ(id.length, 0);
  EXPECT_EQ(CxZMSID_parse(nullptr, "QLG0034E"), nullptr);
}

}  // namespace
