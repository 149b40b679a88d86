// SPDX-License-Identifier: Apache-2.0
/*
 * ardel-tas-reader: plays the application server's side of the
 * qlg_tashandler ring, so that the handler can be used and watched
 * without the server.
 *
 *   ardel-tas-reader [--json] [--size BYTES] [--mode OCTAL] [--count N] [IPCID]
 *
 * Attaches to the ring "<IPCID>" (default QLG_TAS_HANDLER_IPC) or, when
 * there is none, creates it with a ring of BYTES (default 1 MiB, mode
 * default 0600) together with its lock "<IPCID>.s".  Prints each packet
 * as it arrives, one line each: plain text
 *   <time> <level> <logger> <function|-> <file:line|-> <message>
 * (control characters and "\" escaped), or with --json one JSON object per
 * line.  Advances the read index after each packet.  Ends on SIGINT or
 * SIGTERM (or after N packets with --count), draining what is left, and
 * removes the ring and lock it created.  A line on standard error says
 * "ready" once the ring can be written, and a summary ends the run.
 *
 * The ring is written by other processes: every length and index is
 * checked against the ring before it is followed; a damaged packet is
 * counted, reported on standard error and skipped by resuming at the
 * write index.  Exit status 0, or 1 when the ring could not be set up.
 */
#include <errno.h>
#include <signal.h>
#include <csignal>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>
#include <vector>

#include "platform/CxMutex.h"
#include "platform/CxSharedMem.h"

namespace {

const size_t kHeader = 64;
const uint32_t kOffSize = 0, kOffRead = 4, kOffWrite = 8;
const uint32_t kReserve = 1024;
const uint32_t kPacketFixed = 36;
const uint32_t kDefaultRing = 1u << 20;

volatile sig_atomic_t g_stop = 0;

void onSignal(int) { g_stop = 1; }

/* The pause of an idle reader: short, so that a writer waiting for room
   (it sleeps 5 ms between looks) finds it soon. */
void idlePause() {
  struct timespec t = {0, 100000};
  nanosleep(&t, nullptr);
}

struct Options {
  bool json = false;
  uint32_t ringSize = kDefaultRing;
  uint32_t mode = 0600;
  uint64_t count = 0; /* 0: until a signal */
  std::string id = "QLG_TAS_HANDLER_IPC";
};

struct Ring {
  CxSharedMem* mem = nullptr;
  CxMutex* lock = nullptr;
  unsigned char* header = nullptr;
  unsigned char* data = nullptr;
  uint32_t n = 0;
  bool created = false;
};

struct Packet {
  uint32_t version, level, line;
  uint64_t time;
  std::string logger, message, function, file;
};

bool parseNumber(const char* s, int base, uint64_t max, uint64_t* out) {
  char* end = nullptr;
  errno = 0;
  unsigned long long v = strtoull(s, &end, base);
  if (errno || !*s || *end || *s == '-' || v > max) return false;
  *out = v;
  return true;
}

int usage() {
  fprintf(stderr,
          "usage: ardel-tas-reader [--json] [--size BYTES] [--mode OCTAL] [--count N] [IPCID]\n");
  return 2;
}

bool parseOptions(int argc, char** argv, Options* o) {
  bool haveId = false;
  for (int i = 1; i < argc; i++) {
    std::string a = argv[i];
    uint64_t v = 0;
    bool hasValue = i + 1 < argc;
    if (a == "--json") {
      o->json = true;
    } else if (a == "--size" && hasValue && parseNumber(argv[++i], 10, 0xffffff00u, &v) &&
               v > 2 * kReserve) {
      o->ringSize = (uint32_t)v & ~3u;
    } else if (a == "--mode" && hasValue && parseNumber(argv[++i], 8, 0777, &v)) {
      o->mode = (uint32_t)v;
    } else if (a == "--count" && hasValue && parseNumber(argv[++i], 10, UINT64_MAX, &v)) {
      o->count = v;
    } else if (a.size() > 0 && a[0] != '-' && !haveId) {
      o->id = a;
      haveId = true;
    } else {
      return false;
    }
  }
  return true;
}

/* Attaches to the ring or creates it; on failure says why. */
bool setUp(const Options& o, Ring* ring) {
  std::string lockName = o.id + ".s";
  CxStatus st = CxSharedMem_open(&ring->mem, o.id.c_str());
  if (st.origin == 'p' && st.code == ENOENT) {
    st = CxMutex_createNamed(&ring->lock, lockName.c_str());
    if (CxStatus_isOk(st)) st = CxSharedMem_create(&ring->mem, o.id.c_str(), kHeader + o.ringSize, o.mode);
    if (!CxStatus_isOk(st)) {
      if (ring->lock) CxMutex_removeNamed(lockName.c_str());
      fprintf(stderr, "ardel-tas-reader: cannot create %s: %s\n", o.id.c_str(), strerror(st.code));
      return false;
    }
    ring->created = true;
    /* The size goes in last: a writer that finds 0 sends nothing yet. */
    CxSharedMem_storeWord(CxSharedMem_address(ring->mem) + kOffSize, o.ringSize);
  } else if (!CxStatus_isOk(st)) {
    fprintf(stderr, "ardel-tas-reader: cannot open %s: %s\n", o.id.c_str(), strerror(st.code));
    return false;
  }
  ring->header = CxSharedMem_address(ring->mem);
  ring->data = ring->header + kHeader;
  size_t size = CxSharedMem_size(ring->mem);
  ring->n = size >= kHeader ? CxSharedMem_loadWord(ring->header + kOffSize) : 0;
  if (size < kHeader || ring->n <= kReserve || (uint64_t)kHeader + ring->n > size) {
    fprintf(stderr, "ardel-tas-reader: %s has an unusable header\n", o.id.c_str());
    return false;
  }
  return true;
}

void tearDown(const Options& o, Ring* ring) {
  if (ring->mem) CxSharedMem_close(&ring->mem);
  if (ring->lock) CxMutex_close(&ring->lock);
  if (ring->created) {
    CxSharedMem_remove(o.id.c_str());
    CxMutex_removeNamed((o.id + ".s").c_str());
  }
}

/* Reads a packet's fields; false when its lengths do not add up to s. */
bool decode(const unsigned char* p, uint32_t s, Packet* out) {
  uint32_t pos = 4;
  auto word = [&](uint32_t* v) {
    if (s - pos < 4) return false;
    *v = (uint32_t)p[pos] << 24 | (uint32_t)p[pos + 1] << 16 | (uint32_t)p[pos + 2] << 8 | p[pos + 3];
    pos += 4;
    return true;
  };
  auto bytes = [&](std::string* v) {
    uint32_t len = 0;
    if (!word(&len) || s - pos < len) return false;
    v->assign(reinterpret_cast<const char*>(p + pos), len);
    pos += len;
    return true;
  };
  uint32_t hi = 0, lo = 0;
  out->line = 0;
  if (!word(&out->version) || !word(&out->level) || !bytes(&out->logger) || !word(&hi) ||
      !word(&lo) || !bytes(&out->message) || !bytes(&out->function) || !bytes(&out->file))
    return false;
  out->time = (uint64_t)hi << 32 | lo;
  if (!out->file.empty() && !word(&out->line)) return false;
  return pos == s;
}

void putPlain(const std::string& s) {
  for (unsigned char c : s) {
    if (c == '\\') fputs("\\\\", stdout);
    else if (c == '\n') fputs("\\n", stdout);
    else if (c == '\r') fputs("\\r", stdout);
    else if (c == '\t') fputs("\\t", stdout);
    else if (c < 0x20 || c == 0x7f) printf("\\x%02x", c);
    else putchar(c);
  }
}

/* Length of the valid UTF-8 sequence at s[i], 0 when it is not one. */
size_t utf8Length(const std::string& s, size_t i) {
  unsigned char c = (unsigned char)s[i];
  size_t len = c >= 0xf0 && c <= 0xf4 ? 4 : c >= 0xe0 ? 3 : c >= 0xc2 && c < 0xe0 ? 2 : 0;
  if (len == 0 || i + len > s.size()) return 0;
  for (size_t k = 1; k < len; k++)
    if (((unsigned char)s[i + k] & 0xc0) != 0x80) return 0;
  return len;
}

/* A JSON string; bytes that are not UTF-8 become U+FFFD. */
void putJson(const std::string& s) {
  putchar('"');
  for (size_t i = 0; i < s.size(); i++) {
    unsigned char c = (unsigned char)s[i];
    if (c == '"' || c == '\\') {
      putchar('\\');
      putchar(c);
    } else if (c < 0x20 || c == 0x7f) {
      printf("\\u%04x", c);
    } else if (c < 0x80) {
      putchar(c);
    } else if (size_t len = utf8Length(s, i)) {
      fwrite(s.data() + i, 1, len, stdout);
      i += len - 1;
    } else {
      fputs("\\ufffd", stdout);
    }
  }
  putchar('"');
}

void print(const Packet& pk, bool json) {
  if (json) {
    printf("{\"version\":%u,\"level\":%u,\"logger\":", pk.version, pk.level);
    putJson(pk.logger);
    printf(",\"time\":%llu,\"message\":", (unsigned long long)pk.time);
    putJson(pk.message);
    fputs(",\"function\":", stdout);
    putJson(pk.function);
    fputs(",\"file\":", stdout);
    putJson(pk.file);
    printf(",\"line\":%u}\n", pk.line);
    return;
  }
  printf("%llu %u ", (unsigned long long)pk.time, pk.level);
  putPlain(pk.logger);
  putchar(' ');
  if (pk.function.empty()) putchar('-');
  else putPlain(pk.function);
  putchar(' ');
  if (pk.file.empty()) {
    putchar('-');
  } else {
    putPlain(pk.file);
    printf(":%u", pk.line);
  }
  putchar(' ');
  putPlain(pk.message);
  putchar('\n');
}

/* Copies len bytes from ring offset at, wrapping at the end. */
void copyOut(const Ring& ring, uint32_t at, unsigned char* to, uint32_t len) {
  uint32_t first = ring.n - at < len ? ring.n - at : len;
  memcpy(to, ring.data + at, first);
  memcpy(to + first, ring.data, len - first);
}

struct Counts {
  uint64_t packets = 0, damaged = 0;
};

/* Reads every packet written so far; returns how many were read. */
uint64_t drain(const Ring& ring, const Options& o, std::vector<unsigned char>& buf, Counts* c) {
  uint32_t r = CxSharedMem_loadWord(ring.header + kOffRead);
  uint32_t w = CxSharedMem_loadWord(ring.header + kOffWrite);
  uint64_t read = 0;
  if (r >= ring.n || w >= ring.n) {
    fprintf(stderr, "ardel-tas-reader: index out of the ring (read %u, write %u)\n", r, w);
    c->damaged++;
    if (w < ring.n) CxSharedMem_storeWord(ring.header + kOffRead, w);
    return 0;
  }
  while (r != w && (o.count == 0 || c->packets < o.count)) {
    uint32_t used = w > r ? w - r : w + ring.n - r;
    unsigned char len[4];
    Packet pk;
    bool ok = used >= 4;
    uint32_t s = 0;
    if (ok) {
      copyOut(ring, r, len, 4);
      s = (uint32_t)len[0] << 24 | (uint32_t)len[1] << 16 | (uint32_t)len[2] << 8 | len[3];
      ok = s >= kPacketFixed && s <= used;
    }
    if (ok) {
      copyOut(ring, r, buf.data(), s);
      ok = decode(buf.data(), s, &pk);
    }
    if (!ok) {
      fprintf(stderr, "ardel-tas-reader: damaged packet at %u (length %u), skipped to %u\n", r, s, w);
      c->damaged++;
      r = w;
    } else {
      print(pk, o.json);
      c->packets++;
      read++;
      r = (uint32_t)(((uint64_t)r + s) % ring.n);
    }
    CxSharedMem_storeWord(ring.header + kOffRead, r);
  }
  return read;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (!parseOptions(argc, argv, &o)) return usage();
  /* The reader polls with short sleeps, so the plain handler of every
     platform serves: no call needs to be interrupted. */
  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);

  Ring ring;
  if (!setUp(o, &ring)) {
    tearDown(o, &ring);
    return 1;
  }
  static char outBuf[1 << 16];
  setvbuf(stdout, outBuf, _IOFBF, sizeof outBuf);
  std::vector<unsigned char> buf(ring.n);
  Counts c;
  fprintf(stderr, "ardel-tas-reader: ready %s (%u bytes, %s)\n", o.id.c_str(), ring.n,
          ring.created ? "created" : "attached");
  while (!g_stop && (o.count == 0 || c.packets < o.count)) {
    if (drain(ring, o, buf, &c) == 0) {
      fflush(stdout);
      idlePause();
    }
  }
  drain(ring, o, buf, &c);
  fflush(stdout);
  tearDown(o, &ring);
  fprintf(stderr, "ardel-tas-reader: %llu packets, %llu damaged\n", (unsigned long long)c.packets,
          (unsigned long long)c.damaged);
  return 0;
}
