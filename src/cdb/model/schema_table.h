// SPDX-License-Identifier: Apache-2.0
// The configuration schema as a flat table, without libyang, for readers of the store, keypaths and change
// sets. cdbd derives it from the YANG modules and keeps it in the store; clients read it there. Holds
// configuration nodes only (no config-false ones).

#ifndef CDB_MODEL_SCHEMA_TABLE_H
#define CDB_MODEL_SCHEMA_TABLE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/model/value.h"

namespace cdb {

enum class NodeKind : std::uint8_t { kContainer, kPresenceContainer, kList, kLeaf };

/// The index of a node in its table. Parents come before children, siblings in schema order.
using NodeId = std::uint32_t;
inline constexpr NodeId kNoNode = 0xFFFFFFFF;

struct SchemaNode {
    NodeId id = kNoNode;
    NodeId parent = kNoNode;
    std::string name{};
    std::string module{};  // the module that defines the node
    NodeKind kind = NodeKind::kContainer;
    std::uint32_t tag = 0;           // of the name; equal for equal names
    std::uint32_t ns = 0;            // namespace hash of the module
    std::string callpoint{};         // of a list: the callpoint asked when an entry is created; mostly empty
    std::vector<NodeId> children{};  // schema order; a list's keys first, in key order

    // leaves
    bool isKey = false;
    bool mandatory = false;
    ValueType type = ValueType::kNone;
    Value defaultValue{};         // monostate: none
    NodeId defaultRef = kNoNode;  // the sibling leaf whose value replaces a missing one
    std::uint64_t minimum = 0;    // integers: the range's bounds
    std::uint64_t maximum = 0;

    // lists
    std::vector<NodeId> keys{};

    friend bool operator==(const SchemaNode&, const SchemaNode&) = default;
};

class SchemaTable {
public:
    SchemaTable() = default;

    /// `nodes` in schema order, parents before children. The constructor sets id, children and keys.
    explicit SchemaTable(std::vector<SchemaNode> nodes);

    [[nodiscard]] const SchemaNode& operator[](NodeId id) const { return m_nodes[id]; }
    [[nodiscard]] std::size_t Size() const { return m_nodes.size(); }
    [[nodiscard]] std::span<const SchemaNode> Nodes() const { return m_nodes; }

    /// The child of that name, or kNoNode. `parent` kNoNode asks for a top-level node.
    [[nodiscard]] NodeId Child(NodeId parent, std::string_view name) const;

    /// The node at a schema path without keys ("/config/oam/sflow/collector"), or kNoNode.
    [[nodiscard]] NodeId Find(std::string_view path) const;

    /// The name with this tag; empty if there is none.
    [[nodiscard]] std::string_view NameOfTag(std::uint32_t tag) const;

    /// The nodes from the root to this one, both included.
    [[nodiscard]] std::vector<NodeId> WayTo(NodeId id) const;

    /// "/config/oam/sflow/collector"
    [[nodiscard]] std::string PathOf(NodeId id) const;

    /// The leaves of a list entry or container, in schema order: the positions of its value array.
    [[nodiscard]] std::vector<NodeId> LeavesOf(NodeId id) const;

    /// The table as bytes for the store. Parse returns nullopt for bytes that Serialize of this format has
    /// not written.
    [[nodiscard]] std::string Serialize() const;
    static std::optional<SchemaTable> Parse(std::string_view bytes);

    friend bool operator==(const SchemaTable& a, const SchemaTable& b) { return a.m_nodes == b.m_nodes; }

private:
    std::vector<SchemaNode> m_nodes;
};

}  // namespace cdb

#endif
