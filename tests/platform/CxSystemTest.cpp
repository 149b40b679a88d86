// SPDX-License-Identifier: Apache-2.0
// Host name and wall-clock time.
#include <string.h>
#include <time.h>

#include "platform/CxSystem.h"
#include "support/TestSupport.h"

TEST(CxSystem, TheHostNameStartsWithTheShortNameAndIsKeptWhenDottedOrWithoutACanonicalDot) {
  char buf[256];
  CxStatus s = CxSystem_getHostName(buf, sizeof buf);
  EXPECT_TRUE(CxStatus_isOk(s) || (s.origin == 'p' && s.code == 40)) << "a host the resolver does not know stays short";
  std::string shortName = ardeltest::shortHostName();
  ASSERT_NE(shortName, "");
  EXPECT_EQ(std::string(buf).compare(0, shortName.size(), shortName), 0) << buf << " vs " << shortName;
  EXPECT_GT(strlen(buf), 0u);
  for (const char* name : {"build01.example.invalid", "localhost"}) {  // .invalid never resolves: no lookup ran
    char b[64];
    strcpy(b, name);
    EXPECT_TRUE(CxStatus_isOk(CxSystem_qualifyHostName(b, sizeof b)));
    EXPECT_STREQ(b, name);
  }
  char tiny[2] = {'x', 'x'};
  s = CxSystem_getHostName(tiny, sizeof tiny);
  if (shortName.size() >= 2) { EXPECT_TRUE(CxStatus_isOk(s) ? tiny[1] == '\0' : s.code == 40 && tiny[0] == '\0'); }
  EXPECT_EQ(CxSystem_getHostName(nullptr, 10).code, 22);
  EXPECT_EQ(CxSystem_getHostName(buf, 0).code, 22);
}

TEST(CxSystem, MillisecondsAgreeWithTimeAndSleepLetsTheClockAdvance) {
  int64_t before = static_cast<int64_t>(time(nullptr)) * 1000, a = CxSystem_currentTimeMillis();
  CxSystem_sleepMillis(20);
  int64_t b = CxSystem_currentTimeMillis(), after = static_cast<int64_t>(time(nullptr)) * 1000 + 999;
  EXPECT_TRUE(a >= before && b <= after);
  EXPECT_GE(b - a, 19);
}
