// SPDX-License-Identifier: Apache-2.0
/*
 * The object graph a properties file configures: loggers, then the filters
 * and handlers they pass events to, and the formatters of the handlers,
 * with the properties that tell where output goes.  Printed as an indented
 * tree or as Graphviz DOT.
 */
#ifndef ARDEL_TOOLS_GRAPH_H
#define ARDEL_TOOLS_GRAPH_H

#include <cstdio>
#include <string>

/* Prints the graph of the file at path to out, as text or DOT.  Returns the
   number of flagged nodes (unknown classes, names that name nothing), or -1
   when the file cannot be opened. */
int Graph_print(const std::string& path, bool dot, FILE* out);

#endif
