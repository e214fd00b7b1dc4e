// SPDX-License-Identifier: Apache-2.0
// Random configurations, as rows in a store and as a libyang tree, and random filters for any tree.

#ifndef AGENT_RANDOM_DATA_H
#define AGENT_RANDOM_DATA_H

#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "agent/data/data_schema.h"
#include "agent/data/subtree_filter.h"
#include "agent/data/yang_tree.h"
#include "cdb/store/store.h"

namespace agent_tests {

class Random {
public:
    explicit Random(std::uint32_t seed) : m_random(seed) {}
    /// In [0, bound).
    int Below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(m_random); }
    bool OneIn(int bound) { return Below(bound) == 0; }
    template <typename Items>
    const auto& From(const Items& items)
    {
        return items[static_cast<std::size_t>(Below(static_cast<int>(items.size())))];
    }

private:
    std::mt19937 m_random;
};

struct Configuration {
    std::vector<std::pair<cdb::RowKey, cdb::Row>> rows;
    agent::Tree tree;  // with its defaults
};
Configuration RandomConfiguration(Random& random);

/// Makes filters of every form, with names of the schema and values of the tree, and some of neither.
class RandomFilter {
public:
    RandomFilter(const agent::DataSchema& schema, const lyd_node* tree, const std::string& top);
    agent::SubtreeFilter Make(Random& random) const;

private:
    agent::FilterNode Node(Random& random, const agent::DataNode& node) const;
    void Content(Random& random, const agent::DataNode& node, agent::FilterNode& filter) const;

    const agent::DataNode* m_top = nullptr;
    std::map<const lysc_node*, std::vector<std::string>> m_values;
};

/// As XML, for messages.
std::string ToText(const agent::SubtreeFilter& filter);

}  // namespace agent_tests

#endif
