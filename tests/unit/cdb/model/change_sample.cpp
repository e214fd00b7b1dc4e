// SPDX-License-Identifier: Apache-2.0
// Change sets by hand and at random, and what a walk reports as text.

#include "change_sample.h"

namespace change_sample {
namespace {

using cdb::ChangeNode;
using cdb::ChangeOp;
using cdb::NodeKind;
using cdb::ValueType;

const char* Word(ChangeOp op)
{
    switch (op) {
    case ChangeOp::kNone:
        return "none";
    case ChangeOp::kCreated:
        return "created";
    case ChangeOp::kDeleted:
        return "deleted";
    case ChangeOp::kModified:
        return "modified";
    case ChangeOp::kValueSet:
        return "set";
    }
    return "?";
}

std::uint32_t Number(std::mt19937& random, std::uint32_t below)
{
    return std::uniform_int_distribution<std::uint32_t>(0, below - 1)(random);
}

cdb::Value RandomValue(std::mt19937& random, ValueType type)
{
    const std::uint32_t number = Number(random, 60000);
    switch (type) {
    case ValueType::kNone:
        return {};
    case ValueType::kString:
        return "name" + std::to_string(number);
    case ValueType::kBool:
        return number % 2 == 0;
    case ValueType::kUint16:
        return static_cast<std::uint16_t>(number);
    case ValueType::kUint32:
        return number;
    case ValueType::kIpv4:
        return cdb::Ipv4{number};
    case ValueType::kIpv4Plen:
        return cdb::Ipv4Plen{number, static_cast<std::uint8_t>(number % 33)};
    }
    return {};
}

ChangeOp RandomOp(std::mt19937& random, NodeKind kind)
{
    constexpr ChangeOp kEntryOps[] = {ChangeOp::kCreated, ChangeOp::kDeleted, ChangeOp::kModified};
    if (kind == NodeKind::kContainer) return ChangeOp::kNone;
    if (kind == NodeKind::kLeaf) return Number(random, 3) == 0 ? ChangeOp::kDeleted : ChangeOp::kValueSet;
    return kEntryOps[Number(random, 3)];
}

ChangeNode RandomNode(std::mt19937& random, const cdb::SchemaNode& described, std::vector<std::string> keys)
{
    ChangeNode node;
    node.node = described.id;
    node.keys = std::move(keys);
    node.op = RandomOp(random, described.kind);
    if (node.op == ChangeOp::kValueSet) node.value = RandomValue(random, described.type);
    for (const auto id : described.children) {
        const auto& child = sample::Table()[id];
        const std::uint32_t count = Number(random, child.kind == NodeKind::kList ? 4 : 2);
        for (std::uint32_t i = 0; i < count; ++i) {
            std::vector<std::string> childKeys;
            for (std::size_t key = 0; key < child.keys.size(); ++key)
                childKeys.push_back("k" + std::to_string(i));
            node.children.push_back(RandomNode(random, child, std::move(childKeys)));
        }
    }
    return node;
}

}  // namespace

std::string Line(const std::vector<const ChangeNode*>& ancestry)
{
    std::string line;
    for (const auto* node : ancestry) {
        line += '/' + sample::Table()[node->node].name;
        for (const auto& key : node->keys) line += '{' + key + '}';
    }
    const auto& last = *ancestry.back();
    line += std::string(" ") + Word(last.op);
    if (last.op == ChangeOp::kValueSet) line += ' ' + cdb::ToText(last.value);
    return line;
}

cdb::ChangeSet RandomChanges(std::mt19937& random)
{
    return {Number(random, 1000), RandomNode(random, sample::Table()[Node("/config")], {})};
}

}  // namespace change_sample
