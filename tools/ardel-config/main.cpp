/*
 * ardel-config: tools for properties files.
 *
 *   ardel-config check FILE...   report every mistake, as file:line: text;
 *                                exit 0 when there is none, 1 otherwise
 */
#include <cstdio>
#include <cstring>

#include "Checker.h"

namespace {

int usage() {
  std::fprintf(stderr,
               "usage: ardel-config check FILE...\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return usage();
  if (std::strcmp(argv[1], "check") == 0) {
    if (argc < 3) return usage();
    int findings = 0;
    for (int i = 2; i < argc; i++) findings += Checker_check(argv[i], stdout);
    return findings ? 1 : 0;
  }
  return usage();
}
