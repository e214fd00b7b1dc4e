// SPDX-License-Identifier: Apache-2.0
#include "agent/data/filter_plan.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <optional>

namespace agent {
namespace {

using Branch = FilterPlan::Branch;
using Inner = FilterPlan::Inner;
using Leaf = FilterPlan::Leaf;
using Condition = std::pair<const DataNode*, std::string>;

bool Fits(const FilterNode& filter, const DataNode& node)
{
    return filter.name == node.name && (filter.ns.empty() || filter.ns == node.ns);
}

const lysc_type* TypeOf(const lysc_node* node)
{
    const lysc_type* type = node->nodetype == LYS_LEAF
                                ? reinterpret_cast<const lysc_node_leaf*>(node)->type
                                : reinterpret_cast<const lysc_node_leaflist*>(node)->type;
    while (type->basetype == LY_TYPE_LEAFREF)
        type = reinterpret_cast<const lysc_type_leafref*>(type)->realtype;
    return type;
}

/// The canonical text of the value ("5" for "+5"). Strings stay as they are, and so does a text that is no
/// value of the type, which equals none.
std::string Canonical(const DataNode& leaf, const std::string& text)
{
    const lysc_node* schema = leaf.schema;
    if (TypeOf(schema)->basetype == LY_TYPE_STRING) return text;
    const lysc_type* type = nullptr;
    const char* canonical = nullptr;
    const LY_ERR result = lyd_value_validate(schema->module->ctx, schema, text.c_str(), text.size(), nullptr,
                                             &type, &canonical);
    std::string value = text;
    const bool isValue = result == LY_SUCCESS || result == LY_EINCOMPLETE;
    if (isValue && canonical != nullptr && type->basetype != LY_TYPE_STRING) value = canonical;
    if (canonical != nullptr) lydict_remove(schema->module->ctx, canonical);
    return value;
}

/// The item of that node, made if there is none. The items are in schema order.
template <typename Item>
Item& ItemOf(std::vector<Item>& items, const DataNode& node)
{
    const auto before = [](const Item& item, const DataNode& wanted) {
        return item.node->index < wanted.index;
    };
    auto it = std::lower_bound(items.begin(), items.end(), node, before);
    if (it != items.end() && it->node == &node) return *it;
    Item item;
    item.node = &node;
    return *items.insert(it, std::move(item));
}

template <typename Item>
const Item* FindItem(const std::vector<Item>& items, const DataNode& node)
{
    for (const Item& item : items)
        if (item.node == &node) return &item;
    return nullptr;
}

}  // namespace

const Leaf* Branch::FindLeaf(const DataNode& node) const { return FindItem(leaves, node); }
const Inner* Branch::FindInner(const DataNode& node) const { return FindItem(inners, node); }

bool Inner::NamesEntries() const
{
    if (node->keyCount == 0 || always != nullptr || !tests.empty()) return false;
    return std::all_of(matches.begin(), matches.end(), [this](const FilterPlan::Matches& each) {
        // In schema order the keys come first.
        return each.leaves.size() >= node->keyCount && each.leaves[node->keyCount - 1]->isKey;
    });
}

/// Resolves one filter against the schema.
class FilterPlanner {
public:
    explicit FilterPlanner(const FilterLimits& limits) : m_limits(limits) { NewBranch(); }

    base::expected<FilterPlan, cdb::Error> Run(const DataSchema& schema, const SubtreeFilter& filter)
    {
        for (const FilterNode& node : filter) Add(m_plan.m_branches.front(), schema.Root(), node);
        if (m_error) return base::Unexpected(*std::move(m_error));
        return std::move(m_plan);
    }

private:
    Branch* NewBranch() { return &m_plan.m_branches.emplace_back(); }

    void Refuse(std::string message)
    {
        if (!m_error) m_error = cdb::Error{cdb::ErrorTag::kTooBig, std::move(message)};
    }

    bool Count()
    {
        if (++m_nodes > m_limits.nodes)
            Refuse("the filter has more than " + std::to_string(m_limits.nodes) +
                   " nodes; ask for less at once");
        return !m_error;
    }

    /// Adds what one child of an alternative selects below `parent`.
    void Add(Branch& branch, const DataNode& parent, const FilterNode& filter)
    {
        if (!Count() || branch.whole || filter.hasAttributes) return;
        for (const DataNode* child : parent.children) {
            if (!Fits(filter, *child)) continue;
            if (!child->IsTerm())
                AddInner(ItemOf(branch.inners, *child), filter);
            else if (filter.IsSelection())
                ItemOf(branch.leaves, *child).any = true;
            else if (filter.IsContentMatch())
                ItemOf(branch.leaves, *child).values.insert(Canonical(*child, filter.text));
        }
    }

    void AddInner(Inner& inner, const FilterNode& filter)
    {
        if (filter.IsContentMatch()) return;
        const auto isContent = [](const FilterNode& child) { return child.IsContentMatch(); };
        const auto tests = std::count_if(filter.children.begin(), filter.children.end(), isContent);
        if (static_cast<std::size_t>(tests) > m_limits.tests)
            return Refuse("the filter tests more than " + std::to_string(m_limits.tests) +
                          " values of one \"" + filter.name +
                          "\"; write an element of its own for each that is asked for");
        Conditions(inner, filter, 0, {});
    }

    /// A content match without a namespace may mean several leaves; each makes an alternative. `next`: the
    /// child of the filter to look at.
    void Conditions(Inner& inner, const FilterNode& filter, std::size_t next, std::vector<Condition> found)
    {
        while (next < filter.children.size() && !filter.children[next].IsContentMatch()) ++next;
        if (next == filter.children.size()) return AddAlternative(inner, filter, std::move(found));
        const FilterNode& test = filter.children[next];
        if (!Count() || test.hasAttributes) return;
        for (const DataNode* child : inner.node->children) {
            if (!child->IsTerm() || !Fits(test, *child)) continue;
            auto conditions = found;
            conditions.emplace_back(child, Canonical(*child, test.text));
            Conditions(inner, filter, next + 1, std::move(conditions));
        }
    }

    void AddAlternative(Inner& inner, const FilterNode& filter, std::vector<Condition> conditions)
    {
        Branch* branch = BranchOn(inner, std::move(conditions));
        if (branch == nullptr) return;
        const auto isContent = [](const FilterNode& child) { return child.IsContentMatch(); };
        if (std::all_of(filter.children.begin(), filter.children.end(), isContent)) branch->whole = true;
        for (const FilterNode& child : filter.children) Add(*branch, *inner.node, child);
    }

    /// The branch for these conditions; null if they can't hold together, or a limit is exceeded.
    Branch* BranchOn(Inner& inner, std::vector<Condition> conditions)
    {
        if (conditions.empty()) {
            if (inner.always == nullptr) inner.always = NewBranch();
            return inner.always;
        }
        const auto order = [](const Condition& a, const Condition& b) {
            return a.first->index != b.first->index ? a.first->index < b.first->index : a.second < b.second;
        };
        std::sort(conditions.begin(), conditions.end(), order);
        conditions.erase(std::unique(conditions.begin(), conditions.end()), conditions.end());
        const auto isList = [](const Condition& each) { return each.first->kind == DataKind::kLeafList; };
        if (std::any_of(conditions.begin(), conditions.end(), isList))
            return TestFor(inner, std::move(conditions));
        const auto sameLeaf = [](const Condition& a, const Condition& b) { return a.first == b.first; };
        if (std::adjacent_find(conditions.begin(), conditions.end(), sameLeaf) != conditions.end())
            return nullptr;  // no leaf has two values
        return MatchFor(inner, conditions);
    }

    Branch* TestFor(Inner& inner, std::vector<Condition> conditions)
    {
        for (FilterPlan::Test& test : inner.tests)
            if (test.values == conditions) return test.branch;
        if (!MayCombine(inner)) return nullptr;
        inner.tests.push_back({std::move(conditions), NewBranch()});
        return inner.tests.back().branch;
    }

    Branch* MatchFor(Inner& inner, const std::vector<Condition>& conditions)
    {
        std::vector<const DataNode*> leaves;
        std::string values;
        for (const auto& [leaf, value] : conditions) {
            leaves.push_back(leaf);
            values.append(value).push_back('\0');
        }
        const auto same = [&](const FilterPlan::Matches& each) { return each.leaves == leaves; };
        auto it = std::find_if(inner.matches.begin(), inner.matches.end(), same);
        if (it == inner.matches.end()) {
            if (!MayCombine(inner)) return nullptr;
            it = inner.matches.insert(it, {std::move(leaves), {}});
        }
        Branch*& branch = it->byValues[values];
        if (branch == nullptr) branch = NewBranch();
        return branch;
    }

    bool MayCombine(const Inner& inner)
    {
        if (inner.matches.size() + inner.tests.size() < m_limits.combinations) return true;
        Refuse("the filter tests more than " + std::to_string(m_limits.combinations) +
               " combinations of leaves of \"" + std::string(inner.node->name) +
               "\"; ask in several requests");
        return false;
    }

    const FilterLimits& m_limits;
    FilterPlan m_plan;
    std::size_t m_nodes = 0;
    std::optional<cdb::Error> m_error;
};

base::expected<FilterPlan, cdb::Error> FilterPlan::Make(const DataSchema& schema, const SubtreeFilter& filter,
                                                        const FilterLimits& limits)
{
    return FilterPlanner(limits).Run(schema, filter);
}

}  // namespace agent
