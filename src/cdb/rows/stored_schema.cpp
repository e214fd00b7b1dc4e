// SPDX-License-Identifier: Apache-2.0
// The schema table as bytes.

#include "cdb/model/schema_table.h"
#include "cdb/model/value_message.h"
#include "cdb/rows/stored.pb.h"

namespace cdb {
namespace {

// Node numbers are stored plus one, so that an absent field means no node.
std::uint32_t ToStored(NodeId id) { return id == kNoNode ? 0 : id + 1; }
NodeId FromStored(std::uint32_t number) { return number == 0 ? kNoNode : number - 1; }

void ToStored(const SchemaNode& node, stored::SchemaNode& message)
{
    message.set_parent(ToStored(node.parent));
    message.set_name(node.name);
    message.set_module(node.module);
    message.set_kind(static_cast<std::uint32_t>(node.kind));
    message.set_tag(node.tag);
    message.set_ns(node.ns);
    message.set_callpoint(node.callpoint);
    message.set_is_key(node.isKey);
    message.set_mandatory(node.mandatory);
    message.set_type(static_cast<std::uint32_t>(node.type));
    if (TypeOf(node.defaultValue) != ValueType::kNone)
        ToMessage(node.defaultValue, *message.mutable_default_value());
    message.set_default_ref(ToStored(node.defaultRef));
    message.set_minimum(node.minimum);
    message.set_maximum(node.maximum);
}

bool NumbersAreSound(const stored::SchemaNode& message, std::size_t index, std::size_t size)
{
    return message.kind() <= static_cast<std::uint32_t>(NodeKind::kLeaf) &&
           message.type() <= static_cast<std::uint32_t>(ValueType::kIpv4Plen) && message.parent() <= index &&
           message.default_ref() <= size && !message.name().empty();
}

std::optional<SchemaNode> FromStored(const stored::SchemaNode& message)
{
    const auto defaultValue = FromMessage(message.default_value());
    if (!defaultValue) return std::nullopt;
    SchemaNode node;
    node.parent = FromStored(message.parent());
    node.name = message.name();
    node.module = message.module();
    node.kind = static_cast<NodeKind>(message.kind());
    node.tag = message.tag();
    node.ns = message.ns();
    node.callpoint = message.callpoint();
    node.isKey = message.is_key();
    node.mandatory = message.mandatory();
    node.type = static_cast<ValueType>(message.type());
    node.defaultValue = *defaultValue;
    node.defaultRef = FromStored(message.default_ref());
    node.minimum = message.minimum();
    node.maximum = message.maximum();
    return node;
}

}  // namespace

std::string SchemaTable::Serialize() const
{
    stored::SchemaTable message;
    for (const auto& node : m_nodes) ToStored(node, *message.add_nodes());
    return message.SerializeAsString();
}

std::optional<SchemaTable> SchemaTable::Parse(std::string_view bytes)
{
    stored::SchemaTable message;
    if (!message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) return std::nullopt;
    std::vector<SchemaNode> nodes;
    const auto size = static_cast<std::size_t>(message.nodes_size());
    nodes.reserve(size);
    for (const auto& stored : message.nodes()) {
        if (!NumbersAreSound(stored, nodes.size(), size)) return std::nullopt;
        auto node = FromStored(stored);
        if (!node) return std::nullopt;
        nodes.push_back(std::move(*node));
    }
    return SchemaTable(std::move(nodes));
}

}  // namespace cdb
