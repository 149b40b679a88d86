// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target over files instead of under libFuzzer: every file of
// each directory given (and every file given by name) is passed to the
// target once.  The committed corpora (seeds, and the input of every crash
// the fuzzers found) thereby replay as ordinary tests with any compiler and
// under every sanitizer and valgrind.  Fails when it found nothing to run.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void collect(const std::string& path, std::vector<std::string>* files) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return;
  if (!S_ISDIR(st.st_mode)) {
    files->push_back(path);
    return;
  }
  DIR* dir = opendir(path.c_str());
  if (!dir) return;
  while (dirent* e = readdir(dir))
    if (e->d_name[0] != '.') collect(path + "/" + e->d_name, files);
  closedir(dir);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) collect(argv[i], &files);
  std::sort(files.begin(), files.end());
  for (const std::string& f : files) {
    std::ifstream in(f, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::printf("%s (%zu bytes)\n", f.c_str(), bytes.size());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
  std::printf("%zu inputs replayed\n", files.size());
  return files.empty() ? 1 : 0;
}
