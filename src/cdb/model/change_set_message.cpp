// SPDX-License-Identifier: Apache-2.0
// Change sets to and from messages.

#include "cdb/model/change_set.h"

#include <stdexcept>

#include "cdb/model/value_message.h"
#include "ipc/cdb.pb.h"

namespace cdb {
namespace {

using Message = ipc::cdb::ChangeNode;

Message::Operation OperationOf(ChangeOp op)
{
    switch (op) {
    case ChangeOp::kNone:
        return Message::NONE;
    case ChangeOp::kCreated:
        return Message::CREATED;
    case ChangeOp::kDeleted:
        return Message::DELETED;
    case ChangeOp::kModified:
        return Message::MODIFIED;
    case ChangeOp::kValueSet:
        return Message::VALUE_SET;
    }
    return Message::NONE;
}

ChangeOp OperationOf(Message::Operation op)
{
    switch (op) {
    case Message::NONE:
        return ChangeOp::kNone;
    case Message::CREATED:
        return ChangeOp::kCreated;
    case Message::DELETED:
        return ChangeOp::kDeleted;
    case Message::MODIFIED:
        return ChangeOp::kModified;
    case Message::VALUE_SET:
        return ChangeOp::kValueSet;
    default:
        break;  // a newer program may send it
    }
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
