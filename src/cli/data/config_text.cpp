// SPDX-License-Identifier: Apache-2.0
#include "cli/data/config_text.h"

#include <libyang/libyang.h>

#include <cstddef>
#include <string_view>

#include "cli/data/schema_words.h"
#include "cli/data/words.h"

namespace cli {
namespace {

bool IsKeyNode(const lyd_node* node) { return node->schema && (node->schema->flags & LYS_KEY) != 0; }

/// Whether the node is the container that paths leave out.
bool IsRoot(const lyd_node* node)
{
    return !lyd_parent(node) && node->schema == RootContainer(LYD_CTX(node));
}

/// A leaf or a leaf-list's value.
bool IsLeafNode(const lyd_node* node) { return (node->schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0; }

/// Whether the node says something: leaves, list entries and presence containers do, other containers if
/// something below them does.
bool Counts(const lyd_node* node)
{
    const bool plainContainer =
        node->schema->nodetype == LYS_CONTAINER && (node->schema->flags & LYS_PRESENCE) == 0;
    if (!plainContainer) return true;
    for (const lyd_node* child = lyd_child(node); child; child = child->next)
        if (Counts(child)) return true;
    return false;
}

/// Appends a blank and the leaf's value; nothing for a leaf that has none.
void AppendValue(const lyd_node* node, std::string& out)
{
    if (reinterpret_cast<const lyd_node_term*>(node)->value.realtype->basetype == LY_TYPE_EMPTY) return;
    out += ' ';
    out += Quoted(lyd_get_value(node));
}

/// Appends the node's name and, for a list's entry, its keys.
void AppendHead(const lyd_node* node, std::string& out)
{
    out += node->schema->name;
    if (node->schema->nodetype != LYS_LIST) return;
    for (const lyd_node* key = lyd_child(node); key && IsKeyNode(key); key = key->next) AppendValue(key, out);
}

constexpr std::size_t kBlockIndent = 4;

void AppendBlock(const lyd_node* node, std::size_t depth, std::string& out);

void AppendChildren(const lyd_node* parent, std::size_t depth, std::string& out)
{
    for (const lyd_node* child = lyd_child_no_keys(parent); child; child = child->next)
        AppendBlock(child, depth, out);
}

void AppendBlock(const lyd_node* node, std::size_t depth, std::string& out)
{
    if (!Counts(node)) return;
    out.append(depth * kBlockIndent, ' ');
    AppendHead(node, out);
    if (IsLeafNode(node)) {
        AppendValue(node, out);
        out += (node->flags & LYD_DEFAULT) != 0 ? ";  # default\n" : ";\n";
        return;
    }
    const std::size_t withoutBlock = out.size();
    out += " {\n";
    const std::size_t begin = out.size();
    AppendChildren(node, depth + 1, out);
    if (out.size() == begin) {
        out.resize(withoutBlock);
        out += ";\n";
        return;
    }
    out.append(depth * kBlockIndent, ' ');
    out += "}\n";
}

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

std::string ToBlocks(const lyd_node* tree)
{
    std::vector<const lyd_node*> nodes;
    for (const lyd_node* node = tree; node; node = node->next) nodes.push_back(node);
    return ToBlocks(nodes);
}

std::string ToBlocks(const std::vector<const lyd_node*>& nodes)
{
    std::string out;
    for (const lyd_node* node : nodes) {
        if (IsRoot(node))
            AppendChildren(node, 0, out);
        else
            AppendBlock(node, 0, out);
    }
    return out;
}

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
