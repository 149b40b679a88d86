// SPDX-License-Identifier: Apache-2.0
/*
 * Per-thread record buffers.  A buffer that has grown past kKeep bytes for
 * one unusually long record is given back, so a thread does not hold on to
 * the largest record it ever wrote.
 */
#include "formatters/QlgRecordBuffer.h"

#include <string.h>
#include <ardel/QlgMem.h>

namespace {

const int32_t kKeep = 64 * 1024;

struct ThreadBuffer {
  CxStringBuff buf{};
  bool busy = false;
  ~ThreadBuffer() { CxStringBuff_free(&buf); }
};
thread_local ThreadBuffer t_buffer;

}  // namespace

QlgRecordBuffer::QlgRecordBuffer() : own_{}, buf_(&own_), shared_(!t_buffer.busy) {
  if (shared_) {
    t_buffer.busy = true;
    buf_ = &t_buffer.buf;
    CxStringBuff_clear(buf_);
  }
}

QlgRecordBuffer::~QlgRecordBuffer() {
  if (!shared_) {
    CxStringBuff_free(&own_);
    return;
  }
  if (buf_->capacity > kKeep) CxStringBuff_free(buf_);
  t_buffer.busy = false;
}

char* QlgRecordBuffer::copy() const {
  size_t len = buf_->data ? static_cast<size_t>(buf_->length) : 0;
  char* out = static_cast<char*>(QlgMem_alloc(len + 1));
  if (!out) return nullptr;
  if (len) memcpy(out, buf_->data, len);
  out[len] = '\0';
  return out;
}
