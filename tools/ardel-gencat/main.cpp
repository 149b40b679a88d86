// SPDX-License-Identifier: Apache-2.0
/*
 * ardel-gencat: the message catalog compiler.
 *
 *   ardel-gencat SOURCE CATALOG        compile a message source into a catalog
 *   ardel-gencat --dump CATALOG [TEXT] write a catalog back as message source
 *
 * Message source (UTF-8 text, one item per line):
 *   # a comment          lines starting with "#", and blank lines, are skipped
 *   $set 1               starts set 1; sets come in ascending order
 *   20 Out of memory.\r  message 20 of the current set: the number, one
 *                        blank, then the text up to the end of the line;
 *                        keys ascend within a set
 * In a text, "\\" is a backslash, "\r", "\n" and "\t" are the control
 * characters and "\xHH" any byte; every other character stands for itself,
 * blanks at either end included.
 *
 * The dump writes exactly this form ("$set N" lines and messages, nothing
 * else, control characters and bytes that are not UTF-8 escaped), so that
 * dumping a catalog and compiling the dump gives the same file byte for
 * byte, and a source written in that form dumps back to itself.  Comments
 * are not kept in the catalog.
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "nls/QlgCatalog.h"

namespace {

struct Message {
  uint32_t key;
  std::string text;
};

struct Set {
  uint32_t number;
  std::vector<Message> messages;
};

/* Length of the valid UTF-8 sequence at s (n bytes left), 0 if invalid. */
size_t utf8Length(const unsigned char* s, size_t n) {
  unsigned char c = s[0];
  size_t len = c < 0x80 ? 1 : (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 0;
  if (len == 0 || len > n) return 0;
  uint32_t cp = len == 1 ? c : c & (0x7F >> len);
  for (size_t i = 1; i < len; i++) {
    if ((s[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (s[i] & 0x3F);
  }
  static const uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
  if (cp < kMin[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

bool validUtf8(const std::string& s) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(s.data());
  for (size_t i = 0; i < s.size();) {
    size_t len = utf8Length(p + i, s.size() - i);
    if (len == 0) return false;
    i += len;
  }
  return true;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/* Undoes the escapes of a source text; false with a reason when one is bad. */
bool unescape(const std::string& in, std::string* out, const char** why) {
  out->clear();
  for (size_t i = 0; i < in.size(); i++) {
    if (in[i] != '\\') {
      *out += in[i];
      continue;
    }
    char c = i + 1 < in.size() ? in[++i] : '\0';
    switch (c) {
      case '\\': *out += '\\'; break;
      case 'r': *out += '\r'; break;
      case 'n': *out += '\n'; break;
      case 't': *out += '\t'; break;
      case 'x': {
        int hi = i + 1 < in.size() ? hexValue(in[i + 1]) : -1;
        int lo = i + 2 < in.size() ? hexValue(in[i + 2]) : -1;
        if (hi < 0 || lo < 0 || (hi == 0 && lo == 0)) {
          *why = "\\x needs two hex digits, not 00";
          return false;
        }
        *out += static_cast<char>(hi * 16 + lo);
        i += 2;
        break;
      }
      default:
        *why = "unknown escape (use \\\\, \\r, \\n, \\t or \\xHH)";
        return false;
    }
  }
  return true;
}

std::string escape(const std::string& text) {
  std::string out;
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
  for (size_t i = 0; i < text.size();) {
    unsigned char c = p[i];
    size_t len = utf8Length(p + i, text.size() - i);
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7F || len == 0) {
      char hex[8];
      snprintf(hex, sizeof hex, "\\x%02X", c);
      out += hex;
    } else {
      out.append(text, i, len);
      i += len;
      continue;
    }
    i++;
  }
  return out;
}

/* A decimal number of at most 10 digits that fits 32 bits. */
bool parseNumber(const std::string& s, uint32_t* v) {
  if (s.empty() || s.size() > 10) return false;
  unsigned long long n = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    n = n * 10 + static_cast<unsigned>(c - '0');
  }
  if (n > 0xFFFFFFFFull) return false;
  *v = static_cast<uint32_t>(n);
  return true;
}

bool fail(const char* file, int line, const char* why) {
  fprintf(stderr, "%s:%d: %s\n", file, line, why);
  return false;
}

bool parseSource(const char* file, std::vector<Set>* sets) {
  FILE* in = fopen(file, "rb");
  if (!in) {
    fprintf(stderr, "%s: %s\n", file, strerror(errno));
    return false;
  }
  std::string content;
  char buf[65536];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, in)) > 0) content.append(buf, n);
  fclose(in);
  int lineNo = 0;
  size_t pos = 0;
  while (pos < content.size()) {
    size_t end = content.find('\n', pos);
    if (end == std::string::npos) end = content.size();
    std::string line = content.substr(pos, end - pos);
    pos = end + 1;
    lineNo++;
    /* A source saved with CRLF line ends: the CR is the line end's. */
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!validUtf8(line)) return fail(file, lineNo, "not UTF-8");
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '$') {
      uint32_t number;
      if (line.compare(0, 5, "$set ") != 0 || !parseNumber(line.substr(5), &number))
        return fail(file, lineNo, "expected \"$set NUMBER\"");
      if (!sets->empty() && sets->back().number >= number)
        return fail(file, lineNo, "set numbers must ascend");
      sets->push_back(Set{number, {}});
      continue;
    }
    size_t blank = line.find(' ');
    uint32_t key;
    if (!parseNumber(line.substr(0, blank), &key))
      return fail(file, lineNo, "expected \"NUMBER text\", a comment or \"$set NUMBER\"");
    if (sets->empty()) return fail(file, lineNo, "message before the first \"$set\"");
    std::vector<Message>& msgs = sets->back().messages;
    if (!msgs.empty() && msgs.back().key >= key) return fail(file, lineNo, "message numbers must ascend within a set");
    std::string text;
    const char* why = nullptr;
    if (!unescape(blank == std::string::npos ? std::string() : line.substr(blank + 1), &text, &why))
      return fail(file, lineNo, why);
    if (text.find('\0') != std::string::npos) return fail(file, lineNo, "a text cannot hold a NUL byte");
    msgs.push_back(Message{key, text});
  }
  if (sets->empty()) return fail(file, lineNo, "no \"$set\" in the source");
  return true;
}

void put32(std::string* out, uint32_t v) {
  char b[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
  out->append(b, 4);
}

/* Header, then the set records in one chain, then per set its index and
   its text block. */
bool buildCatalog(const std::vector<Set>& sets, std::string* out) {
  uint64_t offset = QLG_CATALOG_HEADER_SIZE + QLG_CATALOG_SET_SIZE * static_cast<uint64_t>(sets.size());
  std::string records, body;
  for (size_t i = 0; i < sets.size(); i++) {
    const Set& s = sets[i];
    std::string index, texts;
    for (const Message& m : s.messages) {
      put32(&index, m.key);
      put32(&index, static_cast<uint32_t>(texts.size()));
      put32(&index, 0);
      texts += m.text;
      texts += '\0';
    }
    uint64_t indexAt = offset + body.size();
    uint64_t textAt = indexAt + index.size();
    uint64_t next = i + 1 < sets.size() ? QLG_CATALOG_HEADER_SIZE + QLG_CATALOG_SET_SIZE * (i + 1) : 0;
    if (textAt + texts.size() > 0xFFFFFFFFull) return false;
    put32(&records, s.number);
    put32(&records, static_cast<uint32_t>(next));
    put32(&records, static_cast<uint32_t>(indexAt));
    put32(&records, static_cast<uint32_t>(textAt));
    put32(&records, static_cast<uint32_t>(texts.size()));
    put32(&records, static_cast<uint32_t>(s.messages.size()));
    put32(&records, 0);
    body += index;
    body += texts;
  }
  out->assign(QLG_CATALOG_MAGIC, 8);
  put32(out, QLG_CATALOG_VERSION);
  put32(out, 0);
  put32(out, 0);
  put32(out, static_cast<uint32_t>(sets.size()));
  put32(out, QLG_CATALOG_HEADER_SIZE);
  *out += records;
  *out += body;
  return true;
}

bool writeAll(const char* path, const std::string& data) {
  FILE* out = path ? fopen(path, "wb") : stdout;
  if (!out) {
    fprintf(stderr, "%s: %s\n", path, strerror(errno));
    return false;
  }
  bool ok = fwrite(data.data(), 1, data.size(), out) == data.size();
  ok = (path ? fclose(out) : fflush(out)) == 0 && ok;
  if (!ok) fprintf(stderr, "%s: write failed\n", path ? path : "standard output");
  return ok;
}

int compile(const char* source, const char* catalog) {
  std::vector<Set> sets;
  std::string data;
  if (!parseSource(source, &sets)) return 1;
  if (!buildCatalog(sets, &data)) {
    fprintf(stderr, "%s: the catalog would pass 4 GiB\n", source);
    return 1;
  }
  return writeAll(catalog, data) ? 0 : 1;
}

struct DumpState {
  std::string out;
};

void dumpMessage(void* ctx, uint32_t set, uint32_t key, const char* text) {
  DumpState* d = static_cast<DumpState*>(ctx);
  if (!text)
    d->out += "$set " + std::to_string(set) + "\n";
  else
    d->out += std::to_string(key) + " " + escape(text) + "\n";
}

int dump(const char* catalog, const char* text) {
  /* A name with a separator is taken as the file itself. */
  std::string path = strchr(catalog, '/') ? catalog : std::string("./") + catalog;
  QlgCatalog* cat = QlgCatalog_openFile(path.c_str(), 0);
  DumpState d;
  if (!cat || !QlgCatalog_visit(cat, dumpMessage, &d)) {
    fprintf(stderr, "%s: not a readable message catalog\n", catalog);
    return 1;
  }
  return writeAll(text, d.out) ? 0 : 1;
}

int usage() {
  fprintf(stderr,
          "usage: ardel-gencat SOURCE CATALOG\n"
          "       ardel-gencat --dump CATALOG [TEXT]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && strcmp(argv[1], "--dump") == 0 && argc <= 4) return dump(argv[2], argc == 4 ? argv[3] : nullptr);
  if (argc == 3 && argv[1][0] != '-') return compile(argv[1], argv[2]);
  return usage();
}
