// SPDX-License-Identifier: Apache-2.0
/*
 * Cost of start-up configuration: reading a properties file into the
 * configuration store, and reading a property through the inheritance chain.
 */
#include <benchmark/benchmark.h>

#include <ardel/QlgMem.h>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "core/QlgObjConfig.h"
#include "core/QlgReadProps.h"

namespace {

std::string writeConfig(int objects) {
  char path[] = "/tmp/ardel-bench-XXXXXX";
  int fd = mkstemp(path);
  /* The parent comes first: a configuration adopts no names made before it
     at the top level. */
  std::string text = "handlers.maxFileBytes=1048576\n";
  for (int i = 0; i < objects; ++i) {
    std::string name = "handlers.h" + std::to_string(i);
    text += name + ".className=qlg_filehandler\n";
    text += name + ".fileName=/var/log/trace" + std::to_string(i) + ".log\n";
    text += name + ".level = DEBUG_MIN\n# comment line\n";
  }
  if (fd >= 0) {
    (void)!write(fd, text.data(), text.size());
    close(fd);
  }
  return path;
}

void BM_ReadPropertiesFile(benchmark::State& state) {
  std::string path = writeConfig(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    QlgObjConfig_startup();
    benchmark::DoNotOptimize(QlgReadProps_read(path.c_str(), nullptr));
    QlgObjConfig_shutdown();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * 3);
  std::remove(path.c_str());
}
BENCHMARK(BM_ReadPropertiesFile)->Arg(10)->Arg(100);

void BM_InheritedPropertyLookup(benchmark::State& state) {
  std::string path = writeConfig(20);
  QlgObjConfig_startup();
  QlgReadProps_read(path.c_str(), nullptr);
  QlgObjConfig* cfg = QlgObjConfig_find("handlers.h19");
  int found = 0;
  for (auto _ : state) {
    char* v = QlgObjConfig_getProperty(cfg, "maxFileBytes", &found);
    benchmark::DoNotOptimize(v);
    QlgMem_free(v);
  }
  if (!found) state.SkipWithError("the property was not inherited");
  QlgObjConfig_releaseUnlocked(cfg);
  QlgObjConfig_shutdown();
  std::remove(path.c_str());
}
BENCHMARK(BM_InheritedPropertyLookup);

}  // namespace

BENCHMARK_MAIN();
