// Building host trees in tests: a node with values, and a child added with
// the caller's reference dropped.
#ifndef CANTRIX_TREE_BUILD_H
#define CANTRIX_TREE_BUILD_H

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "zelto/zelto_host_services.h"

using KeyValues = std::vector<std::pair<std::string, std::string>>;

// A tree node with values; the caller owns one reference.
inline zelto_manager_tree *make_node(const char *context, const KeyValues &values = {}) {
    zelto_manager_tree *node = nullptr;
    EXPECT_EQ(zelto_manager_tree_create(context, &node), 0u);
    for (auto &kv : values) EXPECT_EQ(zelto_manager_tree_add_value(node, kv.first.c_str(), kv.second.c_str()), 0u);
    return node;
}

// Adds a child and drops the caller's reference on it.
inline void adopt(zelto_manager_tree *parent, const char *key, zelto_manager_tree *child) {
    EXPECT_EQ(zelto_manager_tree_add_child(parent, key, child), 0u);
    zelto_manager_tree_release(child);
}

#endif
