// SPDX-License-Identifier: Apache-2.0
/*
 * ardel-config: tools for properties files.
 *
 *   ardel-config check FILE...   report every mistake, as file:line: text;
 *                                exit 0 when there is none, 1 otherwise
 *   ardel-config graph [--dot] FILE   the objects the file configures and
 *                                how events flow between them, as an
 *                                indented tree or Graphviz DOT; exit 1 when
 *                                a class is unknown or a name names nothing
 *   ardel-config reference       the built-in classes and their properties,
 *                                as Markdown (docs/classes.md is this output)
 */
#include <cstdio>
#include <cstring>

#include "Checker.h"
#include "Graph.h"
#include "Reference.h"

namespace {

int usage() {
  std::fprintf(stderr,
               "usage: ardel-config check FILE...\n"
               "       ardel-config graph [--dot] FILE\n"
               "       ardel-config reference\n");
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
  if (std::strcmp(argv[1], "graph") == 0) {
    bool dot = argc == 4 && std::strcmp(argv[2], "--dot") == 0;
    if (argc != 3 + (dot ? 1 : 0)) return usage();
    int flagged = Graph_print(argv[argc - 1], dot, stdout);
    return flagged < 0 ? 2 : flagged > 0 ? 1 : 0;
  }
  if (std::strcmp(argv[1], "reference") == 0 && argc == 2) {
    ClassTable_printReference(stdout);
    return 0;
  }
  return usage();
}
