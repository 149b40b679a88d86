// SPDX-License-Identifier: Apache-2.0
// ZMS message-ID recognition: the eleven admitted shapes, the order in which
// they are tried, and the overlap of a 10-character ID's terminator with the severity.
#include <cstring>

#include "msg/CxZMSID.h"
#include "support/TestSupport.h"

namespace {

TEST(CxZMSID, EachShapeIsRecognisedInTheDocumentedOrderAndEverythingElseGivesAnEmptyRecord) {
  const struct { const char *text, *shape; uint32_t number; int32_t length; char severity; } cases[] = {
      {"QLG003E rest", "ORX3.3.1", 331, 7, 'E'}, {"QLG0034E rest", "ORX3.4.1", 341, 8, 'E'},
      {"QLG00345W", "ORX3.5.1", 351, 9, 'W'}, {"QLG003456I", "ORX3.6.1", 361, 10, 0},
      {"ABCD123E", "ORX4.3.1", 431, 8, 'E'}, {"ABCD1234W", "ORX4.4.1", 441, 9, 'W'},
      {"ABCD12345I", "ORX4.5.1", 451, 10, 0}, {"QLGLG01E No listeners", "ORX5.2.1", 521, 8, 'E'},
      {"QLGBC123I", "ORX5.3.1", 531, 9, 'I'}, {"abcdef123W", "ORX6.3.1", 631, 10, 0},
      // a 10-character ID's terminator lands on the severity field
      {"QLGBC0020E Out of memory.", "ORX5.4.1", 541, 10, 0},
      // four letters: a severity at 7 is the 3-digit form, even with more digits after it
      {"ABCD123E4567", "ORX4.3.1", 431, 8, 'E'}, {"QLG0034Exyz", "ORX3.4.1", 341, 8, 'E'},
      // five letters, two digits: a severity at 8 alone takes the 3-digit shape; at 7 it wins first
      {"QLGBC12xE rest", "ORX5.3.1", 531, 9, 'E'}, {"QLGBC12WE", "ORX5.2.1", 521, 8, 'W'},
      {"ABCDEFG123E", "", 0, 0, 0}, {"QLGBC12xx", "", 0, 0, 0}, {"qlg0034e", "", 0, 0, 0},
      {"QL0034E", "", 0, 0, 0}, {"Q1234E", "", 0, 0, 0}, {"", "", 0, 0, 0}, {"QLG0034X", "", 0, 0, 0},
      {"QLG0034", "", 0, 0, 0}, {"QLG00E", "", 0, 0, 0}, {"QLGBC0020", "", 0, 0, 0}, {"QLGBCD0020E", "", 0, 0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    CxZMSID id;
    std::memset(&id, 0x5A, sizeof id);
    ASSERT_EQ(CxZMSID_parse(&id, c.text), &id);
    EXPECT_STREQ(id.shapeName, c.shape);
    EXPECT_EQ(id.shapeNumber, c.number);
    EXPECT_EQ(id.length, c.length);
    EXPECT_EQ(std::string(id.idText, static_cast<size_t>(c.length)), std::string(c.text, static_cast<size_t>(c.length)));
    EXPECT_EQ(id.idText[0] == '\0', c.length == 0);
    if (c.length < 10) { EXPECT_EQ(id.idText[c.length], 0); }
    EXPECT_EQ(id.severity, c.severity);
  }
  CxZMSID id;
  EXPECT_EQ(CxZMSID_parse(&id, nullptr), &id);
  EXPECT_EQ(id.length, 0);
  EXPECT_EQ(CxZMSID_parse(nullptr, "QLG0034E"), nullptr);
}

}  // namespace
