// SPDX-License-Identifier: Apache-2.0
/*
 * Cost of formatting one event, side by side for the basic, XML and trace
 * formatters: the same trace event with a source location and two
 * parameters, bare and stamped with the identity a problem-determination
 * logger adds.  The XML record must stay within twice the basic line's cost.
 */
#include <benchmark/benchmark.h>

#include <ardel/QlgEvent.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>

#include <cstdlib>
#include <cstring>

namespace {

QlgObject* formatter(const char* className) {
  if (!QlgToolkit_initialize(nullptr)) std::abort();
  QlgObject* f = QlgObject_create(className, className);
  if (!f) std::abort();
  return f;
}

QlgEvent* traceEvent(bool identity) {
  QlgEvent* e = QlgEvent_createTagged(3000, nullptr, 0, 0, "value %1$d of %2$s", QLG_PARM_INT, 7,
                                      QLG_PARM_STRING, "name", 0);
  QlgEvent_addStringProperty(e, QLG_PROP_SRCFILE, "bench.c");
  QlgEvent_addIntProperty(e, QLG_PROP_SRCLINE, 42);
  QlgEvent_addStringProperty(e, QLG_PROP_SRCFUNCTION, "function");
  if (identity) {
    QlgEvent_addStringProperty(e, "product", "ardel");
    QlgEvent_addStringProperty(e, "component", "bench");
    QlgEvent_addStringProperty(e, "server", "host.example.com");
    QlgEvent_addStringProperty(e, "serverFormat", "IP");
    QlgEvent_addLongProperty(e, "processId", 4321);
    QlgEvent_addLongProperty(e, "threadId", 4322);
  }
  return e;
}

/* Arg 0: bare trace event; arg 1: with identity, process and thread. */
void formatWith(benchmark::State& state, const char* className) {
  QlgObject* f = formatter(className);
  QlgEvent* e = traceEvent(state.range(0) != 0);
  size_t bytes = 0;
  for (auto _ : state) {
    char* text = f->cls->slots.formatter.format(f, e);
    benchmark::DoNotOptimize(text);
    bytes = text ? std::strlen(text) : 0;
    QlgMem_free(text);
  }
  state.counters["bytes/record"] = static_cast<double>(bytes);
  QlgEvent_free(e);
  QlgObject_release(f);
}

void BM_BasicFormatter(benchmark::State& state) { formatWith(state, "qlg_basicformatter"); }
void BM_XmlFormatter(benchmark::State& state) { formatWith(state, "qlg_xmlformatter"); }
void BM_TraceFormatter(benchmark::State& state) { formatWith(state, "qlg_zarvotraceformatter"); }
BENCHMARK(BM_BasicFormatter)->Arg(0)->Arg(1);
BENCHMARK(BM_XmlFormatter)->Arg(0)->Arg(1);
BENCHMARK(BM_TraceFormatter)->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
