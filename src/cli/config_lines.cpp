// SPDX-License-Identifier: Apache-2.0
#include <libyang/libyang.h>

#include <cstddef>
#include <string_view>

#include "cli/config_text.h"
#include "cli/data.h"
#include "cli/statement.h"

namespace cli {
namespace {

/// Which list entries get a line of their own, before the lines of what they have.
enum class EntryLines { kBare, kAll };

/// Writes lines of the form LEAD PATH [VALUE]. The path of the nodes above is kept as one text.
class Lines {
public:
    Lines(std::string& out, EntryLines entries) : m_out(out), m_entries(entries) {}

    /// Enters a node for the time of `visit`.
    template <typename Visit>
    void Below(const lyd_node* node, Visit visit)
    {
        const std::size_t before = m_path.size();
        if (!IsRoot(node)) {
            m_path += ' ';
            AppendHead(node, m_path);
        }
        visit();
        m_path.resize(before);
    }

    /// The lines of everything at and below the node.
    void Whole(std::string_view lead, const lyd_node* node)
    {
        if (!Counts(node)) return;
        Below(node, [&] {
            const bool always = IsLeafNode(node) || (IsEntry(node) && m_entries == EntryLines::kAll);
            if (always) Line(lead, node);
            const std::size_t before = m_out.size();
            for (const lyd_node* child = lyd_child_no_keys(node); child; child = child->next)
                Whole(lead, child);
            if (m_out.size() == before && !always) Line(lead, node);
        });
    }

private:
    static bool IsEntry(const lyd_node* node) { return node->schema->nodetype == LYS_LIST; }

    /// One line for the node that was entered last.
    void Line(std::string_view lead, const lyd_node* node)
    {
        m_out += lead;
        m_out += m_path;
        if (IsLeafNode(node)) AppendValue(node, m_out);
        m_out += '\n';
    }

    std::string& m_out;
    EntryLines m_entries;
    std::string m_path;  // with a blank before each word
};

class Comparison {
public:
    explicit Comparison(std::string& out) : m_lines(out, EntryLines::kAll) {}

    void Siblings(const lyd_node* before, const lyd_node* after)
    {
        for (const lyd_node* node = before; node; node = node->next) {
            if (IsKeyNode(node)) continue;
            if (const lyd_node* match = Counterpart(node, after))
                Pair(node, match);
            else
                m_lines.Whole("-", node);
        }
        for (const lyd_node* node = after; node; node = node->next)
            if (!IsKeyNode(node) && !Counterpart(node, before)) m_lines.Whole("+", node);
    }

private:
    static const lyd_node* Counterpart(const lyd_node* node, const lyd_node* siblings)
    {
        lyd_node* match = nullptr;
        // A leaf is the same leaf whatever its value is.
        if (node->schema->nodetype == LYS_LEAF)
            lyd_find_sibling_val(siblings, node->schema, nullptr, 0, &match);
        else
            lyd_find_sibling_first(siblings, node, &match);
        return match;
    }

    void Pair(const lyd_node* before, const lyd_node* after)
    {
        if (!IsLeafNode(before)) {
            const lyd_node* a = lyd_child(before);
            const lyd_node* b = lyd_child(after);
            if (a || b) m_lines.Below(before, [&] { Siblings(a, b); });
            return;
        }
        if (std::string_view(lyd_get_value(before)) == lyd_get_value(after)) return;
        m_lines.Whole("-", before);
        m_lines.Whole("+", after);
    }

    Lines m_lines;
};

}  // namespace

std::string ToSetLines(const lyd_node* tree)
{
    std::string out;
    Lines lines(out, EntryLines::kBare);
    for (const lyd_node* node = tree; node; node = node->next) lines.Whole("set", node);
    return out;
}

std::string Differences(const lyd_node* before, const lyd_node* after)
{
    std::string out;
    Comparison(out).Siblings(before, after);
    return out;
}

}  // namespace cli
