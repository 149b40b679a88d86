// SPDX-License-Identifier: Apache-2.0
/*
 * CxWatch on Linux: inotify.  The file's own watch reports a rename of the
 * file and a change of its link count (removal); the directory's watch
 * reports the name being removed, renamed away or replaced, and the
 * directory itself going.  The queue is read without blocking; events
 * about other names in the directory are read and dropped.
 *
 * Reading the queue on every record is a system call, and on a machine
 * where a system call costs a microsecond that is as much as the write.
 * So the queue gets a doorbell: an io_uring that polls it, set up so that
 * its completions wait until asked for (DEFER_TASKRUN) and the kernel flags
 * waiting work in the ring's shared memory (TASKRUN_FLAG).  The kernel sets
 * that flag inside the call that queues the event, i.e. before another
 * program's unlink or rename returns, so a record written after the removal
 * sees it: asking is then a load from memory.  Once rung, the bell is taken
 * down, the queue read, and a new bell put up (about 70 us), after a pause
 * when it rings often, so a busy directory costs no more than the plain
 * read.  Without io_uring (an old kernel, a sandbox that forbids it) every
 * ask reads the queue.
 *
 * The ring belongs to the thread that set it up: when that thread ends, the
 * kernel runs the ring's pending work, clearing the flag an instant before
 * it posts the completion.  So a thread that ends marks its bells as
 * orphaned first, and an orphaned bell counts as rung.
 */
#include "platform/CxWatch.h"

#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <new>

#include "util/CxHot.h"

#if defined(__linux__)
#include <poll.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#if __has_include(<linux/io_uring.h>) && defined(__NR_io_uring_setup)
#include <linux/io_uring.h>
#if defined(IORING_SETUP_DEFER_TASKRUN) && defined(IORING_SETUP_TASKRUN_FLAG)
#define CX_WATCH_BELL 1
#include <sys/eventfd.h>
#endif
#endif
#endif

#if defined(__linux__)
namespace {

/* Forks seen by this process: a child must not read the parent's queue. */
std::atomic<unsigned> s_forks{0};

void countFork() { s_forks.fetch_add(1, std::memory_order_relaxed); }

void registerForkCount() {
  static const int registered = pthread_atfork(nullptr, nullptr, countFork);
  (void)registered;
}

}  // namespace
#endif

#if defined(CX_WATCH_BELL)
namespace {

/* The thread that set a bell up; shared by it and its bells. */
struct Owner {
  std::atomic<int> gone{0};
  std::atomic<int> refs{1};
};

void release(Owner* o) {
  if (o && o->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete o;
}

Owner* t_owner = nullptr;
bool t_ending = false;

struct OwnerEnd {
  bool armed = false;
  ~OwnerEnd() {
    t_ending = true;
    if (Owner* o = t_owner) {
      t_owner = nullptr;
      /* A full barrier: seen before anything the kernel writes for this
         thread's exit. */
      o->gone.exchange(1, std::memory_order_seq_cst);
      release(o);
    }
  }
};
thread_local OwnerEnd t_ownerEnd;

/* This thread's cell, one more reference to it; null while it ends. */
Owner* currentOwner() {
  if (t_ending) return nullptr;
  if (!t_owner) {
    t_owner = new (std::nothrow) Owner;
    if (!t_owner) return nullptr;
    t_ownerEnd.armed = true;
  }
  t_owner->refs.fetch_add(1, std::memory_order_relaxed);
  return t_owner;
}

/* A bell costs about as much as 60 reads of the queue; one that answers
   fewer quiet asks than this before it rings has not paid for itself. */
const unsigned kBellQuiet = 512;
const unsigned kMaxPause = 4096;

}  // namespace

struct CxWatchBell {
  int ringFd; /* -1 while down */
  void* ring;
  size_t ringLen;
  void* sqes;
  size_t sqesLen;
  const unsigned* sqFlags;
  const unsigned* cqTail;
  unsigned cqSeen;
  Owner* owner;
  unsigned asks;  /* quiet asks since the bell went up */
  unsigned quiet; /* quiet reads since it came down */
  unsigned pause; /* quiet reads to wait before putting it up again */
};

namespace {

inline bool rang(const CxWatchBell* b) {
  return (__atomic_load_n(b->sqFlags, __ATOMIC_ACQUIRE) & IORING_SQ_TASKRUN) != 0 ||
         __atomic_load_n(b->cqTail, __ATOMIC_ACQUIRE) != b->cqSeen ||
         b->owner->gone.load(std::memory_order_acquire) != 0;
}

void takeDown(CxWatchBell* b) {
  if (b->ringFd < 0) return;
  if (b->sqes != MAP_FAILED) munmap(b->sqes, b->sqesLen);
  if (b->ring != MAP_FAILED) munmap(b->ring, b->ringLen);
  close(b->ringFd);
  release(b->owner);
  b->ringFd = -1;
  b->owner = nullptr;
}

/* Puts a bell up on fd: one poll for input, submitted by this thread. */
bool putUp(CxWatchBell* b, int fd) {
  Owner* owner = currentOwner();
  if (!owner) return false;
  struct io_uring_params p;
  memset(&p, 0, sizeof p);
  p.flags = IORING_SETUP_SINGLE_ISSUER | IORING_SETUP_DEFER_TASKRUN | IORING_SETUP_TASKRUN_FLAG;
  int ringFd = (int)syscall(__NR_io_uring_setup, 1, &p);
  if (ringFd < 0) {
    release(owner);
    return false;
  }
  size_t sqLen = p.sq_off.array + p.sq_entries * sizeof(unsigned);
  size_t cqLen = p.cq_off.cqes + p.cq_entries * sizeof(struct io_uring_cqe);
  size_t ringLen = sqLen > cqLen ? sqLen : cqLen;
  size_t sqesLen = p.sq_entries * sizeof(struct io_uring_sqe);
  void* ring = MAP_FAILED;
  void* sqes = MAP_FAILED;
  if (p.features & IORING_FEAT_SINGLE_MMAP) {
    ring = mmap(nullptr, ringLen, PROT_READ | PROT_WRITE, MAP_SHARED, ringFd, IORING_OFF_SQ_RING);
    sqes = mmap(nullptr, sqesLen, PROT_READ | PROT_WRITE, MAP_SHARED, ringFd, IORING_OFF_SQES);
  }
  b->ringFd = ringFd;
  b->ring = ring;
  b->ringLen = ringLen;
  b->sqes = sqes;
  b->sqesLen = sqesLen;
  b->owner = owner;
  if (ring == MAP_FAILED || sqes == MAP_FAILED) {
    takeDown(b);
    return false;
  }
  char* base = static_cast<char*>(ring);
  b->sqFlags = reinterpret_cast<const unsigned*>(base + p.sq_off.flags);
  b->cqTail = reinterpret_cast<const unsigned*>(base + p.cq_off.tail);
  /* Before submitting: a queue that is readable already completes the poll
     at once, and that completion must count as a ring. */
  b->cqSeen = __atomic_load_n(b->cqTail, __ATOMIC_ACQUIRE);
  struct io_uring_sqe* sqe = static_cast<struct io_uring_sqe*>(sqes);
  memset(sqe, 0, sizeof *sqe);
  sqe->opcode = IORING_OP_POLL_ADD;
  sqe->fd = fd;
  unsigned events = POLLIN;
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  events = events << 16 | events >> 16; /* the kernel reads it as two halves */
#endif
  sqe->poll32_events = events;
  unsigned* tail = reinterpret_cast<unsigned*>(base + p.sq_off.tail);
  unsigned at = *tail;
  reinterpret_cast<unsigned*>(base + p.sq_off.array)[at & (p.sq_entries - 1)] = 0;
  __atomic_store_n(tail, at + 1, __ATOMIC_RELEASE);
  long n;
  do n = syscall(__NR_io_uring_enter, ringFd, 1, 0, 0, nullptr, 0);
  while (n < 0 && errno == EINTR);
  if (n != 1) {
    takeDown(b);
    return false;
  }
  b->asks = 0;
  return true;
}

/* Whether a bell rings in the call that wakes what it polls, here and now:
   io_uring may be missing, forbidden, or too old for the two flags. */
bool bellsWork() {
  static const bool works = [] {
    int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd < 0) return false;
    CxWatchBell b;
    memset(&b, 0, sizeof b);
    b.ringFd = -1;
    bool ok = putUp(&b, fd) && !rang(&b);
    uint64_t one = 1;
    ok = ok && write(fd, &one, sizeof one) == (ssize_t)sizeof one && rang(&b);
    takeDown(&b);
    close(fd);
    return ok;
  }();
  return works;
}

}  // namespace
#endif

extern "C" {

int CxWatch_active(const CxWatch* w) { return w && w->fd >= 0; }

void CxWatch_init(CxWatch* w) {
  if (!w) return;
  w->fd = -1;
  w->fileWd = -1;
  w->dirWd = -1;
  w->name[0] = '\0';
  w->forks = 0;
  w->bell = nullptr;
}

void CxWatch_stop(CxWatch* w) {
  if (!w) return;
  if (w->fd >= 0) close(w->fd);
#if defined(CX_WATCH_BELL)
  if (w->bell) {
    takeDown(w->bell);
    delete w->bell;
  }
#endif
  CxWatch_init(w);
}

#if defined(__linux__)

namespace {

/* Reads the queue dry.  1 when the file or its name may have changed;
   *seen tells whether anything at all was queued. */
int drain(CxWatch* w, bool* seen) {
  *seen = false;
  int changed = 0;
  alignas(struct inotify_event) char buf[4096];
  for (;;) {
    ssize_t got = read(w->fd, buf, sizeof buf);
    if (got < 0) {
      if (errno == EINTR) continue;
      /* EAGAIN: nothing queued.  Anything else: the queue is unusable, so
         the caller must look for itself. */
      if (errno != EAGAIN) *seen = true;
      return changed || errno != EAGAIN;
    }
    *seen = true;
    if (got == 0) return 1;
    size_t at = 0;
    while (at + sizeof(struct inotify_event) <= (size_t)got) {
      const struct inotify_event* ev = reinterpret_cast<const struct inotify_event*>(buf + at);
      size_t next = at + sizeof(struct inotify_event) + ev->len;
      if (next > (size_t)got) return 1; /* a torn record: do not trust the rest */
      if (ev->wd != w->dirWd) {
        changed = 1; /* the file's watch, an overflow or an unknown watch */
      } else if (ev->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) {
        changed = 1;
      } else if (ev->len > 0 && strncmp(ev->name, w->name, ev->len) == 0) {
        changed = 1;
      }
      at = next;
    }
    if ((size_t)got < sizeof buf / 2) return changed;
  }
}

}  // namespace

int CxWatch_start(CxWatch* w, const char* path) {
  if (!w) return 0;
  CxWatch_stop(w);
  if (!path || !*path) return 0;
  const char* slash = strrchr(path, '/');
  const char* name = slash ? slash + 1 : path;
  size_t nameLen = strlen(name);
  size_t dirLen = slash ? (size_t)(slash - path) : 0;
  char dir[4096];
  if (nameLen == 0 || nameLen > CX_WATCH_NAME_MAX || dirLen >= sizeof dir) return 0;
  if (!slash) {
    strcpy(dir, ".");
  } else if (dirLen == 0) {
    strcpy(dir, "/");
  } else {
    memcpy(dir, path, dirLen);
    dir[dirLen] = '\0';
  }
  registerForkCount();
  int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) return 0;
  int fileWd = inotify_add_watch(fd, path, IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF);
  int dirWd = inotify_add_watch(fd, dir, IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE |
                                             IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
  if (fileWd < 0 || dirWd < 0) {
    close(fd);
    return 0;
  }
  w->fd = fd;
  w->fileWd = fileWd;
  w->dirWd = dirWd;
  memcpy(w->name, name, nameLen + 1);
  w->forks = s_forks.load(std::memory_order_relaxed);
#if defined(CX_WATCH_BELL)
  if (bellsWork()) {
    w->bell = new (std::nothrow) CxWatchBell;
    if (w->bell) {
      memset(w->bell, 0, sizeof *w->bell);
      w->bell->ringFd = -1;
      putUp(w->bell, fd);
    }
  }
#endif
  return 1;
}

CX_HOT int CxWatch_changed(CxWatch* w) {
  if (!w || w->fd < 0) return 1;
  if (w->forks != s_forks.load(std::memory_order_relaxed)) {
    CxWatch_stop(w);
    return 1;
  }
#if defined(CX_WATCH_BELL)
  CxWatchBell* b = w->bell;
  if (b && b->ringFd >= 0) {
    if (!rang(b)) {
      b->asks++;
      return 0;
    }
    /* Rung soon after going up: the directory is busy, so wait longer
       before the next one; a bell that paid for itself waits less. */
    if (b->asks < kBellQuiet) {
      b->pause = b->pause ? b->pause * 2 : 1;
      if (b->pause > kMaxPause) b->pause = kMaxPause;
    } else {
      b->pause /= 2;
    }
    b->quiet = 0;
    takeDown(b);
  }
#endif
  bool seen;
  int changed = drain(w, &seen);
#if defined(CX_WATCH_BELL)
  if (b && b->ringFd < 0) {
    if (seen) {
      b->quiet = 0;
    } else if (++b->quiet > b->pause && !putUp(b, w->fd)) {
      /* No bell to be had now: read for a while before trying again. */
      b->quiet = 0;
      b->pause = kMaxPause;
    }
  }
#endif
  return changed;
}

#else

int CxWatch_start(CxWatch* w, const char*) {
  CxWatch_init(w);
  return 0;
}

int CxWatch_changed(CxWatch*) { return 1; }

#endif

}  // extern "C"
