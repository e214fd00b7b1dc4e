// SPDX-License-Identifier: Apache-2.0
// Writes libyang trees node by node, each measured with the filter as it stands. Slow, and simple enough
// to be right: what the writer of the agent is compared with.

#include "slow_writer.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "agent/data/tree_source.h"
#include "netconf/xml.h"

namespace agent_tests {
namespace {

using agent::Defaults;
using agent::FilterNode;

/// The filter nodes that a data node has matched so far: alternatives, one of which is enough.
using Alternatives = std::vector<const FilterNode*>;

/// What a filter leaves of one data node.
struct SlowSelection {
    bool whole = false;
    Alternatives below;  // where not whole: for the children
};

bool Fits(const FilterNode& filter, std::string_view ns, std::string_view name)
{
    return !filter.hasAttributes && filter.name == name && (filter.ns.empty() || filter.ns == ns);
}

bool NodeFits(const FilterNode& filter, const lyd_node* node)
{
    return node->schema != nullptr && Fits(filter, node->schema->module->ns, node->schema->name);
}

bool HasValue(const FilterNode& filter, const lyd_node* leaf)
{
    if ((leaf->schema->nodetype & LYD_NODE_TERM) == 0) return false;
    if (filter.text == lyd_get_value(leaf)) return true;
    const auto* term = reinterpret_cast<const lyd_node_term*>(leaf);
    if (term->value.realtype->basetype == LY_TYPE_STRING) return false;
    // The same value may be written in another way: "+5", an enumeration is as it is.
    return lyd_value_compare(term, filter.text.c_str(), filter.text.size()) == LY_SUCCESS;
}

bool IsTerm(const lyd_node* node) { return (node->schema->nodetype & LYD_NODE_TERM) != 0; }

class SlowWriter {
public:
    SlowWriter(Defaults defaults, std::string& out) : m_defaults(defaults), m_out(out) {}

    void Siblings(const lyd_node* first, const lys_module* parentModule, const Alternatives* filter);

private:
    void Node(const lyd_node* node, const lys_module* parentModule, const Alternatives* filter);
    void Inner(const lyd_node* node, const lys_module* parentModule, const SlowSelection& selection);
    void Term(const lyd_node* node, const lys_module* parentModule);
    void Open(const lyd_node* node, const lys_module* parentModule);
    void Close(const lyd_node* node);
    [[nodiscard]] bool Visible(const lyd_node* node) const;
    [[nodiscard]] SlowSelection Select(const lyd_node* node, const Alternatives& filter) const;
    [[nodiscard]] bool ContentMatches(const lyd_node* node, const FilterNode& filter) const;

    Defaults m_defaults;
    std::string& m_out;
};

bool SlowWriter::Visible(const lyd_node* node) const
{
    if (m_defaults == Defaults::kReportAll || !IsTerm(node)) return true;
    if ((node->flags & LYD_DEFAULT) != 0) return false;
    return m_defaults != Defaults::kTrim || !lyd_is_default(node);
}

bool SlowWriter::ContentMatches(const lyd_node* node, const FilterNode& filter) const
{
    const auto holds = [this, node](const FilterNode& wanted) {
        if (!wanted.IsContentMatch()) return true;
        for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next)
            if (NodeFits(wanted, child) && Visible(child) && HasValue(wanted, child)) return true;
        return false;
    };
    return std::all_of(filter.children.begin(), filter.children.end(), holds);
}

SlowSelection SlowWriter::Select(const lyd_node* node, const Alternatives& filter) const
{
    SlowSelection selection;
    for (const FilterNode* alternative : filter) {
        if (!NodeFits(*alternative, node)) continue;
        if (IsTerm(node)) {
            selection.whole |=
                alternative->IsSelection() || (alternative->IsContentMatch() && HasValue(*alternative, node));
            continue;
        }
        if (alternative->IsSelection()) selection.whole = true;
        if (alternative->children.empty() || !ContentMatches(node, *alternative)) continue;
        const auto& children = alternative->children;
        const auto isContent = [](const FilterNode& child) { return child.IsContentMatch(); };
        if (std::all_of(children.begin(), children.end(), isContent)) selection.whole = true;
        for (const FilterNode& child : children) selection.below.push_back(&child);
    }
    return selection;
}

void SlowWriter::Siblings(const lyd_node* first, const lys_module* parentModule, const Alternatives* filter)
{
    for (const lyd_node* node = first; node != nullptr; node = node->next) {
        if (node->schema == nullptr) continue;
        if (node->schema->nodetype != LYS_LIST) {
            Node(node, parentModule, filter);
            continue;
        }
        const auto entries = SortedEntries(node);
        for (const lyd_node* entry : entries) Node(entry, parentModule, filter);
        while (node->next != nullptr && node->next->schema == node->schema) node = node->next;
    }
}

void SlowWriter::Node(const lyd_node* node, const lys_module* parentModule, const Alternatives* filter)
{
    if (!Visible(node)) return;
    SlowSelection selection;
    selection.whole = filter == nullptr;
    if (filter != nullptr) {
        selection = Select(node, *filter);
        if (!selection.whole && selection.below.empty()) return;
    }
    if (IsTerm(node))
        Term(node, parentModule);
    else if ((node->schema->nodetype & (LYS_CONTAINER | LYS_LIST)) != 0)
        Inner(node, parentModule, selection);
}

void SlowWriter::Inner(const lyd_node* node, const lys_module* parentModule, const SlowSelection& selection)
{
    const std::size_t before = m_out.size();
    Open(node, parentModule);
    const lyd_node* child = lyd_child(node);
    const bool partly = !selection.whole;
    if (partly) {
        // An entry shows its keys whatever else is asked for, but not for their sake alone.
        for (const lyd_node* key = child; key != nullptr && lysc_is_key(key->schema); key = key->next)
            Term(key, node->schema->module);
    }
    const std::size_t opened = m_out.size();
    bool keyAsked = false;
    for (; partly && child != nullptr && lysc_is_key(child->schema); child = child->next)
        keyAsked |= Select(child, selection.below).whole;
    Siblings(child, node->schema->module, partly ? &selection.below : nullptr);
    const bool mayBeEmpty =
        !partly && (node->schema->nodetype == LYS_LIST || lysc_is_np_cont(node->schema) == 0);
    if (m_out.size() == opened && !keyAsked && !mayBeEmpty) {
        m_out.resize(before);
        return;
    }
    Close(node);
}

void SlowWriter::Term(const lyd_node* node, const lys_module* parentModule)
{
    Open(node, parentModule);
    netconf::AppendEscaped(m_out, lyd_get_value(node));
    Close(node);
}

void SlowWriter::Open(const lyd_node* node, const lys_module* parentModule)
{
    m_out.push_back('<');
    m_out.append(node->schema->name);
    if (node->schema->module != parentModule)
        m_out.append(" xmlns=\"").append(node->schema->module->ns).push_back('"');
    m_out.push_back('>');
}

void SlowWriter::Close(const lyd_node* node) { m_out.append("</").append(node->schema->name).push_back('>'); }

}  // namespace

void WriteSlowly(const lyd_node* first, const std::optional<agent::SubtreeFilter>& filter,
                 agent::Defaults defaults, std::string& out)
{
    SlowWriter writer(defaults, out);
    if (!filter) return writer.Siblings(first, nullptr, nullptr);
    Alternatives alternatives;
    for (const FilterNode& node : *filter) alternatives.push_back(&node);
    writer.Siblings(first, nullptr, &alternatives);
}

}  // namespace agent_tests
