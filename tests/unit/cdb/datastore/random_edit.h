// SPDX-License-Identifier: Apache-2.0
// Random edits from a seed: every operation, at every level, of a few names, valid or not.

#ifndef TESTS_UNIT_CDB_DATASTORE_RANDOM_EDIT_H
#define TESTS_UNIT_CDB_DATASTORE_RANDOM_EDIT_H

#include <random>
#include <string>
#include <vector>

namespace tests {

class RandomEdit {
public:
    explicit RandomEdit(std::uint32_t seed) : m_random(seed) {}

    /// The content of <config>.
    std::string Make();

    /// In [0, bound).
    int Below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(m_random); }

private:
    std::string Operation();
    std::string Leaf(const std::string& name, const std::vector<std::string>& values);
    std::string Name(const std::string& stem, int count) { return stem + std::to_string(Below(count)); }
    std::string Collector();
    std::string Interface();
    std::string References(const std::string& list);
    std::string Management();

    std::mt19937 m_random;
};

}  // namespace tests

#endif
