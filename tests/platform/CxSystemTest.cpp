/*
 * Host name and wall-clock time.
 */
#include <gtest/gtest.h>

#include <string.h>
#include <time.h>
#include <unistd.h>

#include "platform/CxSystem.h"

TEST(CxSystemHostName, IsNonEmptyAndStartsWithTheShortName) {
  char buf[256];
  CxStatus s = CxSystem_getHostName(buf, sizeof buf);
  /* A host the resolver does not know keeps its short name ('p' 40). */
  EXPECT_TRUE(CxStatus_isOk(s) || (s.origin == 'p' && s.code == 40));
  EXPECT_GT(strlen(buf), 0u);
  char shortName[256];
  ASSERT_EQ(gethostname(shortName, sizeof shortName), 0);
  EXPECT_EQ(strncmp(buf, shortName, strlen(shortName)), 0) << buf << " vs " << shortName;
}

TEST(CxSystemHostName, ADottedNameIsKeptWithoutLookup) {
  /* The .invalid domain never resolves, so success shows no lookup ran. */
  char buf[64] = "build01.example.invalid";
  EXPECT_TRUE(CxStatus_isOk(CxSystem_qualifyHostName(buf, sizeof buf)));
  EXPECT_STREQ(buf, "build01.example.invalid");
}

TEST(CxSystemHostName, AShortNameWhoseCanonicalNameHasNoDotStaysShort) {
  char buf[64] = "localhost";
  EXPECT_TRUE(CxStatus_isOk(CxSystem_qualifyHostName(buf, sizeof buf)));
  EXPECT_STREQ(buf, "localhost");
}

TEST(CxSystemHostName, ATooSmallBufferOrNullGivesAnErrorAndATerminatedBuffer) {
  char buf[256];
  ASSERT_EQ(gethostname(buf, sizeof buf), 0);
  if (strlen(buf) < 2) GTEST_SKIP() << "host name too short to cut";
  char tiny[2] = {'x', 'x'};
  CxStatus s = CxSystem_getHostName(tiny, sizeof tiny);
  if (CxStatus_isOk(s)) {
    EXPECT_EQ(tiny[1], '\0'); /* cut, but terminated */
  } else {
    EXPECT_EQ(s.origin, 'p');
    EXPECT_EQ(s.code, 40);
    EXPECT_EQ(tiny[0], '\0');
  }
  EXPECT_EQ(CxSystem_getHostName(nullptr, 10).code, 22);
  EXPECT_EQ(CxSystem_getHostName(buf, 0).code, 22);
}

TEST(CxSystemTime, MillisecondsAgreeWithTimeAndDoNotGoBack) {
  int64_t before = (int64_t)time(nullptr) * 1000;
  int64_t a = CxSystem_currentTimeMillis();
  int64_t b = CxSystem_currentTimeMillis();
  int64_t after = (int64_t)time(nullptr) * 1000 + 999;
  EXPECT_GE(a, before);
  EXPECT_LE(b, after);
  EXPECT_GE(b, a);
}

TEST(CxSystemTime, SleepLetsTheClockAdvance) {
  int64_t a = CxSystem_currentTimeMillis();
  CxSystem_sleepMillis(20);
  int64_t b = CxSystem_currentTimeMillis();
  EXPECT_GE(b - a, 19);
}
