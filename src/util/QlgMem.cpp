// SPDX-License-Identifier: Apache-2.0
/*
 * The toolkit allocator.  Every toolkit allocation goes through here, for
 * two reasons:
 *
 * - Tests can count allocation attempts and make any single one fail
 *   (QlgMemTest.h).  Counting starts with the first QlgMem_failAt call, so
 *   production code pays one relaxed load per allocation for it.
 * - A log call builds and frees a dozen small blocks (event, message,
 *   properties, texts) and two 1 KiB buffers.  Each thread keeps a short
 *   free list per size class, so those blocks are reused without a trip
 *   through malloc.  Every block carries a 16-byte header with its
 *   capacity, which also lets realloc grow in place within the class.
 *   Under AddressSanitizer, ThreadSanitizer or valgrind the lists are off,
 *   so the tools see every allocation and free as it happens.
 */
#include <ardel/QlgMem.h>
#include "util/CxHot.h"
#include "util/QlgMemTest.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

/* ---- test hooks ---- */

std::atomic<bool> g_counting{false};
std::atomic<long> g_count{0};
std::atomic<long> g_failAt{0};
std::atomic<int> g_failed{0};

/* True when this attempt is the one armed to fail. */
inline bool shouldFail() {
  if (!g_counting.load(std::memory_order_relaxed)) return false;
  long n = g_count.fetch_add(1, std::memory_order_relaxed) + 1;
  long at = g_failAt.load(std::memory_order_relaxed);
  if (at > 0 && n == at) {
    g_failAt.store(0, std::memory_order_relaxed);
    g_failed.store(1, std::memory_order_relaxed);
    return true;
  }
  return false;
}

/* ---- blocks and size classes ---- */

struct alignas(16) Header {
  size_t capacity; /* usable bytes after the header */
};
static_assert(sizeof(Header) == 16, "the header keeps malloc's 16-byte alignment");

const size_t kClassSize[] = {32, 64, 128, 256, 1024};
const int kClasses = sizeof kClassSize / sizeof kClassSize[0];

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#endif

/* Valgrind must see every free as it happens too, so under it the lists are
   off as well; that is known only once the program runs.  Until the depth
   is initialised it reads 0, which merely sends the first blocks straight
   to malloc and free. */
int cacheDepth() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return 0;
#elif defined(RUNNING_ON_VALGRIND)
  return RUNNING_ON_VALGRIND ? 0 : 64;
#else
  return 64;
#endif
}
const int kCacheDepth = cacheDepth();

/* Class of a request, or -1 for a block too large to cache. */
inline int classOf(size_t size) {
  for (int c = 0; c < kClasses; c++)
    if (size <= kClassSize[c]) return c;
  return -1;
}

/* Class whose capacity is exactly capacity, or -1. */
inline int classOfCapacity(size_t capacity) {
  int c = classOf(capacity);
  return c >= 0 && kClassSize[c] == capacity ? c : -1;
}

struct FreeBlock {
  FreeBlock* next;
};

/* Trivially destructible, so it stays usable while other thread-local
   destructors run; the guard below empties it when the thread ends. */
struct ThreadCache {
  FreeBlock* head[kClasses];
  int count[kClasses];
  bool closed;
};
thread_local ThreadCache t_cache QLG_TLS_IE;

void drain(ThreadCache& cache) {
  for (int c = 0; c < kClasses; c++) {
    while (FreeBlock* b = cache.head[c]) {
      cache.head[c] = b->next;
      std::free(reinterpret_cast<Header*>(b) - 1);
    }
    cache.count[c] = 0;
  }
}

struct CacheGuard {
  bool armed = false;
  ~CacheGuard() {
    t_cache.closed = true;
    drain(t_cache);
  }
};
thread_local CacheGuard t_guard QLG_TLS_IE;

inline void* newBlock(size_t size) {
  int c = classOf(size);
  if (c >= 0 && kCacheDepth > 0) {
    ThreadCache& cache = t_cache;
    if (FreeBlock* b = cache.head[c]) {
      cache.head[c] = b->next;
      cache.count[c]--;
      return b;
    }
    if (!cache.closed) t_guard.armed = true; /* registers the guard's destructor */
  }
  size_t capacity = c >= 0 ? kClassSize[c] : (size ? size : 1);
  Header* h = static_cast<Header*>(std::malloc(sizeof(Header) + capacity));
  if (!h) return nullptr;
  h->capacity = capacity;
  return h + 1;
}

inline void dropBlock(void* p) {
  Header* h = static_cast<Header*>(p) - 1;
  int c = classOfCapacity(h->capacity);
  if (c >= 0 && kCacheDepth > 0) {
    ThreadCache& cache = t_cache;
    if (!cache.closed && cache.count[c] < kCacheDepth) {
      FreeBlock* b = static_cast<FreeBlock*>(p);
      b->next = cache.head[c];
      cache.head[c] = b;
      cache.count[c]++;
      return;
    }
  }
  std::free(h);
}

}  // namespace

extern "C" {

void* QlgMem_alloc(size_t size) {
  if (shouldFail()) return nullptr;
  return newBlock(size);
}

void* QlgMem_realloc(void* p, size_t size) {
  if (shouldFail()) return nullptr;
  if (!p) return newBlock(size);
  Header* h = static_cast<Header*>(p) - 1;
  if (size <= h->capacity) return p;
  if (classOf(size) < 0 && classOfCapacity(h->capacity) < 0) {
    /* Large to large: let the C library move or extend it. */
    Header* grown = static_cast<Header*>(std::realloc(h, sizeof(Header) + size));
    if (!grown) return nullptr;
    grown->capacity = size;
    return grown + 1;
  }
  void* q = newBlock(size);
  if (!q) return nullptr;
  std::memcpy(q, p, h->capacity);
  dropBlock(p);
  return q;
}

CX_HOT void QlgMem_free(void* p) {
  if (p) dropBlock(p);
}

char* QlgMem_strdup(const char* s) {
  if (!s) return nullptr;
  size_t n = std::strlen(s) + 1;
  char* copy = static_cast<char*>(QlgMem_alloc(n));
  if (copy) std::memcpy(copy, s, n);
  return copy;
}

long QlgMem_allocCount(void) { return g_count.load(std::memory_order_relaxed); }

void QlgMem_failAt(long n) {
  g_counting.store(true, std::memory_order_relaxed);
  g_count.store(0, std::memory_order_relaxed);
  g_failed.store(0, std::memory_order_relaxed);
  g_failAt.store(n > 0 ? n : 0, std::memory_order_relaxed);
}

int QlgMem_failed(void) { return g_failed.load(std::memory_order_relaxed); }

}  // extern "C"
