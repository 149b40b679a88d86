/*
 * The buffer in which a formatter builds one record.  Each thread keeps one
 * and reuses its storage, so that a record costs a single allocation: the
 * copy handed to the caller.  A record begun while another is being built
 * on the same thread (a report raised mid-record that reaches a handler
 * with a formatter of the same kind) gets a private buffer instead.
 */
#ifndef ARDEL_QLGRECORDBUFFER_H
#define ARDEL_QLGRECORDBUFFER_H

#include "util/CxStringBuff.h"

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
