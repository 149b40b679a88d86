// SPDX-License-Identifier: Apache-2.0
/*
 * Cost of the general statements of <ardel/log.h>: a suppressed ARDEL_DEBUG_MAX
 * (inline threshold test; must not evaluate its arguments) and an enabled
 * ARDEL_WARN into a handler that formats the event and discards it.
 */
#include <benchmark/benchmark.h>

#include <ardel/QlgHandler.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>
#include <ardel/log.h>

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

ArdelLogger* logger() {
  static ArdelLogger* lg = [] {
    char dir[] = "/tmp/ardel-bench-XXXXXX";
    if (!mkdtemp(dir)) std::abort();
    std::string path = std::string(dir) + "/TyxTrace.properties";
    FILE* f = std::fopen(path.c_str(), "w");
    std::fputs("bench.app.className=qlg_basiclogger\n"
               "bench.app.level=INFO\n"
               "bench.app.listenerNames=sink\n"
               "sink.className=bench_discard\n", f);
    std::fclose(f);
    ardel_initialize(path.c_str());
    if (!QlgToolkit_initialize(path.c_str())) std::abort();
    QlgClass_registerHandler("bench_discard", nullptr, nullptr, nullptr, nullptr, discardPublish,
                             nullptr, nullptr);
    ArdelLogger* l = ardel_getLogger("bench.app");
    if (!l) std::abort();
    unlink(path.c_str());
    rmdir(dir);
    return l;
  }();
  return lg;
}

int g_evaluated = 0;
int sideEffect() { return ++g_evaluated; }

void BM_SuppressedDebugMacro(benchmark::State& state) {
  ArdelLogger* lg = logger();
  g_evaluated = 0;
  for (auto _ : state) {
    ARDEL_DEBUG_MAX(lg, "value %d of %s", sideEffect(), "name");
    benchmark::ClobberMemory();
  }
  if (g_evaluated != 0) state.SkipWithError("a suppressed statement evaluated its arguments");
}
BENCHMARK(BM_SuppressedDebugMacro);

void BM_EnabledWarn(benchmark::State& state) {
  ArdelLogger* lg = logger();
  for (auto _ : state) ARDEL_WARN(lg, "value %d of %s", 7, "name");
}
BENCHMARK(BM_EnabledWarn);

}  // namespace

BENCHMARK_MAIN();
