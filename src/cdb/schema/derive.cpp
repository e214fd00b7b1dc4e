// SPDX-License-Identifier: Apache-2.0
// Makes the schema table from libyang's compiled nodes, and checks it: tags and namespace hashes are complete
// and unambiguous, every leaf's type fits a Value.

#include "cdb/schema/derive.h"

#include <libyang/libyang.h>
#include <libyang/plugins_types.h>

#include <limits>
#include <map>
#include <span>
#include <string>

#include "base/number.h"
#include "cdb/model/error.h"
#include "cdb/schema/extensions.h"
#include "cdb/schema/libyang_owner.h"

namespace cdb {
namespace {

template <typename Item>
std::span<Item> Array(Item* sized)
{
    return {sized, LY_ARRAY_COUNT(sized)};
}

[[noreturn]] void Refuse(const lysc_node* node, const std::string& why)
{
    const std::string where = TakeText(lysc_path(node, LYSC_PATH_LOG, nullptr, 0));
    throw FatalError("YANG module " + std::string(node->module->name) + ": node " + where + ' ' + why);
}

/// The number, or 0 if the text is none or it is beyond `limit`.
std::uint32_t Number(std::string_view text, std::uint32_t limit)
{
    const auto number = base::ToNumber<std::uint32_t>(text).value_or(0);
    return number <= limit ? number : 0;
}

class Derivation {
public:
    DerivedSchema Run(const ly_ctx* context)
    {
        std::uint32_t index = 0;
        while (const lys_module* module = ly_ctx_get_module_iter(context, &index))
            if (module->implemented != 0) Children(nullptr, module->compiled, kNoNode);
        for (NodeId id = 0; id < m_nodes.size(); ++id) ResolveDefault(id);
        return {SchemaTable(std::move(m_nodes)), std::move(m_compiled)};
    }

private:
    void Children(const lysc_node* parent, const lysc_module* module, NodeId parentId)
    {
        const lysc_node* child = nullptr;
        while ((child = lys_getnext(child, parent, module, 0)) != nullptr) {
            if ((child->flags & LYS_CONFIG_W) == 0 ||
                (child->nodetype & (LYS_RPC | LYS_ACTION | LYS_NOTIF)) != 0)
                continue;
            Children(child, nullptr, Add(child, parentId));
        }
    }

    NodeId Add(const lysc_node* compiled, NodeId parent)
    {
        const auto id = static_cast<NodeId>(m_nodes.size());
        SchemaNode node;
        node.parent = parent;
        node.name = compiled->name;
        node.module = compiled->module->name;
        node.kind = KindOf(compiled);
        node.tag = TagOf(compiled);
        node.ns = NamespaceOf(compiled);
        if (const char* name = Statement(compiled->exts, "callpoint")) {
            if (node.kind != NodeKind::kList) Refuse(compiled, "has a callpoint, which only a list can have");
            node.callpoint = name;
        }
        if (node.kind == NodeKind::kLeaf) FillLeaf(node, compiled);
        m_nodes.push_back(std::move(node));
        m_compiled.push_back(compiled);
        // libyang leaves this member to its user; 0 means no number, so numbers are stored plus one.
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a number, never followed
        const_cast<lysc_node*>(compiled)->priv = reinterpret_cast<void*>(static_cast<std::uintptr_t>(id) + 1);
        return id;
    }

    static NodeKind KindOf(const lysc_node* node)
    {
        switch (node->nodetype) {
        case LYS_CONTAINER:
            return (node->flags & LYS_PRESENCE) != 0 ? NodeKind::kPresenceContainer : NodeKind::kContainer;
        case LYS_LIST:
            if ((node->flags & LYS_ORDBY_USER) != 0)
                Refuse(node, "is a list ordered by the user; entries are ordered by their keys");
            return NodeKind::kList;
        case LYS_LEAF:
            return NodeKind::kLeaf;
        default:
            Refuse(node, std::string("is a ") + lys_nodetype2str(node->nodetype) + ", which can't be stored");
        }
    }

    std::uint32_t TagOf(const lysc_node* node)
    {
        const char* text = Statement(node->exts, "tag");
        if (text == nullptr) Refuse(node, "has no tag statement");
        const std::uint32_t tag = Number(text, std::numeric_limits<std::uint32_t>::max());
        if (tag == 0)
            Refuse(node, "has the tag " + std::string(text) + ", which is no number from 1 to 4294967295");
        const auto& name = m_nameOfTag.try_emplace(tag, node->name).first->second;
        if (name != node->name)
            Refuse(node, "has the tag " + std::string(text) + ", which belongs to " + name);
        const auto known = m_tagOfName.try_emplace(node->name, tag).first->second;
        if (known != tag)
            Refuse(node,
                   "has the tag " + std::string(text) + "; elsewhere that name has " + std::to_string(known));
        return tag;
    }

    std::uint32_t NamespaceOf(const lysc_node* node)
    {
        const lys_module* module = node->module;
        const char* text = Statement(module->compiled->exts, "namespace-hash");
        if (text == nullptr) Refuse(node, "belongs to a module without a namespace-hash statement");
        const std::uint32_t hash = Number(text, std::numeric_limits<std::int32_t>::max());
        if (hash == 0)
            Refuse(node, "belongs to a module with the namespace-hash " + std::string(text) +
                             ", which is no number from 1 to 2147483647");
        const auto& owner = m_moduleOfHash.try_emplace(hash, module->name).first->second;
        if (owner != module->name) Refuse(node, "belongs to a module with the namespace-hash of " + owner);
        return hash;
    }

    static void FillLeaf(SchemaNode& node, const lysc_node* compiled)
    {
        const auto* leaf = reinterpret_cast<const lysc_node_leaf*>(compiled);
        node.isKey = (leaf->flags & LYS_KEY) != 0;
        node.mandatory = !node.isKey && (leaf->flags & LYS_MAND_TRUE) != 0;
        FillType(node, compiled, leaf->type);
        if (leaf->dflt == nullptr) return;
        const char* text = lyd_value_get_canonical(leaf->module->ctx, leaf->dflt);
        auto value = FromText(node.type, text);
        if (!value) Refuse(compiled, "has the default " + std::string(text) + ", which its type can't hold");
        node.defaultValue = std::move(*value);
    }

    static void FillType(SchemaNode& node, const lysc_node* compiled, const lysc_type* type)
    {
        if (type->basetype == LY_TYPE_LEAFREF)
            type = reinterpret_cast<const lysc_type_leafref*>(type)->realtype;
        switch (type->basetype) {
        case LY_TYPE_BOOL:
            node.type = ValueType::kBool;
            return;
        case LY_TYPE_UINT16:
            node.type = ValueType::kUint16;
            FillRange(node, type, std::numeric_limits<std::uint16_t>::max());
            return;
        case LY_TYPE_UINT32:
            node.type = ValueType::kUint32;
            FillRange(node, type, std::numeric_limits<std::uint32_t>::max());
            return;
        case LY_TYPE_STRING:
            node.type = StringType(compiled, type);
            return;
        case LY_TYPE_ENUM:
            node.type = ValueType::kString;  // its name
            return;
        default:
            Refuse(
                compiled,
                "has a type that a value can't hold; strings, enumerations, booleans, uint16 and uint32 can");
        }
    }

    static void FillRange(SchemaNode& node, const lysc_type* type, std::uint64_t largest)
    {
        node.minimum = 0;
        node.maximum = largest;
        const auto* number = reinterpret_cast<const lysc_type_num*>(type);
        if (number->range == nullptr) return;
        const auto parts = Array(number->range->parts);
        node.minimum = parts.front().min_u64;
        node.maximum = parts.back().max_u64;
    }

    static ValueType StringType(const lysc_node* compiled, const lysc_type* type)
    {
        // The compiled type shows only by its plugin that it is inet:ipv4-address-no-zone.
        if (std::string_view(type->plugin->id).find("ipv4-address-no-zone") != std::string_view::npos)
            return ValueType::kIpv4;
        const char* name = Statement(compiled->exts, "value-type");
        if (name == nullptr) return ValueType::kString;
        if (name != std::string_view(TypeName(ValueType::kIpv4Plen)))
            Refuse(compiled, "has the value-type " + std::string(name) + ", which is not known");
        return ValueType::kIpv4Plen;
    }

    void ResolveDefault(NodeId id)
    {
        const lysc_node* compiled = m_compiled[id];
        const char* path = Statement(compiled->exts, "default-ref");
        if (path == nullptr) return;
        const auto refuse = [&](const std::string& why) {
            Refuse(compiled, "has the default-ref " + std::string(path) + ", which " + why);
        };
        SchemaNode& node = m_nodes[id];
        if (node.kind != NodeKind::kLeaf) refuse("only a leaf can have");
        if (TypeOf(node.defaultValue) != ValueType::kNone) refuse("does not go with a default");
        constexpr std::string_view kSibling = "../";
        const std::string_view text = path;
        if (!text.starts_with(kSibling)) refuse("does not begin with ../");
        for (const auto& other : m_nodes)
            if (other.parent == node.parent && other.name == text.substr(kSibling.size()))
                node.defaultRef = static_cast<NodeId>(&other - m_nodes.data());
        if (node.defaultRef == kNoNode) refuse("names no sibling");
        const SchemaNode& target = m_nodes[node.defaultRef];
        if (target.kind != NodeKind::kLeaf || target.type != node.type)
            refuse("names no leaf of the same type");
        if (node.defaultRef == id || Statement(m_compiled[node.defaultRef]->exts, "default-ref") != nullptr)
            refuse("names a leaf that has a default-ref itself");
    }

    std::vector<SchemaNode> m_nodes;
    std::vector<const lysc_node*> m_compiled;
    std::map<std::uint32_t, std::string> m_nameOfTag;
    std::map<std::string, std::uint32_t> m_tagOfName;
    std::map<std::uint32_t, std::string> m_moduleOfHash;
};

}  // namespace

NodeId IdOf(const lysc_node* node)
{
    const auto number = node != nullptr ? reinterpret_cast<std::uintptr_t>(node->priv) : 0;
    return number == 0 ? kNoNode : static_cast<NodeId>(number - 1);
}

DerivedSchema DeriveSchema(const ly_ctx* context) { return Derivation().Run(context); }

}  // namespace cdb
