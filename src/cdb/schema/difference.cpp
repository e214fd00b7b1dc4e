// SPDX-License-Identifier: Apache-2.0
#include "cdb/schema/difference.h"

#include <array>

namespace cdb {
namespace {

using Kind = SchemaChangeKind;
using Effect = SchemaChangeEffect;

const char* NameOf(NodeKind kind)
{
    static constexpr std::array kNames{"container", "presence container", "list", "leaf"};
    return kNames.at(static_cast<std::size_t>(kind));
}

std::string DefaultOf(const SchemaTable& table, const SchemaNode& leaf)
{
    if (leaf.defaultRef != kNoNode) return "that of " + table[leaf.defaultRef].name;
    return ToText(leaf.defaultValue);
}

std::string RangeOf(const SchemaNode& leaf)
{
    return std::to_string(leaf.minimum) + ".." + std::to_string(leaf.maximum);
}

std::string KeysOf(const SchemaTable& table, const SchemaNode& list)
{
    std::string keys;
    for (const NodeId key : list.keys) keys += (keys.empty() ? "" : " ") + table[key].name;
    return keys;
}

class Comparison {
public:
    Comparison(const SchemaTable& older, const SchemaTable& newer) : m_older(older), m_newer(newer) {}

    std::vector<SchemaChange> Run()
    {
        Below(kNoNode, kNoNode);
        m_changes.insert(m_changes.end(), m_removed.begin(), m_removed.end());
        return std::move(m_changes);
    }

private:
    static std::vector<NodeId> ChildrenOf(const SchemaTable& table, NodeId parent)
    {
        if (parent != kNoNode) return table[parent].children;
        std::vector<NodeId> roots;
        for (const auto& node : table.Nodes())
            if (node.parent == kNoNode) roots.push_back(node.id);
        return roots;
    }

    void Below(NodeId older, NodeId newer)
    {
        for (const NodeId child : ChildrenOf(m_newer, newer)) {
            const NodeId former = m_older.Child(older, m_newer[child].name);
            if (former == kNoNode)
                Added(m_newer[child]);
            else
                Both(m_older[former], m_newer[child]);
        }
        for (const NodeId child : ChildrenOf(m_older, older))
            if (m_newer.Child(newer, m_older[child].name) == kNoNode)
                m_removed.push_back({Kind::kRemoved, Effect::kNone, m_older.PathOf(child), {}, {}});
    }

    void Added(const SchemaNode& node)
    {
        if (node.isKey) return;  // reported as a change of the list
        const bool isLeaf = node.kind == NodeKind::kLeaf;
        Note(node, Kind::kAdded, isLeaf && node.mandatory ? Effect::kValidate : Effect::kNone, {},
             isLeaf ? DefaultOf(m_newer, node) : "");
    }

    void Both(const SchemaNode& older, const SchemaNode& newer)
    {
        if (older.kind != newer.kind) {
            // A container can be read whether or not it needs a row.
            const bool containers = older.kind != NodeKind::kList && older.kind != NodeKind::kLeaf &&
                                    newer.kind != NodeKind::kList && newer.kind != NodeKind::kLeaf;
            Note(newer, Kind::kKind, containers ? Effect::kValidate : Effect::kUnfit, NameOf(older.kind),
                 NameOf(newer.kind));
            if (!containers) return;
        }
        if (newer.kind == NodeKind::kLeaf) return Leaf(older, newer);
        const auto before = KeysOf(m_older, older);
        const auto after = KeysOf(m_newer, newer);
        if (before != after) return Note(newer, Kind::kKeys, Effect::kUnfit, before, after);
        Below(older.id, newer.id);
    }

    void Leaf(const SchemaNode& older, const SchemaNode& newer)
    {
        if (older.type != newer.type) {
            // Keys are stored as text.
            Note(newer, Kind::kType, newer.isKey ? Effect::kValidate : Effect::kUnfit, TypeName(older.type),
                 TypeName(newer.type));
            return;
        }
        if (DefaultOf(m_older, older) != DefaultOf(m_newer, newer))
            Note(newer, Kind::kDefault, Effect::kNone, DefaultOf(m_older, older), DefaultOf(m_newer, newer));
        if (older.minimum != newer.minimum || older.maximum != newer.maximum) {
            const bool wider = newer.minimum <= older.minimum && newer.maximum >= older.maximum;
            Note(newer, Kind::kRange, wider ? Effect::kNone : Effect::kValidate, RangeOf(older),
                 RangeOf(newer));
        }
        if (newer.mandatory && !older.mandatory) Note(newer, Kind::kMandatory, Effect::kValidate, {}, {});
    }

    void Note(const SchemaNode& node, Kind kind, Effect effect, std::string before, std::string after)
    {
        m_changes.push_back({kind, effect, m_newer.PathOf(node.id), std::move(before), std::move(after)});
    }

    const SchemaTable& m_older;
    const SchemaTable& m_newer;
    std::vector<SchemaChange> m_changes;
    std::vector<SchemaChange> m_removed;
};

std::string OrNone(const std::string& text) { return text.empty() ? "none" : text; }

}  // namespace

std::vector<SchemaChange> DifferenceOf(const SchemaTable& older, const SchemaTable& newer)
{
    return Comparison(older, newer).Run();
}

std::string Describe(const SchemaChange& change)
{
    const std::string instead = OrNone(change.after) + " instead of " + OrNone(change.before);
    switch (change.kind) {
    case Kind::kAdded:
        if (change.effect == Effect::kValidate) return change.path + " is new and has to have a value";
        return change.path + " is new" + (change.after.empty() ? "" : ", with the default " + change.after);
    case Kind::kRemoved:
        return change.path + " is gone, what is stored of it is not read any more";
    case Kind::kDefault:
        return change.path + " has the default " + instead;
    case Kind::kRange:
        return change.path + " has the range " + instead;
    case Kind::kMandatory:
        return change.path + " has to have a value now";
    case Kind::kType:
        return change.path + " has the type " + instead;
    case Kind::kKeys:
        return change.path + " has the keys " + instead;
    case Kind::kKind:
        return change.path + " is a " + instead;
    }
    return change.path;
}

std::string Obstacle(const std::vector<SchemaChange>& changes)
{
    std::string text;
    for (const auto& change : changes)
        if (change.effect == Effect::kUnfit) text += (text.empty() ? "" : "; ") + Describe(change);
    if (text.empty()) return text;
    return "the stored configuration can't be read by these YANG modules: " + text +
           "; export it with the version that wrote it (cdbd --export FILE), change the file, and load it "
           "with cdbd "
           "--import FILE";
}

}  // namespace cdb
