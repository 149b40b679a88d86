// SPDX-License-Identifier: Apache-2.0
// Message catalog files of arbitrary bytes: the loader must accept or
// reject each one without a crash, a leak or a read outside the file, and
// every lookup in an accepted one must give a terminated text.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "nls/QlgCatalog.h"
#include "nls/QlgCodeset.h"

namespace {

size_t g_sink;

void visit(void*, uint32_t, uint32_t, const char* text) {
  if (text) g_sink += std::strlen(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // tmpfs when there is one: the loader reads a file, and disk is slow.
  static std::string path = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/ardel-fuzz-" +
                            std::to_string(getpid()) + ".cat";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  // Inputs that do not start like a catalog get the magic and version 1
  // in front, so that the search spends its time past the header check.
  if (size < 8 || std::memcmp(data, QLG_CATALOG_MAGIC, 8) != 0) std::fwrite(QLG_CATALOG_MAGIC "\0\0\0\1", 1, 12, f);
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  QlgCatalog* cat = QlgCatalog_openFile(path.c_str(), 0);
  if (cat) {
    // Probe the sets and keys a small catalog would hold, then walk all.
    for (int set = 0; set < 4; set++)
      for (int key = 0; key < 6; key++) {
        const char* text = QlgCatalog_getMessage(cat, set, key, "", QlgCodeset_utf8());
        g_sink += std::strlen(text);
      }
    QlgCatalog_visit(cat, visit, nullptr);
    QlgCatalog_close(cat);
  }
  // The cache keys on the path: forget it so the next input is read anew.
  QlgCatalog_shutdown();
  return 0;
}
