// SPDX-License-Identifier: Apache-2.0
#include "cdb/schema/reach.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include "cdb/schema/libyang_owner.h"

namespace cdb {
namespace {

const lysc_node* DataParent(const lysc_node* node)
{
    const lysc_node* parent = node->parent;
    while (parent != nullptr && (parent->nodetype & (LYS_CHOICE | LYS_CASE)) != 0) parent = parent->parent;
    return parent;
}

/// The list whose entries are the units that the node is in; null if it is in the trunk.
const lysc_node* UnitOf(const lysc_node* node)
{
    const lysc_node* unit = nullptr;
    for (const lysc_node* at = node; at != nullptr; at = DataParent(at))
        if (at->nodetype == LYS_LIST) unit = at;
    return unit;
}

class Examiner {
public:
    explicit Examiner(const DerivedSchema& schema) : m_schema(schema) {}

    void Node(NodeId id)
    {
        const lysc_node* node = m_schema.compiled[id];
        bool isLocal = true;
        const lysc_must* musts = lysc_node_musts(node);
        for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(musts); ++i)
            isLocal = isLocal && StaysInside(node, musts[i].cond, musts[i].prefixes);
        isLocal = isLocal && Whens(node);
        if (node->nodetype == LYS_LIST)
            isLocal = isLocal && Counts(*reinterpret_cast<const lysc_node_list*>(node));
        if (node->nodetype == LYS_LEAF)
            isLocal = isLocal && Type(id, node, reinterpret_cast<const lysc_node_leaf*>(node)->type);
        if (!isLocal) m_reach.wide.push_back(id);
    }

    Reach Result()
    {
        // Leaves may share a compiled type: taking over one leaf's references takes over those of all.
        std::erase_if(m_reach.references, [this](const Reference& reference) {
            const bool isShared = IsShared(reference);
            if (isShared) m_reach.wide.push_back(reference.leaf);
            return isShared;
        });
        return std::move(m_reach);
    }

private:
    using Atoms = std::vector<const lysc_node*>;

    [[nodiscard]] const lysc_type* TypeOf(NodeId leaf) const
    {
        return reinterpret_cast<const lysc_node_leaf*>(m_schema.compiled[leaf])->type;
    }

    /// Whether a leaf without such a reference has the same compiled type.
    [[nodiscard]] bool IsShared(const Reference& reference) const
    {
        const auto nodes = m_schema.table.Nodes();
        return std::any_of(nodes.begin(), nodes.end(), [&](const SchemaNode& node) {
            const auto isSame = [&node](const Reference& each) { return each.leaf == node.id; };
            return node.kind == NodeKind::kLeaf && TypeOf(node.id) == TypeOf(reference.leaf) &&
                   std::none_of(m_reach.references.begin(), m_reach.references.end(), isSame);
        });
    }

    /// Nullopt if libyang can't tell.
    static std::optional<Atoms> AtomsOf(const lysc_node* context, const lys_module* module,
                                        const lyxp_expr* expression, const lysc_prefix* prefixes)
    {
        ly_set* found = nullptr;
        const auto result = lys_find_expr_atoms(context, module, expression, prefixes, 0, &found);
        const Owned<ly_set> owned(found);
        if (result != LY_SUCCESS || found == nullptr) return std::nullopt;
        return Atoms(found->snodes, found->snodes + found->count);
    }

    /// Atoms name every step of a path of child and parent steps; of other axes they name only the end, and
    /// of deref() only its argument.
    static bool IsReadable(const lyxp_expr* expression)
    {
        const std::string_view text = lyxp_get_expr(expression);
        return text.find("//") == std::string_view::npos && text.find("::") == std::string_view::npos &&
               text.find("deref") == std::string_view::npos;
    }

    static bool StaysInside(const lysc_node* context, const lyxp_expr* expression,
                            const lysc_prefix* prefixes)
    {
        if (context == nullptr || !IsReadable(expression)) return false;
        const lysc_node* unit = UnitOf(context);
        const auto atoms = AtomsOf(context, context->module, expression, prefixes);
        if (!atoms) return false;
        // In an entry, an atom above the entry leads out of it. In the trunk, entries are outside.
        return std::all_of(atoms->begin(), atoms->end(),
                           [unit](const lysc_node* atom) { return UnitOf(atom) == unit; });
    }

    bool Whens(const lysc_node* node)
    {
        bool isLocal = true;
        for (const lysc_node* at = node; at != nullptr; at = at->parent) {
            lysc_when** whens = lysc_node_when(at);
            for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(whens); ++i) {
                m_reach.hasWhen = true;
                isLocal = isLocal && StaysInside(whens[i]->context, whens[i]->cond, whens[i]->prefixes) &&
                          UnitOf(whens[i]->context) == UnitOf(node);
            }
            if (at->parent == nullptr || (at->parent->nodetype & (LYS_CHOICE | LYS_CASE)) == 0) break;
        }
        return isLocal;
    }

    /// Whether min-elements, max-elements and unique stay inside a unit: on an outermost list they concern
    /// all units.
    static bool Counts(const lysc_node_list& list)
    {
        const bool isCounted = list.min != 0 || list.max != UINT32_MAX || list.uniques != nullptr;
        return !isCounted || UnitOf(&list.node) != &list.node;
    }

    bool Type(NodeId id, const lysc_node* node, const lysc_type* type)
    {
        switch (type->basetype) {
        case LY_TYPE_LEAFREF:
            return Leafref(id, node, *reinterpret_cast<const lysc_type_leafref*>(type));
        case LY_TYPE_INST:
            return false;
        case LY_TYPE_UNION: {
            const auto* all = reinterpret_cast<const lysc_type_union*>(type);
            for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(all->types); ++i)
                if (all->types[i]->basetype == LY_TYPE_LEAFREF || all->types[i]->basetype == LY_TYPE_INST)
                    return false;
            return true;
        }
        default:
            return true;
        }
    }

    bool Leafref(NodeId id, const lysc_node* node, const lysc_type_leafref& type)
    {
        if (type.require_instance == 0 || StaysInside(node, type.path, type.prefixes)) return true;
        const bool hasConditions =
            std::string_view(lyxp_get_expr(type.path)).find('[') != std::string_view::npos;
        const auto atoms = AtomsOf(node, node->module, type.path, type.prefixes);
        if (hasConditions || !IsReadable(type.path) || !atoms) return false;
        const lysc_node* target = nullptr;
        for (const lysc_node* atom : *atoms)
            if (atom->nodetype == LYS_LEAF && atom != node) target = atom;  // the path has only one
        if (target == nullptr || !lysc_is_key(target)) return false;
        const lysc_node* list = target->parent;
        if (UnitOf(target) != list || IdOf(list) == kNoNode) return false;
        if (m_schema.table[IdOf(list)].keys.size() != 1) return false;
        m_reach.references.push_back({id, IdOf(list)});
        return true;
    }

    const DerivedSchema& m_schema;
    Reach m_reach;
};

}  // namespace

Reach ExamineConstraints(const DerivedSchema& schema)
{
    Examiner examiner(schema);
    for (const auto& node : schema.table.Nodes()) examiner.Node(node.id);
    return examiner.Result();
}

}  // namespace cdb
