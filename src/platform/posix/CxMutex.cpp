// SPDX-License-Identifier: Apache-2.0
/*
 * CxMutex on POSIX.  Both kinds share one record: a recursive pthread
 * mutex, plus, for a named mutex, a descriptor of its lock file.
 *
 * The file lock is flock on the handle's own open file description: unlike
 * fcntl record locks it is not per process (two handles in one process
 * exclude each other) and closing some other descriptor of the same file
 * does not drop it; the kernel drops it when the holder dies.  flock knows
 * nothing of threads, so the pthread mutex is taken first and the file
 * lock is taken by the thread's outermost hold only.  flock has no time
 * limit either: a timed wait polls with a short, growing pause.
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

struct CxMutex {
  pthread_mutex_t guard; /* recursive; held by the owning thread throughout its holds */
  int fd;                /* lock file of a named mutex, -1 for an unnamed one */
  int depth;             /* holds of the owning thread; changed only under guard */
};

namespace {

const int kPollMaxMs = 16;

CxStatus invalid() { return CxStatus_make('p', EINVAL); }
CxStatus timedOut() { return CxStatus_make('w', CX_MUTEX_TIMED_OUT); }

CxStatus newMutex(CxMutex** out, int fd) {
  CxMutex* m = (CxMutex*)QlgMem_alloc(sizeof(CxMutex));
  if (!m) return CxStatus_make('p', ENOMEM);
  pthread_mutexattr_t attr;
  int rc = pthread_mutexattr_init(&attr);
  if (rc == 0) {
    rc = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    if (rc == 0) rc = pthread_mutex_init(&m->guard, &attr);
    pthread_mutexattr_destroy(&attr);
  }
  if (rc != 0) {
    QlgMem_free(m);
    return CxStatus_make('p', rc);
  }
  m->fd = fd;
  m->depth = 0;
  *out = m;
  return CxStatus_ok();
}

/* Opens the lock file, falling back to weaker access when another user
   created it: a lock needs neither write access nor creation rights.
   O_NOFOLLOW and O_NONBLOCK keep a planted symbolic link or FIFO in the
   shared directory from redirecting or stalling us. */
int openLockFile(const char* path, bool create) {
  const int common = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  const int tries[] = {O_RDWR | (create ? O_CREAT : 0), O_RDWR, O_RDONLY};
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

void sleepUs(int64_t us) {
  struct timespec t;
  t.tv_sec = (time_t)(us / 1000000);
  t.tv_nsec = (long)(us % 1000000) * 1000L;
  while (nanosleep(&t, &t) != 0 && errno == EINTR) {
  }
}

/* The in-process half; deadline null means no limit.  The remaining time
   is carried over to the realtime clock of pthread_mutex_timedlock, which
   every C library and thread checker knows (pthread_mutex_clocklock is
   newer and invisible to ThreadSanitizer). */
int lockGuard(CxMutex* m, const struct timespec* deadline) {
  if (!deadline) return pthread_mutex_lock(&m->guard);
  int64_t left = msLeft(deadline);
  struct timespec abs;
  clock_gettime(CLOCK_REALTIME, &abs);
  abs.tv_sec += (time_t)(left / 1000);
  abs.tv_nsec += (long)(left % 1000) * 1000000L;
  if (abs.tv_nsec >= 1000000000L) {
    abs.tv_sec++;
    abs.tv_nsec -= 1000000000L;
  }
  return pthread_mutex_timedlock(&m->guard, &abs);
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

CxStatus acquire(CxMutex* m, const struct timespec* deadline) {
  int rc = lockGuard(m, deadline);
  if (rc == ETIMEDOUT) return timedOut();
  if (rc != 0) return CxStatus_make('p', rc);
  if (m->fd >= 0 && m->depth == 0) {
    rc = lockFile(m->fd, deadline);
    if (rc != 0) {
      pthread_mutex_unlock(&m->guard);
      return rc == ETIMEDOUT ? timedOut() : CxStatus_make('p', rc);
    }
  }
  m->depth++;
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
  if (!CxStatus_isOk(s)) close(fd);
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
  if (mx->fd >= 0 && close(mx->fd) != 0 && errno != EINTR) s = CxStatus_make('p', errno);
  int rc = pthread_mutex_destroy(&mx->guard);
  if (rc != 0 && CxStatus_isOk(s)) s = CxStatus_make('p', rc);
  QlgMem_free(mx);
  return s;
}

CxStatus CxMutex_lock(CxMutex* m) {
  if (!m) return invalid();
  return acquire(m, nullptr);
}

CxStatus CxMutex_lockTimed(CxMutex* m, int32_t ms) {
  if (!m) return invalid();
  struct timespec deadline;
  deadlineAfter(&deadline, ms < 0 ? 0 : ms);
  return acquire(m, &deadline);
}

CxStatus CxMutex_unlock(CxMutex* m) {
  if (!m) return invalid();
  /* A recursive mutex can be taken again only by its holder or when free,
     so a successful try plus a non-zero depth proves the caller holds it. */
  if (pthread_mutex_trylock(&m->guard) != 0) return CxStatus_make('p', EPERM);
  if (m->depth == 0) {
    pthread_mutex_unlock(&m->guard);
    return CxStatus_make('p', EPERM);
  }
  CxStatus s = CxStatus_ok();
  if (--m->depth == 0 && m->fd >= 0 && flock(m->fd, LOCK_UN) != 0) s = CxStatus_make('p', errno);
  pthread_mutex_unlock(&m->guard); /* the probe's hold */
  pthread_mutex_unlock(&m->guard); /* the caller's hold */
  return s;
}

}  // extern "C"
