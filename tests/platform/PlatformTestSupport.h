/*
 * Helpers shared by the platform tests: a private temporary directory that
 * is removed with everything in it, and whole-file read and write through
 * the C library (so that the code under test is not used to check itself).
 */
#ifndef ARDEL_TESTS_PLATFORMTESTSUPPORT_H
#define ARDEL_TESTS_PLATFORMTESTSUPPORT_H

#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>

namespace ardeltest {

inline int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
  return ::remove(path);
}

class TempDir {
 public:
  TempDir() {
    const char* base = getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/ardel-platform-XXXXXX";
    char buf[4096];
    snprintf(buf, sizeof buf, "%s", tmpl.c_str());
    if (mkdtemp(buf)) path_ = buf;
  }
  ~TempDir() {
    if (!path_.empty()) nftw(path_.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

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
