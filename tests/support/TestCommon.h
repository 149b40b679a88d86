// SPDX-License-Identifier: Apache-2.0
// The helpers that need no operating system of their own, shared by the
// POSIX and the Windows versions of TestSupport.h (included at their end,
// after CaptureFd).
#ifndef ARDEL_TESTS_COMMON_H
#define ARDEL_TESTS_COMMON_H

#include <functional>
#include <string>

#include <ardel/QlgMem.h>

#include "util/QlgMemTest.h"

namespace ardeltest {

// A status's origin and code as "o code", for one comparison per call.
#define STATUS_OF(call) ardeltest::statusOf(call)
inline std::string statusText(char origin, int code) {
  return origin == '-' ? "ok" : std::string(1, origin) + " " + std::to_string(code);
}
template <class Status>
std::string statusOf(const Status& s) {
  return statusText(s.origin, s.code);
}

// What body writes to standard error.
inline std::string stderrOf(const std::function<void()>& body) {
  CaptureFd err(2);
  body();
  return err.text();
}

// Runs op once after reset to count its allocations, then once per
// allocation with that one failing; check(i) runs after each failed run
// (the ASan build also checks that nothing leaked).
inline void sweepAllocations(const std::function<void()>& reset, const std::function<void()>& op,
                             const std::function<void(long)>& check) {
  reset();
  QlgMem_failAt(0);
  op();
  long total = QlgMem_allocCount();
  ASSERT_GT(total, 0);
  for (long i = 1; i <= total; i++) {
    SCOPED_TRACE("failing allocation " + std::to_string(i) + " of " + std::to_string(total));
    reset();
    QlgMem_failAt(i);
    op();
    EXPECT_TRUE(QlgMem_failed());
    QlgMem_failAt(0);
    check(i);
  }
}

}  // namespace ardeltest

#endif
