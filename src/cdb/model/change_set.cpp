// SPDX-License-Identifier: Apache-2.0
#include "cdb/model/change_set.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "cdb/model/value_message.h"
#include "ipc/cdb.pb.h"

namespace cdb {
namespace {

class Walker {
public:
    Walker(const SchemaTable& schema, NodeId point, const Visitor& visitor)
        : m_schema(schema), m_point(point), m_visitor(visitor)
    {
    }

    /// Goes down to the point, whatever the operation of the nodes above it. Returns false if the visitor
    /// stops.
    bool Descend(const ChangeNode& node)
    {
        if (node.node == m_point) return Report(node) != Visit::kStop;
        if (!IsAbovePoint(node.node)) return true;
        m_ancestry.push_back(&node);
        for (const auto& child : node.children)
            if (!Descend(child)) return false;
        m_ancestry.pop_back();
        return true;
    }

private:
    /// Returns kStop or kUp if the caller must act on it; any other value means the next sibling.
    Visit Report(const ChangeNode& node)
    {
        m_ancestry.push_back(&node);
        const bool transparent = node.op == ChangeOp::kNone;
        Visit wanted = transparent ? Visit::kRecurse : m_visitor(m_ancestry);
        if (wanted == Visit::kRecurse) wanted = Children(node);
        m_ancestry.pop_back();
        return wanted;
    }

    Visit Children(const ChangeNode& node)
    {
        for (const auto& child : node.children) {
            const Visit wanted = Report(child);
            if (wanted == Visit::kStop) return Visit::kStop;
            if (wanted == Visit::kUp) break;  // continues with this node's next sibling
        }
        return Visit::kContinue;
    }

    [[nodiscard]] bool IsAbovePoint(NodeId node) const
    {
        for (NodeId above = m_point; above != kNoNode; above = m_schema[above].parent)
            if (above == node) return true;
        return false;
    }

    const SchemaTable& m_schema;
    NodeId m_point;
    const Visitor& m_visitor;
    std::vector<const ChangeNode*> m_ancestry;
};

using Message = ipc::cdb::ChangeNode;

constexpr std::array<std::pair<ChangeOp, Message::Operation>, 5> kOperations{{
    {ChangeOp::kNone, Message::NONE},
    {ChangeOp::kCreated, Message::CREATED},
    {ChangeOp::kDeleted, Message::DELETED},
    {ChangeOp::kModified, Message::MODIFIED},
    {ChangeOp::kValueSet, Message::VALUE_SET},
}};

Message::Operation OperationOf(ChangeOp op) { return kOperations.at(static_cast<std::size_t>(op)).second; }

ChangeOp OperationOf(Message::Operation op)
{
    for (const auto& [own, sent] : kOperations)
        if (sent == op) return own;
    // A newer program may send it.
    throw std::invalid_argument("a change set has the unknown operation " + std::to_string(op));
}

[[noreturn]] void Refuse(const SchemaNode& node, const std::string& why)
{
    throw std::invalid_argument("a change set has the node " + node.name + ' ' + why);
}

/// Whether a node of that kind can have this operation.
bool Fits(NodeKind kind, ChangeOp op)
{
    switch (kind) {
    case NodeKind::kContainer:
        return op == ChangeOp::kNone;
    case NodeKind::kLeaf:
        return op == ChangeOp::kValueSet || op == ChangeOp::kDeleted;
    case NodeKind::kPresenceContainer:
    case NodeKind::kList:
        return op != ChangeOp::kValueSet && op != ChangeOp::kNone;
    }
    return false;
}

ChangeNode Node(const SchemaTable& schema, const Message& message, NodeId parent)
{
    if (message.node() >= schema.Size())
        throw std::invalid_argument("a change set has a node number that the schema does not have: " +
                                    std::to_string(message.node()));
    const SchemaNode& described = schema[message.node()];
    if (described.parent != parent) Refuse(described, "in a wrong place");
    ChangeNode node;
    node.node = message.node();
    node.keys.assign(message.keys().begin(), message.keys().end());
    node.op = OperationOf(message.operation());
    if (node.keys.size() != described.keys.size()) Refuse(described, "with a wrong number of keys");
    if (!Fits(described.kind, node.op)) Refuse(described, "with an operation that it can't have");
    if (node.op == ChangeOp::kValueSet) {
        auto value = FromMessage(message.value());
        if (!value || TypeOf(*value) != described.type) Refuse(described, "with a value of a wrong type");
        node.value = std::move(*value);
    }
    node.children.reserve(static_cast<std::size_t>(message.children_size()));
    for (const auto& child : message.children()) node.children.push_back(Node(schema, child, node.node));
    return node;
}

}  // namespace

void Walk(const SchemaTable& schema, const ChangeSet& changes, NodeId point, const Visitor& visitor)
{
    if (changes.Empty() || point == kNoNode) return;
    Walker(schema, point, visitor).Descend(changes.root);
}

bool Touches(const SchemaTable& schema, const ChangeSet& changes, NodeId point)
{
    bool touched = false;
    Walk(schema, changes, point, [&touched](const auto&) {
        touched = true;
        return Visit::kStop;
    });
    return touched;
}

void ToMessage(const ChangeNode& node, Message& message)
{
    message.set_node(node.node);
    for (const auto& key : node.keys) message.add_keys(key);
    message.set_operation(OperationOf(node.op));
    if (node.op == ChangeOp::kValueSet) ToMessage(node.value, *message.mutable_value());
    for (const auto& child : node.children) ToMessage(child, *message.add_children());
}

ChangeNode FromMessage(const SchemaTable& schema, const Message& message)
{
    return Node(schema, message, kNoNode);
}

}  // namespace cdb
