// SPDX-License-Identifier: Apache-2.0
/* log4cplus: a file appender with immediate flush (every record reaches the
   kernel), the rolling appender for 1 MiB x 3. */
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "peer_common.h"

namespace {

log4cplus::Logger g_log;

bool setup(const std::string& dir, peer::Mode mode) {
  static log4cplus::Initializer init;
  log4cplus::SharedAppenderPtr app;
  std::string path = dir + "/log4cplus.log";
  if (mode == peer::Mode::Rotating)
    app = new log4cplus::RollingFileAppender(LOG4CPLUS_TEXT(path), peer::kRotateBytes,
                                             peer::kRotateFiles - 1, true);
  else
    app = new log4cplus::FileAppender(LOG4CPLUS_TEXT(path), std::ios_base::trunc, true);
  app->setLayout(std::unique_ptr<log4cplus::Layout>(
      new log4cplus::PatternLayout(LOG4CPLUS_TEXT("%D{%Y-%m-%d %H:%M:%S.%q%Z} %b %M %L %m%n"))));
  g_log = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("bench"));
  g_log.addAppender(app);
  g_log.setLogLevel(mode == peer::Mode::Disabled ? log4cplus::INFO_LOG_LEVEL : log4cplus::TRACE_LOG_LEVEL);
  return true;
}

void log(long i) { LOG4CPLUS_DEBUG_FMT(g_log, LOG4CPLUS_TEXT("value %ld of %s"), i, "name"); }

PEER_DISABLED_LOOP(LOG4CPLUS_TRACE_FMT(g_log, LOG4CPLUS_TEXT("value %ld of %s"), i, "name"))

}  // namespace

int main(int argc, char** argv) {
  return peer::run(peer::Library{setup, log, disabledLoop, nullptr}, argc, argv);
}
