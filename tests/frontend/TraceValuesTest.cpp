// SPDX-License-Identifier: Apache-2.0
/*
 * Trace statements take the wider C++ values a program streams: 64-bit
 * integers, floating point, std::string and const pointers (which must not
 * fall back to the bool operator).
 */
#include <ardel/Trace.h>

#include <climits>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

namespace {

class LastMessage : public Tracer {
 public:
  void log(int, const char*, int, const char*, const char* message) override { last = message; }
  void entry(int, const char*, int, const char*, const char*) override {}
  void exit(int, const char*, int, const char*, const char*) override {}
  void setLevel(int) override {}
  int getLevel() override { return 3; }
  std::string last;
};

template <typename T>
std::string streamed(const T& value) {
  LastMessage tracer;
  {
    Trace t(tracer, "");
    t << value << Trace::end;
  }
  return tracer.last;
}

}  // namespace

TEST(TraceValues, WideIntegersFloatsStringsAndConstPointers) {
  EXPECT_EQ(streamed(LLONG_MIN), "-9223372036854775808");
  EXPECT_EQ(streamed(ULLONG_MAX), "18446744073709551615");
  EXPECT_EQ(streamed(2.5), "2.5");
  EXPECT_EQ(streamed(1e-7), "1e-07");
  EXPECT_EQ(streamed(0.1f), "0.1");
  EXPECT_EQ(streamed(std::string("std ") + "string"), "std string");
  static const int x = 0;
  char want[32];
  snprintf(want, sizeof want, "%p", static_cast<const void*>(&x));
  EXPECT_EQ(streamed(static_cast<const void*>(&x)), want);
  EXPECT_EQ(streamed(&x), want) << "a const int* must print as an address, not as true";
}
