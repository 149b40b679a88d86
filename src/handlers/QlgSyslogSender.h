// SPDX-License-Identifier: Apache-2.0
/*
 * The syslog handler's delivery half: a bounded queue of fixed-size record
 * slots and one sender thread that drains it into a socket, reconnecting
 * when the collector goes away.  The caller's side only copies a record
 * into a free slot; it waits for a free slot at most the time it is given
 * and otherwise gives the record up, so a slow or dead collector can never
 * hold up the program that logs.
 *
 * One producer: every publish runs under the toolkit lock, so slots are
 * reserved and committed by one thread at a time.  The queue's own mutex
 * guards the indexes only and is never held across a socket call.
 */
#ifndef ARDEL_QLGSYSLOGSENDER_H
#define ARDEL_QLGSYSLOGSENDER_H

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/CxSocket.h"

namespace ardel {

/* Where records go; copied by value between the two threads. */
struct SyslogTarget {
  CxSocketKind kind;
  unsigned port;
  char host[256];
  char path[256];
};

/* What the sender has seen of the collector, for the caller to report. */
enum SyslogLinkState { kLinkUnknown = 0, kLinkUp = 1, kLinkDown = 2 };

class SyslogSender {
 public:
  /* Bytes kept in front of every slot for the octet-counting prefix. */
  static const size_t kPrefixRoom = 12;

  SyslogSender() = default;
  ~SyslogSender() { stop(0); }
  SyslogSender(const SyslogSender&) = delete;
  SyslogSender& operator=(const SyslogSender&) = delete;

  /* Allocates slots records of at most slotBytes each and starts the
     thread; false (nothing started) when memory or the thread cannot be had. */
  bool start(const SyslogTarget& target, size_t slots, size_t slotBytes);
  /* Lets the thread send what is queued for at most drainMs, then ends it
     and frees the slots.  Safe to call more than once. */
  void stop(int drainMs);
  bool running() const { return thread_.joinable(); }

  /* Waits at most waitMs for a free slot: its first byte, with room for
     slotBytes, or null when the queue stayed full. */
  char* reserve(int waitMs);
  /* Queues the reserved slot holding len bytes. */
  void commit(size_t len);
  /* Switches to another collector; the current connection is dropped. */
  void retarget(const SyslogTarget& target);

  SyslogLinkState linkState() const { return static_cast<SyslogLinkState>(link_.load()); }
  /* How many times the link has gone down since start. */
  uint32_t outages() const { return outages_.load(); }
  int lastError() const { return lastError_.load(); }
  uint64_t sentCount() const { return sent_.load(); }
  /* Records the collector refused for good (a datagram too large). */
  uint64_t refusedCount() const { return refused_.load(); }

 private:
  void run();
  bool takeHead(size_t* index, int* fd);
  bool sendRecord(int* fd, size_t index);
  void popHead();
  bool sleepUnlessStopped(int ms);
  void linkDown(int error);

  std::mutex mutex_;
  std::condition_variable hasData_;
  std::condition_variable hasRoom_;
  std::thread thread_;
  char* slots_ = nullptr;
  uint32_t* lengths_ = nullptr;
  size_t capacity_ = 0;
  size_t stride_ = 0;
  size_t head_ = 0;
  size_t count_ = 0;
  bool stopping_ = false;
  int64_t drainUntil_ = 0;
  SyslogTarget target_{};  /* guarded by mutex_ */
  SyslogTarget current_{}; /* the sender thread's own copy */
  unsigned generation_ = 0;
  std::atomic<int> link_{kLinkUnknown};
  std::atomic<uint32_t> outages_{0};
  std::atomic<int> lastError_{0};
  std::atomic<uint64_t> sent_{0};
  std::atomic<uint64_t> refused_{0};
};

}  // namespace ardel

#endif
