// SPDX-License-Identifier: Apache-2.0
// A libyang tree as data for the writer. For one thread at a time, like the tree.

#ifndef AGENT_TREE_SOURCE_H
#define AGENT_TREE_SOURCE_H

#include <vector>

#include "agent/data/data_source.h"

struct lyd_node;

namespace agent_tests {

/// The entries of the list that `first` begins, in the order of their keys. Empty for null.
std::vector<const lyd_node*> SortedEntries(const lyd_node* first);

class TreeSource final : public agent::DataSource {
public:
    /// `first`: the tree's first top-level sibling, or null; must outlive the source.
    explicit TreeSource(const lyd_node* first) : m_first(first), m_next(first) {}

    void Values(Handle at, const lysc_node* leaf, const ValueVisit& visit) override;
    void Container(Handle at, const lysc_node* container, const NodeVisit& visit) override;
    void Entries(Handle at, const lysc_node* list, const NodeVisit& visit) override;
    void Entry(Handle at, const lysc_node* list, std::span<const std::string_view> keys,
               const NodeVisit& visit) override;

private:
    [[nodiscard]] const lyd_node* ChildrenOf(Handle at) const;
    [[nodiscard]] const lyd_node* FirstOf(Handle at, const lysc_node* schema) const;
    bool Visit(const lyd_node* node, const NodeVisit& visit);
    void MoveTo(Handle parent, const lyd_node* next);

    const lyd_node* m_first;
    /// The parent whose child is probably asked for next, and that child: nodes are in schema order and are
    /// asked for in it.
    Handle m_parent = nullptr;
    const lyd_node* m_next;
};

}  // namespace agent_tests

#endif
