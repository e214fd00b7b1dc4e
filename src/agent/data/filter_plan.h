// SPDX-License-Identifier: Apache-2.0
// A subtree filter (RFC 6241, section 6) resolved against the schema, once for each request: for each schema
// node what is selected below it and on which condition. Alternatives with the same condition are joined, and
// found by the values of their leaves, so that a filter's cost for a node of the data does not depend on the
// number of its alternatives.

#ifndef AGENT_DATA_FILTER_PLAN_H
#define AGENT_DATA_FILTER_PLAN_H

#include <cstddef>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/data/data_schema.h"
#include "agent/data/subtree_filter.h"
#include "base/expected.h"
#include "cdb/model/error.h"

namespace agent {

struct FilterLimits {
    std::size_t nodes = 100'000;
    std::size_t tests = 256;  // content matches in one containment node, all of which must hold
    /// Different sets of leaves that the alternatives of one node test: each costs a look-up at each entry.
    std::size_t combinations = 100;
};

class FilterPlan {
public:
    struct Inner;

    /// A leaf or leaf-list that is selected.
    struct Leaf {
        const DataNode* node = nullptr;
        bool any = false;                             // with any value
        std::set<std::string, std::less<>> values{};  // otherwise with one of these

        [[nodiscard]] bool Has(std::string_view value) const { return any || values.contains(value); }
    };

    /// What is selected below a container or entry. Both lists are in schema order.
    struct Branch {
        bool whole = false;
        std::vector<Leaf> leaves;
        std::vector<Inner> inners;

        [[nodiscard]] const Leaf* FindLeaf(const DataNode& node) const;
        [[nodiscard]] const Inner* FindInner(const DataNode& node) const;
    };

    /// Alternatives that test the same leaves: what is selected, by their values, each with a NUL behind it.
    /// A list's keys come first, so the alternatives are in the order of the keys.
    struct Matches {
        std::vector<const DataNode*> leaves;  // in schema order
        std::map<std::string, Branch*, std::less<>> byValues;
    };

    /// An alternative that tests a leaf-list: one of the data's values must be the one named.
    struct Test {
        std::vector<std::pair<const DataNode*, std::string>> values;
        Branch* branch = nullptr;
    };

    /// What is selected of a container or of a list's entries.
    struct Inner {
        const DataNode* node = nullptr;
        Branch* always = nullptr;  // without condition; null: nothing
        std::vector<Matches> matches{};
        std::vector<Test> tests{};

        /// Whether each alternative names all keys of the list.
        [[nodiscard]] bool NamesEntries() const;
    };

    /// Fails with kTooBig if the filter exceeds a limit. `schema` must outlive the plan.
    static base::expected<FilterPlan, cdb::Error> Make(const DataSchema& schema, const SubtreeFilter& filter,
                                                       const FilterLimits& limits = {});

    [[nodiscard]] const Branch& Root() const { return m_branches.front(); }

private:
    friend class FilterPlanner;
    FilterPlan() = default;
    std::deque<Branch> m_branches;
};

}  // namespace agent

#endif
