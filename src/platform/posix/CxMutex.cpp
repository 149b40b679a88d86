// SPDX-License-Identifier: Apache-2.0
/*
 * CxMutex on POSIX.  Both kinds share one record: an in-process lock with
 * its holder and depth (recursion is counted here, so a hold taken again
 * costs no atomic operation), plus, for a named mutex, a descriptor of its
 * lock file.  The in-process lock keeps the threads of one handle apart,
 * and the cross-process part is taken by the thread's outermost hold only.
 * On Linux the in-process lock is a futex word: the toolkit takes and
 * gives back its lock twice per record, and a free lock then costs one
 * atomic operation each way and no call into the C library.
 *
 * On Linux the cross-process part is a lock word in the lock file, mapped
 * by every process, so that taking and releasing a free mutex costs no
 * system call; waiters sleep on it with futex.  The word holds the
 * holder's slot, a waiters bit and a count of acquisitions.  Each handle
 * owns its slot through an open-file-description lock on one byte of the
 * file past the word: the kernel drops that lock when the handle is closed
 * or its process dies, whatever its pid namespace, so a waiter that finds
 * the holder's slot unlocked takes the mutex over (a dead holder never
 * blocks the others for longer than one wait slice).  A handle that claims
 * a slot first frees the word of a dead predecessor in that slot.  The
 * word comes from a file every user may write: it is only ever read and
 * swapped as a whole, so a bad value can delay a writer, never mislead it
 * into memory it does not own.
 *
 * Elsewhere the cross-process part is flock on the handle's own open file
 * description: unlike fcntl record locks it is not per process (two
 * handles in one process exclude each other) and closing some other
 * descriptor of the same file does not drop it; the kernel drops it when
 * the holder dies.  flock has no time limit: a timed wait polls with a
 * short, growing pause.
 */
#include "platform/CxMutex.h"

#include <ardel/QlgMem.h>

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <new>

#include "util/CxHot.h"

#if defined(__linux__)
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#define CX_MUTEX_WORD 1
#else
#define CX_MUTEX_WORD 0
#endif

struct CxMutex {
#if CX_MUTEX_WORD
  std::atomic<uint32_t> state; /* the in-process lock: 0 free, 1 held, 2 held with sleepers */
#else
  pthread_mutex_t inner; /* the in-process lock (not recursive: depth counts) */
#endif
  std::atomic<const void*> owner; /* the holding thread's marker, null when free */
  int fd;                /* lock file of a named mutex, -1 for an unnamed one */
  int depth;             /* holds of the owning thread; changed only by the holder */
  uint64_t* word;        /* the mapped lock word; null where flock is used */
  uint32_t slot;         /* this handle's slot + 1, as the word names its holder */
};

namespace {


CxStatus invalid() { return CxStatus_make('p', EINVAL); }
CxStatus timedOut() { return CxStatus_make('w', CX_MUTEX_TIMED_OUT); }

/* Who holds the in-process lock: the address of a thread-local byte, unique
   among the threads alive, read without a call (initial-exec). */
thread_local char t_self QLG_TLS_IE;

bool heldByCaller(const CxMutex* m) { return m->owner.load(std::memory_order_relaxed) == &t_self; }

CxStatus newMutex(CxMutex** out, int fd) {
  CxMutex* m = (CxMutex*)QlgMem_alloc(sizeof(CxMutex));
  if (!m) return CxStatus_make('p', ENOMEM);
#if CX_MUTEX_WORD
  new (&m->state) std::atomic<uint32_t>(0);
#else
  int rc = pthread_mutex_init(&m->inner, nullptr);
  if (rc != 0) {
    QlgMem_free(m);
    return CxStatus_make('p', rc);
  }
#endif
  new (&m->owner) std::atomic<const void*>(nullptr);
  m->fd = fd;
  m->depth = 0;
  m->word = nullptr;
  m->slot = 0;
  *out = m;
  return CxStatus_ok();
}

/* Opens the lock file, falling back to weaker access when another user
   created it: a lock needs neither write access nor creation rights.
   O_NOFOLLOW and O_NONBLOCK keep a planted symbolic link or FIFO in the
   shared directory from redirecting or stalling us. */
int openLockFile(const char* path, bool create) {
  const int common = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  /* The lock word needs write access: no read-only fallback there. */
  const int tries[] = {O_RDWR | (create ? O_CREAT : 0), O_RDWR, CX_MUTEX_WORD ? O_RDWR : O_RDONLY};
  int fd = -1;
  for (int flags : tries) {
    do {
      fd = open(path, flags | common, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd >= 0 || errno != EACCES) break;
  }
  if (fd < 0) return -1;
  struct stat st;
  int e = fstat(fd, &st) != 0 ? errno : (S_ISREG(st.st_mode) ? 0 : EINVAL);
  if (e != 0) {
    close(fd);
    errno = e;
    return -1;
  }
  /* The umask narrowed the creation mode; widen it so that processes of
     other users can open the file too.  Only the owner can, and a failure
     only limits sharing, so it is not an error. */
  if (st.st_uid == geteuid() && (st.st_mode & 0777) != 0666) (void)fchmod(fd, 0666);
  return fd;
}

void deadlineAfter(struct timespec* d, int32_t ms) {
  clock_gettime(CLOCK_MONOTONIC, d);
  d->tv_sec += ms / 1000;
  d->tv_nsec += (long)(ms % 1000) * 1000000L;
  if (d->tv_nsec >= 1000000000L) {
    d->tv_sec++;
    d->tv_nsec -= 1000000000L;
  }
}

/* Milliseconds left until d, rounded up; 0 once it has passed. */
int64_t msLeft(const struct timespec* d) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  int64_t ns = (int64_t)(d->tv_sec - now.tv_sec) * 1000000000LL + (d->tv_nsec - now.tv_nsec);
  return ns <= 0 ? 0 : (ns + 999999) / 1000000;
}

#if !CX_MUTEX_WORD
const int kPollMaxMs = 16;

void sleepUs(int64_t us) {
  struct timespec t;
  t.tv_sec = (time_t)(us / 1000000);
  t.tv_nsec = (long)(us % 1000000) * 1000L;
  while (nanosleep(&t, &t) != 0 && errno == EINTR) {
  }
}

/* The cross-process half: 0, ETIMEDOUT, or the errno of flock. */
int lockFile(int fd, const struct timespec* deadline) {
  if (!deadline) {
    while (flock(fd, LOCK_EX) != 0) {
      if (errno != EINTR) return errno;
    }
    return 0;
  }
  /* Holders keep the lock for one record, a few microseconds: a waiter
     first yields a few times, then sleeps from 20 us up, doubling. */
  int64_t pauseUs = 0;
  for (int attempt = 0;; attempt++) {
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) return 0;
    if (errno != EWOULDBLOCK && errno != EINTR) return errno;
    int64_t left = msLeft(deadline);
    if (left <= 0) return ETIMEDOUT;
    if (attempt < 4) {
      sched_yield();
      continue;
    }
    pauseUs = pauseUs ? pauseUs * 2 : 20;
    if (pauseUs > kPollMaxMs * 1000) pauseUs = kPollMaxMs * 1000;
    sleepUs(pauseUs < left * 1000 ? pauseUs : left * 1000);
  }
}
#endif

#if CX_MUTEX_WORD
/* The lock word: bits 0-30 the holder's slot + 1 (0: free), bit 31 set
   while someone sleeps on it, bits 32-63 counting acquisitions, so that a
   take-over compares against the very hold it found abandoned.  futex
   works on the 32-bit half with holder and waiters bit. */
const uint64_t kHolder = 0x7fffffffu;
const uint64_t kWaiters = 0x80000000u;
const uint64_t kLow = 0xffffffffu;
const off_t kWordBytes = 64;
/* The holders' notes follow the word. */
const size_t kSharedOffset = 8;
static_assert(kSharedOffset + CX_MUTEX_SHARED_BYTES <= (size_t)kWordBytes, "notes fit the mapping");
/* Slot bytes lie past the word, where no one reads or writes. */
const off_t kSlotBase = 4096;
const uint32_t kSlots = 65536;
/* A holder keeps the mutex for one record, a few microseconds: a waiter
   spins this long before it sleeps, and sleeps at most one slice before
   it looks whether the holder is still there. */
const int kSpins = 200;
const int64_t kSliceMs = 50;

uint32_t* futexHalf(uint64_t* word) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return (uint32_t*)word;
#else
  return (uint32_t*)word + 1;
#endif
}

void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  __asm__ __volatile__("yield");
#endif
}

/* 0, or ETIMEDOUT/EAGAIN/EINTR: the caller looks at the word again. */
int futexWait(uint64_t* word, uint32_t expected, int64_t ms) {
  struct timespec t;
  t.tv_sec = (time_t)(ms / 1000);
  t.tv_nsec = (long)(ms % 1000) * 1000000L;
  return syscall(SYS_futex, futexHalf(word), FUTEX_WAIT, expected, &t, nullptr, 0) == 0 ? 0 : errno;
}

void futexWake(uint64_t* word, int count) {
  (void)syscall(SYS_futex, futexHalf(word), FUTEX_WAKE, count, nullptr, nullptr, 0);
}

struct flock slotRange(uint32_t slot, short type) {
  struct flock fl;
  memset(&fl, 0, sizeof fl);
  fl.l_type = type;
  fl.l_whence = SEEK_SET;
  fl.l_start = kSlotBase + (off_t)(slot - 1);
  fl.l_len = 1;
  return fl;
}

/* Is the holder named by the word gone (its slot lock dropped)? */
bool holderGone(const CxMutex* m, uint64_t v) {
  uint32_t slot = (uint32_t)(v & kHolder);
  if (slot == 0 || slot > kSlots) return slot != 0; /* a value no handle writes */
  struct flock fl = slotRange(slot, F_WRLCK);
  return fcntl(m->fd, F_OFD_GETLK, &fl) == 0 && fl.l_type == F_UNLCK;
}

uint64_t heldBy(uint64_t v, uint32_t slot, bool waiters) {
  return (((v >> 32) + 1) << 32) | slot | (waiters ? kWaiters : 0);
}

/* 0 or ETIMEDOUT; deadline null means no limit. */
int lockWord(CxMutex* m, const struct timespec* deadline) {
  uint64_t* w = m->word;
  uint64_t v = __atomic_load_n(w, __ATOMIC_RELAXED);
  bool slept = false;
  for (int spins = 0;;) {
    if ((v & kHolder) == 0) {
      /* One who slept may have company: the waiters bit stays set. */
      if (__atomic_compare_exchange_n(w, &v, heldBy(v, m->slot, slept || (v & kWaiters)), true,
                                      __ATOMIC_ACQUIRE, __ATOMIC_RELAXED))
        return 0;
      continue;
    }
    if (spins < kSpins) {
      spins++;
      cpuRelax();
      v = __atomic_load_n(w, __ATOMIC_RELAXED);
      continue;
    }
    if (!(v & kWaiters)) {
      if (!__atomic_compare_exchange_n(w, &v, v | kWaiters, true, __ATOMIC_RELAXED, __ATOMIC_RELAXED))
        continue;
      v |= kWaiters;
    }
    int64_t slice = kSliceMs;
    if (deadline) {
      int64_t left = msLeft(deadline);
      if (left <= 0) return ETIMEDOUT;
      if (left < slice) slice = left;
    }
    slept = true;
    int rc = futexWait(w, (uint32_t)(v & kLow), slice);
    uint64_t now = __atomic_load_n(w, __ATOMIC_RELAXED);
    /* The same hold for a whole slice: is its holder still there? */
    if (rc == ETIMEDOUT && now == v && holderGone(m, v) &&
        __atomic_compare_exchange_n(w, &now, heldBy(v, m->slot, true), false, __ATOMIC_ACQUIRE,
                                    __ATOMIC_RELAXED))
      return 0;
    v = now;
  }
}

/* 0, or EPERM when the word does not name this handle (someone wrote it). */
int unlockWord(CxMutex* m) {
  uint64_t* w = m->word;
  uint64_t v = __atomic_load_n(w, __ATOMIC_RELAXED);
  do {
    if ((v & kHolder) != m->slot) return EPERM;
  } while (!__atomic_compare_exchange_n(w, &v, v & ~kLow, true, __ATOMIC_RELEASE, __ATOMIC_RELAXED));
  if (v & kWaiters) futexWake(w, 1);
  return 0;
}

/* Maps the lock word and claims a free slot; 0 or an errno value. */
int attachWord(CxMutex* m) {
  struct stat st;
  if (fstat(m->fd, &st) != 0) return errno;
  /* Grown, never shrunk: another process may be using the word already. */
  if (st.st_size < kWordBytes && ftruncate(m->fd, kWordBytes) != 0) return errno;
  void* p = mmap(nullptr, (size_t)kWordBytes, PROT_READ | PROT_WRITE, MAP_SHARED, m->fd, 0);
  if (p == MAP_FAILED) return errno;
  m->word = (uint64_t*)p;
  static std::atomic<uint32_t> s_handles{0};
  uint32_t first = ((uint32_t)getpid() * 2654435761u + s_handles.fetch_add(1)) % kSlots;
  for (uint32_t i = 0; i < kSlots && m->slot == 0; i++) {
    uint32_t slot = (first + i) % kSlots + 1;
    struct flock fl = slotRange(slot, F_WRLCK);
    if (fcntl(m->fd, F_OFD_SETLK, &fl) == 0)
      m->slot = slot;
    else if (errno != EAGAIN && errno != EACCES && errno != EINTR)
      break;
  }
  if (m->slot == 0) {
    int e = errno == EAGAIN || errno == EACCES ? EAGAIN : errno;
    munmap(p, (size_t)kWordBytes);
    m->word = nullptr;
    return e;
  }
  /* The slot was free, so a hold in its name is a dead handle's. */
  uint64_t v = __atomic_load_n(m->word, __ATOMIC_RELAXED);
  while ((v & kHolder) == m->slot) {
    if (__atomic_compare_exchange_n(m->word, &v, v & ~kLow, true, __ATOMIC_RELEASE, __ATOMIC_RELAXED)) {
      futexWake(m->word, INT_MAX);
      break;
    }
  }
  return 0;
}
#endif

#if CX_MUTEX_WORD
/* The in-process half, a futex lock: taking and giving back a free lock is
   one atomic operation each; only a thread that finds it held sleeps.
   0 or ETIMEDOUT; deadline null means no limit. */
int lockInner(CxMutex* m, const struct timespec* deadline) {
  uint32_t c = 0;
  if (m->state.compare_exchange_strong(c, 1, std::memory_order_acquire, std::memory_order_relaxed))
    return 0;
  /* Held: mark it as having sleepers, then sleep until it is handed on. */
  if (c != 2) c = m->state.exchange(2, std::memory_order_acquire);
  while (c != 0) {
    struct timespec t, *timeout = nullptr;
    if (deadline) {
      int64_t left = msLeft(deadline);
      if (left <= 0) return ETIMEDOUT;
      t.tv_sec = (time_t)(left / 1000);
      t.tv_nsec = (long)(left % 1000) * 1000000L;
      timeout = &t;
    }
    (void)syscall(SYS_futex, &m->state, FUTEX_WAIT_PRIVATE, 2u, timeout, nullptr, 0);
    c = m->state.exchange(2, std::memory_order_acquire);
  }
  return 0;
}

int tryInner(CxMutex* m) {
  uint32_t c = 0;
  bool taken = m->state.compare_exchange_strong(c, 1, std::memory_order_acquire,
                                                std::memory_order_relaxed);
  return taken ? 0 : EBUSY;
}

void unlockInner(CxMutex* m) {
  if (m->state.exchange(0, std::memory_order_release) == 2)
    (void)syscall(SYS_futex, &m->state, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}
#else
/* The remaining time is carried over to the realtime clock of
   pthread_mutex_timedlock, which every C library knows. */
int lockInner(CxMutex* m, const struct timespec* deadline) {
  if (!deadline) return pthread_mutex_lock(&m->inner);
  int64_t left = msLeft(deadline);
  struct timespec abs;
  clock_gettime(CLOCK_REALTIME, &abs);
  abs.tv_sec += (time_t)(left / 1000);
  abs.tv_nsec += (long)(left % 1000) * 1000000L;
  if (abs.tv_nsec >= 1000000000L) {
    abs.tv_sec++;
    abs.tv_nsec -= 1000000000L;
  }
  return pthread_mutex_timedlock(&m->inner, &abs);
}

int tryInner(CxMutex* m) { return pthread_mutex_trylock(&m->inner); }

void unlockInner(CxMutex* m) { pthread_mutex_unlock(&m->inner); }
#endif

/* The cross-process part of the outermost hold: 0 or an errno value. */
int releaseShared(CxMutex* m) {
#if CX_MUTEX_WORD
  return unlockWord(m);
#else
  return flock(m->fd, LOCK_UN) == 0 ? 0 : errno;
#endif
}

/* Takes one hold; try: fail at once (EBUSY) when another thread holds it. */
CX_HOT CxStatus acquire(CxMutex* m, const struct timespec* deadline, bool tryOnly) {
  if (heldByCaller(m)) {
    m->depth++;
    return CxStatus_ok();
  }
  int rc = tryOnly ? tryInner(m) : lockInner(m, deadline);
  if (rc == ETIMEDOUT || rc == EBUSY) return timedOut();
  if (rc != 0) return CxStatus_make('p', rc);
  if (m->fd >= 0) {
    struct timespec now;
    if (tryOnly) {
      deadlineAfter(&now, 0);
      deadline = &now;
    }
#if CX_MUTEX_WORD
    rc = lockWord(m, deadline);
#else
    rc = lockFile(m->fd, deadline);
#endif
    if (rc != 0) {
      unlockInner(m);
      return rc == ETIMEDOUT ? timedOut() : CxStatus_make('p', rc);
    }
  }
  m->owner.store(&t_self, std::memory_order_relaxed);
  m->depth = 1;
  return CxStatus_ok();
}

/* The lock file's path for a name; 0 or an errno value. */
int lockFilePath(const char* name, char* path, size_t size) {
  if (!name || !*name || strchr(name, '/') || strlen(name) > CX_MUTEX_NAME_MAX) return EINVAL;
  const char* dir = getenv("TMPDIR");
  if (!dir || !*dir) dir = "/tmp";
  size_t dirLen = strlen(dir);
  const char* sep = dir[dirLen - 1] == '/' ? "" : "/";
  int n = snprintf(path, size, "%s%s%s", dir, sep, name);
  return n < 0 || (size_t)n >= size ? ENAMETOOLONG : 0;
}

CxStatus openNamed(CxMutex** out, const char* name, bool create) {
  if (!out) return invalid();
  *out = nullptr;
  char path[PATH_MAX];
  int e = lockFilePath(name, path, sizeof path);
  if (e != 0) return CxStatus_make('p', e);
  int fd = openLockFile(path, create);
  if (fd < 0) return CxStatus_make('p', errno);
  CxStatus s = newMutex(out, fd);
  if (!CxStatus_isOk(s)) {
    close(fd);
    return s;
  }
#if CX_MUTEX_WORD
  e = attachWord(*out);
  if (e != 0) {
    CxMutex_close(out);
    return CxStatus_make('p', e);
  }
#endif
  return s;
}

}  // namespace

extern "C" {

CxStatus CxMutex_create(CxMutex** out) {
  if (!out) return invalid();
  *out = nullptr;
  return newMutex(out, -1);
}

CxStatus CxMutex_createNamed(CxMutex** out, const char* name) { return openNamed(out, name, true); }

CxStatus CxMutex_openNamed(CxMutex** out, const char* name) { return openNamed(out, name, false); }

CxStatus CxMutex_removeNamed(const char* name) {
  char path[PATH_MAX];
  int e = lockFilePath(name, path, sizeof path);
  if (e != 0) return CxStatus_make('p', e);
  return unlink(path) == 0 ? CxStatus_ok() : CxStatus_make('p', errno);
}

CxStatus CxMutex_createKeyed(CxMutex** out, int32_t key) {
  char name[32];
  snprintf(name, sizeof name, "CX_SEM_KEY_%x", (unsigned)key);
  return CxMutex_createNamed(out, name);
}

CxStatus CxMutex_close(CxMutex** m) {
  if (!m || !*m) return invalid();
  CxMutex* mx = *m;
  *m = nullptr;
  CxStatus s = CxStatus_ok();
  /* Closed by the thread that holds it: every hold ends here. */
  if (heldByCaller(mx)) {
    if (mx->fd >= 0) (void)releaseShared(mx);
    mx->depth = 0;
    mx->owner.store(nullptr, std::memory_order_relaxed);
    unlockInner(mx);
  }
#if CX_MUTEX_WORD
  if (mx->word) munmap(mx->word, (size_t)kWordBytes);
#endif
  if (mx->fd >= 0 && close(mx->fd) != 0 && errno != EINTR) s = CxStatus_make('p', errno);
#if !CX_MUTEX_WORD
  int rc = pthread_mutex_destroy(&mx->inner);
  if (rc != 0 && CxStatus_isOk(s)) s = CxStatus_make('p', rc);
#endif
  QlgMem_free(mx);
  return s;
}

CX_HOT CxStatus CxMutex_lock(CxMutex* m) {
  if (!m) return invalid();
  return acquire(m, nullptr, false);
}

CX_HOT CxStatus CxMutex_tryLock(CxMutex* m) {
  if (!m) return invalid();
  return acquire(m, nullptr, true);
}

CxStatus CxMutex_lockTimed(CxMutex* m, int32_t ms) {
  if (!m) return invalid();
  struct timespec deadline;
  deadlineAfter(&deadline, ms < 0 ? 0 : ms);
  return acquire(m, &deadline, false);
}

CX_HOT CxStatus CxMutex_unlock(CxMutex* m) {
  if (!m) return invalid();
  if (!heldByCaller(m)) return CxStatus_make('p', EPERM);
  if (--m->depth > 0) return CxStatus_ok();
  CxStatus s = CxStatus_ok();
  if (m->fd >= 0) {
    int rc = releaseShared(m);
    if (rc != 0) s = CxStatus_make('p', rc);
  }
  m->owner.store(nullptr, std::memory_order_relaxed);
  unlockInner(m);
  return s;
}

void* CxMutex_shared(CxMutex* m) {
#if CX_MUTEX_WORD
  if (m && m->word) return (char*)m->word + kSharedOffset;
#endif
  (void)m;
  return nullptr;
}

}  // extern "C"
