// SPDX-License-Identifier: Apache-2.0
/*
 * The Windows build's platform test helpers, with the interface of the
 * POSIX ones: a private temporary directory removed with its contents
 * (the one of support/TestSupport.h), and whole-file read and write
 * through the C library.
 */
#ifndef ARDEL_TESTS_PLATFORMTESTSUPPORT_H
#define ARDEL_TESTS_PLATFORMTESTSUPPORT_H

#include <stdio.h>
#include <stdlib.h>
#include <string>

#include "support/TestSupport.h"

namespace ardeltest {

inline bool writeText(const std::string& path, const std::string& text) {
  FILE* f = fopen(path.c_str(), "wb");
  if (!f) return false;
  bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
  return fclose(f) == 0 && ok;
}

inline std::string readText(const std::string& path) {
  std::string out;
  FILE* f = fopen(path.c_str(), "rb");
  if (!f) return "<missing>";
  char buf[512];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  fclose(f);
  return out;
}

}  // namespace ardeltest

#endif
