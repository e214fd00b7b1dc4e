// SPDX-License-Identifier: Apache-2.0
// Look-ups in the schema table. Its stored form: rows/stored_schema.cpp.

#include "cdb/model/schema_table.h"

#include <algorithm>

namespace cdb {

SchemaTable::SchemaTable(std::vector<SchemaNode> nodes) : m_nodes(std::move(nodes))
{
    for (auto& node : m_nodes) {
        node.children.clear();
        node.keys.clear();
    }
    for (std::size_t i = 0; i < m_nodes.size(); ++i) {
        auto& node = m_nodes[i];
        node.id = static_cast<NodeId>(i);
        if (node.parent == kNoNode) continue;
        m_nodes[node.parent].children.push_back(node.id);
        if (node.isKey) m_nodes[node.parent].keys.push_back(node.id);
    }
}

NodeId SchemaTable::Child(NodeId parent, std::string_view name) const
{
    if (parent == kNoNode) {
        for (const auto& node : m_nodes)
            if (node.parent == kNoNode && node.name == name) return node.id;
        return kNoNode;
    }
    for (const NodeId child : m_nodes[parent].children)
        if (m_nodes[child].name == name) return child;
    return kNoNode;
}

NodeId SchemaTable::Find(std::string_view path) const
{
    NodeId node = kNoNode;
    do {
        if (!path.starts_with('/')) return kNoNode;
        path.remove_prefix(1);
        const auto name = path.substr(0, path.find('/'));
        node = Child(node, name);
        if (node == kNoNode) return kNoNode;
        path.remove_prefix(name.size());
    } while (!path.empty());
    return node;
}

std::string_view SchemaTable::NameOfTag(std::uint32_t tag) const
{
    for (const auto& node : m_nodes)
        if (node.tag == tag) return node.name;
    return {};
}

std::vector<NodeId> SchemaTable::WayTo(NodeId id) const
{
    std::vector<NodeId> way;
    for (; id != kNoNode; id = m_nodes[id].parent) way.push_back(id);
    std::reverse(way.begin(), way.end());
    return way;
}

std::string SchemaTable::PathOf(NodeId id) const
{
    std::string path;
    for (const NodeId node : WayTo(id)) path += '/' + m_nodes[node].name;
    return path;
}

std::vector<NodeId> SchemaTable::LeavesOf(NodeId id) const
{
    std::vector<NodeId> leaves;
    for (const NodeId child : m_nodes[id].children)
        if (m_nodes[child].kind == NodeKind::kLeaf) leaves.push_back(child);
    return leaves;
}

}  // namespace cdb
