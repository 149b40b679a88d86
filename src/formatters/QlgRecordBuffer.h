// SPDX-License-Identifier: Apache-2.0
/*
 * The buffer in which a formatter builds one record.  Each thread keeps one
 * and reuses its storage, so that a record costs a single allocation: the
 * copy handed to the caller.  A record begun while another is being built
 * on the same thread (a report raised mid-record that reaches a handler
 * with a formatter of the same kind) gets a private buffer instead.
 */
#ifndef ARDEL_QLGRECORDBUFFER_H
#define ARDEL_QLGRECORDBUFFER_H

#include <stdint.h>
#include <string.h>
#include "util/CxStringBuff.h"

/* Appends n bytes of s: records are assembled from many short pieces of
   known length, which need no scan for their terminator. */
inline bool QlgRecord_put(CxStringBuff* b, const char* s, size_t n) {
  if (n > INT32_MAX / 2 || !CxStringBuff_reserve(b, static_cast<uint32_t>(n))) return false;
  memcpy(b->data + b->length, s, n);
  b->length += static_cast<int32_t>(n);
  b->data[b->length] = '\0';
  return true;
}
template <size_t N>
inline bool QlgRecord_put(CxStringBuff* b, const char (&literal)[N]) {
  return QlgRecord_put(b, literal, N - 1);
}
inline bool QlgRecord_putText(CxStringBuff* b, const char* s) { return QlgRecord_put(b, s, strlen(s)); }

class QlgRecordBuffer {
 public:
  QlgRecordBuffer();
  ~QlgRecordBuffer();
  QlgRecordBuffer(const QlgRecordBuffer&) = delete;
  QlgRecordBuffer& operator=(const QlgRecordBuffer&) = delete;

  CxStringBuff* get() { return buf_; }
  /* The record as new text (QlgMem_free), null when out of memory. */
  char* copy() const;

 private:
  CxStringBuff own_;
  CxStringBuff* buf_;
  bool shared_;
};

#endif
