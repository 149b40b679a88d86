// SPDX-License-Identifier: Apache-2.0
/*
 * The syslog handler's queue and sender thread.  The thread owns the
 * socket; it takes the record at the head of the queue, sends it, and
 * only then frees its slot, so a record that meets a broken connection is
 * sent again on the next one.  Before each record on a stream the socket
 * is asked whether the collector has closed its end: a collector that
 * restarts closes its connections, and writing into a half-closed
 * connection would lose the record without an error.
 */
#include "handlers/QlgSyslogSender.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <chrono>

#include <ardel/QlgMem.h>

namespace ardel {

namespace {

const int kConnectTimeoutMs = 1000;
const int kSendTimeoutMs = 1000;
const int kFirstRetryMs = 50;
const int kLastRetryMs = 2000;

int64_t nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

bool isStream(const SyslogTarget& t) { return t.kind == CX_SOCKET_TCP; }

}  // namespace

bool SyslogSender::start(const SyslogTarget& target, size_t slots, size_t slotBytes) {
  if (running() || slots == 0 || slotBytes == 0) return running();
  stride_ = kPrefixRoom + slotBytes;
  slots_ = static_cast<char*>(QlgMem_alloc(slots * stride_));
  lengths_ = static_cast<uint32_t*>(QlgMem_alloc(slots * sizeof(uint32_t)));
  if (!slots_ || !lengths_) {
    stop(0);
    return false;
  }
  capacity_ = slots;
  head_ = count_ = 0;
  stopping_ = false;
  target_ = target;
  generation_++;
  link_ = kLinkUnknown;
  try {
    thread_ = std::thread(&SyslogSender::run, this);
  } catch (...) {
    stop(0);
    return false;
  }
  return true;
}

void SyslogSender::stop(int drainMs) {
  if (thread_.joinable()) {
    {
      std::lock_guard<std::mutex> l(mutex_);
      stopping_ = true;
      drainUntil_ = nowMs() + (drainMs > 0 ? drainMs : 0);
    }
    hasData_.notify_all();
    hasRoom_.notify_all();
    thread_.join();
  }
  QlgMem_free(slots_);
  QlgMem_free(lengths_);
  slots_ = nullptr;
  lengths_ = nullptr;
  capacity_ = head_ = count_ = 0;
  stopping_ = false;
}

char* SyslogSender::reserve(int waitMs) {
  std::unique_lock<std::mutex> l(mutex_);
  if (!slots_ || stopping_) return nullptr;
  if (count_ == capacity_ && waitMs > 0)
    hasRoom_.wait_for(l, std::chrono::milliseconds(waitMs),
                      [this] { return count_ < capacity_ || stopping_; });
  if (count_ == capacity_ || stopping_) return nullptr;
  return slots_ + ((head_ + count_) % capacity_) * stride_ + kPrefixRoom;
}

void SyslogSender::commit(size_t len) {
  {
    std::lock_guard<std::mutex> l(mutex_);
    if (!slots_ || count_ == capacity_) return;
    lengths_[(head_ + count_) % capacity_] = (uint32_t)len;
    count_++;
  }
  hasData_.notify_one();
}

void SyslogSender::retarget(const SyslogTarget& target) {
  {
    std::lock_guard<std::mutex> l(mutex_);
    target_ = target;
    generation_++;
  }
  hasData_.notify_one();
}

bool SyslogSender::sleepUnlessStopped(int ms) {
  std::unique_lock<std::mutex> l(mutex_);
  hasData_.wait_for(l, std::chrono::milliseconds(ms), [this] { return stopping_; });
  return !stopping_;
}

void SyslogSender::linkDown(int error) {
  lastError_ = error;
  if (link_.exchange(kLinkDown) != kLinkDown) outages_++;
}

void SyslogSender::popHead() {
  {
    std::lock_guard<std::mutex> l(mutex_);
    head_ = (head_ + 1) % capacity_;
    count_--;
  }
  hasRoom_.notify_one();
}

/* Sends the record in slot index whole; false when the connection broke
   (it is closed then and the record stays queued). */
bool SyslogSender::sendRecord(int* fd, size_t index) {
  char* record = slots_ + index * stride_ + kPrefixRoom;
  size_t total = lengths_[index];
  char* first = record;
  if (isStream(current_)) {
    char prefix[kPrefixRoom];
    int n = snprintf(prefix, sizeof prefix, "%u ", (unsigned)total);
    first = record - n;
    memcpy(first, prefix, (size_t)n);
    total += (size_t)n;
  }
  for (size_t done = 0; done < total;) {
    size_t n = 0;
    CxStatus st = CxSocket_send(*fd, first + done, total - done, &n);
    if (!CxStatus_isOk(st)) {
      if (st.code == EMSGSIZE) {
        refused_++;
        return true;
      }
      linkDown(st.code);
      CxSocket_close(fd);
      return false;
    }
    done += n;
  }
  sent_++;
  return true;
}

void SyslogSender::run() {
  int fd = -1;
  unsigned generation = 0;
  int retryMs = kFirstRetryMs;
  for (;;) {
    size_t index;
    {
      std::unique_lock<std::mutex> l(mutex_);
      hasData_.wait(l, [&] { return count_ > 0 || stopping_ || generation_ != generation; });
      if (generation_ != generation) {
        generation = generation_;
        current_ = target_;
        CxSocket_close(&fd);
      }
      if (stopping_ && (count_ == 0 || nowMs() >= drainUntil_)) break;
      if (count_ == 0) continue;
      index = head_;
    }
    if (fd >= 0 && isStream(current_) && CxSocket_peerClosed(fd)) CxSocket_close(&fd);
    if (fd < 0) {
      CxStatus st = CxSocket_open(&fd, current_.kind, current_.host, current_.port, current_.path,
                                  kConnectTimeoutMs, kSendTimeoutMs);
      if (!CxStatus_isOk(st)) {
        linkDown(st.code);
        if (!sleepUnlessStopped(retryMs)) break;
        retryMs = retryMs * 2 < kLastRetryMs ? retryMs * 2 : kLastRetryMs;
        continue;
      }
      retryMs = kFirstRetryMs;
    }
    if (sendRecord(&fd, index)) {
      link_ = kLinkUp;
      popHead();
    }
  }
  CxSocket_close(&fd);
}

}  // namespace ardel
