// SPDX-License-Identifier: Apache-2.0
// Finding, naming and making nodes, and keeping trees complete.

#include "cdb/datastore/tree.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <set>

namespace cdb {
namespace {

/// "[name='eth1']", in the quotes that the value does not contain.
std::string Predicate(const lysc_node* list, const std::vector<std::string>& keys)
{
    std::string text;
    const lysc_node* leaf = lysc_node_child(list);
    for (const auto& key : keys) {
        const char quote = key.find('\'') == std::string::npos ? '\'' : '"';
        text += '[';
        text += leaf->name;
        text += '=';
        text += quote;
        text += key;
        text += quote;
        text += ']';
        leaf = leaf->next;
    }
    return text;
}

}  // namespace

std::size_t KeyCount(const lysc_node* list)
{
    std::size_t count = 0;
    for (const lysc_node* child = lysc_node_child(list); child != nullptr && lysc_is_key(child);
         child = child->next)
        ++count;
    return count;
}

lyd_node* FindSingle(const lyd_node* siblings, const lysc_node* schema)
{
    lyd_node* match = nullptr;
    if (siblings == nullptr) return nullptr;
    return lyd_find_sibling_val(siblings, schema, nullptr, 0, &match) == LY_SUCCESS ? match : nullptr;
}

lyd_node* FindEntry(const lyd_node* siblings, const lysc_node* schema, const std::vector<std::string>& keys)
{
    lyd_node* match = nullptr;
    if (siblings == nullptr || keys.size() != KeyCount(schema)) return nullptr;
    const std::string predicate = Predicate(schema, keys);
    const auto result = lyd_find_sibling_val(siblings, schema, predicate.c_str(), predicate.size(), &match);
    return result == LY_SUCCESS ? match : nullptr;
}

lyd_node* FindPlace(const Schema& schema, const lyd_node* siblings, const Place& place)
{
    const lysc_node* node = schema.NodeOf(place.node);
    if (node->nodetype == LYS_LIST) return FindEntry(siblings, node, place.keys);
    return FindSingle(siblings, node);
}

lyd_node* FindRow(const Schema& schema, const lyd_node* tree, const RowKey& key)
{
    auto next = key.keys.begin();
    const lyd_node* siblings = tree;
    lyd_node* found = nullptr;
    for (const NodeId node : schema.Table().WayTo(key.node)) {
        const auto count = static_cast<std::ptrdiff_t>(schema.Table()[node].keys.size());
        if (key.keys.end() - next < count) return nullptr;
        found = FindPlace(schema, siblings, {node, {next, next + count}});
        if (found == nullptr) return nullptr;
        next += count;
        siblings = lyd_child(found);
    }
    return found;
}

std::vector<std::string> KeysOf(const lyd_node* node)
{
    std::vector<std::string> keys;
    if (node->schema == nullptr || node->schema->nodetype != LYS_LIST) return keys;
    // In an edit a key may occur twice; only the first counts.
    const lysc_node* next = lysc_node_child(node->schema);
    for (const lyd_node* child = lyd_child(node);
         child != nullptr && child->schema != nullptr && lysc_is_key(child->schema); child = child->next) {
        if (child->schema != next) continue;
        keys.emplace_back(lyd_get_value(child));
        next = next->next;
    }
    return keys;
}

std::vector<Place> PlacesOf(const Schema& schema, const lyd_node* node)
{
    std::vector<Place> places;
    for (const lyd_node* at = node; at != nullptr; at = lyd_parent(at))
        places.push_back({schema.IdOf(at->schema), KeysOf(at)});
    std::reverse(places.begin(), places.end());
    return places;
}

RowKey RowKeyOf(const Schema& schema, const lyd_node* node)
{
    RowKey key{schema.IdOf(node->schema), {}};
    for (auto& place : PlacesOf(schema, node))
        key.keys.insert(key.keys.end(), place.keys.begin(), place.keys.end());
    return key;
}

std::string TextOf(const SchemaTable& table, const RowKey& key)
{
    std::string text;
    auto next = key.keys.begin();
    for (const NodeId node : table.WayTo(key.node)) {
        text += '/' + table[node].name;
        if (table[node].kind != NodeKind::kList) continue;
        std::string keys;
        for (std::size_t i = 0; i < table[node].keys.size() && next != key.keys.end(); ++i)
            keys += (keys.empty() ? "" : " ") + *next++;
        text += '{' + keys + '}';
    }
    return text;
}

std::string Describe(const lyd_node* node)
{
    std::string name = LYD_NAME(node);
    if (node->schema == nullptr) return name;
    if (node->schema->nodetype == LYS_LIST) {
        std::string keys;
        for (const auto& key : KeysOf(node)) keys += (keys.empty() ? "" : " ") + key;
        return name + " \"" + keys + '"';
    }
    if ((node->schema->nodetype & LYD_NODE_TERM) == 0) return "container \"" + name + '"';
    const lyd_node* parent = lyd_parent(node);
    return "leaf \"" + name + '"' + (parent != nullptr ? " of " + Describe(parent) : "");
}

std::string Describe(const SchemaTable& table, const RowKey& key)
{
    const auto& node = table[key.node];
    if (node.kind != NodeKind::kList) return "container \"" + node.name + '"';
    std::string keys;
    for (auto it = key.keys.end() - static_cast<std::ptrdiff_t>(node.keys.size()); it != key.keys.end(); ++it)
        keys += (keys.empty() ? "" : " ") + *it;
    return node.name + " \"" + keys + '"';
}

std::string DataPath(const lyd_node* node) { return TakeText(lyd_path(node, LYD_PATH_STD, nullptr, 0)); }

std::string DataPath(const SchemaTable& table, const RowKey& key)
{
    std::string path;
    std::string_view module;
    auto next = key.keys.begin();
    for (const NodeId id : table.WayTo(key.node)) {
        const auto& node = table[id];
        path += '/' + (node.module == module ? "" : node.module + ':') + node.name;
        module = node.module;
        for (const NodeId leaf : node.keys) {
            if (next == key.keys.end()) break;
            const char quote = next->find('\'') == std::string::npos ? '\'' : '"';
            path += '[' + table[leaf].name + '=' + quote + *next++ + quote + ']';
        }
    }
    return path;
}

bool IsExplicit(const lyd_node* node) { return (node->flags & LYD_DEFAULT) == 0; }

Value ValueOf(const lyd_node* leaf, ValueType type)
{
    return FromText(type, lyd_get_value(leaf)).value_or(Value{});
}

Row RowOf(const Schema& schema, const lyd_node* holder)
{
    // libyang keeps the children of a node in schema order.
    Row row;
    for (const lyd_node* child = lyd_child_no_keys(holder); child != nullptr; child = child->next) {
        if (child->schema->nodetype != LYS_LEAF || !IsExplicit(child)) continue;
        const auto& leaf = schema.Table()[schema.IdOf(child->schema)];
        row.leaves.emplace_back(leaf.name, ValueOf(child, leaf.type));
    }
    return row;
}

std::string LastMessage(const ly_ctx* context)
{
    const ly_err_item* item = ly_err_last(context);
    return item != nullptr && item->msg != nullptr ? item->msg : "";
}

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

lyd_node* CopyOf(const lyd_node* node, lyd_node* parent, std::uint32_t options)
{
    lyd_node* copy = nullptr;
    if (lyd_dup_single(node, reinterpret_cast<lyd_node_inner*>(parent), options, &copy) != LY_SUCCESS)
        throw std::bad_alloc();  // the node is in a tree already: nothing else can fail
    return copy;
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
