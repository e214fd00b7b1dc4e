// SPDX-License-Identifier: Apache-2.0
// Three candidates on one store, with random edits and commits, beside a merge of three maps of rows.

#include <array>
#include <optional>

#include "cdb/datastore/tree_load.h"
#include "fixture.h"
#include "naive.h"
#include "random_edit.h"

namespace tests {
namespace {

using cdb::Datastore;
using naive::Rows;

constexpr int kSteps = 250;

template <typename Map>
std::optional<typename Map::mapped_type> Find(const Map& map, const std::string& key)
{
    const auto it = map.find(key);
    return it == map.end() ? std::nullopt : std::optional(it->second);
}

/// Whether the entry around the row is there.
bool HasItsEntry(const Rows& rows, const std::string& path)
{
    const auto slash = path.rfind('/');
    const auto brace = path.rfind('}', slash);
    return slash == std::string::npos || brace == std::string::npos ||
           rows.contains(path.substr(0, brace + 1));
}

/// Nullopt: in conflict.
std::optional<Rows> Merged(const Rows& base, const Rows& running, const Rows& mine)
{
    Rows all = base;
    all.insert(mine.begin(), mine.end());
    Rows merged = running;
    for (const auto& [path, unused] : all) {
        const auto before = Find(base, path);
        const auto now = Find(mine, path);
        const auto there = Find(running, path);
        if (now == before || now == there) continue;
        if (there != before) return std::nullopt;
        if (now)
            merged[path] = *now;
        else
            merged.erase(path);
    }
    for (const auto& [path, leaves] : merged)
        if (!HasItsEntry(merged, path)) return std::nullopt;
    return merged;
}

class PrivateCandidatesAtRandom : public DatastoreTest, public ::testing::WithParamInterface<std::uint32_t> {
protected:
    struct One {
        std::unique_ptr<Datastore> datastore;
        Rows base;
    };

    static Rows RowsOf(const Datastore& where)
    {
        return naive::RowsOf(TheSchema(), cdb::LoadTree(TheSchema(), *where.Candidate()).get());
    }
    Rows Running() const { return naive::RowsOf(TheSchema(), RunningTree().get()); }

    void Check(const One& one, RandomEdit& random)
    {
        const Rows mine = RowsOf(*one.datastore);
        const auto merged = Merged(one.base, Running(), mine);
        const bool isValid = one.datastore->Validate().empty();
        ASSERT_EQ(RowsOf(*one.datastore), mine);
        if (!merged) {
            ++m_conflicts;
            ASSERT_FALSE(isValid);
            ASSERT_FALSE(one.datastore->Update(Datastore::OnConflict::kRefuse));
            ASSERT_EQ(RowsOf(*one.datastore), mine);
            return;
        }
        if (random.Below(2) != 0) return;
        ASSERT_TRUE(one.datastore->Update(Datastore::OnConflict::kRefuse));
        ASSERT_EQ(RowsOf(*one.datastore), *merged);
        ASSERT_EQ(naive::IsValid(cdb::LoadTree(TheSchema(), *one.datastore->Candidate()).get()), isValid);
    }

    void Finish(One& one, RandomEdit& random)
    {
        const Rows mine = RowsOf(*one.datastore);
        const Rows before = Running();
        const auto merged = Merged(one.base, before, mine);
        const auto result = one.datastore->Commit({});
        if (result) {
            ASSERT_TRUE(merged);
            ASSERT_EQ(Running(), *merged);
            ASSERT_EQ(RowsOf(*one.datastore), *merged);
            ++m_commits;
            return;
        }
        ASSERT_EQ(Running(), before);
        ASSERT_EQ(RowsOf(*one.datastore), mine);
        if (random.Below(2) == 0) {
            one.datastore->Discard();
            ASSERT_EQ(RowsOf(*one.datastore), before);
            return;
        }
        if (merged) return;
        ASSERT_TRUE(one.datastore->Update(Datastore::OnConflict::kTakeRunning));
        // What is left is no conflict, and no row without its entry.
        const Rows left = RowsOf(*one.datastore);
        ASSERT_TRUE(Merged(before, before, left));
        for (const auto& [path, leaves] : left)
            ASSERT_TRUE(Find(before, path) == leaves || Find(mine, path) == leaves) << path;
    }

    int m_conflicts = 0;
    int m_commits = 0;
};

TEST_P(PrivateCandidatesAtRandom, AreCarriedOverAsAMergeOfThreeMapsOfRows)
{
    RandomEdit random(GetParam());
    std::array<One, 3> all;
    for (One& one : all) one = {datastore->Fork(), Running()};
    for (int i = 0; i < kSteps && !HasFatalFailure(); ++i) {
        One& one = all[static_cast<std::size_t>(random.Below(3))];
        std::array<Rows, 3> before;
        for (std::size_t k = 0; k < 3; ++k) before[k] = RowsOf(*all[k].datastore);
        const auto edit = ParseEdit(random.Make());
        static_cast<void>(one.datastore->Edit(edit.get(), cdb::DefaultOperation::kMerge, {}));
        if (random.Below(3) == 0) {
            ASSERT_NO_FATAL_FAILURE(Check(one, random)) << "step " << i;
        }
        if (random.Below(4) == 0) {
            ASSERT_NO_FATAL_FAILURE(Finish(one, random)) << "step " << i;
        }
        if (one.datastore->Base() == store->LastCommit()) one.base = Running();
        for (std::size_t k = 0; k < 3; ++k) {
            if (&all[k] == &one) continue;
            ASSERT_EQ(RowsOf(*all[k].datastore), before[k]) << "step " << i;
        }
    }
    EXPECT_GT(m_commits, kSteps / 50);
    EXPECT_GT(m_conflicts, kSteps / 50);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PrivateCandidatesAtRandom, ::testing::Values(11U, 12U, 13U));

}  // namespace
}  // namespace tests
