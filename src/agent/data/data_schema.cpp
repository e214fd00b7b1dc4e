// SPDX-License-Identifier: Apache-2.0
#include "agent/data/data_schema.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <bit>
#include <cstdint>

namespace agent {
namespace {

DataKind KindOf(const lysc_node* node)
{
    switch (node->nodetype) {
    case LYS_LEAF:
        return DataKind::kLeaf;
    case LYS_LEAFLIST:
        return DataKind::kLeafList;
    case LYS_LIST:
        return DataKind::kList;
    default:
        return (node->flags & LYS_PRESENCE) != 0 ? DataKind::kPresenceContainer : DataKind::kContainer;
    }
}

bool MayNameIdentity(const lysc_type* type)
{
    if (type->basetype == LY_TYPE_IDENT) return true;
    if (type->basetype != LY_TYPE_UNION) return false;
    const auto* any = reinterpret_cast<const lysc_type_union*>(type);
    for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(any->types); ++i)
        if (MayNameIdentity(any->types[i])) return true;
    return false;
}

std::vector<std::string> DefaultsOf(const lysc_node* node)
{
    std::vector<std::string> texts;
    const auto add = [&](const lyd_value* value) {
        texts.emplace_back(lyd_value_get_canonical(node->module->ctx, value));
    };
    if (node->nodetype == LYS_LEAF) {
        const auto* leaf = reinterpret_cast<const lysc_node_leaf*>(node);
        if (leaf->dflt != nullptr) add(leaf->dflt);
    } else if (node->nodetype == LYS_LEAFLIST) {
        const auto* list = reinterpret_cast<const lysc_node_leaflist*>(node);
        for (std::size_t i = 0; i < LY_ARRAY_COUNT(list->dflts); ++i) add(list->dflts[i]);
    }
    return texts;
}

}  // namespace

bool DataNode::IsDefault(std::string_view text) const
{
    return std::find(defaults.begin(), defaults.end(), text) != defaults.end();
}

DataSchema::DataSchema(const cdb::Schema& schema)
{
    DataNode& root = m_nodes.emplace_back();
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(schema.Context(), &index))
        if (module->implemented != 0) AddChildren(schema, root, module->compiled, 0);
    MakeIndex();
    FindStandIns(schema);
}

void DataSchema::FindStandIns(const cdb::Schema& schema)
{
    for (DataNode& node : m_nodes) {
        if (node.id == cdb::kNoNode) continue;
        const cdb::NodeId id = schema.Table()[node.id].defaultRef;
        if (id != cdb::kNoNode) node.standIn = Find(schema.NodeOf(id));
    }
}

void DataSchema::AddChildren(const cdb::Schema& schema, DataNode& parent, const lysc_module* module,
                             std::size_t keysAbove)
{
    constexpr auto kData = LYS_LEAF | LYS_LEAFLIST | LYS_CONTAINER | LYS_LIST;
    const lysc_node* child = nullptr;
    while ((child = lys_getnext(child, parent.schema, module, 0)) != nullptr) {
        if ((child->nodetype & kData) == 0) continue;
        DataNode& node = Add(schema, parent, child);
        if (node.isKey) ++parent.keyCount;
        // The keys of a list are its first children.
        if (!node.IsTerm()) AddChildren(schema, node, nullptr, keysAbove + parent.keyCount);
        parent.hasLists |= node.hasLists || node.kind == DataKind::kList || node.kind == DataKind::kLeafList;
    }
    m_mostKeys = std::max(m_mostKeys, keysAbove + parent.keyCount);
}

DataNode& DataSchema::Add(const cdb::Schema& schema, DataNode& parent, const lysc_node* compiled)
{
    DataNode& node = m_nodes.emplace_back();
    node.schema = compiled;
    node.kind = KindOf(compiled);
    node.name = compiled->name;
    node.ns = compiled->module->ns;
    node.index = parent.children.size();
    node.depth = parent.depth + 1;
    node.isKey = lysc_is_key(compiled);
    node.open = "<" + std::string(node.name);
    if (parent.schema == nullptr || parent.schema->module != compiled->module)
        node.open.append(" xmlns=\"").append(node.ns).append("\"");
    node.open.append(">");
    node.close = "</" + std::string(node.name) + ">";
    node.defaults = DefaultsOf(compiled);
    node.mayNameIdentity =
        node.IsTerm() && MayNameIdentity(reinterpret_cast<const lysc_node_leaf*>(compiled)->type);
    node.id = schema.IdOf(compiled);
    parent.children.push_back(&node);
    parent.hasLeaves |= node.IsTerm() && !node.isKey;
    parent.hasInner |= !node.IsTerm();
    m_depth = std::max(m_depth, node.depth);
    return node;
}

void DataSchema::MakeIndex()
{
    m_index.resize(std::bit_ceil(m_nodes.size() * 2));
    for (const DataNode& node : m_nodes) {
        if (node.schema == nullptr) continue;
        std::size_t slot = SlotOf(node.schema);
        while (m_index[slot].first != nullptr) slot = (slot + 1) % m_index.size();
        m_index[slot] = {node.schema, &node};
    }
}

std::size_t DataSchema::SlotOf(const lysc_node* schema) const
{
    constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
    constexpr unsigned kHalf = 32;
    const auto mixed = reinterpret_cast<std::uintptr_t>(schema) * kSpread;
    return static_cast<std::size_t>(mixed >> kHalf) & (m_index.size() - 1);
}

const DataNode* DataSchema::Find(const lysc_node* schema) const
{
    for (std::size_t slot = SlotOf(schema); m_index[slot].first != nullptr;
         slot = (slot + 1) & (m_index.size() - 1))
        if (m_index[slot].first == schema) return m_index[slot].second;
    return nullptr;
}

}  // namespace agent
