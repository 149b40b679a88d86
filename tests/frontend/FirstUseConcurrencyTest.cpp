/*
 * First use from many threads at once: every entry point that starts
 * something lazily (the record getters, ArdelWrapper::getInstance,
 * Tracer::getInstance, a first trace right behind the getter) is hit by
 * 16 or 32 threads released together by a barrier, in many fresh
 * processes, with a properties file that is missing and with a valid one.
 * Every thread of a component must get the same handle, a valid file must
 * lose no record, a missing one must neither hang nor touch freed memory;
 * run under ThreadSanitizer, no race may show.
 */
#include <ardel/ArdelWrapper.h>
#include <ardel/CLogWrapper.h>
#include <ardel/Tracer.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#endif

#include "support/Recorder.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

const int kRecordsPerThread = 20;

/* Valgrind runs one thread at a time and finds no races: there one round
   per case is enough to check the memory. */
int rounds() {
#ifdef RUNNING_ON_VALGRIND
  if (RUNNING_ON_VALGRIND) return 1;
#endif
  return 6;
}

/* Releases all threads at once, so that they meet inside the first use. */
class Barrier {
 public:
  explicit Barrier(int n) : left_(n) {}
  void arriveAndWait() {
    left_.fetch_sub(1);
    while (left_.load() > 0) std::this_thread::yield();
  }

 private:
  std::atomic<int> left_;
};

/* One entry point: take the handle of a component, then trace through it. */
struct EntryPoint {
  const char* name;
  int components;  /* the threads spread over this many components */
  std::function<const void*(int component)> first;
  std::function<void(const void* handle)> trace;
};

const EntryPoint kEntryPoints[] = {
    {"getters", 8,
     [](int c) -> const void* {
       static CLogWrapper* (*const getters[])(void) = {getCLogHw,  getCLogSw,     getCLogCom, getCLogXse,
                                                       getCLogFs,  getCLogPlugin, getCLogUse, getCLogNet};
       return getters[c]();
     },
     [](const void* h) { traceMIN(static_cast<CLogWrapper*>(const_cast<void*>(h)), 1, "t.c", "f", "r"); }},
    {"createWrapper, one component", 1, [](int) -> const void* { return createWrapper(0); },
     [](const void* h) { traceMIN(static_cast<CLogWrapper*>(const_cast<void*>(h)), 1, "t.c", "f", "r"); }},
    {"ArdelWrapper::getInstance", 8,
     [](int c) -> const void* { return ArdelWrapper::getInstance(static_cast<ArdelWrapper::ArdelLogType>(c)); },
     [](const void* h) { const_cast<ArdelWrapper*>(static_cast<const ArdelWrapper*>(h))->traceMIN(1, "t.c", "f", "r"); }},
    {"Tracer::getInstance", 6,
     [](int c) -> const void* { return &Tracer::getInstance(static_cast<Tracer::Component>(c)); },
     [](const void* h) { const_cast<Tracer*>(static_cast<const Tracer*>(h))->log(1, "t.c", 1, "f", "r"); }},
};

/* Every component logger at minimum tracing into the recorder. */
std::string validProperties() {
  std::string s = "rec.className=test_recorder\n";
  for (const char* c : {"hw", "vpd", "common", "sigeval", "fscanner", "plugin", "use", "net"}) {
    std::string logger = std::string(c) + ".loggers.trcLogger";
    s += logger + ".className=qlg_basiclogger\n" + logger + ".listenerNames=rec\n" + logger + ".level=DEBUG_MIN\n";
  }
  return s;
}

/* One round in a fresh process: threads meet in the first use, then trace. */
void round(const EntryPoint& ep, int threads, bool valid) {
  inChild([&] {
    alarm(30);  /* a thread stuck on the toolkit lock ends the child, not the suite */
    TempDir dir;
    if (valid) {
      mkdir(dir.file("config").c_str(), 0700);
      dir.write("config/TyxTrace.properties", validProperties());
      registerRecorder();
    }
    /* The tracer factory settles the path itself; the others use it as set. */
    setenv("TYX_TEST", valid ? dir.path().c_str() : "/nonexistent", 1);
    if (std::string(ep.name) != "Tracer::getInstance") initializeWrapper(nullptr);
    CaptureFd err(2);
    Barrier barrier(threads);
    std::vector<const void*> handles(threads);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
      pool.emplace_back([&, t] {
        barrier.arriveAndWait();
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
  const EntryPoint& ep = kEntryPoints[std::get<0>(GetParam())];
  for (int r = 0; r < rounds() && !HasFailure(); ++r) round(ep, std::get<1>(GetParam()), std::get<2>(GetParam()));
}

std::string caseName(const ::testing::TestParamInfo<FirstUse::ParamType>& info) {
  static const char* const names[] = {"Getters", "CreateWrapper", "ArdelWrapper", "Tracer"};
  auto [entry, threads, valid] = info.param;
  return std::string(names[entry]) + "_" + std::to_string(threads) + "Threads_" +
         (valid ? "ValidFile" : "MissingFile");
}

INSTANTIATE_TEST_SUITE_P(EveryEntryPoint, FirstUse,
                         ::testing::Combine(::testing::Range(0, 4), ::testing::Values(16, 32), ::testing::Bool()),
                         caseName);

}  // namespace
