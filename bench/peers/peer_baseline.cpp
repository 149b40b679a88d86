// SPDX-License-Identifier: Apache-2.0
/* The floor every library is measured against: the same line made with
   snprintf and written with one write(2) per record; for the shared file,
   flock around each write. */
#include <fcntl.h>
#include <sys/file.h>

#include "../plain_line.h"
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
  char buf[256];
  int n = plainLine(buf, sizeof buf, i);
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
