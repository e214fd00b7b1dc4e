// SPDX-License-Identifier: Apache-2.0
#include "agent/state/state_selection.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace agent {
namespace {

using ipc::cdb::StateSelection;

/// For a filter of more nodes the provider is asked for everything.
constexpr std::size_t kMaxSelections = 4096;

using Selections = google::protobuf::RepeatedPtrField<StateSelection>;
using Alternatives = std::vector<const FilterNode*>;

bool IsTerm(const lysc_node* node) { return (node->nodetype & LYD_NODE_TERM) != 0; }

bool Fits(const FilterNode& filter, const lysc_node* node)
{
    return !filter.hasAttributes && filter.name == node->name &&
           (filter.ns.empty() || filter.ns == node->module->ns);
}

/// Whether the filter selects all of a container or entry that it matches: it has conditions only, or
/// nothing.
bool IsWhole(const FilterNode& filter)
{
    if (filter.children.empty()) return filter.text.empty();
    return std::all_of(filter.children.begin(), filter.children.end(),
                       [](const FilterNode& child) { return child.IsContentMatch(); });
}

/// Whether two texts are the same value only if they are the same text.
bool IsLiteral(const lysc_node* key)
{
    const LY_DATA_TYPE type = reinterpret_cast<const lysc_node_leaf*>(key)->type->basetype;
    return type == LY_TYPE_STRING || type == LY_TYPE_ENUM;
}

void AddKeys(const FilterNode& filter, const lysc_node* list, StateSelection& selection)
{
    for (const lysc_node* key = lysc_node_child(list); key != nullptr && lysc_is_key(key); key = key->next)
        for (const FilterNode& child : filter.children) {
            if (!child.IsContentMatch() || !Fits(child, key) || !IsLiteral(key)) continue;
            auto& wanted = *selection.add_keys();
            wanted.set_name(key->name);
            wanted.set_value(child.text);
            break;
        }
}

class Selector {
public:
    /// Adds what the filter node's children select among the children of the schema node. Returns false if
    /// that is too much.
    bool Children(const FilterNode& filter, const lysc_node* parent, Selections& selections)
    {
        for (const FilterNode& child : filter.children) {
            const lysc_node* node = nullptr;
            while ((node = lys_getnext(node, parent, parent->module->compiled, 0)) != nullptr)
                if (Fits(child, node) && !Child(child, node, selections)) return false;
        }
        return true;
    }

private:
    bool Child(const FilterNode& filter, const lysc_node* node, Selections& selections)
    {
        if (++m_count > kMaxSelections) return false;
        if (!IsTerm(node) && filter.IsContentMatch()) return true;  // only leaves have a value
        StateSelection selection;
        selection.set_name(node->name);
        if (node->nodetype == LYS_LIST) AddKeys(filter, node, selection);
        if (!IsTerm(node) && !IsWhole(filter)) {
            if (!Children(filter, node, *selection.mutable_children())) return false;
            if (selection.children().empty()) return true;  // the filter's children are not in the schema
        }
        *selections.Add() = std::move(selection);
        return true;
    }

    std::size_t m_count = 0;
};

}  // namespace

bool StateWanted::Has(std::string_view child) const
{
    return children.empty() || std::any_of(children.begin(), children.end(),
                                           [child](const auto& each) { return each.name() == child; });
}

std::optional<StateWanted> SelectState(const lysc_node* container, const std::optional<SubtreeFilter>& filter)
{
    if (!filter) return StateWanted{};
    std::vector<const lysc_node*> way;
    for (const lysc_node* node = container; node != nullptr; node = node->parent) way.push_back(node);
    Alternatives matching;
    for (const FilterNode& node : *filter)
        if (Fits(node, way.back())) matching.push_back(&node);
    for (auto node = std::next(way.rbegin()); node != way.rend(); ++node) {
        Alternatives below;
        for (const FilterNode* each : matching) {
            if (IsWhole(*each)) return StateWanted{};
            for (const FilterNode& child : each->children)
                if (Fits(child, *node)) below.push_back(&child);
        }
        matching = std::move(below);
    }
    StateWanted wanted;
    Selector selector;
    for (const FilterNode* each : matching) {
        if (IsWhole(*each)) return StateWanted{};
        if (!selector.Children(*each, container, wanted.children)) return StateWanted{};
    }
    if (wanted.children.empty()) return std::nullopt;
    return wanted;
}

void StateSelections::Prepare(const std::vector<const lysc_node*>& containers)
{
    for (const lysc_node* container : containers)
        m_prepared.insert_or_assign(container, SelectState(container, m_filter));
}

std::optional<StateWanted> StateSelections::Take(const lysc_node* container)
{
    auto prepared = m_prepared.extract(container);
    return prepared ? std::move(prepared.mapped()) : SelectState(container, m_filter);
}

}  // namespace agent
