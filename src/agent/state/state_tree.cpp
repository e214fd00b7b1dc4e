// SPDX-License-Identifier: Apache-2.0
#include "agent/state/state_tree.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace agent {
namespace {

/// The group of that schema node; null if there is none.
template <typename Node>
auto FindGroup(Node& node, const lysc_node* schema) -> decltype(node.groups.data())
{
    const auto at = std::find_if(node.groups.begin(), node.groups.end(),
                                 [schema](const auto& group) { return group.schema == schema; });
    return at == node.groups.end() ? nullptr : &*at;
}

StateTree::Group& GroupIn(StateTree::Node& node, const lysc_node* schema)
{
    if (auto* group = FindGroup(node, schema)) return *group;
    node.groups.push_back({schema, {}});
    return node.groups.back();
}

void Join(StateTree::Node&& from, StateTree::Node& into)
{
    into.leaves.insert(into.leaves.end(), from.leaves.begin(), from.leaves.end());
    for (StateTree::Group& group : from.groups) {
        StateTree::Group& own = GroupIn(into, group.schema);
        if (own.nodes.empty())
            own.nodes = std::move(group.nodes);
        else if (group.schema->nodetype == LYS_CONTAINER)
            Join(std::move(group.nodes.front()), own.nodes.front());
    }
}

std::size_t PositionOf(const lysc_node* key)
{
    std::size_t position = 0;
    for (const lysc_node* each = lysc_node_child(key->parent); each != key; each = each->next) ++position;
    return position;
}

}  // namespace

StateTree::StateTree() { m_texts.push_back(std::make_unique<std::pmr::monotonic_buffer_resource>()); }

StateTree::Node& StateTree::At(const lysc_node* container)
{
    return ContainerIn(container->parent == nullptr ? m_root : At(container->parent), container);
}

StateTree::Node& StateTree::ContainerIn(Node& node, const lysc_node* container)
{
    Group& group = GroupIn(node, container);
    if (group.nodes.empty()) group.nodes.emplace_back();
    return group.nodes.front();
}

StateTree::Node* StateTree::Append(Node& node, const lysc_node* list, std::vector<std::string_view> keys)
{
    auto& entries = GroupIn(node, list).nodes;
    if (!entries.empty() && !keys.empty() && entries.back().keys >= keys) return nullptr;
    entries.push_back({std::move(keys), {}, {}});
    return &entries.back();
}

std::string_view StateTree::Keep(std::string_view text)
{
    if (text.empty()) return {};
    auto* copy = static_cast<char*>(m_texts.front()->allocate(text.size(), 1));
    std::memcpy(copy, text.data(), text.size());
    return {copy, text.size()};
}

void StateTree::Adopt(StateTree&& other)
{
    Join(std::move(other.m_root), m_root);
    std::move(other.m_texts.begin(), other.m_texts.end(), std::back_inserter(m_texts));
    other = StateTree();
}

void StateTree::Values(Handle at, const lysc_node* leaf, const ValueVisit& visit)
{
    const Node& node = NodeOf(at);
    if (lysc_is_key(leaf)) {
        const std::size_t position = PositionOf(leaf);
        if (position < node.keys.size()) visit(node.keys[position], false);
        return;
    }
    for (const Leaf& each : node.leaves)
        if (each.schema == leaf) visit(each.text, false);
}

void StateTree::Container(Handle at, const lysc_node* container, const NodeVisit& visit)
{
    if (const Group* group = FindGroup(NodeOf(at), container)) visit(&group->nodes.front());
}

void StateTree::Entries(Handle at, const lysc_node* list, const NodeVisit& visit)
{
    const Group* group = FindGroup(NodeOf(at), list);
    if (group == nullptr) return;
    for (const Node& entry : group->nodes)
        if (!visit(&entry)) return;
}

void StateTree::Entry(Handle at, const lysc_node* list, std::span<const std::string_view> keys,
                      const NodeVisit& visit)
{
    const Group* group = FindGroup(NodeOf(at), list);
    if (group == nullptr) return;
    const auto less = [](const Node& entry, std::span<const std::string_view> wanted) {
        return std::lexicographical_compare(entry.keys.begin(), entry.keys.end(), wanted.begin(),
                                            wanted.end());
    };
    const auto found = std::lower_bound(group->nodes.begin(), group->nodes.end(), keys, less);
    if (found != group->nodes.end() &&
        std::equal(found->keys.begin(), found->keys.end(), keys.begin(), keys.end()))
        visit(&*found);
}

}  // namespace agent
