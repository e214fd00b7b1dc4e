#include "cdb/validate.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <map>
#include <span>
#include <string_view>
#include <unordered_set>

#include "cdb/validate_slice.h"

namespace cdb {
namespace {

/// A tree where more than one in this many units has changed is validated whole: a unit in a slice
/// costs more than one in its tree.
constexpr std::size_t kWholeShare = 4;
constexpr std::size_t kFewUnits = 256;

using Units = std::vector<const lyd_node*>;

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

/// The units touched, and the entries gone, found by one way through what was touched.
class Survey {
public:
    Survey(const Schema& schema, const Reach& reach, const lyd_node* candidate)
        : m_schema(schema), m_candidate(candidate)
    {
        for (const auto& reference : reach.references) m_gone[schema.NodeOf(reference.list)];
    }

    void Trunk(const lyd_node* before, const lyd_node* now, const Touched::Node& touched)
    {
        if (touched.whole) {
            Whole(before, now);
            return;
        }
        for (const auto& [place, below] : touched.below) {
            const lysc_node* node = m_schema.NodeOf(place.node);
            if (node->nodetype == LYS_LIST) {
                Unit(node, place.keys.front(), FindPlace(m_schema, lyd_child(now), place));
            } else {
                const auto both = FindBoth(m_schema, lyd_child(before), lyd_child(now), place);
                Trunk(both.before, both.now, below);
            }
        }
    }

    [[nodiscard]] const Units& Touched() const { return m_touched; }

    /// Adds the units that refer to an entry that is gone.
    void AddReferrers(const Reach& reach)
    {
        const auto schemaOf = [this](NodeId id) { return m_schema.NodeOf(id); };
        for (const auto& reference : reach.references) {
            const auto& gone = m_gone.at(schemaOf(reference.list));
            if (gone.empty()) continue;
            std::vector<const lysc_node*> way;  // from the leaf up to the top
            for (const lysc_node* at = schemaOf(reference.leaf); at != nullptr; at = at->parent)
                way.push_back(at);
            Search(m_candidate, nullptr, {way.data(), way.size() - 1}, gone);
        }
    }

private:
    using Keys = std::unordered_set<std::string>;

    void Whole(const lyd_node* before, const lyd_node* now)
    {
        const auto visit = [this](const lyd_node* unit) {
            Unit(unit->schema, lyd_get_value(lyd_child(unit)), unit);
        };
        if (now != nullptr) ForEachUnit(now, visit);
        if (before == nullptr) return;
        ForEachUnit(before, [&](const lyd_node* unit) {
            if (!m_gone.contains(unit->schema)) return;
            if (FindRow(m_schema, m_candidate, RowKeyOf(m_schema, unit)) == nullptr)
                Unit(unit->schema, lyd_get_value(lyd_child(unit)), nullptr);
        });
    }

    void Unit(const lysc_node* list, const std::string& key, const lyd_node* now)
    {
        if (now != nullptr) {
            m_touched.push_back(now);
        } else if (const auto it = m_gone.find(list); it != m_gone.end()) {
            it->second.insert(key);
        }
    }

    /// By hand and along the way to the leaf only: an XPath over all entries costs fifty times as much.
    /// `way` ends with the schema node to look for below this one.
    void Search(const lyd_node* node, const lyd_node* unit, std::span<const lysc_node* const> way,
                const Keys& gone)
    {
        if (way.empty()) {
            if (unit != nullptr && gone.contains(lyd_get_value(node))) m_touched.push_back(unit);
            return;
        }
        if (unit == nullptr && node->schema->nodetype == LYS_LIST) unit = node;
        const auto further = way.first(way.size() - 1);
        for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next)
            if (child->schema == way.back()) Search(child, unit, further, gone);
    }

    const Schema& m_schema;
    const lyd_node* const m_candidate;
    Units m_touched;
    std::map<const lysc_node*, Keys> m_gone;  // by the lists that something refers to
};

bool AreMost(const Units& units, const lyd_node* tree)
{
    if (units.size() <= kFewUnits) return false;
    std::size_t all = 0;
    ForEachUnit(tree, [&all](const lyd_node*) { ++all; });
    return units.size() * kWholeShare > all;
}

/// One error a unit, each looked at by itself: libyang stops at a tree's first one. `first` is that,
/// and may be of no unit.
std::vector<Error> ErrorsOf(const Schema& schema, const Reach& reach, const lyd_node* tree,
                            const Units& units, Error first)
{
    std::vector<Error> errors;
    for (const lyd_node* unit : units) {
        if (errors.size() >= Validator::kMostErrors) return errors;
        Slice slice(schema, reach, tree);
        slice.Add(unit);
        auto error = slice.Validate();
        if (error && std::find(errors.begin(), errors.end(), *error) == errors.end())
            errors.push_back(std::move(*error));
    }
    if (std::find(errors.begin(), errors.end(), first) == errors.end())
        errors.insert(errors.begin(), std::move(first));
    return errors;
}

}  // namespace

Validator::Validator(const Schema& schema) : m_schema(schema), m_reach(ExamineConstraints(schema)) {}

std::vector<Error> Validator::Touched(const lyd_node* running, lyd_node* candidate,
                                      const cdb::Touched& touched) const
{
    if (touched.Empty()) return {};
    const auto top = touched.Root().below.find({m_schema.IdOf(candidate->schema), {}});
    if (touched.Root().whole || m_reach.EverythingAlways() || top == touched.Root().below.end())
        return Everything(candidate);
    Survey survey(m_schema, m_reach, candidate);
    survey.Trunk(running, candidate, top->second);
    survey.AddReferrers(m_reach);
    if (AreMost(survey.Touched(), candidate)) return Everything(candidate);
    Slice slice(m_schema, m_reach, candidate);
    for (const lyd_node* unit : survey.Touched()) slice.Add(unit);
    auto error = slice.Validate();
    if (!error) return {};
    return ErrorsOf(m_schema, m_reach, candidate, survey.Touched(), std::move(*error));
}

std::vector<Error> Validator::Everything(lyd_node* tree) const
{
    auto error = ValidateTree(m_schema, m_reach, tree);
    if (!error) return {};
    if (m_reach.EverythingAlways()) return {std::move(*error)};
    Units units;
    ForEachUnit(tree, [&units](const lyd_node* unit) { units.push_back(unit); });
    return ErrorsOf(m_schema, m_reach, tree, units, std::move(*error));
}

}  // namespace cdb
