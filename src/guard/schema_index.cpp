// SPDX-License-Identifier: Apache-2.0
#include "guard/schema_index.h"

#include <libyang/libyang.h>

namespace guard {
namespace {

NodeKind KindOf(const lysc_node* schema)
{
    switch (schema->nodetype) {
    case LYS_LIST:
        return NodeKind::kList;
    case LYS_LEAF:
        return NodeKind::kLeaf;
    case LYS_LEAFLIST:
        return NodeKind::kLeafList;
    case LYS_ANYXML:
    case LYS_ANYDATA:
        return NodeKind::kAny;
    default:
        return NodeKind::kContainer;  // or an operation, which is treated as one
    }
}

constexpr std::uint16_t kData = LYS_CONTAINER | LYS_LIST | LYS_LEAF | LYS_LEAFLIST | LYS_ANYDATA;

}  // namespace

const Node* Node::Child(std::string_view childNs, std::string_view childName) const
{
    const auto found = children.find(QualifiedName{childNs, childName});
    return found == children.end() ? nullptr : found->second;
}

SchemaIndex::SchemaIndex(const ly_ctx* context) : m_context(context)
{
    std::uint32_t number = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(context, &number)) {
        if (module->implemented == 0) continue;
        m_namespaces.emplace(module->name, module->ns);
        m_modules.emplace(module->ns, module->name);
        const lysc_node* top = nullptr;
        while ((top = lys_getnext(top, nullptr, module->compiled, 0)) != nullptr) {
            if ((top->nodetype & kData) != 0) {
                Add(m_data, top);
            } else if (top->nodetype == LYS_RPC) {
                Node& operation = Make(top);
                AddChildren(operation);
                m_operations.emplace(QualifiedName{operation.ns, operation.name}, &operation);
            }
        }
    }
}

const Node* SchemaIndex::Operation(std::string_view ns, std::string_view name) const
{
    const auto found = m_operations.find(QualifiedName{ns, name});
    return found == m_operations.end() ? nullptr : found->second;
}

std::string_view SchemaIndex::NamespaceOf(std::string_view module) const
{
    const auto found = m_namespaces.find(module);
    return found == m_namespaces.end() ? std::string_view{} : found->second;
}

std::string_view SchemaIndex::ModuleOf(std::string_view ns) const
{
    const auto found = m_modules.find(ns);
    return found == m_modules.end() ? std::string_view{} : found->second;
}

Node& SchemaIndex::Make(const lysc_node* schema)
{
    Node& node = m_nodes.emplace_back();
    node.kind = KindOf(schema);
    node.isKey = lysc_is_key(schema);
    node.isState = (schema->flags & LYS_CONFIG_R) != 0;
    node.schema = schema;
    node.name = schema->name;
    node.module = schema->module->name;
    node.ns = schema->module->ns;
    return node;
}

void SchemaIndex::Add(Node& parent, const lysc_node* schema)
{
    Node& node = Make(schema);
    node.index = parent.inOrder.size();
    if (node.isKey) ++parent.keys;
    parent.inOrder.push_back(&node);
    parent.children.emplace(QualifiedName{node.ns, node.name}, &node);
    AddChildren(node);
}

// Recurses as deep as the modules nest their nodes.
void SchemaIndex::AddChildren(Node& parent)
{
    if ((parent.schema->nodetype & (LYS_CONTAINER | LYS_LIST | LYS_RPC)) == 0) return;
    const lysc_node* child = nullptr;
    while ((child = lys_getnext(child, parent.schema, nullptr, 0)) != nullptr)
        if ((child->nodetype & kData) != 0) Add(parent, child);
}

}  // namespace guard
