// SPDX-License-Identifier: Apache-2.0
// State as a plain tree: containers and list entries with the texts of their leaves, which the caller has
// checked. It takes a tenth of the memory of libyang's data, and any thread may read it once it is made.

#ifndef AGENT_STATE_STATE_TREE_H
#define AGENT_STATE_STATE_TREE_H

#include <memory>
#include <memory_resource>
#include <string_view>
#include <vector>

#include "agent/data/data_source.h"

namespace agent {

class StateTree final : public DataSource {
public:
    struct Leaf {
        const lysc_node* schema;
        std::string_view text;
    };
    struct Group;
    /// A container or list entry.
    struct Node {
        std::vector<std::string_view> keys;
        std::vector<Leaf> leaves;  // without the keys
        std::vector<Group> groups;
    };
    /// A container, or the entries of a list in ascending byte order of their keys.
    struct Group {
        const lysc_node* schema;
        std::vector<Node> nodes;
    };

    StateTree();

    /// The node above the top-level nodes.
    [[nodiscard]] Node& Root() { return m_root; }
    /// The container at this place; it and the containers above are made if they are missing.
    [[nodiscard]] Node& At(const lysc_node* container);
    /// The container in this node, made if it is missing.
    static Node& ContainerIn(Node& node, const lysc_node* container);

    /// Appends an entry. Null, and nothing happens, if its keys are not greater than those of the last one;
    /// without keys there is no order. Entries added before may move.
    static Node* Append(Node& node, const lysc_node* list, std::vector<std::string_view> keys);

    /// A copy of the text that lives as long as the tree.
    [[nodiscard]] std::string_view Keep(std::string_view text);

    /// Joins the other tree into this one. They must have nothing in common but containers.
    void Adopt(StateTree&& other);

    [[nodiscard]] bool Empty() const { return m_root.groups.empty(); }

    // DataSource
    void Values(Handle at, const lysc_node* leaf, const ValueVisit& visit) override;
    void Container(Handle at, const lysc_node* container, const NodeVisit& visit) override;
    void Entries(Handle at, const lysc_node* list, const NodeVisit& visit) override;
    void Entry(Handle at, const lysc_node* list, std::span<const std::string_view> keys,
               const NodeVisit& visit) override;

private:
    [[nodiscard]] const Node& NodeOf(Handle at) const
    {
        return at == nullptr ? m_root : *static_cast<const Node*>(at);
    }

    Node m_root;
    std::vector<std::unique_ptr<std::pmr::monotonic_buffer_resource>> m_texts;  // own texts in the first
};

}  // namespace agent

#endif
