// SPDX-License-Identifier: Apache-2.0
/*
 * Cost of the front end's trace statements: a suppressed traceMAX through
 * the exported function and through the ARDEL_TRACE_MAX macro (which tests
 * the cached level inline and must not evaluate its arguments), and an
 * enabled traceMIN into a handler that formats the event and discards it.
 */
#include <benchmark/benchmark.h>

#include <ardel/CLogWrapper.h>
#include <ardel/QlgHandler.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

void discardPublish(QlgObject* handler, QlgEvent* event) {
  char* text = QlgHandler_format(handler, event);
  benchmark::DoNotOptimize(text);
  QlgMem_free(text);
}

/* The hardware record at minimum tracing (level 1), its logger feeding a
   discarding handler. */
CLogWrapper* record() {
  static CLogWrapper* w = [] {
    char dir[] = "/tmp/ardel-bench-XXXXXX";
    if (!mkdtemp(dir)) std::abort();
    std::string path = std::string(dir) + "/TyxTrace.properties";
    FILE* f = std::fopen(path.c_str(), "w");
    std::fputs("hw.loggers.trcLogger.className=qlg_basiclogger\n"
               "hw.loggers.trcLogger.level=DEBUG_MIN\n"
               "hw.loggers.trcLogger.listenerNames=sink\n"
               "sink.className=bench_discard\n", f);
    std::fclose(f);
    initializeWrapper(path.c_str());
    if (!QlgToolkit_initialize(path.c_str())) std::abort();
    QlgClass_registerHandler("bench_discard", nullptr, nullptr, nullptr, nullptr, discardPublish,
                             nullptr, nullptr);
    CLogWrapper* rec = getCLogHw();
    if (!rec || rec->active != 1 || rec->trcLevel != 1) std::abort();
    unlink(path.c_str());
    rmdir(dir);
    return rec;
  }();
  return w;
}

int g_evaluated = 0;
int sideEffect() { return ++g_evaluated; }

void BM_SuppressedTraceMaxFunction(benchmark::State& state) {
  CLogWrapper* w = record();
  for (auto _ : state) {
    traceMAX(w, __LINE__, __FILE__, "bench", "value %d of %s", 7, "name");
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_SuppressedTraceMaxFunction);

void BM_SuppressedTraceMaxMacro(benchmark::State& state) {
  CLogWrapper* w = record();
  g_evaluated = 0;
  for (auto _ : state) {
    ARDEL_TRACE_MAX(w, "value %d of %s", sideEffect(), "name");
    benchmark::ClobberMemory();
  }
  if (g_evaluated != 0) state.SkipWithError("a suppressed statement evaluated its arguments");
}
BENCHMARK(BM_SuppressedTraceMaxMacro);

void BM_EnabledTraceMin(benchmark::State& state) {
  CLogWrapper* w = record();
  for (auto _ : state) traceMIN(w, __LINE__, __FILE__, "bench", "value %d of %s", 7, "name");
}
BENCHMARK(BM_EnabledTraceMin);

}  // namespace

BENCHMARK_MAIN();
