// SPDX-License-Identifier: Apache-2.0
/*
 * Object graph.  Built from the same model as the checker, so a name that
 * the checker calls dangling is flagged here too, and inheritance by dotted
 * names (an object's listeners, level or formatter set on an ancestor) is
 * shown as the toolkit applies it.
 */
#include "Graph.h"

#include <ardel/QlgToolkit.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <vector>

#include "Checker.h"
#include "ClassTable.h"

namespace {

/* The properties that say where events go or which pass, in display order. */
const char* const kShown[] = {"level", "fileName", "maxFileBytes", "maxFiles", "baseDir",
                              "transport", "host", "port", "IPCID"};

struct Node {
  std::string name;
  std::string cls;        /* "" when the file gives none */
  int kind = 0;           /* QlgClassKind of a built-in class, 0 otherwise */
  bool known = false;     /* the class exists, or the toolkit makes the object itself */
  std::string details;    /* "level=WARN, fileName=x.log" */
  std::vector<std::string> listeners;
  std::string formatter;  /* formatterName, "" when none */
};

class Graph {
 public:
  explicit Graph(const ConfigModel& m) : m_(m) {}

  Node node(const std::string& name) const {
    Node n;
    n.name = name;
    n.cls = m_.classOf(name);
    if (Checker_isBuiltinObject(name) && n.cls.empty()) {
      n.known = true;
      return n;
    }
    const ClassInfo* info = n.cls.empty() ? nullptr : ClassTable_find(n.cls.c_str());
    n.kind = info ? info->kind : 0;
    n.known = !n.cls.empty() && QlgClass_find(n.cls.c_str()) != nullptr;
    for (const char* key : kShown)
      if (const ConfigModel::Value* v = m_.lookup(name, key))
        n.details += (n.details.empty() ? "" : ", ") + std::string(key) + "=" + v->text;
    n.listeners = m_.listenersOf(name);
    if (const ConfigModel::Value* f = m_.lookup(name, "formatterName")) n.formatter = f->text;
    return n;
  }

  /* Objects nothing passes events to, loggers first: where the tree starts. */
  std::vector<std::string> roots() const {
    std::set<std::string> reached;
    for (const std::string& o : classed())
      for (const std::string& l : m_.listenersOf(o)) reached.insert(l);
    std::vector<std::string> out;
    for (int pass = 0; pass < 2; pass++)
      for (const std::string& o : classed()) {
        bool logger = node(o).kind == QLG_KIND_LOGGER;
        if (!reached.count(o) && logger == (pass == 0) && node(o).kind != QLG_KIND_FORMATTER) out.push_back(o);
      }
    return out;
  }

  std::vector<std::string> classed() const {
    std::vector<std::string> out;
    for (const std::string& o : m_.objects())
      if (!m_.classOf(o).empty()) out.push_back(o);
    return out;
  }

  const ConfigModel& m_;
};

std::string describe(const Node& n, int* flagged) {
  std::string s = n.name;
  if (n.cls.empty() && n.known) return s + " (made by the toolkit)";
  if (n.cls.empty()) {
    ++*flagged;
    return s + " [names nothing]";
  }
  s += " (" + n.cls + (n.details.empty() ? "" : ", " + n.details) + ")";
  if (!n.known) {
    ++*flagged;
    s += " [unknown class]";
  }
  return s;
}

void printTree(const Graph& g, const std::string& name, int depth, std::vector<std::string>& path,
               std::set<std::string>& expanded, int* flagged, FILE* out) {
  Node n = g.node(name);
  std::string indent(static_cast<size_t>(depth) * 4, ' ');
  std::string arrow = depth ? "-> " : "";
  bool onPath = false;
  for (const std::string& p : path) onPath = onPath || p == name;
  if (onPath) {
    std::fprintf(out, "%s%s%s [cycle]\n", indent.c_str(), arrow.c_str(), name.c_str());
    ++*flagged;
    return;
  }
  if (expanded.count(name) && !n.cls.empty()) {
    std::fprintf(out, "%s%s%s (shown above)\n", indent.c_str(), arrow.c_str(), name.c_str());
    return;
  }
  expanded.insert(name);
  std::fprintf(out, "%s%s%s\n", indent.c_str(), arrow.c_str(), describe(n, flagged).c_str());
  if (!n.formatter.empty()) {
    Node f = g.node(n.formatter);
    std::fprintf(out, "%s    formats with %s\n", indent.c_str(), describe(f, flagged).c_str());
  }
  path.push_back(name);
  for (const std::string& l : n.listeners) printTree(g, l, depth + 1, path, expanded, flagged, out);
  path.pop_back();
}

std::string dotText(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

const char* shapeOf(int kind) {
  switch (kind) {
    case QLG_KIND_LOGGER: return "box";
    case QLG_KIND_FILTER: return "hexagon";
    case QLG_KIND_HANDLER: return "box, style=rounded";
    case QLG_KIND_FORMATTER: return "note";
    default: return "box, style=dashed";
  }
}

void dotNode(const Node& n, int* flagged, FILE* out) {
  std::vector<std::string> lines = {n.name};
  const char* extra = "";
  if (n.cls.empty() && n.known) {
    lines.push_back("(made by the toolkit)");
  } else if (n.cls.empty()) {
    lines.push_back("names nothing");
    extra = ", color=red, fontcolor=red";
    ++*flagged;
  } else {
    lines.push_back(n.cls);
    if (!n.details.empty()) lines.push_back(n.details);
    if (!n.known) {
      lines.push_back("unknown class");
      extra = ", color=red, fontcolor=red";
      ++*flagged;
    }
  }
  std::string label;
  for (const std::string& l : lines) label += (label.empty() ? "" : "\\n") + dotText(l);
  std::fprintf(out, "  \"%s\" [shape=%s, label=\"%s\"%s];\n", dotText(n.name).c_str(), shapeOf(n.kind),
               label.c_str(), extra);
}

}  // namespace

int Graph_print(const std::string& path, bool dot, FILE* out) {
  ConfigModel model;
  if (!model.read(path)) {
    std::fprintf(stderr, "%s: cannot be opened: %s\n", path.c_str(), std::strerror(errno));
    return -1;
  }
  QlgToolkit_initialize(nullptr);  // the class registry, for classes of the library itself
  QlgToolkit_enter();
  Graph g(model);
  int flagged = 0;
  if (!dot) {
    std::vector<std::string> trail;
    std::set<std::string> expanded;
    bool headed = false;
    for (const std::string& r : g.roots()) {
      /* Kept apart: such objects pass settings down by name or wait for a program to ask for them. */
      if (g.node(r).kind != QLG_KIND_LOGGER && !headed) {
        std::fprintf(out, "# reached from no logger:\n");
        headed = true;
      }
      printTree(g, r, 0, trail, expanded, &flagged, out);
    }
    for (const std::string& o : g.classed())  // objects only a cycle reaches
      if (!expanded.count(o) && g.node(o).kind != QLG_KIND_FORMATTER)
        printTree(g, o, 0, trail, expanded, &flagged, out);
  } else {
    std::fprintf(out, "digraph \"%s\" {\n  rankdir=LR;\n  node [fontname=\"Helvetica\", fontsize=10];\n",
                 dotText(path.substr(path.find_last_of('/') + 1)).c_str());
    std::set<std::string> drawn;
    std::vector<std::string> todo = g.classed();
    for (size_t i = 0; i < todo.size(); i++) {
      if (!drawn.insert(todo[i]).second) continue;
      Node n = g.node(todo[i]);
      dotNode(n, &flagged, out);
      for (const std::string& l : n.listeners) {
        std::fprintf(out, "  \"%s\" -> \"%s\";\n", dotText(n.name).c_str(), dotText(l).c_str());
        todo.push_back(l);
      }
      if (!n.formatter.empty()) {
        std::fprintf(out, "  \"%s\" -> \"%s\" [style=dashed, arrowhead=none];\n", dotText(n.name).c_str(),
                     dotText(n.formatter).c_str());
        todo.push_back(n.formatter);
      }
    }
    std::fprintf(out, "}\n");
  }
  QlgToolkit_leave();
  return flagged;
}
