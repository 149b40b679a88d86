// SPDX-License-Identifier: Apache-2.0
/*
 * CxThread on POSIX: the kernel thread id, the number that ps, top and
 * /proc show for the thread.
 */
#include "platform/CxThread.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/* A thread keeps its id for life, so each thread asks the kernel once.
   The one thread of a forked child is a new thread with the parent's
   thread-local values: the fork handler makes it ask again. */
thread_local uint32_t t_id = 0;

void forgetIdAfterFork() { t_id = 0; }

}  // namespace

extern "C" {

uint32_t CxThread_getId(void) {
  static const bool cached = pthread_atfork(nullptr, nullptr, forgetIdAfterFork) == 0;
  if (t_id && cached) return t_id;
  /* Through syscall so that older C libraries without gettid() build too. */
  t_id = (uint32_t)syscall(SYS_gettid);
  return t_id;
}

}  // extern "C"
