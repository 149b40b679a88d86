// SPDX-License-Identifier: Apache-2.0
/*
 * Cost of the logger entry points: a call suppressed by the threshold (no
 * lock, no call beyond the threshold test) and an enabled call with two
 * parameters into a handler that formats the event with the basic
 * formatter and throws the text away.
 */
#include <benchmark/benchmark.h>

#include <ardel/QlgHandler.h>
#include <ardel/QlgLogger.h>
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

QlgObject* logger() {
  static QlgObject* app = [] {
    char dir[] = "/tmp/ardel-bench-XXXXXX";
    if (!mkdtemp(dir)) std::abort();
    std::string path = std::string(dir) + "/bench.properties";
    FILE* f = std::fopen(path.c_str(), "w");
    std::fputs("app.className=qlg_basiclogger\napp.level=DEBUG_MIN\napp.listenerNames=sink\n"
               "sink.className=bench_discard\n", f);
    std::fclose(f);
    if (!QlgToolkit_initialize(path.c_str())) std::abort();
    QlgClass_registerHandler("bench_discard", nullptr, nullptr, nullptr, nullptr, discardPublish,
                             nullptr, nullptr);
    QlgObject* obj = QlgObject_create("app", nullptr);
    unlink(path.c_str());
    rmdir(dir);
    return obj;
  }();
  return app;
}

void BM_SuppressedLogMax(benchmark::State& state) {
  QlgObject* app = logger();
  for (auto _ : state) {
    QlgLogger_logMax(app, "bench.c", "function", 42, "value %1$d of %2$s", QLG_PARM_INT, 7,
                     QLG_PARM_STRING, "name", 0);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_SuppressedLogMax);

void BM_EnabledLogMinTwoParameters(benchmark::State& state) {
  QlgObject* app = logger();
  for (auto _ : state)
    QlgLogger_logMin(app, "bench.c", "function", 42, "value %1$d of %2$s", QLG_PARM_INT, 7,
                     QLG_PARM_STRING, "name", 0);
}
BENCHMARK(BM_EnabledLogMinTwoParameters);

}  // namespace

BENCHMARK_MAIN();
