// SPDX-License-Identifier: Apache-2.0
// First use from many threads at once: every lazily starting entry point
// (the record getters, ArdelWrapper::getInstance, Tracer::getInstance, a
// first trace right behind the getter) is hit by 16 or 32 threads released
// together, in fresh processes, with a missing and with a valid properties
// file. All threads of a component get one handle, a valid file loses no
// record, a missing one neither hangs nor touches freed memory; under
// ThreadSanitizer no race may show.
#include <ardel/ArdelWrapper.h>
#include <ardel/CLogWrapper.h>
#include <ardel/Tracer.h>

#include <atomic>
#include <filesystem>
#include <thread>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#endif

#include "support/Recorder.h"

using namespace ardeltest;

namespace {

const int kRecordsPerThread = 20;

// Valgrind runs one thread at a time and finds no races: there one round
// per case is enough to check the memory.
int rounds() {
#ifdef RUNNING_ON_VALGRIND
  if (RUNNING_ON_VALGRIND) return 1;
#endif
  return kFreshProcessRounds;
}

// Releases all threads at once, so that they meet inside the first use.
void arriveAndWait(std::atomic<int>& left) {
  left.fetch_sub(1);
  while (left.load() > 0) std::this_thread::yield();
}

// One entry point: the handle of a component (threads spread over
// `components` of them), then one trace through it.
struct EntryPoint {
  int components;
  const void* (*first)(int component);
  void (*trace)(const void* handle);
};

CLogWrapper* record(const void* h) { return static_cast<CLogWrapper*>(const_cast<void*>(h)); }

const EntryPoint kEntryPoints[] = {
    {8, [](int c) -> const void* { return createWrapper(c); }, [](const void* h) { traceMIN(record(h), 1, "t.c", "f", "r"); }},
    {1, [](int) -> const void* { return getCLogHw(); }, [](const void* h) { traceMIN(record(h), 1, "t.c", "f", "r"); }},
    {8, [](int c) -> const void* { return ArdelWrapper::getInstance(static_cast<ArdelWrapper::ArdelLogType>(c)); },
     [](const void* h) { static_cast<ArdelWrapper*>(const_cast<void*>(h))->traceMIN(1, "t.c", "f", "r"); }},
    {6, [](int c) -> const void* { return &Tracer::getInstance(static_cast<Tracer::Component>(c)); },
     [](const void* h) { static_cast<Tracer*>(const_cast<void*>(h))->log(1, "t.c", 1, "f", "r"); }},
};
const int kTracer = 3;

// Every component logger at minimum tracing into the recorder.
std::string validProperties() {
  std::string s = "rec.className=test_recorder\n";
  for (const char* c : {"hw", "vpd", "common", "sigeval", "fscanner", "plugin", "use", "net"}) {
    std::string logger = std::string(c) + ".loggers.trcLogger";
    s += logger + ".className=qlg_basiclogger\n" + logger + ".listenerNames=rec\n" + logger + ".level=DEBUG_MIN\n";
  }
  return s;
}

// One round in a fresh process: threads meet in the first use, then trace.
void round(int entry, int threads, bool valid) {
  const EntryPoint& ep = kEntryPoints[entry];
  inChild([&] {
    TempDir dir;
    if (valid) {
      std::filesystem::create_directory(dir.file("config"));
      dir.write("config/TyxTrace.properties", validProperties());
      registerRecorder();
    }
    // The tracer factory settles the path itself; the others use it as set.
    setEnv("TYX_TEST", valid ? dir.path().c_str() : "/nonexistent");
    if (entry != kTracer) initializeWrapper(nullptr);
    CaptureFd err(2);
    std::atomic<int> left{threads};
    std::vector<const void*> handles(threads);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
      pool.emplace_back([&, t] {
        arriveAndWait(left);
        handles[t] = ep.first(t % ep.components);
        for (int i = 0; i < kRecordsPerThread; ++i) ep.trace(handles[t]);
      });
    for (std::thread& th : pool) th.join();
    std::string reports = err.text();
    for (int t = 0; t < threads; ++t) {
      ASSERT_NE(handles[t], nullptr) << t;
      EXPECT_EQ(handles[t], handles[t % ep.components]) << "thread " << t << " got a handle of its own";
    }
    if (valid) {
      EXPECT_EQ(seen().size(), static_cast<size_t>(threads * kRecordsPerThread)) << "records lost";
      EXPECT_EQ(reports, "");
    } else {
      EXPECT_EQ(seen().size(), 0u);
      EXPECT_NE(reports.find("QLG0051E"), std::string::npos) << reports;
    }
  });
}

class FirstUse : public ::testing::TestWithParam<std::tuple<int, int, bool>> {};

TEST_P(FirstUse, ThreadsMeetingInTheFirstUseShareOneHandleAndLoseNothing) {
  auto [entry, threads, valid] = GetParam();
  for (int r = 0; r < rounds() && !HasFailure(); ++r) round(entry, threads, valid);
}

std::string caseName(const ::testing::TestParamInfo<FirstUse::ParamType>& info) {
  static const char* const names[] = {"CreateWrapper", "GetCLogHw", "ArdelWrapper", "Tracer"};
  auto [entry, threads, valid] = info.param;
  return std::string(names[entry]) + "_" + std::to_string(threads) + "Threads_" +
         (valid ? "ValidFile" : "MissingFile");
}

INSTANTIATE_TEST_SUITE_P(EveryEntryPoint, FirstUse,
                         ::testing::Combine(::testing::Range(0, 4), ::testing::Values(16, 32), ::testing::Bool()),
                         caseName);

}  // namespace
