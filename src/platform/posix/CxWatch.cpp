// SPDX-License-Identifier: Apache-2.0
/*
 * CxWatch on Linux: inotify.  The file's own watch reports a rename of the
 * file and a change of its link count (removal); the directory's watch
 * reports the name being removed, renamed away or replaced, and the
 * directory itself going.  The queue is read without blocking; events
 * about other names in the directory are read and dropped.
 */
#include "platform/CxWatch.h"

#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#if defined(__linux__)
#include <sys/inotify.h>
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

extern "C" {

int CxWatch_active(const CxWatch* w) { return w && w->fd >= 0; }

void CxWatch_init(CxWatch* w) {
  if (!w) return;
  w->fd = -1;
  w->fileWd = -1;
  w->dirWd = -1;
  w->name[0] = '\0';
  w->forks = 0;
}

void CxWatch_stop(CxWatch* w) {
  if (!w) return;
  if (w->fd >= 0) close(w->fd);
  CxWatch_init(w);
}

#if defined(__linux__)

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
  return 1;
}

int CxWatch_changed(CxWatch* w) {
  if (!w || w->fd < 0) return 1;
  if (w->forks != s_forks.load(std::memory_order_relaxed)) {
    CxWatch_stop(w);
    return 1;
  }
  int changed = 0;
  alignas(struct inotify_event) char buf[4096];
  for (;;) {
    ssize_t got = read(w->fd, buf, sizeof buf);
    if (got < 0) {
      if (errno == EINTR) continue;
      /* EAGAIN: nothing queued.  Anything else: the queue is unusable, so
         the caller must look for itself. */
      return changed || errno != EAGAIN;
    }
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

#else

int CxWatch_start(CxWatch* w, const char*) {
  CxWatch_init(w);
  return 0;
}

int CxWatch_changed(CxWatch*) { return 1; }

#endif

}  // extern "C"
