// SPDX-License-Identifier: Apache-2.0
#include "agent/data/tree_source.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "cdb/datastore/tree.h"

namespace agent_tests {
namespace {

int CompareKeys(const lyd_node* a, const lyd_node* b)
{
    const lyd_node* keyA = lyd_child(a);
    const lyd_node* keyB = lyd_child(b);
    for (; keyA != nullptr && keyB != nullptr && lysc_is_key(keyA->schema);
         keyA = keyA->next, keyB = keyB->next) {
        // strcmp compares bytes as unsigned, as the store orders its keys.
        const int order = std::strcmp(lyd_get_value(keyA), lyd_get_value(keyB));
        if (order != 0) return order;
    }
    return 0;
}

}  // namespace

std::vector<const lyd_node*> SortedEntries(const lyd_node* first)
{
    std::vector<const lyd_node*> entries;
    for (const lyd_node* node = first; node != nullptr && node->schema == first->schema; node = node->next)
        entries.push_back(node);
    const auto less = [](const lyd_node* a, const lyd_node* b) { return CompareKeys(a, b) < 0; };
    if (first != nullptr && (first->schema->flags & LYS_KEYLESS) == 0)
        std::stable_sort(entries.begin(), entries.end(), less);
    return entries;
}

const lyd_node* TreeSource::ChildrenOf(Handle at) const
{
    return at == nullptr ? m_first : lyd_child(static_cast<const lyd_node*>(at));
}

const lyd_node* TreeSource::FirstOf(Handle at, const lysc_node* schema) const
{
    if (at == m_parent && m_next != nullptr && m_next->schema == schema) return m_next;
    return cdb::FindSingle(ChildrenOf(at), schema);
}

void TreeSource::MoveTo(Handle parent, const lyd_node* next)
{
    m_parent = parent;
    m_next = next;
}

bool TreeSource::Visit(const lyd_node* node, const NodeVisit& visit)
{
    MoveTo(node, lyd_child(node));
    return visit(node);
}

void TreeSource::Values(Handle at, const lysc_node* leaf, const ValueVisit& visit)
{
    const lyd_node* node = FirstOf(at, leaf);
    if (node == nullptr) return;
    for (; node != nullptr && node->schema == leaf; node = node->next)
        visit(lyd_get_value(node), (node->flags & LYD_DEFAULT) != 0);
    MoveTo(at, node);
}

void TreeSource::Container(Handle at, const lysc_node* container, const NodeVisit& visit)
{
    const lyd_node* node = FirstOf(at, container);
    if (node == nullptr) return;
    Visit(node, visit);
    MoveTo(at, node->next);
}

void TreeSource::Entries(Handle at, const lysc_node* list, const NodeVisit& visit)
{
    const lyd_node* first = FirstOf(at, list);
    const auto entries = SortedEntries(first);
    const lyd_node* next = first;
    while (next != nullptr && next->schema == list) next = next->next;
    for (const lyd_node* entry : entries)
        if (!Visit(entry, visit)) break;
    MoveTo(at, next);
}

void TreeSource::Entry(Handle at, const lysc_node* list, std::span<const std::string_view> keys,
                       const NodeVisit& visit)
{
    const lyd_node* entry =
        cdb::FindEntry(ChildrenOf(at), list, std::vector<std::string>(keys.begin(), keys.end()));
    if (entry != nullptr) Visit(entry, visit);
}

}  // namespace agent_tests
