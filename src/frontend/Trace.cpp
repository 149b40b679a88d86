// SPDX-License-Identifier: Apache-2.0
/*
 * Trace statements: gather one message at a time in a String, hand it to
 * the tracer when the message is ended, and mark the scope's entry and
 * exit.  Formatting goes through one owned buffer that stays valid until
 * the next format call, so a failed allocation only loses that piece.
 */
#include <ardel/QlgMem.h>
#include <ardel/Trace.h>
#include <ardel/base/ErrorManager.h>

#include <cstdio>
#include <cstring>

namespace {

/* Row width of the hexadecimal dump. */
const unsigned kHexRow = 16;

/* Printable in the dump's column.  123..126 are shown as dots too: intended. */
bool shownInColumn(unsigned char c) { return c >= 32 && c <= 122; }

}  // namespace

Trace::Trace(Tracer& tracer, const char* function)
    : tracer_(tracer),
      level_(3),
      maxLevel_(tracer.getLevel()),
      message_(""),
      function_(function),
      file_(""),
      line_(0),
      formatBuffer_(nullptr) {
  logEntry();
}

Trace::Trace(Tracer& tracer, const wchar_t* function)
    : tracer_(tracer),
      level_(3),
      maxLevel_(tracer.getLevel()),
      message_(""),
      function_(function),
      file_(""),
      line_(0),
      formatBuffer_(nullptr) {
  logEntry();
}

Trace::~Trace() {
  logExit();
  QlgMem_free(formatBuffer_);
}

Trace& Trace::operator<<(Trace& self) { return self; }

Trace& Trace::operator<<(const Object& value) {
  if (wanted()) message_.concat(value.toString());
  return *this;
}

Trace& Trace::operator<<(const String& value) {
  if (wanted()) message_.concat(value);
  return *this;
}

Trace& Trace::operator<<(const Modifier& modifier) {
  /* Ending a message is not level-tested: the tracer applies its own test. */
  if (modifier == end) logMessage();
  return *this;
}

/* Formatted values go through the text operator, so a formatting that
   fails (null) reads "(null)" like any null text. */
Trace& Trace::operator<<(char value) {
  if (wanted()) *this << format("%c", value);
  return *this;
}

Trace& Trace::operator<<(int value) {
  if (wanted()) *this << format("%d", value);
  return *this;
}

Trace& Trace::operator<<(unsigned int value) {
  if (wanted()) *this << format("%u", value);
  return *this;
}

Trace& Trace::operator<<(long value) {
  if (wanted()) *this << format("%ld", value);
  return *this;
}

Trace& Trace::operator<<(unsigned long value) {
  if (wanted()) *this << format("%lu", value);
  return *this;
}

Trace& Trace::operator<<(long long value) {
  if (wanted()) *this << format("%lld", value);
  return *this;
}

Trace& Trace::operator<<(unsigned long long value) {
  if (wanted()) *this << format("%llu", value);
  return *this;
}

Trace& Trace::operator<<(double value) {
  if (wanted()) *this << format("%g", value);
  return *this;
}

Trace& Trace::operator<<(float value) { return *this << static_cast<double>(value); }

Trace& Trace::operator<<(void* value) { return *this << static_cast<const void*>(value); }

/* Without this overload a const pointer would convert to bool. */
Trace& Trace::operator<<(const void* value) {
  if (wanted()) *this << format("%p", value);
  return *this;
}

Trace& Trace::operator<<(const char* value) {
  if (wanted()) message_.concat(value ? value : "(null)");
  return *this;
}

Trace& Trace::operator<<(const wchar_t* value) {
  if (wanted()) message_.concat(value ? value : L"(null)");
  return *this;
}

Trace& Trace::operator<<(bool value) {
  /* "true" only for the byte value 1, as the suite's streams always did. */
  unsigned char byte = 0;
  memcpy(&byte, &value, 1);
  if (wanted()) message_.concat(byte == 1 ? "true" : "false");
  return *this;
}

Trace& Trace::info() {
  level_ = 3;
  return *this;
}

Trace& Trace::warn() {
  level_ = 2;
  return *this;
}

Trace& Trace::error() {
  level_ = 1;
  return *this;
}

Trace& Trace::fatal() {
  level_ = 0;
  return *this;
}

Trace& Trace::pos(const char* file, int line) {
  file_.assign(file);
  line_ = line;
  return *this;
}

Trace& Trace::hex(const char* data, unsigned int length) {
  if (!wanted() || !data || length == 0) return *this;
  message_.concat(format("\n-START DATA-: %d (0x%x) bytes-\n", length, length));
  char column[kHexRow + 1];
  memset(column, 0, sizeof column);
  for (unsigned i = 0; i < length; ++i) {
    unsigned char byte = static_cast<unsigned char>(data[i]);
    if (i % kHexRow == 0) {
      message_.concat(format("%08x: ", i));
      memset(column, 0, sizeof column);
    }
    message_.concat(format("%02x ", byte));
    column[i % kHexRow] = shownInColumn(byte) ? static_cast<char>(byte) : '.';
    bool last = i + 1 == length;
    if (last && length % kHexRow != 0) {
      unsigned missing = kHexRow - length % kHexRow;
      for (unsigned s = 0; s < 3 * missing; ++s) message_.concat(" ");
    }
    if ((i + 1) % kHexRow == 0 || last) {
      message_.concat(column);
      message_.concat("\n");
    }
  }
  message_.concat(format("-END DATA-"));
  return *this;
}

Trace& Trace::dumpError() {
  if (!wanted()) return *this;
  long size = 0;
  char* dump = nullptr;
  ErrorManager::getStackDump(nullptr, &size);
  if (size > 0) {
    dump = static_cast<char*>(QlgMem_alloc(static_cast<size_t>(size)));
    if (dump) {
      dump[0] = '\0';
      ErrorManager::getStackDump(dump, &size);
    }
  }
  long error = 0;
  const char* file = nullptr;
  int line = 0;
  ErrorManager::getError(&error);
  ErrorManager::getFile(&file);
  ErrorManager::getLine(&line);
  message_.assign(format("\n\n----[ STACK DUMP ]----\nError: %d  File: %s  Line: %d\n----< call stack >----\n%s",
                         static_cast<int>(error), file ? file : "", line, dump ? dump : ""));
  QlgMem_free(dump);
  return *this;
}

const char* Trace::format(const char* fmt, ...) {
  QlgMem_free(formatBuffer_);
  va_list args;
  va_start(args, fmt);
  formatBuffer_ = vsprintf(fmt, args);
  va_end(args);
  return formatBuffer_;
}

char* Trace::vsprintf(const char* fmt, va_list args) {
  if (!fmt) return nullptr;
  /* Measuring with a null buffer gives the same count as printing to the
     null device, without opening a file. */
  va_list measure;
  va_copy(measure, args);
  int count = vsnprintf(nullptr, 0, fmt, measure);
  va_end(measure);
  if (count < 0) return nullptr;
  char* text = static_cast<char*>(QlgMem_alloc(static_cast<size_t>(count) + 1));
  if (!text) return nullptr;
  if (vsnprintf(text, static_cast<size_t>(count) + 1, fmt, args) != count) {
    QlgMem_free(text);
    return nullptr;
  }
  return text;
}

void Trace::logEntry() {
  if (function_.length() > 0) tracer_.entry(level_, file_, line_, function_, message_);
  resetInfo();
}

void Trace::logExit() {
  if (function_.length() > 0) tracer_.exit(level_, file_, line_, function_, message_);
  resetInfo();
}

void Trace::logMessage() {
  tracer_.log(level_, file_, line_, function_, message_);
  resetInfo();
}

void Trace::resetInfo() {
  message_.assign("");
  file_.assign("");
  line_ = 0;
  level_ = 3;
}
