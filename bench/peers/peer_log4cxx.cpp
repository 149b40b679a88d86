// SPDX-License-Identifier: Apache-2.0
/* log4cxx: a file appender with immediate flush (its default), the rolling
   appender for 1 MiB x 3. */
#include <log4cxx/fileappender.h>
#include <log4cxx/logger.h>
#include <log4cxx/patternlayout.h>
#include <log4cxx/rolling/rollingfileappender.h>

#include "peer_common.h"

namespace {

log4cxx::LoggerPtr g_log;

bool setup(const std::string& dir, peer::Mode mode) {
  log4cxx::helpers::Pool pool;
  auto layout = std::make_shared<log4cxx::PatternLayout>(
      LOG4CXX_STR("%d{yyyy-MM-dd HH:mm:ss.SSSZ} %F %M %L %m%n"));
  std::string path = dir + "/log4cxx.log";
  log4cxx::FileAppenderPtr app;
  if (mode == peer::Mode::Rotating) {
    auto rolling = std::make_shared<log4cxx::rolling::RollingFileAppender>();
    rolling->setMaximumFileSize(peer::kRotateBytes);
    rolling->setMaxBackupIndex(peer::kRotateFiles - 1);
    app = rolling;
  } else {
    app = std::make_shared<log4cxx::FileAppender>();
  }
  app->setLayout(layout);
  app->setFile(path);
  app->setAppend(false);
  app->setImmediateFlush(true);
  app->activateOptions(pool);
  g_log = log4cxx::Logger::getLogger("bench");
  g_log->addAppender(app);
  g_log->setLevel(mode == peer::Mode::Disabled ? log4cxx::Level::getInfo() : log4cxx::Level::getTrace());
  return true;
}

void log(long i) { LOG4CXX_DEBUG(g_log, "value " << i << " of " << "name"); }

PEER_DISABLED_LOOP(LOG4CXX_TRACE(g_log, "value " << i << " of " << "name"))

}  // namespace

int main(int argc, char** argv) {
  return peer::run(peer::Library{setup, log, disabledLoop, nullptr}, argc, argv);
}
