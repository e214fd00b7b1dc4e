// SPDX-License-Identifier: Apache-2.0
#include "naive.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>

#include "cdb/datastore/tree.h"

namespace tests::naive {
namespace {

using Leaves = std::map<std::string, std::string>;

/// Every place of a tree: entries and containers, by their position in a walk over everything.
struct Place {
    cdb::NodeId node = cdb::kNoNode;
    std::vector<std::string> keys;  // own
    Leaves leaves;                  // explicit
    std::map<std::pair<cdb::NodeId, std::vector<std::string>>, Place> below;
};

Place PlaceOf(const cdb::Schema& schema, const lyd_node* node)
{
    Place place{schema.IdOf(node->schema), cdb::KeysOf(node), {}, {}};
    const lyd_node* child = nullptr;
    LY_LIST_FOR(lyd_child(node), child)
    {
        if (child->schema->nodetype != LYS_LEAF) {
            auto below = PlaceOf(schema, child);
            place.below.emplace(std::pair(below.node, below.keys), below);
        } else if (!lysc_is_key(child->schema) && (child->flags & LYD_DEFAULT) == 0) {
            place.leaves.emplace(LYD_NAME(child), lyd_get_value(child));
        }
    }
    return place;
}

bool IsContainer(const cdb::SchemaNode& node) { return node.kind == cdb::NodeKind::kContainer; }

class Differ {
public:
    explicit Differ(const cdb::SchemaTable& table) : m_table(table) {}

    std::vector<std::string> Of(const Place* before, const Place* after, const std::string& above)
    {
        const Place& place = after != nullptr ? *after : *before;
        const auto& node = m_table[place.node];
        std::string path = above + '/' + node.name;
        if (!place.keys.empty()) path += '{' + place.keys.front() + '}';
        std::vector<std::string> lines;
        for (const auto id : node.children) {
            if (m_table[id].kind == cdb::NodeKind::kLeaf)
                Leaf(m_table[id], before, after, path, lines);
            else
                Below(id, before, after, path, lines);
        }
        if (IsContainer(node)) return lines;
        if (before == nullptr)
            lines.insert(lines.begin(), "created " + path);
        else if (after == nullptr)
            lines.insert(lines.begin(), "deleted " + path);
        else if (!lines.empty())
            lines.insert(lines.begin(), "modified " + path);
        return lines;
    }

private:
    std::string Effective(const cdb::SchemaNode& leaf, const Place& place) const
    {
        if (const auto it = place.leaves.find(leaf.name); it != place.leaves.end()) return it->second;
        return leaf.defaultRef != cdb::kNoNode ? Effective(m_table[leaf.defaultRef], place)
                                               : cdb::ToText(leaf.defaultValue);
    }

    void Leaf(const cdb::SchemaNode& leaf, const Place* before, const Place* after, const std::string& path,
              std::vector<std::string>& lines) const
    {
        const std::string own = path + '/' + leaf.name;
        if (leaf.isKey) return;
        if (before == nullptr && after->leaves.contains(leaf.name))
            lines.push_back("set " + own + " = " + after->leaves.at(leaf.name));
        if (after == nullptr && before->leaves.contains(leaf.name)) lines.push_back("deleted " + own);
        if (before == nullptr || after == nullptr) return;
        const auto value = Effective(leaf, *after);
        if (value == Effective(leaf, *before)) return;
        lines.push_back(value.empty() ? "deleted " + own : "set " + own + " = " + value);
    }

    void Below(cdb::NodeId id, const Place* before, const Place* after, const std::string& path,
               std::vector<std::string>& lines)
    {
        std::map<std::vector<std::string>, std::pair<const Place*, const Place*>> pairs;
        const auto add = [&](const Place* place, const Place* std::pair<const Place*, const Place*>::*side) {
            if (place == nullptr) return;
            for (const auto& [key, below] : place->below)
                if (key.first == id) pairs[key.second].*side = &below;
        };
        add(before, &std::pair<const Place*, const Place*>::first);
        add(after, &std::pair<const Place*, const Place*>::second);
        for (const auto& [keys, pair] : pairs) {
            const auto more = Of(pair.first, pair.second, path);
            lines.insert(lines.end(), more.begin(), more.end());
        }
    }

    const cdb::SchemaTable& m_table;
};

void AddRows(const cdb::SchemaTable& table, const Place& place, const std::string& above, Rows& rows)
{
    std::string path = above + '/' + table[place.node].name;
    if (!place.keys.empty()) path += '{' + place.keys.front() + '}';
    if (!IsContainer(table[place.node]) || !place.leaves.empty()) rows[path] = place.leaves;
    for (const auto& [key, below] : place.below) AddRows(table, below, path, rows);
}

Leaves LeavesOf(const cdb::Row& row)
{
    Leaves leaves;
    for (const auto& [name, value] : row.leaves) leaves.emplace(name, cdb::ToText(value));
    return leaves;
}

void AddStored(const cdb::SchemaTable& table, const cdb::StoreReader::Snapshot& store, const cdb::RowKey& key,
               Rows& rows)
{
    if (IsContainer(table[key.node]))
        if (const auto row = store.Get(key)) rows[cdb::TextOf(table, key)] = LeavesOf(*row);
    for (const auto child : table[key.node].children) {
        if (table[child].kind == cdb::NodeKind::kLeaf) continue;
        if (table[child].kind != cdb::NodeKind::kList) {
            AddStored(table, store, {child, key.keys}, rows);
            continue;
        }
        store.Scan(child, key.keys, 0, [&](const std::vector<std::string>& own, const cdb::Row& row) {
            cdb::RowKey entry{child, key.keys};
            entry.keys.insert(entry.keys.end(), own.begin(), own.end());
            rows[cdb::TextOf(table, entry)] = LeavesOf(row);
            AddStored(table, store, entry, rows);
            return true;
        });
    }
}

}  // namespace

Rows RowsOf(const cdb::Schema& schema, const lyd_node* tree)
{
    Rows rows;
    AddRows(schema.Table(), PlaceOf(schema, tree), "", rows);
    return rows;
}

Rows RowsOf(const cdb::Schema& schema, const cdb::StoreReader::Snapshot& store)
{
    Rows rows;
    AddStored(schema.Table(), store, {0, {}}, rows);
    return rows;
}

bool IsValid(const lyd_node* tree)
{
    // In a context of its own, where libyang looks at everything.
    static const auto schema = cdb::Schema::Load(SFLOW_TEST_YANG_DIR);
    char* text = nullptr;
    if (lyd_print_mem(&text, tree, LYD_XML, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK) != LY_SUCCESS)
        throw std::bad_alloc();
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    lyd_node* parsed = nullptr;
    const bool valid = lyd_parse_data_mem(schema->Context(), text != nullptr ? text : "", LYD_XML,
                                          LYD_PARSE_STRICT, LYD_VALIDATE_NO_STATE, &parsed) == LY_SUCCESS;
    lyd_free_all(parsed);
    return valid;
}

std::vector<std::string> Changes(const cdb::Schema& schema, const lyd_node* before, const lyd_node* after)
{
    const auto old = PlaceOf(schema, before);
    const auto now = PlaceOf(schema, after);
    return Differ(schema.Table()).Of(&old, &now, "");
}

std::string Everything(const lyd_node* tree)
{
    const std::function<std::string(const lyd_node*, const std::string&)> show =
        [&](const lyd_node* node, const std::string& indent) {
            std::vector<std::string> parts;
            const lyd_node* child = nullptr;
            LY_LIST_FOR(lyd_child(node), child) parts.push_back(show(child, indent + " "));
            std::sort(parts.begin(), parts.end());
            std::string text = indent + LYD_NAME(node);
            if (node->schema->nodetype == LYS_LEAF) text += std::string(" ") + lyd_get_value(node);
            for (const auto& key : cdb::KeysOf(node)) text += ' ' + key;
            text += (node->flags & LYD_DEFAULT) != 0 ? " default\n" : "\n";
            for (const auto& part : parts) text += part;
            return text;
        };
    return show(tree, "");
}

}  // namespace tests::naive
