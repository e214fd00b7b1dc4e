// SPDX-License-Identifier: Apache-2.0
// The history: its limits in number, age and bytes, what undoes a commit, and commits that start from another
// one.

#include <lmdb.h>

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/rows/codec.h"
#include "cdb/sample.h"
#include "cdb/temp_directory.h"

namespace {

namespace fs = std::filesystem;

using cdb::HistoryEntry;
using cdb::Store;
using sample::Key;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::int64_t kDayUs = std::int64_t{86'400} * 1'000'000;

class StoreHistory : public testing::Test {
protected:
    StoreHistory() { Reopen(); }

    void Reopen(const cdb::StoreOptions& options = {})
    {
        m_store.reset();
        m_store = Store::Open(m_directory.Path(), options);
        m_store->SetSchema(sample::Table());
    }

    void Append(HistoryEntry entry)
    {
        auto transaction = m_store->Begin();
        transaction.Put(Key(sample::kInterface, {"eth1"}),
                        sample::RateRow(static_cast<std::uint32_t>(entry.commit)));
        transaction.Append(entry);
        ASSERT_EQ(transaction.Commit(), std::nullopt);
    }

    void Append(std::uint64_t commit, std::size_t undoSize, std::int64_t timeUs = 0)
    {
        Append({commit, timeUs, "", "", "", std::string(undoSize, static_cast<char>('a' + commit % 26))});
    }

    std::vector<std::uint64_t> Commits()
    {
        std::vector<std::uint64_t> commits;
        for (const auto& entry : m_store->History(1000)) commits.push_back(entry.commit);
        return commits;
    }

    cdb::Error NoUndo(std::uint64_t commit)
    {
        const auto found = m_store->HistoryUndo(commit);
        return found ? cdb::Error{.message = "it is there"} : found.error();
    }

    HistoryEntry WithUndo(std::uint64_t commit) { return m_store->HistoryUndo(commit).value(); }

    /// The count that is kept is the one that can be made.
    void ExpectCountRight()
    {
        const auto bytes = m_store->HistoryBytes();
        const auto commit = m_store->LastCommit();
        m_store.reset();
        const auto figures = Store::Check(m_directory.Path());
        EXPECT_EQ(figures.historyBytes, bytes);
        EXPECT_EQ(figures.commit, commit);
        Reopen();
    }

    TempDirectory m_directory;
    std::unique_ptr<Store> m_store;
};

TEST_F(StoreHistory, KeepsWhatUndoesACommit)
{
    HistoryEntry entry{3, 5, "anna", "netconf", "why", ""};
    entry.undoRows = {{m_store->StoredKey(Key(sample::kInterface, {"eth1"})), sample::RateRow(7)},
                      {m_store->StoredKey(Key(sample::kFlow, {"eth1", "c1"})), std::nullopt},
                      {m_store->StoredKey(Key("/config/oam/sflow/agent", {})), cdb::Row()}};
    Append(entry);
    Reopen();
    const auto kept = WithUndo(3);
    EXPECT_EQ(kept.undoRows, entry.undoRows);
    EXPECT_EQ(kept.undo, "");
    EXPECT_EQ(kept.user, "anna");
    EXPECT_EQ(m_store->RowKeyOf(kept.undoRows[1].key), Key(sample::kFlow, {"eth1", "c1"}));
    EXPECT_EQ(m_store->RowKeyOf(std::string("/config/nothing\0", 16)), std::nullopt);
    EXPECT_TRUE(m_store->History(1).at(0).undoRows.empty());
}

TEST_F(StoreHistory, KeepsUndosOfAnySize)
{
    constexpr std::size_t kChunk = cdb::codec::kUndoChunk;
    const std::vector<std::size_t> sizes{0, 1, kChunk - 4, kChunk - 3, kChunk, 7 * kChunk, 100 * kChunk + 1};
    for (std::size_t i = 0; i < sizes.size(); ++i) Append(i + 1, sizes[i]);
    Reopen();
    for (std::size_t i = 0; i < sizes.size(); ++i)
        EXPECT_EQ(WithUndo(i + 1).undo, std::string(sizes[i], static_cast<char>('b' + i)));
    ExpectCountRight();
}

TEST_F(StoreHistory, DropsTheOldestBeyondItsBytes)
{
    Reopen({.historyBytes = 50'000});
    for (std::uint64_t commit = 1; commit <= 20; ++commit) {
        Append(commit, 9000);
        EXPECT_LE(m_store->HistoryBytes(), 50'000U);
    }
    EXPECT_THAT(Commits(), ElementsAre(20, 19, 18, 17, 16));
    EXPECT_EQ(WithUndo(16).undo.size(), 9000U);
    EXPECT_EQ(NoUndo(15).tag, cdb::ErrorTag::kDataMissing);
    ExpectCountRight();
}

TEST_F(StoreHistory, NeverTakesMoreThanAQuarterOfTheMap)
{
    constexpr std::size_t kMap = std::size_t{1} << 20;
    Reopen({.mapSize = kMap});
    for (std::uint64_t commit = 1; commit <= 40; ++commit) Append(commit, 30'000);
    EXPECT_LE(m_store->HistoryBytes(), kMap / 4);
    EXPECT_GE(m_store->HistoryBytes(), kMap / 4 - 31'000);
}

TEST_F(StoreHistory, LeavesOutAnUndoThatIsTooLargeByItself)
{
    Reopen({.historyBytes = 50'000});
    Append(1, 1000);
    Append(2, 60'000);
    EXPECT_THAT(Commits(), ElementsAre(2, 1));
    EXPECT_EQ(NoUndo(2).tag, cdb::ErrorTag::kDataMissing);
    EXPECT_THAT(NoUndo(2).message, HasSubstr("--history-bytes"));
    EXPECT_EQ(WithUndo(1).undo.size(), 1000U);
    ExpectCountRight();
}

TEST_F(StoreHistory, DropsWhatIsTooOld)
{
    Reopen({.historyDays = 2});
    Append(1, 10, 1 * kDayUs);
    Append(2, 10, 2 * kDayUs);
    Append(3, 10, 3 * kDayUs);  // the first is two days old, no more
    EXPECT_THAT(Commits(), ElementsAre(3, 2, 1));
    Append(4, 10, 3 * kDayUs + 1);
    EXPECT_THAT(Commits(), ElementsAre(4, 3, 2));
    Append(5, 10, 100 * kDayUs);  // the last one stays, however old it would be
    EXPECT_THAT(Commits(), ElementsAre(5));
    Append(6, 10, 1);  // the clock was set back
    EXPECT_THAT(Commits(), ElementsAre(6, 5));
}

TEST_F(StoreHistory, CountsAnEntryThatIsWrittenAgainOnce)
{
    Append(1, 20'000);
    Append(1, 10);
    EXPECT_THAT(Commits(), ElementsAre(1));
    EXPECT_EQ(WithUndo(1).undo.size(), 10U);
    EXPECT_LT(m_store->HistoryBytes(), 1000U);
    ExpectCountRight();
}

TEST_F(StoreHistory, RefusesACommitThatStartsFromAnotherOne)
{
    Append(1, 0);
    auto transaction = m_store->Begin(2);
    transaction.Put(Key(sample::kInterface, {"eth9"}), sample::RateRow(1));
    transaction.Append(sample::History(3));
    const auto error = transaction.Commit();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, cdb::ErrorTag::kOperationFailed);
    EXPECT_THAT(error->message, HasSubstr("the store is at commit 1, not 2: another process has written it; "
                                          "restart cdbd"));
    EXPECT_EQ(m_store->Read().Get(Key(sample::kInterface, {"eth9"})), std::nullopt);
    auto next = m_store->Begin(1);
    next.Append(sample::History(2));
    EXPECT_EQ(next.Commit(), std::nullopt);
    EXPECT_EQ(m_store->LastCommit(), 2U);
}

TEST_F(StoreHistory, RefusesTwoEntriesInOneTransaction)
{
    auto transaction = m_store->Begin();
    transaction.Append(sample::History(1));
    transaction.Append(sample::History(2));
    EXPECT_TRUE(transaction.Commit());
    EXPECT_TRUE(m_store->Empty());
}

/// Makes the store one as an older version left it: the undo in the entry, no count, no database of undos.
void MakeOld(const fs::path& directory, std::uint64_t commit)
{
    namespace codec = cdb::codec;
    MDB_env* environment = nullptr;
    MDB_txn* transaction = nullptr;
    MDB_dbi meta = 0;
    MDB_dbi history = 0;
    MDB_dbi undo = 0;
    ASSERT_EQ(mdb_env_create(&environment), 0);
    ASSERT_EQ(mdb_env_set_maxdbs(environment, 8), 0);
    ASSERT_EQ(mdb_env_open(environment, directory.c_str(), 0, 0600), 0);
    ASSERT_EQ(mdb_txn_begin(environment, nullptr, 0, &transaction), 0);
    ASSERT_EQ(mdb_dbi_open(transaction, "meta", 0, &meta), 0);
    ASSERT_EQ(mdb_dbi_open(transaction, "history", 0, &history), 0);
    ASSERT_EQ(mdb_dbi_open(transaction, "undo", 0, &undo), 0);
    const auto value = [](const std::string& bytes) {
        return MDB_val{bytes.size(), const_cast<char*>(bytes.data())};
    };
    std::string count = "history-bytes";
    MDB_val countKey = value(count);
    ASSERT_EQ(mdb_del(transaction, meta, &countKey, nullptr), 0);
    const std::string key = codec::NumberBytes(commit);
    // Field 1, the commit; field 6, the undo, of 9000 bytes.
    const std::string payload =
        std::string("\x08") + static_cast<char>(commit) + "\x32\xa8\x46" + std::string(9000, 'u');
    const std::string sealed = codec::Seal(key, payload);
    MDB_val entryKey = value(key);
    MDB_val entry = value(sealed);
    ASSERT_EQ(mdb_put(transaction, history, &entryKey, &entry, 0), 0);
    ASSERT_EQ(mdb_drop(transaction, undo, 1), 0);
    ASSERT_EQ(mdb_txn_commit(transaction), 0);
    mdb_env_close(environment);
}

TEST_F(StoreHistory, OfAnOlderVersionIsGoneOnWith)
{
    Append(1, 0);
    m_store.reset();
    MakeOld(m_directory.Path(), 1);
    EXPECT_EQ(Store::Check(m_directory.Path()).historyEntries, 1U);
    Reopen();
    EXPECT_EQ(WithUndo(1).undo, std::string(9000, 'u'));
    EXPECT_EQ(m_store->History(1).at(0).undo, "");
    EXPECT_GT(m_store->HistoryBytes(), 9000U);
    Append(2, 100);
    EXPECT_EQ(WithUndo(2).undo.size(), 100U);
    EXPECT_GT(m_store->HistoryBytes(), 9100U);
    ExpectCountRight();
    Reopen({.historyBytes = 1000});
    Append(3, 100);
    EXPECT_THAT(Commits(), ElementsAre(3, 2));
}

}  // namespace
