// SPDX-License-Identifier: Apache-2.0
// Running made what it was, under a candidate that others edit: what is restored, what becomes of the edits,
// and of the record of a commit that waits for its confirmation.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "fixture.h"
#include "naive.h"
#include "random_edit.h"

namespace tests {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Restore : public DatastoreTest {
protected:
    static std::string Interface(const std::string& leaves, const std::string& name = "eth1")
    {
        return Sflow("<interface><name>" + name + "</name>" + leaves + "</interface>");
    }
    static std::string Rate(int rate)
    {
        return Interface("<sampling-rate>" + std::to_string(rate) + "</sampling-rate>");
    }
    static std::string Polling(int interval)
    {
        return Interface("<polling-interval>" + std::to_string(interval) + "</polling-interval>");
    }
    static std::string Delete(const std::string& element)
    {
        return Sflow("<" + element +
                     " xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
                     "nc:operation=\"delete\"><name>eth1</name></" +
                     element + ">");
    }

    std::string Running() const { return Shown(RunningTree().get()); }
    std::string Candidate() const { return Shown(CandidateTree().get()); }

    /// Restores, and returns what subscribers are told.
    std::vector<std::string> Back(std::uint64_t commit)
    {
        auto made = datastore->Restore(commit, {.user = "operator", .source = "rollback", .comment = "why"});
        EXPECT_TRUE(made) << (made ? "" : TextOf(made.error()));
        if (!made) return {};
        EXPECT_EQ(made->changes.commit, store->LastCommit());
        return Lines(made->changes);
    }
};

TEST_F(Restore, MakesRunningWhatItWasByACommit)
{
    Apply(Rate(100));
    const auto first = Running();
    Apply(Rate(200));
    Apply(Polling(7));
    EXPECT_THAT(Back(1), ElementsAre("modified /config/oam/sflow/interface{eth1}",
                                     "set /config/oam/sflow/interface{eth1}/sampling-rate = 100",
                                     "set /config/oam/sflow/interface{eth1}/polling-interval = 20"));
    EXPECT_EQ(Running(), first);
    EXPECT_EQ(Candidate(), first);
    EXPECT_FALSE(datastore->Changed());
    EXPECT_EQ(store->LastCommit(), 4U);
    const auto entry = store->History(1).at(0);
    EXPECT_EQ(entry.source, "rollback");
    EXPECT_EQ(entry.comment, "why");
    EXPECT_EQ(entry.changes, 1U);
    // One more commit, one more start.
    Apply(Rate(300));
    datastore = nullptr;
    store = nullptr;
    Open();
    EXPECT_THAT(Running(), HasSubstr("sampling-rate 300\n"));
    Back(4);
    EXPECT_EQ(Running(), first);
}

TEST_F(Restore, ToTheSameConfigurationMakesNoCommit)
{
    Apply(Rate(100));
    EXPECT_THAT(Back(1), IsEmpty());
    EXPECT_EQ(store->LastCommit(), 1U);
}

TEST_F(Restore, ThatFailsLeavesEverything)
{
    Apply(Rate(100));
    Edit(Polling(7));
    const auto candidate = Candidate();
    const auto made = datastore->Restore(9, {});
    ASSERT_FALSE(made);
    EXPECT_THAT(TextOf(made.error()), HasSubstr("there is no commit 9"));
    EXPECT_EQ(Candidate(), candidate);
    EXPECT_TRUE(datastore->Changed());
    EXPECT_EQ(store->LastCommit(), 1U);
}

TEST_F(Restore, LeavesEditsForTheNextCommit)
{
    Apply(Rate(100));
    Apply(Sflow("<agent><ipv4>192.0.2.1</ipv4></agent>"));
    Apply(Rate(200));
    Apply(Sflow("<agent><ipv4>192.0.2.2</ipv4></agent>"));
    Edit(Interface("<polling-interval>7</polling-interval>", "eth2"));
    Back(2);
    EXPECT_THAT(Running(), HasSubstr("sampling-rate 100\n"));
    EXPECT_THAT(Running(), HasSubstr("ipv4 192.0.2.1\n"));
    EXPECT_THAT(Running(), Not(HasSubstr("eth2")));
    Commit();
    EXPECT_THAT(Running(), HasSubstr("sampling-rate 100\n"));
    EXPECT_THAT(Running(), HasSubstr("ipv4 192.0.2.1\n"));
    EXPECT_THAT(Running(), HasSubstr("polling-interval 7\n"));
}

TEST_F(Restore, ThatChangesWhatWasEditedIsAConflict)
{
    Apply(Rate(100));
    Apply(Rate(200));
    Edit(Rate(300));
    const auto edited = Candidate();
    Back(1);
    EXPECT_EQ(Candidate(), edited);
    const auto refused = datastore->Commit({});
    ASSERT_FALSE(refused);
    EXPECT_THAT(TextOf(refused.error()),
                AllOf(HasSubstr("sampling-rate"), HasSubstr("by operator in commit 3")));
    EXPECT_THAT(Running(), HasSubstr("sampling-rate 100\n"));
    datastore->Discard();
    EXPECT_EQ(Candidate(), Running());
    Apply(Rate(400));
    EXPECT_THAT(Running(), HasSubstr("sampling-rate 400\n"));
}

naive::Rows RowsOf(const cdb::TreePtr& tree) { return naive::RowsOf(TheSchema(), tree.get()); }

class RandomRestore : public Restore, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(RandomRestore, LeavesTheEditsAndNothingElse)
{
    RandomEdit random(GetParam());
    std::size_t kept = 0;
    for (int round = 0; round < 60; ++round) {
        const auto base = store->LastCommit();
        const auto before = RowsOf(RunningTree());
        for (int commits = random.Below(3); commits >= 0; --commits) {
            static_cast<void>(TryEdit(random.Make()));
            if (!datastore->Commit({})) datastore->Discard();
        }
        for (int edits = random.Below(3); edits > 0; --edits) static_cast<void>(TryEdit(random.Make()));
        const bool changed = datastore->Changed();
        const auto running = RowsOf(RunningTree());
        const auto edited = RowsOf(CandidateTree());
        Back(base);
        ASSERT_EQ(RowsOf(RunningTree()), before) << "round " << round;
        ASSERT_EQ(RowsOf(CandidateTree()), changed ? edited : before) << "round " << round;
        kept += changed && running != before ? 1 : 0;
        if (!datastore->Commit({}))
            datastore->Discard();
        else if (running == before) {
            ASSERT_EQ(RowsOf(RunningTree()), edited) << "round " << round;
        }
    }
    EXPECT_GT(kept, 5U);  // the rounds that matter
    const auto running = RowsOf(RunningTree());
    datastore = nullptr;
    store = nullptr;
    Open();
    EXPECT_EQ(RowsOf(RunningTree()), running);
}
INSTANTIATE_TEST_SUITE_P(Seeds, RandomRestore, ::testing::Range(1U, 9U));

// ---- the record of the commit that waits ----

TEST_F(Restore, ACommitLeavesTheRecordThatItIsGiven)
{
    const cdb::PendingCommit wanted{.returnTo = 0, .deadlineUs = 5, .timeoutSeconds = 600, .user = "u"};
    Edit(Rate(100));
    ASSERT_TRUE(datastore->Commit({.pending = wanted}));
    ASSERT_TRUE(store->Pending());
    EXPECT_EQ(store->Pending()->last, 1U);
    EXPECT_EQ(store->Pending()->user, "u");
    // A commit of nothing, too.
    auto longer = wanted;
    longer.deadlineUs = 9;
    ASSERT_TRUE(datastore->Commit({.pending = longer}));
    EXPECT_EQ(store->LastCommit(), 1U);
    EXPECT_EQ(store->Pending()->last, 1U);
    EXPECT_EQ(store->Pending()->deadlineUs, 9);
    Edit(Rate(101));
    ASSERT_TRUE(datastore->Commit({.pending = wanted}));
    EXPECT_EQ(store->Pending()->last, 2U);
    // One that is refused changes nothing of it.
    Edit(Interface("<flow-sampling-collector><name>none</name></flow-sampling-collector>"));
    ASSERT_FALSE(datastore->Commit({}));
    EXPECT_EQ(store->Pending()->last, 2U);
    datastore->Discard();
    ASSERT_TRUE(datastore->Commit({}));
    EXPECT_EQ(store->Pending(), std::nullopt);
    EXPECT_EQ(store->LastCommit(), 2U);
}

TEST_F(Restore, TakesTheRecordWithIt)
{
    Apply(Rate(100));
    Edit(Rate(200));
    ASSERT_TRUE(datastore->Commit({.pending = cdb::PendingCommit{.returnTo = 1}}));
    Back(1);
    EXPECT_EQ(store->Pending(), std::nullopt);
    // Where nothing is to be undone, too.
    ASSERT_TRUE(datastore->Commit({.pending = cdb::PendingCommit{.returnTo = 3}}));
    EXPECT_THAT(Back(3), IsEmpty());
    EXPECT_EQ(store->Pending(), std::nullopt);
    EXPECT_EQ(store->LastCommit(), 3U);
}

}  // namespace
}  // namespace tests
