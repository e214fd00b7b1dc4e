// SPDX-License-Identifier: Apache-2.0
// Commits of the past: rolling the candidate back to any of them, and comparing with them.

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

#include "cdb/datastore/tree_load.h"
#include "fixture.h"
#include "naive.h"
#include "random_edit.h"

namespace tests {
namespace {

using cdb::ErrorTag;
using testing::HasSubstr;

class History : public DatastoreTest {
protected:
    ~History() override { datastore.reset(); }  // its trees belong to m_otherSchema

    static std::string Port(int port)
    {
        return Sflow("<collector><name>c1</name><ip>192.0.2.1</ip><port>" + std::to_string(port) +
                     "</port></collector>");
    }

    /// The one error; the candidate is as before.
    cdb::Error RefusedRollBack(const cdb::Moment& moment)
    {
        const auto candidate = Shown(CandidateTree().get());
        const bool changed = datastore->Changed();
        const auto errors = datastore->RollBack(moment);
        EXPECT_EQ(Shown(CandidateTree().get()), candidate);
        EXPECT_EQ(datastore->Changed(), changed);
        return errors.size() == 1 ? errors.front() : cdb::Error{.message = "not one error"};
    }

    /// Opens the store with the tree's modules, in which `from` is `to`.
    void OpenWith(const std::string& from, const std::string& to)
    {
        const auto yang = directory.Path() / "yang";
        std::filesystem::copy(SFLOW_TEST_YANG_DIR, yang);
        const auto file = yang / "switch-oam-sflow.yang";
        std::stringstream text;
        text << std::ifstream(file).rdbuf();
        std::string changed = text.str();
        const auto at = changed.find(from);
        ASSERT_NE(at, std::string::npos);
        std::ofstream(file) << changed.replace(at, from.size(), to);
        m_otherSchema = cdb::Schema::Load(yang);
        datastore.reset();
        datastore = std::make_unique<cdb::Datastore>(*m_otherSchema, *store);
    }

    std::unique_ptr<cdb::Schema> m_otherSchema;
};

TEST_F(History, ARollBackReplacesWhatWasEdited)
{
    Apply(Port(1));
    const auto first = Shown(RunningTree().get());
    Apply(Port(2));
    const auto second = Shown(RunningTree().get());
    Edit(Sflow("<interface><name>eth1</name></interface><agent><ipv4>192.0.2.7</ipv4></agent>"));
    ASSERT_TRUE(datastore->RollBack({.back = 1}).empty());
    EXPECT_EQ(Shown(CandidateTree().get()), first);
    EXPECT_EQ(Shown(RunningTree().get()), second);
    ASSERT_TRUE(datastore->RollBack({.back = 0}).empty());
    EXPECT_EQ(Shown(CandidateTree().get()), second);
    EXPECT_FALSE(datastore->Changed());
    ASSERT_TRUE(datastore->RollBack({.back = 2}).empty());
    EXPECT_EQ(Shown(CandidateTree().get()), "");
    // A commit is one more, so what was before it is one back.
    Commit();
    ASSERT_TRUE(datastore->RollBack({.back = 1}).empty());
    EXPECT_EQ(Shown(CandidateTree().get()), second);
}

TEST_F(History, ARollBackAsksWhetherItsChangesAgainstRunningArePermitted)
{
    Apply(Port(1));
    Apply(Port(2));
    Edit(Sflow("<interface><name>eth1</name></interface>"));
    std::vector<cdb::RowChange> asked;
    const auto permit = [&asked](const std::vector<cdb::RowChange>& changes) {
        asked = changes;
        return std::optional(cdb::Error{.tag = ErrorTag::kAccessDenied, .message = "no"});
    };
    const auto candidate = Shown(CandidateTree().get());
    const auto errors = datastore->RollBack({.back = 1}, permit);
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors.front().message, "no");
    ASSERT_EQ(asked.size(), 1U);
    EXPECT_EQ(cdb::TextOf(TheSchema().Table(), asked.front().key), "/config/oam/sflow/collector{c1}");
    EXPECT_EQ(Shown(CandidateTree().get()), candidate);
    EXPECT_EQ(Lines(Commit()), std::vector<std::string>{"created /config/oam/sflow/interface{eth1}"});
}

TEST_F(History, CheckpointsAreBackAfterARestart)
{
    Apply(Port(1));
    const auto first = Shown(RunningTree().get());
    ASSERT_TRUE(store->SetCheckpoint({"good", 0, 5, "ann"}, false));
    Apply(Port(2));
    Open();
    EXPECT_EQ(store->Checkpoints(), (std::vector<cdb::Checkpoint>{{"good", 1, 5, "ann"}}));
    ASSERT_TRUE(datastore->RollBack({.checkpoint = "good"}).empty());
    EXPECT_EQ(Shown(CandidateTree().get()), first);
    const auto unknown = RefusedRollBack({.checkpoint = "bad"});
    EXPECT_EQ(unknown.tag, ErrorTag::kDataMissing);
    EXPECT_THAT(unknown.message, HasSubstr("no checkpoint bad"));
}

TEST_F(History, WhatIsNotThereIsNamed)
{
    Apply(Port(1));
    Edit(Port(2));
    const auto far = RefusedRollBack({.back = 4'000'000'000});
    EXPECT_EQ(far.tag, ErrorTag::kInvalidValue);
    EXPECT_THAT(far.message, HasSubstr("4000000000 commits"));
    const auto future = RefusedRollBack({.commit = 2});
    EXPECT_EQ(future.tag, ErrorTag::kInvalidValue);
    EXPECT_THAT(future.message, HasSubstr("no commit 2"));
    EXPECT_FALSE(datastore->CompareWith({.commit = 2}));
    EXPECT_FALSE(datastore->ChangesOf(2));
    EXPECT_FALSE(datastore->ChangesOf(0));
}

TEST_F(History, AnUndoThatIsNotKeptIsNamedWithTheCommitThatCanBeReached)
{
    cdb::StoreOptions options;
    options.historyLimit = 2;
    Open(options);
    for (int port = 1; port <= 4; ++port) Apply(Port(port));
    ASSERT_TRUE(datastore->RollBack({.back = 2}).empty());
    EXPECT_THAT(Shown(CandidateTree().get()), HasSubstr("port 2"));
    const auto error = RefusedRollBack({.back = 3});
    EXPECT_EQ(error.tag, ErrorTag::kDataMissing);
    EXPECT_THAT(error.message, HasSubstr("undoes commit 2 is not kept"));
    EXPECT_THAT(error.message, HasSubstr("no further than to commit 2"));
    EXPECT_FALSE(datastore->ChangesOf(2));
    EXPECT_TRUE(datastore->ChangesOf(3));
}

TEST_F(History, AnUndoOfAnOlderVersionIsNamed)
{
    auto transaction = store->Begin();
    transaction.Put({TheSchema().Table().Find("/config/oam/sflow/interface"), {"eth1"}}, {});
    transaction.Append({1, 0, "", "", "", "<config xmlns='urn:switch:yang:switch-config'/>"});
    ASSERT_FALSE(transaction.Commit());
    Open();
    const auto error = RefusedRollBack({.back = 1});
    EXPECT_EQ(error.tag, ErrorTag::kOperationFailed);
    EXPECT_THAT(error.message, HasSubstr("commit 1 was made by an older version"));
}

TEST_F(History, ALeafThatTheModulesHaveLostIsNamed)
{
    Apply(
        Sflow("<collector><name>c1</name><ip>192.0.2.1</ip><datagram-size>300</datagram-size>"
              "</collector>"));
    Apply(Sflow("<collector nc:operation='delete'><name>c1</name></collector>"));
    Apply(Sflow("<agent><ipv4>192.0.2.7</ipv4></agent>"));
    OpenWith("leaf datagram-size", "leaf datagram-length");
    EXPECT_TRUE(datastore->RollBack({.back = 1}).empty());
    datastore->Discard();
    const auto error = RefusedRollBack({.back = 2});
    EXPECT_EQ(error.tag, ErrorTag::kOperationFailed);
    EXPECT_THAT(error.message, HasSubstr("commit 2 can't be undone"));
    EXPECT_THAT(error.message, HasSubstr("/config/oam/sflow/collector{c1} has no leaf datagram-size"));
}

TEST_F(History, AValueThatTheModulesHaveForbiddenIsNamed)
{
    Apply(Port(7));
    Apply(Port(2000));
    OpenWith("range \"1..65535\"", "range \"1024..65535\"");
    const auto error = RefusedRollBack({.back = 1});
    EXPECT_EQ(error.tag, ErrorTag::kOperationFailed);
    EXPECT_THAT(error.message, HasSubstr("commit 1 can't be restored"));
    EXPECT_THAT(error.message, HasSubstr("/config/oam/sflow/collector{c1}"));
}

TEST_F(History, WhatIsNotValidAnyMoreIsNotRestored)
{
    Apply(Sflow("<collector><name>c1</name><ip>192.0.2.1</ip></collector>"));
    Apply(Sflow("<collector><name>c1</name><port>2000</port></collector>"));
    OpenWith("leaf port {", "leaf port {\n            must \". != 6343\";");
    const auto error = RefusedRollBack({.back = 1});
    EXPECT_THAT(error.path, HasSubstr("collector[name='c1']/port"));
}

// ---- the laws, by a random walk ----

class RandomHistory : public DatastoreTest, public ::testing::WithParamInterface<std::uint32_t> {
protected:
    using State = naive::Rows;
    static State RowsIn(const lyd_node* tree) { return naive::RowsOf(TheSchema(), tree); }
    static State RowsIn(cdb::RowView& rows) { return RowsIn(cdb::LoadTree(TheSchema(), rows).get()); }

    /// One commit of random edits, or of many interfaces at once.
    void CommitOne(RandomEdit& random)
    {
        if (random.Below(10) == 0) {
            std::string many;
            for (int i = 0; i < 300; ++i)
                many += "<interface><name>bulk" + std::to_string(i) + "</name><polling-interval>" +
                        std::to_string(random.Below(3)) + "</polling-interval></interface>";
            static_cast<void>(TryEdit(Sflow(many)));
        }
        for (int edits = 1 + random.Below(4); edits > 0; --edits) static_cast<void>(TryEdit(random.Make()));
        if (!datastore->Commit({})) return datastore->Discard();
        if (store->LastCommit() == m_states.size()) m_states.push_back(RowsIn(RunningTree().get()));
    }

    /// Any commit is where a roll-back leads to, and the comparison with it is what lies between.
    void LookBack(RandomEdit& random)
    {
        const auto back = static_cast<std::uint64_t>(random.Below(static_cast<int>(m_states.size())));
        const State& then = m_states[m_states.size() - 1 - back];
        static_cast<void>(TryEdit(random.Make()));
        const auto compared = datastore->CompareWith({.back = back});
        ASSERT_TRUE(compared);
        ExpectDifference(*compared, then, RowsIn(CandidateTree().get()));
        ASSERT_EQ(cdb::TextOf(datastore->RollBack({.back = back})), "");
        ASSERT_EQ(RowsIn(CandidateTree().get()), then);
        ASSERT_EQ(RowsIn(RunningTree().get()), m_states.back());
        if (random.Below(2) == 0) return datastore->Discard();
        ASSERT_TRUE(datastore->Commit({}));
        ASSERT_EQ(RowsIn(RunningTree().get()), then);
        if (store->LastCommit() == m_states.size()) m_states.push_back(then);
    }

    void LookAtOne(RandomEdit& random)
    {
        if (m_states.size() < 2) return;
        const auto commit = static_cast<std::size_t>(1 + random.Below(static_cast<int>(m_states.size()) - 1));
        const auto changes = datastore->ChangesOf(commit);
        ASSERT_TRUE(changes);
        ExpectDifference(*changes, m_states[commit - 1], m_states[commit]);
    }

    /// What the two views lack of the states is the same.
    static void ExpectDifference(const cdb::Datastore::Comparison& compared, State before, State after)
    {
        const auto takeOut = [](State& state, const State& part) {
            for (const auto& [key, row] : part) {
                const auto found = state.find(key);
                ASSERT_NE(found, state.end()) << key;
                EXPECT_EQ(found->second, row) << key;
                state.erase(found);
            }
        };
        takeOut(before, RowsIn(*compared.before));
        takeOut(after, RowsIn(*compared.after));
        EXPECT_EQ(before, after);
    }

    std::vector<State> m_states{{}};  // by commit: running after it
};

TEST_P(RandomHistory, ARollBackLeadsToWhatRunningWas)
{
    RandomEdit random(GetParam());
    m_states[0] = RowsIn(RunningTree().get());
    for (int step = 0; step < 150 && !HasFailure(); ++step) {
        CommitOne(random);
        if (random.Below(3) == 0) {
            ASSERT_NO_FATAL_FAILURE(LookBack(random)) << "step " << step;
        }
        ASSERT_NO_FATAL_FAILURE(LookAtOne(random)) << "step " << step;
        if (random.Below(20) == 0) Open();
    }
    EXPECT_GT(m_states.size(), 50U);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomHistory, ::testing::Values(1U, 2U));

}  // namespace
}  // namespace tests
