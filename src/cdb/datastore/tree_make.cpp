// SPDX-License-Identifier: Apache-2.0
// Making nodes, and keeping trees complete. Finding them: tree.cpp.

#include <libyang/libyang.h>

#include <set>
#include <stdexcept>

#include "cdb/datastore/tree.h"

namespace cdb {

TreePtr EmptyTree(const Schema& schema)
{
    lyd_node* tree = nullptr;
    std::set<const lys_module*> modules;
    for (const auto& node : schema.Table().Nodes())
        if (node.parent == kNoNode) modules.insert(schema.NodeOf(node.id)->module);
    for (const lys_module* module : modules)
        if (lyd_new_implicit_module(&tree, module, LYD_IMPLICIT_NO_STATE, nullptr) != LY_SUCCESS)
            throw FatalError("the datastore can't be made of module " + std::string(module->name) + ": " +
                             LastMessage(schema.Context()));
    return TreePtr(tree);
}

lyd_node* MakeContainer(lyd_node* parent, const lysc_node* schema)
{
    lyd_node* node = nullptr;
    if (lyd_new_inner(parent, schema->module, schema->name, 0, &node) != LY_SUCCESS) return nullptr;
    if ((schema->flags & LYS_PRESENCE) != 0) return node;
    // libyang flags the container at once, and completes only unflagged ones.
    node->flags &= ~static_cast<std::uint32_t>(LYD_DEFAULT);
    Complete(node);
    node->flags |= LYD_DEFAULT;
    return node;
}

lyd_node* MakeEntry(lyd_node* parent, const lysc_node* schema, const std::vector<std::string>& keys)
{
    // Lists with more keys would need more arguments below; the schema has none.
    constexpr std::size_t kMaxKeys = 4;
    if (keys.size() > kMaxKeys || keys.size() != KeyCount(schema)) return nullptr;
    const auto key = [&](std::size_t i) { return i < keys.size() ? keys[i].c_str() : nullptr; };
    lyd_node* node = nullptr;
    const auto result =
        lyd_new_list(parent, schema->module, schema->name, 0, &node, key(0), key(1), key(2), key(3));
    return result == LY_SUCCESS ? node : nullptr;
}

lyd_node* MakeLeaf(lyd_node* parent, const lysc_node* schema, const std::string& text)
{
    lyd_node* node = nullptr;
    if (lyd_new_term(parent, schema->module, schema->name, text.c_str(), 0, &node) != LY_SUCCESS)
        return nullptr;
    return node;
}

void Complete(lyd_node* node)
{
    // Defaults were checked when the modules were compiled: this fails only for lack of memory.
    if (lyd_new_implicit_tree(node, LYD_IMPLICIT_NO_STATE, nullptr) != LY_SUCCESS) throw std::bad_alloc();
}

void RefreshDefaultFlag(lyd_node* container)
{
    for (lyd_node* node = container; node != nullptr; node = lyd_parent(node)) {
        if (node->schema->nodetype != LYS_CONTAINER || (node->schema->flags & LYS_PRESENCE) != 0) return;
        for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next)
            if (IsExplicit(child)) return;
        node->flags |= LYD_DEFAULT;
    }
}

void ClearDefaultFlag(lyd_node* container)
{
    for (lyd_node* node = container; node != nullptr && !IsExplicit(node); node = lyd_parent(node))
        node->flags &= ~static_cast<std::uint32_t>(LYD_DEFAULT);
}

}  // namespace cdb
