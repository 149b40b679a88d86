// SPDX-License-Identifier: Apache-2.0
/*
 * National-language costs: rendering a toolkit message from the French
 * catalog (cached after the first use) against the built-in English text
 * when no catalog exists, and converting one log line into the codesets a
 * file handler may name (UTF-8 is a check, a single-byte codeset goes
 * through tables, UTF-16 and GB18030 through the C library).
 */
#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <string>

#include <ardel/QlgI18Msg.h>
#include <ardel/QlgMem.h>
#include "msg/QlgMsgTable.h"
#include "nls/QlgCodeset.h"

namespace {

void render(benchmark::State& state, const char* lang, const char* nlspath) {
  setenv("LANG", lang, 1);
  setenv("NLSPATH", nlspath, 1);
  QlgI18Msg_startup();
  QlgI18Msg* msg = QlgI18Msg_create(QLG_MSG_CATALOG, 1, 31, QlgMsgTable_text(31));
  QlgI18Msg_addString(msg, "fileName");
  QlgI18Msg_addInt(msg, 255);
  for (auto _ : state) {
    char* text = QlgI18Msg_render(msg);
    benchmark::DoNotOptimize(text);
    QlgMem_free(text);
  }
  QlgI18Msg_free(msg);
  QlgI18Msg_shutdown();
}

void BM_RenderFrench(benchmark::State& state) { render(state, "fr_FR.UTF-8", ARDEL_CATALOG_DIR "/%l/%N.cat"); }
BENCHMARK(BM_RenderFrench);

void BM_RenderEnglishNoCatalog(benchmark::State& state) {
  render(state, "en_US.UTF-8", "/nonexistent/%L/%N.cat:/nonexistent/%l/%N.cat");
}
BENCHMARK(BM_RenderEnglishNoCatalog);

void convertLine(benchmark::State& state, const char* codeset) {
  QlgCodeset* cs = QlgCodeset_open(codeset);
  std::string line;
  while (line.size() < 120) line += "Gr\xC3\xB6\xC3\x9F" "e caf\xC3\xA9 na\xC3\xAFve ";
  char out[1024];
  for (auto _ : state) {
    int n = QlgCodeset_fromUtf8(cs, line.data(), static_cast<int>(line.size()), out, sizeof out);
    benchmark::DoNotOptimize(n);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(line.size()));
  QlgCodeset_close(cs);
}
BENCHMARK_CAPTURE(convertLine, UTF8, "UTF8");
BENCHMARK_CAPTURE(convertLine, ISO_8859_1, "ISO-8859-1");
BENCHMARK_CAPTURE(convertLine, UTF_16LE, "UTF-16LE");
BENCHMARK_CAPTURE(convertLine, GB18030, "GB18030");

}  // namespace

BENCHMARK_MAIN();
