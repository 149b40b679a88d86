// SPDX-License-Identifier: Apache-2.0
// The configuration tree against a plain model of its rule, on 340 names
// made in a scrambled order (enough for the store's indexes to be in use):
// a new name takes the longest configured dotted prefix as parent and
// adopts, in order, the children of that parent that now lie below it.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "core/QlgObjConfig.h"

namespace {

struct Model {
  std::map<std::string, std::pair<std::string, std::vector<std::string>>> nodes; /* parent, children */
  std::string parentOf(const std::string& n) const {
    for (size_t cut = n.rfind('.'); cut != std::string::npos && cut > 0; cut = n.rfind('.', cut - 1))
      if (nodes.count(n.substr(0, cut))) return n.substr(0, cut);
    return "/";
  }
  void create(const std::string& n) {
    std::string p = nodes[n].first = parentOf(n);
    if (p == "/") return;
    std::vector<std::string> stay;
    for (const std::string& k : nodes[p].second)
      if (parentOf(k) == p) stay.push_back(k);
      else nodes[n].second.push_back(k), nodes[k].first = n;
    stay.push_back(n);
    nodes[p].second = stay;
  }
};

void names(const std::string& prefix, int depth, std::vector<std::string>* out) {
  for (const char* part : {"a", "b", "c", "d"}) {
    out->push_back(prefix + "." + part);
    if (depth > 1) names(prefix + "." + part, depth - 1, out);
  }
}

TEST(ConfigTreeModel, ParentsAndChildrenFollowTheRuleInAnyOrderOfCreation) {
  ASSERT_TRUE(QlgObjConfig_startup());
  std::vector<std::string> order;
  names("r", 4, &order);
  std::shuffle(order.begin(), order.end(), std::mt19937(17));
  order.insert(order.begin(), "r");
  Model model;
  for (const std::string& n : order) {
    model.create(n);
    QlgObjConfig_releaseUnlocked(QlgObjConfig_find(n.c_str()));
  }
  for (const auto& [name, node] : model.nodes) {
    QlgObjConfig* cfg = QlgObjConfig_find(name.c_str());
    std::vector<std::string> children;
    for (QlgStringGroupEntry* e = QlgStringGroup_first(cfg->children); e; e = e->next) children.push_back(e->key);
    EXPECT_EQ(cfg->parentName, node.first) << name;
    EXPECT_EQ(children, node.second) << name;
    QlgObjConfig_releaseUnlocked(cfg);
  }
  QlgObjConfig_shutdown();
}

}  // namespace
