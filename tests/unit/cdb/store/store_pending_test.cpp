// SPDX-License-Identifier: Apache-2.0
// The record of the confirmed commit that waits, and that what undoes it stays whatever the history's limits.

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/sample.h"
#include "cdb/temp_directory.h"

namespace {

using cdb::ErrorTag;
using cdb::NodeRole;
using cdb::PendingCommit;
using cdb::Role;
using cdb::Store;
using sample::Key;
using testing::ElementsAre;
using testing::HasSubstr;

const PendingCommit kRecord{.returnTo = 3,
                            .last = 5,
                            .deadlineUs = 1'795'231'211'000'001,
                            .timeoutSeconds = 4'294'967'295,
                            .user = "operator",
                            .persistId = "a token"};

class StorePending : public testing::Test {
protected:
    StorePending() { Reopen(); }

    void Reopen(const cdb::StoreOptions& options = {})
    {
        m_store.reset();
        m_store = Store::Open(m_directory.Path(), options);
        m_store->SetSchema(sample::Table());
    }

    /// `returnTo`: of the record that is left; nullopt: none.
    std::optional<cdb::Error> TryCommit(std::uint64_t commit, std::optional<std::uint64_t> returnTo = {},
                                        std::size_t undoSize = 10)
    {
        auto transaction = m_store->Begin();
        transaction.Put(Key(sample::kInterface, {"eth1"}),
                        sample::RateRow(static_cast<std::uint32_t>(commit)));
        transaction.Append({commit, 0, "", "", "", std::string(undoSize, 'x')});
        transaction.SetPending(returnTo ? std::optional(PendingCommit{.returnTo = *returnTo, .last = commit})
                                        : std::nullopt);
        return transaction.Commit();
    }

    void Commit(std::uint64_t commit, std::optional<std::uint64_t> returnTo = {}, std::size_t undoSize = 10)
    {
        const auto error = TryCommit(commit, returnTo, undoSize);
        ASSERT_EQ(error, std::nullopt) << error->message;
    }

    /// Refused for lack of room; the store is as before.
    std::string RefusedCommit(std::uint64_t commit, std::uint64_t returnTo, std::size_t undoSize = 10)
    {
        const auto pending = m_store->Pending();
        const auto commits = Commits();
        const auto error = TryCommit(commit, returnTo, undoSize);
        EXPECT_EQ(m_store->LastCommit(), commit - 1);
        EXPECT_EQ(m_store->Pending(), pending);
        EXPECT_EQ(Commits(), commits);
        if (!error) return "it was not refused";
        EXPECT_EQ(error->tag, ErrorTag::kResourceDenied);
        return error->message;
    }

    std::vector<std::uint64_t> Commits()
    {
        std::vector<std::uint64_t> commits;
        for (const auto& entry : m_store->History(1000)) commits.push_back(entry.commit);
        return commits;
    }

    TempDirectory m_directory;
    std::unique_ptr<Store> m_store;
};

TEST_F(StorePending, IsKeptAsItIs)
{
    EXPECT_EQ(m_store->Pending(), std::nullopt);
    ASSERT_EQ(m_store->SetPending(kRecord), std::nullopt);
    EXPECT_EQ(m_store->Pending(), kRecord);
    Reopen();
    EXPECT_EQ(m_store->Pending(), kRecord);
    ASSERT_EQ(m_store->SetPending(std::nullopt), std::nullopt);
    EXPECT_EQ(m_store->Pending(), std::nullopt);
    ASSERT_EQ(m_store->SetPending(std::nullopt), std::nullopt);
    m_store.reset();
    EXPECT_NO_THROW(Store::Check(m_directory.Path()));
}

TEST_F(StorePending, KeepsTheNodesRoleBesideIt)
{
    EXPECT_EQ(m_store->RoleOfNode(), NodeRole{});
    const NodeRole standby{Role::kStandby, 1'000'000'000'123'456, "keepalived"};
    ASSERT_EQ(m_store->SetRoleOfNode({Role::kActive, 1, "root"}), std::nullopt);
    ASSERT_EQ(m_store->SetRoleOfNode(standby), std::nullopt);
    Commit(1);
    Reopen();
    EXPECT_EQ(m_store->RoleOfNode(), standby);
    m_store.reset();
    EXPECT_NO_THROW(Store::Check(m_directory.Path()));
}

TEST_F(StorePending, ChangesWithItsCommitOrNotAtAll)
{
    Commit(1);
    Commit(2, 1);
    EXPECT_EQ(m_store->Pending()->returnTo, 1U);
    // Another writer's commit number: refused as a whole.
    {
        auto transaction = m_store->Begin(7);
        transaction.Append(sample::History(8));
        transaction.SetPending(std::nullopt);
        EXPECT_NE(transaction.Commit(), std::nullopt);
    }
    EXPECT_EQ(m_store->Pending()->returnTo, 1U);
    // Given up.
    m_store->Begin().SetPending(std::nullopt);
    EXPECT_EQ(m_store->Pending()->returnTo, 1U);
    // A transaction that says nothing of it leaves it.
    {
        auto transaction = m_store->Begin();
        transaction.Append(sample::History(3));
        EXPECT_EQ(transaction.Commit(), std::nullopt);
    }
    EXPECT_EQ(m_store->Pending()->returnTo, 1U);
    Commit(4);
    EXPECT_EQ(m_store->Pending(), std::nullopt);
}

TEST_F(StorePending, IsPartOfABackup)
{
    Commit(1, 0);
    const TempDirectory copy;
    ASSERT_EQ(m_store->Backup(copy.Path() / "data.mdb")(), std::nullopt);
    EXPECT_EQ(Store::Open(copy.Path())->Pending(), m_store->Pending());
}

TEST_F(StorePending, WhatUndoesItIsNotDroppedForTheNumberOfCommits)
{
    Reopen({.historyLimit = 3});
    for (std::uint64_t commit = 1; commit <= 4; ++commit) Commit(commit);
    for (std::uint64_t commit = 5; commit <= 7; ++commit) Commit(commit, 4);
    EXPECT_THAT(Commits(), ElementsAre(7, 6, 5));
    EXPECT_THAT(RefusedCommit(8, 4), HasSubstr("confirm or cancel them, or raise cdbd's --history-limit"));
    // With a confirmation the limit holds again.
    Commit(8);
    EXPECT_THAT(Commits(), ElementsAre(8, 7, 6));
}

TEST_F(StorePending, WhatUndoesItIsNotDroppedForItsBytes)
{
    Reopen({.historyBytes = 20'000});
    Commit(1, {}, 9'000);
    Commit(2, 1, 9'000);
    Commit(3, 1, 9'000);
    EXPECT_THAT(Commits(), ElementsAre(3, 2));
    EXPECT_THAT(RefusedCommit(4, 1, 9'000), HasSubstr("--history-bytes"));
    EXPECT_THAT(RefusedCommit(4, 1, 30'000), HasSubstr("it could not be rolled back"));
    EXPECT_TRUE(m_store->HistoryUndo(2).has_value());
    Commit(4, {}, 30'000);
    EXPECT_THAT(Commits(), ElementsAre(4, 3, 2));
}

TEST_F(StorePending, WhatUndoesItIsNotDroppedForItsAge)
{
    Reopen({.historyDays = 1});
    Commit(1);
    Commit(2, 1);
    auto transaction = m_store->Begin();
    transaction.Append({3, std::int64_t{3} * 86'400 * 1'000'000, "", "", "", "undo"});
    transaction.SetPending(PendingCommit{.returnTo = 1, .last = 3});
    ASSERT_EQ(transaction.Commit(), std::nullopt);
    EXPECT_THAT(Commits(), ElementsAre(3, 2));
}

TEST_F(StorePending, WhatUndoesItIsNotDroppedForAFullStore)
{
    Reopen({.mapSize = std::size_t{1} << 20});
    std::uint64_t commit = 0;
    while (commit < 3) {
        ++commit;
        Commit(commit, {}, 30'000);
    }
    // Commits that wait, until the store has no room.
    std::optional<cdb::Error> error;
    while (!error && commit < 200) {
        error = TryCommit(commit + 1, 3, 30'000);
        if (!error) ++commit;
    }
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, ErrorTag::kResourceDenied);
    for (std::uint64_t each = 4; each <= commit; ++each)
        EXPECT_TRUE(m_store->HistoryUndo(each).has_value()) << each;
    EXPECT_EQ(m_store->Pending()->returnTo, 3U);
    // Without the record there is room again.
    ASSERT_EQ(m_store->SetPending(std::nullopt), std::nullopt);
    Commit(commit + 1, {}, 30'000);
    EXPECT_FALSE(m_store->HistoryUndo(4).has_value());
}

}  // namespace
