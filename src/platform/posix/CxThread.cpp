/*
 * CxThread on POSIX: the kernel thread id, the number that ps, top and
 * /proc show for the thread.
 */
#include "platform/CxThread.h"

#include <sys/syscall.h>
#include <unistd.h>

extern "C" {

uint32_t CxThread_getId(void) {
  /* Through syscall so that older C libraries without gettid() build too. */
  return (uint32_t)syscall(SYS_gettid);
}

}  // extern "C"
