// SPDX-License-Identifier: Apache-2.0
// The object graph: each small file must print as the expected tree, with
// every unknown class, dangling name and cycle flagged; the DOT form of the
// same files must be accepted by Graphviz.
#include "Graph.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

std::string graphOf(const TempDir& dir, const std::string& content, bool dot, int* flagged) {
  std::string path = dir.write("g.properties", content);
  std::string out = dir.file(dot ? "g.dot" : "g.txt");
  FILE* f = std::fopen(out.c_str(), "w");
  *flagged = Graph_print(path, dot, f);
  std::fclose(f);
  return readFile(out);
}

TEST(ConfigGraph, TreesFlagWhatCannotWorkAndGraphvizReadsTheDotForm) {
  struct Case { const char* file; int flagged; const char *tree, *edge; /* one edge the DOT form draws */ } cases[] = {
      {"app.className=qlg_basiclogger\napp.level=WARN\napp.listenerNames=out errs\n"
       "out.className=qlg_filehandler\nout.fileName=a.log\nout.formatterName=xml\n"
       "errs.className=qlg_levelfilter\nerrs.level=ERROR\nerrs.listenerNames=out ardel.stderrHandler\n"
       "xml.className=qlg_xmlformatter\n",
       0,
       "app (qlg_basiclogger, level=WARN)\n"
       "    -> out (qlg_filehandler, fileName=a.log)\n"
       "        formats with xml (qlg_xmlformatter)\n"
       "    -> errs (qlg_levelfilter, level=ERROR)\n"
       "        -> out (shown above)\n"
       "        -> ardel.stderrHandler (made by the toolkit)\n",
       "\"errs\" -> \"out\";"},
      // Settings inherited along the dots show on the object that gets them.
      {"h.className=qlg_filehandler\nh.maxFiles=3\nh.one.fileName=x\nl.className=qlg_basiclogger\n"
       "l.listenerNames=h.one\n",
       0,
       "l (qlg_basiclogger)\n    -> h.one (qlg_filehandler, fileName=x, maxFiles=3)\n"
       "# reached from no logger:\nh (qlg_filehandler, maxFiles=3)\n",
       "\"l\" -> \"h.one\";"},
      {"a.className=qlg_basiclogger\na.listenerNames=b ghost\nb.className=qlg_levelfilter\nb.listenerNames=c\n"
       "c.className=no_such\nc.listenerNames=b\n",
       3,
       "a (qlg_basiclogger)\n    -> b (qlg_levelfilter)\n        -> c (no_such) [unknown class]\n"
       "            -> b [cycle]\n    -> ghost [names nothing]\n",
       "\"c\" -> \"b\";"},
  };
  TempDir dir;
  bool graphviz = std::system("command -v dot >/dev/null 2>&1") == 0;
  for (const Case& c : cases) {
    int flagged = -9;
    EXPECT_EQ(graphOf(dir, c.file, false, &flagged), c.tree) << c.file;
    EXPECT_EQ(flagged, c.flagged) << c.file;
    std::string dot = graphOf(dir, c.file, true, &flagged);
    EXPECT_NE(dot.find(c.edge), std::string::npos) << dot;
    EXPECT_EQ(dot.find("color=red") != std::string::npos, c.flagged > 0) << dot;
    EXPECT_TRUE(!graphviz || std::system(("dot -Tsvg " + dir.file("g.dot") + " -o " + dir.file("g.svg")).c_str()) == 0) << dot;
  }
  EXPECT_EQ(Graph_print(dir.file("missing.properties"), false, stdout), -1);
}

}  // namespace
