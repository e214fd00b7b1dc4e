// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/validate.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "cdb/datastore/candidate_view.h"
#include "cdb/datastore/tree.h"
#include "cdb/datastore/tree_load.h"

namespace cdb {
namespace {

using Units = std::vector<const lyd_node*>;

constexpr std::string_view kDataLocation = "Data location \"";
constexpr std::string_view kSchemaLocation = "Schema location \"";

/// The text between the quotes after `words`; empty if there is none.
std::string Location(const ly_err_item& item, std::string_view words)
{
    const std::string_view path = item.path != nullptr ? item.path : "";
    const auto start = path.find(words);
    if (start == std::string_view::npos) return {};
    // Keys in a data path may contain any quotes; the path's closing quote is followed by one of these.
    auto end = path.find("\", ", start + words.size());
    if (end == std::string_view::npos) end = path.rfind("\".");
    if (end == std::string_view::npos || end < start + words.size()) return {};
    return std::string(path.substr(start + words.size(), end - start - words.size()));
}

/// The first instance of `parent` below `node` (itself included) without a child of that schema.
const lyd_node* WithoutChild(const lyd_node* node, const lysc_node* parent, const lysc_node* child)
{
    if (node->schema == parent) return FindSingle(lyd_child(node), child) == nullptr ? node : nullptr;
    for (const lyd_node* below = lyd_child(node); below != nullptr; below = below->next)
        if (const lyd_node* found = WithoutChild(below, parent, child); found != nullptr) return found;
    return nullptr;
}

Error MissingNode(const Schema& schema, const ly_err_item& item, const lyd_node* tree)
{
    Error error;
    error.tag = ErrorTag::kMissingElement;
    error.message = item.msg;
    const std::string location = Location(item, kSchemaLocation);
    const lysc_node* node = lys_find_path(schema.Context(), nullptr, location.c_str(), 0);
    if (node == nullptr) return error;
    error.info = {{"bad-element", node->name}};
    const lyd_node* holder = WithoutChild(tree, node->parent, node);
    if (holder == nullptr) return error;
    error.path = DataPath(holder);
    error.message = Describe(holder) + " needs \"" + node->name + "\"; set it";
    return error;
}

/// libyang's last message as an error that names the thing and the remedy. `tree`: any top-level node of the
/// validated tree.
Error ValidationError(const Schema& schema, const lyd_node* tree)
{
    const ly_err_item* last = ly_err_last(schema.Context());
    Error error;
    error.message = "the configuration is not valid";
    if (last == nullptr || last->msg == nullptr) return error;
    // Copies, since further calls of libyang replace its texts.
    const std::string message = last->msg;
    const std::string path = last->path != nullptr ? last->path : "";
    const std::string appTag = last->apptag != nullptr ? last->apptag : "";
    ly_err_item item = *last;
    item.msg = const_cast<char*>(message.c_str());
    item.path = const_cast<char*>(path.c_str());

    if (appTag == "instance-required") error.tag = ErrorTag::kDataMissing;
    if (message.starts_with("Mandatory node")) return MissingNode(schema, item, tree);
    error.message = message;
    error.path = Location(item, kDataLocation);
    error.appTag = appTag;
    if (appTag == "missing-choice") error.tag = ErrorTag::kDataMissing;
    return error;
}

/// Copies the nodes outside of lists, and the unit below its parent.
void CopyTrunk(const Schema& schema, const lyd_node* node, lyd_node* copy, const lyd_node* unit)
{
    const auto& table = schema.Table();
    if (lyd_parent(unit) == node) CopyOf(unit, copy, LYD_DUP_RECURSIVE);
    for (const NodeId id : table[schema.IdOf(node->schema)].children) {
        if (table[id].kind == NodeKind::kList) continue;
        const lyd_node* child = FindSingle(lyd_child(node), schema.NodeOf(id));
        if (child == nullptr) continue;
        lyd_node* childCopy = CopyOf(child, copy, 0);
        if (table[id].kind != NodeKind::kLeaf) CopyTrunk(schema, child, childCopy, unit);
    }
}

/// Validates a complete tree and returns the first error. The tree stays as it is.
std::optional<Error> ValidateTree(const Schema& schema, lyd_node* tree)
{
    // Validation does not change a complete tree, unless a "when" removes nodes.
    TreePtr copy;
    if (schema.Constraints().hasWhen) {
        lyd_node* siblings = nullptr;
        if (lyd_dup_siblings(tree, nullptr, LYD_DUP_RECURSIVE, &siblings) != LY_SUCCESS)
            throw std::bad_alloc();
        copy.reset(siblings);
    }
    lyd_node* validated = copy ? copy.get() : tree;
    ly_err_clean(schema.Context(), nullptr);
    const auto result = lyd_validate_module(&validated, tree->schema->module, LYD_VALIDATE_NO_STATE, nullptr);
    if (copy) {
        static_cast<void>(copy.release());
        copy.reset(validated);
    }
    if (result == LY_SUCCESS) return std::nullopt;
    return ValidationError(schema, validated);
}

/// Validates a copy of one unit of the tree together with the trunk and returns the first error.
std::optional<Error> ValidateUnit(const Schema& schema, const lyd_node* tree, const lyd_node* unit)
{
    const TreePtr copy(CopyOf(tree, nullptr, 0));
    CopyTrunk(schema, tree, copy.get(), unit);
    return ValidateTree(schema, copy.get());
}

template <typename Visit>
void ForEachUnit(const lyd_node* trunk, Visit&& visit)
{
    for (const lyd_node* child = lyd_child(trunk); child != nullptr; child = child->next) {
        if (child->schema->nodetype == LYS_LIST)
            visit(child);
        else if (child->schema->nodetype == LYS_CONTAINER)
            ForEachUnit(child, visit);
    }
}

void AddOnce(std::vector<Error>& errors, Error error)
{
    if (std::find(errors.begin(), errors.end(), error) == errors.end()) errors.push_back(std::move(error));
}

/// libyang stops at a tree's first error, so each unit is then validated by itself. At most kMaxErrors.
std::vector<Error> StructureErrors(const Schema& schema, lyd_node* tree)
{
    auto first = ValidateTree(schema, tree);
    if (!first) return {};
    std::vector<Error> errors;
    Units units;
    ForEachUnit(tree, [&units](const lyd_node* unit) { units.push_back(unit); });
    for (const lyd_node* unit : units) {
        if (errors.size() == Validator::kMaxErrors) break;
        if (auto error = ValidateUnit(schema, tree, unit)) AddOnce(errors, std::move(*error));
    }
    if (std::find(errors.begin(), errors.end(), *first) != errors.end()) return errors;
    if (errors.size() == Validator::kMaxErrors) errors.pop_back();
    errors.insert(errors.begin(), std::move(*first));
    return errors;
}

/// Makes libyang ignore the references that are checked here. Repeating it has no effect.
void TakeOverReferences(const Schema& schema)
{
    for (const auto& reference : schema.Constraints().references) {
        const auto* leaf = reinterpret_cast<const lysc_node_leaf*>(schema.NodeOf(reference.leaf));
        const_cast<lysc_type_leafref*>(reinterpret_cast<const lysc_type_leafref*>(leaf->type))
            ->require_instance = 0;
    }
}

/// Checks leafrefs to the entries of outermost lists by looking the entries up, which is much faster than an
/// XPath over all entries.
class DanglingReferences {
public:
    /// Beyond `limit`, errors are only counted.
    DanglingReferences(const Schema& schema, std::size_t limit)
        : m_schema(schema), m_table(schema.Table()), m_limit(limit)
    {
        for (const auto& reference : schema.Constraints().references)
            m_byLeaf.emplace(schema.NodeOf(reference.leaf), &reference);
    }

    /// Checks the references of the dirty set, and those to deleted units. Needs a Reading of the
    /// candidate.
    void InCandidate(const Candidate& candidate)
    {
        if (m_byLeaf.empty()) return;
        for (const lyd_node* top = candidate.Tree(); top != nullptr; top = top->next) InTree(candidate, top);
        OfGone(candidate);
    }

    /// Checks all references.
    void InRows(RowView& rows)
    {
        for (const auto& reference : m_schema.Constraints().references)
            ForEachValue(rows, reference,
                         [&](const std::vector<std::string>& keys, const std::string& value) {
                             if (rows.Get(reference.list, std::vector{value}) == nullptr)
                                 Add(reference, keys, value);
                         });
    }

    void AppendTo(std::vector<Error>& errors) const
    {
        errors.insert(errors.end(), m_errors.begin(), m_errors.end());
        if (m_more == 0) return;
        Error rest;
        rest.tag = ErrorTag::kDataMissing;
        rest.appTag = "instance-required";
        rest.message = std::to_string(m_more) + " more references name entries that are not there";
        errors.push_back(std::move(rest));
    }

private:
    void InTree(const Candidate& candidate, const lyd_node* node)
    {
        for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next) {
            if (child->schema->nodetype != LYS_LEAF) {
                InTree(candidate, child);
                continue;
            }
            const auto it = m_byLeaf.find(child->schema);
            if (it == m_byLeaf.end()) continue;
            const std::string target = lyd_get_value(child);
            if (candidate.Exists({it->second->list, {target}})) continue;
            Add(*it->second, RowKeyOf(m_schema, node).keys, target);
        }
    }

    void OfGone(const Candidate& candidate)
    {
        const auto& dirty = candidate.Dirty();
        std::set<NodeId> lists;  // with deleted units
        for (const auto& [place, unit] : dirty)
            if (unit.node == nullptr) lists.insert(place.node);
        for (const auto& reference : m_schema.Constraints().references) {
            if (!lists.contains(reference.list)) continue;
            const NodeId unitList = candidate.ListOf(reference.leaf);
            if (unitList == kNoNode) continue;  // in the trunk: checked in the tree
            const auto count = static_cast<std::ptrdiff_t>(m_table[unitList].keys.size());
            Place target{reference.list, {""}};
            ForEachValue(candidate.Running(), reference,
                         [&](std::vector<std::string> keys, const std::string& value) {
                             target.keys.front() = value;
                             const auto it = dirty.find(target);
                             if (it == dirty.end() || it->second.node != nullptr) return;
                             // Dirty units are checked in the tree.
                             if (!dirty.contains({unitList, {keys.begin(), keys.begin() + count}}))
                                 Add(reference, keys, value);
                         });
        }
    }

    void Add(const Reference& reference, const std::vector<std::string>& keys, const std::string& target)
    {
        if (m_errors.size() >= m_limit) {
            ++m_more;
            return;
        }
        const auto& leaf = m_table[reference.leaf];
        const RowKey holder{leaf.parent, keys};
        RowKey referrer = holder;
        std::string as = leaf.name;
        if (leaf.isKey && m_table[leaf.parent].parent != kNoNode) {
            as = m_table[leaf.parent].name;
            referrer.node = m_table[leaf.parent].parent;
            referrer.keys.resize(keys.size() - m_table[leaf.parent].keys.size());
        }
        Error error;
        error.tag = ErrorTag::kDataMissing;
        error.appTag = "instance-required";
        error.path = DataPath(m_table, holder) + '/' + leaf.name;
        error.message = "there is no " + m_table[reference.list].name + " \"" + target + "\", which " +
                        Describe(m_table, referrer) + " refers to as its " + as +
                        "; create it or take the reference out";
        m_errors.push_back(std::move(error));
    }

    /// Visits every value of the reference's leaf, with all keys on the path to its entry or container.
    template <typename Visit>
    void ForEachValue(RowView& rows, const Reference& reference, Visit&& visit) const
    {
        const auto& leaf = m_table[reference.leaf];
        // Without parent keys, all rows of the node are visited, each with all its keys.
        rows.ForEach(leaf.parent, {}, [&](std::span<const std::string_view> keys, const Row& row) {
            if (leaf.isKey) {
                const auto& own = m_table[leaf.parent].keys;
                const auto index = std::find(own.begin(), own.end(), reference.leaf) - own.begin();
                const auto at = static_cast<std::ptrdiff_t>(keys.size() - own.size()) + index;
                visit({keys.begin(), keys.end()}, std::string(keys[static_cast<std::size_t>(at)]));
                return true;
            }
            for (const auto& [name, value] : row.leaves)
                if (name == leaf.name) visit({keys.begin(), keys.end()}, ToText(value));
            return true;
        });
    }

    const Schema& m_schema;
    const SchemaTable& m_table;
    const std::size_t m_limit;
    std::map<const lysc_node*, const Reference*> m_byLeaf;
    std::vector<Error> m_errors;
    std::size_t m_more = 0;
};

}  // namespace

Validator::Validator(const Schema& schema) : m_schema(schema) { TakeOverReferences(schema); }

std::vector<Error> Validator::Check(const Candidate& candidate) const
{
    if (m_schema.Constraints().EverythingAlways()) {
        CandidateView rows(m_schema, candidate);
        const TreePtr whole = LoadTree(m_schema, rows);
        return Everything(whole.get(), rows);
    }
    auto errors = StructureErrors(m_schema, candidate.Tree());
    DanglingReferences dangling(m_schema, kMaxErrors - errors.size());
    dangling.InCandidate(candidate);
    dangling.AppendTo(errors);
    return errors;
}

std::vector<Error> Validator::Everything(lyd_node* tree, RowView& rows) const
{
    auto errors = StructureErrors(m_schema, tree);
    DanglingReferences dangling(m_schema, kMaxErrors - errors.size());
    dangling.InRows(rows);
    dangling.AppendTo(errors);
    return errors;
}

}  // namespace cdb
