// SPDX-License-Identifier: Apache-2.0
/*
 * The positional printf engine against the C library on five typical
 * message formats.  QlgPrintf_formatParms returns a new heap string, so the
 * C library side pays for one as well: snprintf into a stack buffer, then
 * strdup.  The parameter lists are built once, as a message carries them.
 */
#include <benchmark/benchmark.h>

#include <ardel/QlgMem.h>
#include "msg/QlgParmList.h"
#include "msg/QlgPrintf.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace {

QlgParm str(const char* s) {
  QlgParm p;
  std::memset(&p, 0, sizeof p);
  p.kind = QLG_PARM_STRING;
  p.value.s = const_cast<char*>(s);
  return p;
}
QlgParm num(int v) {
  QlgParm p;
  std::memset(&p, 0, sizeof p);
  p.kind = QLG_PARM_INT;
  p.value.i = v;
  return p;
}
QlgParm lng(long v) {
  QlgParm p;
  std::memset(&p, 0, sizeof p);
  p.kind = QLG_PARM_LONG;
  p.value.l = v;
  return p;
}
QlgParm chr(char v) {
  QlgParm p;
  std::memset(&p, 0, sizeof p);
  p.kind = QLG_PARM_CHAR;
  p.value.c = v;
  return p;
}
QlgParm dbl(double v) {
  QlgParm p;
  std::memset(&p, 0, sizeof p);
  p.kind = QLG_PARM_DOUBLE;
  p.value.d = v;
  return p;
}

struct List {
  QlgParmList* list;
  List(std::initializer_list<QlgParm> items) : list(QlgParmList_create()) {
    for (const QlgParm& p : items) QlgParmList_add(list, &p);
  }
  ~List() { QlgParmList_free(list); }
};

void runEngine(benchmark::State& state, const char* format, const List& parms) {
  for (auto _ : state) {
    char* s = QlgPrintf_formatParms(format, parms.list);
    benchmark::DoNotOptimize(s);
    QlgMem_free(s);
  }
}

/* snprintf into a stack buffer plus a heap copy, as formatParms hands out. */
#define RUN_LIBC(state, ...)                          \
  for (auto _ : state) {                              \
    char buf[1024];                                   \
    std::snprintf(buf, sizeof buf, __VA_ARGS__);      \
    char* s = strdup(buf);                            \
    benchmark::DoNotOptimize(s);                      \
    std::free(s);                                     \
  }

const char kPath[] = "/var/log/inventory/trace.log";
const char kOneString[] = "QLG0051E The log manager could not read the properties file %s.";
const char kTwoStrings[] = "QLGFF0063W The file copying handler %2$s could not copy the file %1$s.";
const char kIntString[] = "QLGBC0031E Property '%1$s' must be %2$d characters or less.";
const char kDouble[] = "QLGFF0060W The disk space requested has exceeded %.2f percent of the maximum.";
const char kTen[] = "%s: event %d of %ld, flag %c, load %.3f, mask %x, id %u, host %s, rate %e, code %d";

void Engine_OneString(benchmark::State& state) { runEngine(state, kOneString, List{str(kPath)}); }
void Libc_OneString(benchmark::State& state) { RUN_LIBC(state, kOneString, kPath) }

void Engine_TwoPositionalStrings(benchmark::State& state) {
  runEngine(state, kTwoStrings, List{str(kPath), str("ffdc.copyHandler")});
}
void Libc_TwoPositionalStrings(benchmark::State& state) {
  RUN_LIBC(state, kTwoStrings, kPath, "ffdc.copyHandler")
}

void Engine_IntAndString(benchmark::State& state) {
  runEngine(state, kIntString, List{str("fileName"), num(255)});
}
void Libc_IntAndString(benchmark::State& state) { RUN_LIBC(state, kIntString, "fileName", 255) }

void Engine_Double(benchmark::State& state) { runEngine(state, kDouble, List{dbl(87.456)}); }
void Libc_Double(benchmark::State& state) { RUN_LIBC(state, kDouble, 87.456) }

void Engine_TenMixed(benchmark::State& state) {
  runEngine(state, kTen,
            List{str("scanner"), num(42), lng(1234567L), chr('Y'), dbl(0.753), num(0xBEEF),
                 num(9001), str("host.example.com"), dbl(12345.678), num(-3)});
}
void Libc_TenMixed(benchmark::State& state) {
  RUN_LIBC(state, kTen, "scanner", 42, 1234567L, 'Y', 0.753, 0xBEEF, 9001u, "host.example.com",
           12345.678, -3)
}

}  // namespace

BENCHMARK(Engine_OneString);
BENCHMARK(Libc_OneString);
BENCHMARK(Engine_TwoPositionalStrings);
BENCHMARK(Libc_TwoPositionalStrings);
BENCHMARK(Engine_IntAndString);
BENCHMARK(Libc_IntAndString);
BENCHMARK(Engine_Double);
BENCHMARK(Libc_Double);
BENCHMARK(Engine_TenMixed);
BENCHMARK(Libc_TenMixed);

BENCHMARK_MAIN();
