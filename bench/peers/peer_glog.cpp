// SPDX-License-Identifier: Apache-2.0
/* glog: no buffering (logbuflevel -1, so every record is flushed), its own
   fixed line prefix; its size rollover (max_log_size, in MiB) starts new
   files and keeps no fixed count. */
#include <glog/logging.h>

#include "peer_common.h"

namespace {

bool setup(const std::string& dir, peer::Mode mode) {
  FLAGS_logtostderr = false;
  FLAGS_alsologtostderr = false;
  FLAGS_stderrthreshold = google::GLOG_FATAL;
  FLAGS_logbuflevel = -1;
  FLAGS_v = 0;
  if (mode == peer::Mode::Rotating) FLAGS_max_log_size = 1;
  google::InitGoogleLogging("peer_glog");
  google::SetLogDestination(google::GLOG_INFO, (dir + "/glog.").c_str());
  return true;
}

void log(long i) { LOG(INFO) << "value " << i << " of " << "name"; }

PEER_DISABLED_LOOP(VLOG(1) << "value " << i << " of " << "name")

}  // namespace

int main(int argc, char** argv) {
  return peer::run(peer::Library{setup, log, disabledLoop, nullptr}, argc, argv);
}
