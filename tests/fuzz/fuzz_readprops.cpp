// SPDX-License-Identifier: Apache-2.0
// Properties files of arbitrary bytes: the reader must accept or reject
// each one without a crash, a leak or an overrun.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/QlgObjConfig.h"
#include "core/QlgReadProps.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static std::string path = "/tmp/ardel-fuzz-" + std::to_string(getpid()) + ".properties";
  static int devNull = open("/dev/null", O_WRONLY);
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  // Key 52 goes to standard error: silence it during the read only, so
  // that the fuzzer's own reports still show.
  std::fflush(stderr);
  int saved = dup(2);
  dup2(devNull, 2);
  QlgObjConfig_startup();
  QlgReadProps_read(path.c_str(), nullptr);
  QlgObjConfig_shutdown();
  std::fflush(stderr);
  dup2(saved, 2);
  close(saved);
  return 0;
}
