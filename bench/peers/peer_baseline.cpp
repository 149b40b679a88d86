// SPDX-License-Identifier: Apache-2.0
/* The floor every library is measured against: the same line made with
   snprintf and written with one write(2) per record; for the shared file,
   flock around each write. */
#include <fcntl.h>
#include <sys/file.h>

#include "peer_common.h"

namespace {

int g_fd = -1;
int g_lock = -1;

bool setup(const std::string& dir, peer::Mode) {
  g_fd = open((dir + "/baseline.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  return g_fd >= 0;
}

bool setupChild(const std::string& dir) {
  g_lock = open((dir + "/baseline.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  return setup(dir, peer::Mode::Shared) && g_lock >= 0;
}

void log(long i) {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  struct tm tm;
  localtime_r(&ts.tv_sec, &tm);
  long off = tm.tm_gmtoff / 60;
  char sign = off < 0 ? '-' : '+';
  if (off < 0) off = -off;
  char buf[256];
  int n = std::snprintf(buf, sizeof buf,
                        "%04d-%02d-%02d %02d:%02d:%02d.%03ld%c%02ld:%02ld bench.c function 42 "
                        "value %ld of %s\n",
                        tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                        tm.tm_sec, ts.tv_nsec / 1000000, sign, off / 60, off % 60, i, "name");
  if (g_lock >= 0) flock(g_lock, LOCK_EX);
  if (write(g_fd, buf, (size_t)n) != n) std::abort();
  if (g_lock >= 0) flock(g_lock, LOCK_UN);
}

int g_level = 0;

/* A level test, as a disabled statement is at best. */
PEER_DISABLED_LOOP(if (g_level > 3) log(i))

}  // namespace

int main(int argc, char** argv) {
  return peer::run(peer::Library{setup, log, disabledLoop, setupChild}, argc, argv);
}
