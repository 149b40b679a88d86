// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target over files instead of under libFuzzer: every file of
// each directory given (and every file given by name) is passed to the
// target once.  The committed corpora (seeds, and the input of every crash
// the fuzzers found) thereby replay as ordinary tests with any compiler and
// under every sanitizer and valgrind.  Fails when it found nothing to run.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  std::error_code ec;
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i], ec)) {
      if (fs::exists(argv[i], ec)) files.push_back(argv[i]);
      continue;
    }
    for (const auto& e : fs::recursive_directory_iterator(argv[i], ec))
      if (e.is_regular_file(ec) && e.path().filename().string()[0] != '.') files.push_back(e.path().string());
  }
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
