/*
 * The configuration tree against a plain model of its rule, on hundreds of
 * names made in a scrambled order: each new name takes the longest
 * configured dotted prefix as parent and adopts those children of that
 * parent that now lie below it, keeping their order.  Large enough that the
 * store's indexes are in use.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "core/QlgObjConfig.h"

namespace {

struct Node {
  std::string parent;
  std::vector<std::string> children;
};

/* The rule, step by step, with linear scans. */
struct Model {
  std::map<std::string, Node> nodes;
  std::string parentOf(const std::string& name) const {
    for (size_t cut = name.rfind('.'); cut != std::string::npos && cut > 0; cut = name.rfind('.', cut - 1))
      if (nodes.count(name.substr(0, cut))) return name.substr(0, cut);
    return "/";
  }
  void create(const std::string& n) {
    if (nodes.count(n)) return;
    nodes[n].parent = parentOf(n);
    const std::string p = nodes[n].parent;
    if (p == "/") return;
    std::vector<std::string> keep;
    for (const std::string& k : nodes[p].children) {
      if (parentOf(k) == p) {
        keep.push_back(k);
      } else {
        nodes[n].children.push_back(k);
        nodes[k].parent = n;
      }
    }
    keep.push_back(n);
    nodes[p].children = keep;
  }
};

TEST(ConfigTreeModel, ParentsAndChildrenFollowTheRuleInAnyOrderOfCreation) {
  ASSERT_TRUE(QlgObjConfig_startup());
  std::vector<std::string> names;
  const char* parts[] = {"a", "b", "c", "d"};
  for (const char* x : parts) {
    names.push_back(std::string("r.") + x);
    for (const char* y : parts) {
      names.push_back(std::string("r.") + x + "." + y);
      for (const char* z : parts) {
        names.push_back(std::string("r.") + x + "." + y + "." + z);
        for (const char* w : parts) names.push_back(std::string("r.") + x + "." + y + "." + z + "." + w);
      }
    }
  }
  std::mt19937 rng(17);
  std::shuffle(names.begin(), names.end(), rng);
  names.insert(names.begin(), "r");
  Model model;
  for (const std::string& n : names) {
    model.create(n);
    QlgObjConfig_releaseUnlocked(QlgObjConfig_find(n.c_str()));
  }
  for (const auto& [name, node] : model.nodes) {
    QlgObjConfig* cfg = QlgObjConfig_find(name.c_str());
    std::vector<std::string> children;
    for (QlgStringGroupEntry* e = QlgStringGroup_first(cfg->children); e; e = e->next) children.push_back(e->key);
    EXPECT_EQ(cfg->parentName, node.parent) << name;
    EXPECT_EQ(children, node.children) << name;
    QlgObjConfig_releaseUnlocked(cfg);
  }
  QlgObjConfig_shutdown();
}

}  // namespace
