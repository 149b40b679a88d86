// SPDX-License-Identifier: Apache-2.0
/*
 * CxProcess on POSIX: children are started with posix_spawn from the
 * program path and an argument vector that is passed on exactly as given,
 * never through a shell, so no text of the caller is ever interpreted.
 * The toolkit opens its own descriptors close-on-exec, so the child gets
 * only the standard streams.  An ended child's result is kept in the
 * handle because the system hands it out only once.
 */
#include "platform/CxProcess.h"
#include "platform/CxFilePath.h"

#include <ardel/QlgMem.h>

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char** environ;

namespace {

CxStatus invalid() { return CxStatus_make('p', EINVAL); }

/* Exit code of a collected wait status; a signal counts as 128 + its
   number, the convention shells use, so that it is never mistaken for a
   clean exit. */
int32_t exitCodeOf(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return 0;
}

}  // namespace

extern "C" {

CxStatus CxProcess_start(CxProcess* handle, const char* program, char* const args[]) {
  if (!handle) return invalid();
  memset(handle, 0, sizeof *handle);
  if (!program || !*program) return invalid();
  size_t n = 0;
  while (args && args[n]) n++;
  char** argv = (char**)QlgMem_alloc((n + 2) * sizeof(char*));
  if (!argv) return CxStatus_make('p', ENOMEM);
  argv[0] = (char*)program;
  for (size_t i = 0; i < n; i++) argv[i + 1] = args[i];
  argv[n + 1] = nullptr;
  pid_t pid = 0;
  int rc = posix_spawn(&pid, program, nullptr, nullptr, argv, environ);
  QlgMem_free(argv);
  if (rc != 0) return CxStatus_make('p', rc);
  handle->id = pid;
  return CxStatus_ok();
}

CxStatus CxProcess_wait(CxProcess* handle, CxExitInfo* out, int waitFlag) {
  if (!handle || handle->id <= 0 || !out) return invalid();
  memset(out, 0, sizeof *out);
  if (!handle->ended) {
    int status = 0;
    pid_t r;
    do {
      r = waitpid((pid_t)handle->id, &status, waitFlag ? 0 : WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r < 0) return CxStatus_make('p', errno);
    if (r == 0) return CxStatus_ok(); /* still running: exited stays 0 */
    handle->ended = 1;
    handle->exitCode = exitCodeOf(status);
  }
  out->exited = 1;
  out->exitCode = handle->exitCode;
  return CxStatus_ok();
}

CxStatus CxProcess_waitTimed(CxProcess* handle, CxExitInfo* out, int32_t timeoutMs) {
  if (!handle || handle->id <= 0 || !out) return invalid();
  /* Polled with a growing pause: a child that ends at once costs one
     short sleep, a long one no more than 20 ms of delay after its end. */
  int64_t waitedUs = 0;
  long pauseUs = 500;
  for (;;) {
    CxStatus s = CxProcess_wait(handle, out, 0);
    if (!CxStatus_isOk(s) || out->exited) return s;
    if (waitedUs >= (int64_t)timeoutMs * 1000) return CxStatus_make('w', 258);
    struct timespec ts = {0, pauseUs * 1000};
    nanosleep(&ts, nullptr);
    waitedUs += pauseUs;
    if (pauseUs < 20000) pauseUs *= 2;
  }
}

CxStatus CxProcess_kill(CxProcess* handle) {
  if (!handle || handle->id <= 0) return invalid();
  if (handle->ended) return CxStatus_ok();
  if (kill((pid_t)handle->id, SIGKILL) != 0 && errno != ESRCH) return CxStatus_make('p', errno);
  CxExitInfo info;
  return CxProcess_wait(handle, &info, 1);
}

CxStatus CxProcess_close(CxProcess* handle) {
  if (!handle) return invalid();
  /* Collect a child that has already ended so that it does not linger as a
     zombie; a running child is left alone. */
  if (handle->id > 0 && !handle->ended) {
    int status;
    while (waitpid((pid_t)handle->id, &status, WNOHANG) < 0 && errno == EINTR) {
    }
  }
  memset(handle, 0, sizeof *handle);
  return CxStatus_ok();
}

/* Every event of a problem-determination logger carries the process id,
   so it is kept rather than asked of the kernel each time; the child of a
   fork forgets it through the fork handler. */
static int32_t g_pid = 0;

static void forgetPidAfterFork(void) { __atomic_store_n(&g_pid, 0, __ATOMIC_RELAXED); }

int32_t CxProcess_getpid(void) {
  static const bool cached = pthread_atfork(nullptr, nullptr, forgetPidAfterFork) == 0;
  int32_t pid = __atomic_load_n(&g_pid, __ATOMIC_RELAXED);
  if (pid && cached) return pid;
  pid = (int32_t)getpid();
  __atomic_store_n(&g_pid, pid, __ATOMIC_RELAXED);
  return pid;
}

CxStatus CxProcess_getcwd(char* buf) {
  if (!buf) return invalid();
  if (!getcwd(buf, CX_PATH_MAX)) {
    int e = errno;
    buf[0] = '\0';
    return CxStatus_make('p', e);
  }
  return CxStatus_ok();
}

void CxProcess_getProgramName(char* buf, size_t size) {
  if (!buf || size == 0) return;
  buf[0] = 0;
  /* /proc/self/exe names the file that was run, not what argv[0] claims. */
  char path[4096];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return;
  path[n] = 0;
  const char* base = strrchr(path, '/');
  base = base ? base + 1 : path;
  snprintf(buf, size, "%s", base);
}

}  // extern "C"

CxStatus CxProcess_atFork(void (*prepare)(void), void (*parent)(void), void (*child)(void)) {
  int rc = pthread_atfork(prepare, parent, child);
  return rc == 0 ? CxStatus_ok() : CxStatus_make('p', rc);
}
