// SPDX-License-Identifier: Apache-2.0
/*
 * Toolkit start-up against the size of its properties file: reading every
 * entry into the configuration store and creating the default objects,
 * all under the toolkit lock.  The goal is 100,000 entries in well under
 * half a second and growth no worse than n log n; the complexity line at
 * the end fits the measured times.
 *
 *   build-bench/bench/bench_startup --benchmark_filter=Startup
 */
#include <benchmark/benchmark.h>

#include <ardel/QlgToolkit.h>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

/* n entries in the shapes a large configuration has: many handlers below
   one configured parent (so each new one is linked beside all the others),
   loggers under their own component names, and deep names whose parent is
   created after them (so each of those adopts the one below it). */
std::string writeConfig(long n) {
  char path[] = "/tmp/ardel-bench-startup-XXXXXX";
  int fd = mkstemp(path);
  std::string text = "handlers.maxFileBytes=1048576\ndeep.level=WARN\n";
  long written = 2;
  for (long i = 0; written < n; ++i) {
    std::string id = std::to_string(i);
    switch (i % 3) {
      case 0:
        text += "handlers.h" + id + ".fileName=/var/log/trace" + id + ".log\n";
        break;
      case 1:
        text += "c" + id + ".loggers.trcLogger.level=DEBUG_MIN\n";
        break;
      default:
        /* The grandchild first, then the name between it and its parent. */
        text += "deep.a" + id + ".b.prop=v\n";
        if (++written < n) text += "deep.a" + id + ".prop=w\n";
        break;
    }
    ++written;
  }
  if (fd >= 0) {
    (void)!write(fd, text.data(), text.size());
    close(fd);
  }
  return path;
}

void BM_Startup(benchmark::State& state) {
  std::string path = writeConfig(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(QlgToolkit_initialize(path.c_str()));
    state.PauseTiming();
    QlgToolkit_shutdown();
    state.ResumeTiming();
  }
  state.SetComplexityN(state.range(0));
  state.SetItemsProcessed(state.iterations() * state.range(0));
  std::remove(path.c_str());
}
BENCHMARK(BM_Startup)
    ->Arg(10000)
    ->Arg(20000)
    ->Arg(40000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oNLogN);

}  // namespace

BENCHMARK_MAIN();
