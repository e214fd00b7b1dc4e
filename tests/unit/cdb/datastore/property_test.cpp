// SPDX-License-Identifier: Apache-2.0
// Thousands of random edits, and after each the datastore's answers beside those found by looking at
// everything.

#include "fixture.h"
#include "naive.h"
#include "random_edit.h"

namespace tests {
namespace {

using cdb::DefaultOperation;

constexpr int kEdits = 1000;

class RandomEdits : public DatastoreTest, public ::testing::WithParamInterface<std::uint32_t> {
protected:
    void TryOne(RandomEdit& random)
    {
        static constexpr DefaultOperation kOperations[] = {
            DefaultOperation::kMerge, DefaultOperation::kMerge, DefaultOperation::kMerge,
            DefaultOperation::kMerge, DefaultOperation::kNone,  DefaultOperation::kReplace};
        const auto operation = kOperations[random.Below(6)];
        const std::string xml = random.Make();
        const auto edit = ParseEdit(xml);
        const std::string before = naive::Everything(CandidateTree().get());
        const auto planned = datastore->EntriesToCreate(edit.get(), operation);
        ASSERT_EQ(naive::Everything(CandidateTree().get()), before) << xml;
        std::vector<cdb::LeafWrite> writes;
        for (const auto& entry : planned)
            writes.push_back(DefaultRate(entry.path.steps.back().keys.front(), 1024));
        const auto error = datastore->Edit(edit.get(), operation, writes);
        if (error) {
            ASSERT_EQ(naive::Everything(CandidateTree().get()), before) << xml << '\n' << error->message;
        }
        m_failed += error ? 1 : 0;
    }

    void Compare()
    {
        const auto& schema = TheSchema();
        const bool valid = datastore->Validate().empty();
        ASSERT_EQ(valid, naive::IsValid(CandidateTree().get()));
        const auto changes = Lines(datastore->Changes());
        ASSERT_EQ(changes, naive::Changes(schema, RunningTree().get(), CandidateTree().get()));
        ASSERT_EQ(datastore->Changed(),
                  naive::RowsOf(schema, RunningTree().get()) != naive::RowsOf(schema, CandidateTree().get()));
        m_invalid += valid ? 0 : 1;
    }

    void Finish(RandomEdit& random)
    {
        const std::string running = naive::Everything(RunningTree().get());
        const std::string candidate = naive::Everything(CandidateTree().get());
        const auto result = datastore->Commit({});
        if (result) {
            ++m_commits;
            ASSERT_EQ(naive::Everything(RunningTree().get()), candidate);
            ASSERT_EQ(naive::Everything(CandidateTree().get()), candidate);
            ASSERT_EQ(naive::RowsOf(TheSchema(), store->Read()),
                      naive::RowsOf(TheSchema(), RunningTree().get()));
        } else {
            ASSERT_EQ(naive::Everything(RunningTree().get()), running);
            ASSERT_EQ(naive::Everything(CandidateTree().get()), candidate);
            if (random.Below(2) == 0) return;
            datastore->Discard();
            ASSERT_EQ(naive::Everything(CandidateTree().get()), running);
        }
        ASSERT_FALSE(datastore->Changed());
    }

    void RollBack()
    {
        const std::string running = naive::Everything(RunningTree().get());
        ASSERT_TRUE(datastore->RollBack({.back = 1}).empty());
        ASSERT_EQ(naive::RowsOf(TheSchema(), CandidateTree().get()), m_before);
        datastore->Discard();
        ASSERT_EQ(naive::Everything(RunningTree().get()), running);
        ASSERT_EQ(naive::Everything(CandidateTree().get()), running);
    }

    naive::Rows m_before;  // running's before the last commit
    int m_failed = 0;
    int m_invalid = 0;
    int m_commits = 0;
};

TEST_P(RandomEdits, GiveWhatLookingAtEverythingGives)
{
    RandomEdit random(GetParam());
    for (int i = 0; i < kEdits && !HasFatalFailure(); ++i) {
        ASSERT_NO_FATAL_FAILURE(TryOne(random)) << "edit " << i;
        ASSERT_NO_FATAL_FAILURE(Compare()) << "edit " << i;
        if (random.Below(3) != 0) continue;
        const auto before = naive::RowsOf(TheSchema(), RunningTree().get());
        const auto last = store->LastCommit();
        ASSERT_NO_FATAL_FAILURE(Finish(random)) << "edit " << i;
        if (store->LastCommit() == last || datastore->Changed()) continue;
        m_before = before;
        ASSERT_NO_FATAL_FAILURE(RollBack()) << "edit " << i;
    }
    // The edits reach both sides of each question.
    EXPECT_GT(m_commits, kEdits / 30);
    EXPECT_GT(m_failed, kEdits / 30);
    EXPECT_GT(m_invalid, kEdits / 30);
    const auto before = naive::Everything(RunningTree().get());
    Open();
    EXPECT_EQ(naive::Everything(RunningTree().get()), before);
    EXPECT_EQ(naive::Everything(CandidateTree().get()), before);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomEdits, ::testing::Values(1U, 2U, 3U, 4U));

}  // namespace
}  // namespace tests
