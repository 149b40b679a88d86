// SPDX-License-Identifier: Apache-2.0
/* spdlog: a file sink flushed after every record (flush_on(trace)), the
   thread-safe sinks, the rotating sink for 1 MiB x 3; for the asynchronous
   workloads the async logger over the same file sink, one worker thread,
   a queue of the same size and the block policy. */
#define SPDLOG_ACTIVE_LEVEL SPDLOG_LEVEL_TRACE
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include "peer_common.h"

namespace {

std::shared_ptr<spdlog::logger> g_log;

bool setup(const std::string& dir, peer::Mode mode) {
  spdlog::sink_ptr sink;
  if (mode == peer::Mode::Rotating)
    sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(dir + "/spdlog.log", peer::kRotateBytes,
                                                                  peer::kRotateFiles - 1);
  else
    sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(dir + "/spdlog.log", true);
  if (mode == peer::Mode::Async) {
    spdlog::init_thread_pool(peer::kAsyncQueue, 1);
    g_log = std::make_shared<spdlog::async_logger>("bench", sink, spdlog::thread_pool(),
                                                   spdlog::async_overflow_policy::block);
  } else {
    g_log = std::make_shared<spdlog::logger>("bench", sink);
  }
  g_log->set_pattern("%Y-%m-%d %H:%M:%S.%e%z %s %! %# %v");
  g_log->set_level(mode == peer::Mode::Disabled ? spdlog::level::info : spdlog::level::trace);
  g_log->flush_on(spdlog::level::trace);
  return true;
}

void log(long i) {
  g_log->log(spdlog::source_loc{"bench.c", 42, "function"}, spdlog::level::debug, "value {} of {}", i,
             "name");
}

PEER_DISABLED_LOOP(SPDLOG_LOGGER_TRACE(g_log, "value {} of {}", i, "name"))

/* The worker writes what is queued before the pool it shares with the
   registry is destroyed, and the pool's end joins it. */
void flush() {
  g_log->flush();
  g_log.reset();
  spdlog::shutdown();
}

}  // namespace

int main(int argc, char** argv) {
  return peer::run(peer::Library{setup, log, disabledLoop, nullptr, flush}, argc, argv);
}
