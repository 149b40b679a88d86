/*
 * The toolkit allocator: thin wrappers over malloc and friends, with a
 * counter and a one-shot failure switch so that tests can make any single
 * allocation fail.  The counter is a relaxed atomic: cheap, and exact
 * enough under the toolkit lock, where all toolkit allocation happens.
 */
#include <ardel/QlgMem.h>
#include "util/QlgMemTest.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {
std::atomic<long> g_count{0};
std::atomic<long> g_failAt{0};
std::atomic<int> g_failed{0};

/* True when this attempt is the one armed to fail. */
bool shouldFail() {
  long n = g_count.fetch_add(1, std::memory_order_relaxed) + 1;
  long at = g_failAt.load(std::memory_order_relaxed);
  if (at > 0 && n == at) {
    g_failAt.store(0, std::memory_order_relaxed);
    g_failed.store(1, std::memory_order_relaxed);
    return true;
  }
  return false;
}
}  // namespace

extern "C" {

void* QlgMem_alloc(size_t size) {
  if (shouldFail()) return nullptr;
  return std::malloc(size ? size : 1);
}

void* QlgMem_realloc(void* p, size_t size) {
  if (shouldFail()) return nullptr;
  return std::realloc(p, size ? size : 1);
}

void QlgMem_free(void* p) { std::free(p); }

char* QlgMem_strdup(const char* s) {
  if (!s) return nullptr;
  size_t n = std::strlen(s) + 1;
  char* copy = static_cast<char*>(QlgMem_alloc(n));
  if (copy) std::memcpy(copy, s, n);
  return copy;
}

long QlgMem_allocCount(void) { return g_count.load(std::memory_order_relaxed); }

void QlgMem_failAt(long n) {
  g_count.store(0, std::memory_order_relaxed);
  g_failed.store(0, std::memory_order_relaxed);
  g_failAt.store(n > 0 ? n : 0, std::memory_order_relaxed);
}

int QlgMem_failed(void) { return g_failed.load(std::memory_order_relaxed); }

}  // extern "C"
