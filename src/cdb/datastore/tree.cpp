// SPDX-License-Identifier: Apache-2.0
// Finding and naming nodes. Making them: tree_make.cpp.

#include "cdb/datastore/tree.h"

#include <libyang/libyang.h>

#include <algorithm>

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

BeforeAndNow FindBoth(const Schema& schema, const lyd_node* siblingsBefore, const lyd_node* siblingsNow,
                      const Place& place)
{
    BeforeAndNow both;
    both.now = FindPlace(schema, siblingsNow, place);
    if (both.now == nullptr)
        both.before = FindPlace(schema, siblingsBefore, place);
    else if (siblingsBefore != nullptr)
        static_cast<void>(
            lyd_find_sibling_first(siblingsBefore, both.now, &both.before));  // null if not found
    return both;
}

lyd_node* FindRow(const Schema& schema, const lyd_node* tree, const RowKey& key)
{
    std::vector<NodeId> way;
    for (NodeId node = key.node; node != kNoNode; node = schema.Table()[node].parent) way.push_back(node);
    auto next = key.keys.begin();
    const lyd_node* siblings = tree;
    lyd_node* found = nullptr;
    for (auto it = way.rbegin(); it != way.rend(); ++it) {
        const auto count = static_cast<std::ptrdiff_t>(schema.Table()[*it].keys.size());
        if (key.keys.end() - next < count) return nullptr;
        found = FindPlace(schema, siblings, {*it, {next, next + count}});
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
    std::vector<NodeId> way;
    for (NodeId node = key.node; node != kNoNode; node = table[node].parent) way.push_back(node);
    std::string text;
    auto next = key.keys.begin();
    for (auto it = way.rbegin(); it != way.rend(); ++it) {
        text += '/' + table[*it].name;
        if (table[*it].kind != NodeKind::kList) continue;
        std::string keys;
        for (std::size_t i = 0; i < table[*it].keys.size() && next != key.keys.end(); ++i)
            keys += (keys.empty() ? "" : " ") + *next++;
        text += '{' + keys + '}';
    }
    return text;
}

std::string Describe(const lyd_node* node)
{
    const std::string name = LYD_NAME(node);
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

std::string DataPath(const lyd_node* node) { return TakeText(lyd_path(node, LYD_PATH_STD, nullptr, 0)); }

bool IsExplicit(const lyd_node* node) { return (node->flags & LYD_DEFAULT) == 0; }

Value ValueOf(const lyd_node* leaf, ValueType type)
{
    return FromText(type, lyd_get_value(leaf)).value_or(Value{});
}

std::string LastMessage(const ly_ctx* context)
{
    const ly_err_item* item = ly_err_last(context);
    return item != nullptr && item->msg != nullptr ? item->msg : "";
}

}  // namespace cdb
