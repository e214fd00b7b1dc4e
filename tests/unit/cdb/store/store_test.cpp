// SPDX-License-Identifier: Apache-2.0
// What the store keeps: rows, the history, faults, the schema.

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/sample.h"
#include "cdb/temp_directory.h"

namespace {

namespace fs = std::filesystem;

using cdb::Store;
using sample::Key;
using sample::RateRow;
using testing::HasSubstr;

class StoreTest : public testing::Test {
protected:
    StoreTest() { Reopen(); }

    void Reopen(const cdb::StoreOptions& options = {})
    {
        m_store.reset();  // never open twice in one process
        m_store = Store::Open(Directory(), options);
        m_store->SetSchema(sample::Table());
    }

    [[nodiscard]] fs::path Directory() const { return m_directory.Path() / "store"; }

    void Commit(const std::vector<std::pair<cdb::RowKey, cdb::Row>>& rows, std::uint64_t commit = 1)
    {
        auto transaction = m_store->Begin();
        for (const auto& [key, row] : rows) transaction.Put(key, row);
        transaction.Append(sample::History(commit));
        ASSERT_EQ(transaction.Commit(), std::nullopt);
    }

    TempDirectory m_directory;
    std::unique_ptr<Store> m_store;
};

TEST_F(StoreTest, IsEmptyUntilTheFirstCommit)
{
    EXPECT_TRUE(m_store->Empty());
    EXPECT_EQ(m_store->LastCommit(), 0U);
    EXPECT_TRUE(m_store->History(10).empty());
    Commit({}, 7);
    EXPECT_FALSE(m_store->Empty());
    EXPECT_EQ(m_store->LastCommit(), 7U);
}

TEST_F(StoreTest, KeepsRowsOverAReopening)
{
    const cdb::Row row{{{"enabled", false}, {"ip", cdb::Ipv4{0x010200c0}}, {"port", std::uint16_t{1}}}};
    Commit({{Key(sample::kCollector, {"c1"}), row}, {Key("/config/oam/sflow/agent", {}), {}}}, 3);
    Reopen();
    const auto snapshot = m_store->Read();
    EXPECT_EQ(snapshot.Get(Key(sample::kCollector, {"c1"})), row);
    EXPECT_EQ(snapshot.Get(Key("/config/oam/sflow/agent", {})), cdb::Row());
    EXPECT_EQ(snapshot.Get(Key(sample::kCollector, {"c2"})), std::nullopt);
    EXPECT_EQ(snapshot.Get(Key("/config/oam", {})), std::nullopt);
    EXPECT_EQ(snapshot.Commit(), 3U);
}

TEST_F(StoreTest, ReplacesAndErasesRows)
{
    Commit(
        {{Key(sample::kInterface, {"eth1"}), RateRow(1)}, {Key(sample::kInterface, {"eth2"}), RateRow(2)}});
    auto transaction = m_store->Begin();
    transaction.Put(Key(sample::kInterface, {"eth1"}), RateRow(9));
    transaction.Erase(Key(sample::kInterface, {"eth2"}));
    transaction.Erase(Key(sample::kInterface, {"eth3"}));  // was not there: no error
    ASSERT_EQ(transaction.Commit(), std::nullopt);
    EXPECT_EQ(sample::ScanAll(m_store->Read(), sample::kInterface),
              (std::vector<sample::Entry>{{{"eth1"}, RateRow(9)}}));
}

TEST_F(StoreTest, LeavesNothingOfATransactionWithoutCommit)
{
    {
        auto transaction = m_store->Begin();
        transaction.Put(Key(sample::kInterface, {"eth1"}), RateRow(1));
        transaction.Append(sample::History(1));
    }
    EXPECT_TRUE(m_store->Empty());
    EXPECT_TRUE(m_store->History(10).empty());
    EXPECT_EQ(sample::ScanAll(m_store->Read(), sample::kInterface), std::vector<sample::Entry>{});
}

TEST_F(StoreTest, RemembersTheFirstErrorOfATransaction)
{
    Commit({{Key(sample::kInterface, {"eth1"}), RateRow(1)}});
    auto transaction = m_store->Begin();
    transaction.Put(Key(sample::kInterface, {"eth1"}), RateRow(2));
    transaction.Put(Key(sample::kInterface, {std::string(600, 'x')}), RateRow(2));
    transaction.Put(Key(sample::kInterface, {std::string("a\0b", 3)}), RateRow(2));
    transaction.Put(Key(sample::kInterface, {"eth3"}), RateRow(2));
    const auto error = transaction.Commit();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, cdb::ErrorTag::kTooBig);
    EXPECT_EQ(error->message,
              "the commit failed: the keys of an entry are too long together; use shorter names");
    EXPECT_EQ(sample::ScanAll(m_store->Read(), sample::kInterface),
              (std::vector<sample::Entry>{{{"eth1"}, RateRow(1)}}));
}

TEST_F(StoreTest, RefusesAKeyWithANul)
{
    auto transaction = m_store->Begin();
    transaction.Put(Key(sample::kInterface, {std::string("a\0b", 3)}), RateRow(2));
    const auto error = transaction.Commit();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, cdb::ErrorTag::kInvalidValue);
}

TEST_F(StoreTest, RefusesANodeThatTheSchemaLacks)
{
    auto transaction = m_store->Begin();
    transaction.Put({cdb::kNoNode, {}}, {});
    const auto error = transaction.Commit();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->message, "the commit failed: the store's schema has no such node");
}

TEST_F(StoreTest, RefusesASecondWriteMeanwhileInsteadOfWaiting)
{
    auto first = m_store->Begin();
    auto second = m_store->Begin();
    const auto error = second.Commit();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, cdb::ErrorTag::kInUse);
    EXPECT_EQ(m_store->AddFaults({cdb::Fault{}})->tag, cdb::ErrorTag::kInUse);
    first.Append(sample::History(1));
    EXPECT_EQ(first.Commit(), std::nullopt);
    EXPECT_EQ(m_store->LastCommit(), 1U);
    EXPECT_EQ(m_store->AddFaults({cdb::Fault{}}), std::nullopt);
}

TEST_F(StoreTest, CommitsATransactionOnce)
{
    auto transaction = m_store->Begin();
    EXPECT_EQ(transaction.Commit(), std::nullopt);
    transaction.Put(Key(sample::kInterface, {"eth1"}), RateRow(1));
    EXPECT_TRUE(transaction.Commit());
}

TEST_F(StoreTest, ListsTheHistoryNewestFirst)
{
    const cdb::HistoryEntry entry{2,         1795000000123456, "anna",
                                  "netconf", "more of it",     std::string("\0\xff", 2)};
    Commit({}, 1);
    auto transaction = m_store->Begin();
    transaction.Append(entry);
    ASSERT_EQ(transaction.Commit(), std::nullopt);
    Reopen();
    const auto history = m_store->History(10);
    ASSERT_EQ(history.size(), 2U);
    EXPECT_EQ(history[0].commit, 2U);
    EXPECT_EQ(history[0].timeUs, 1795000000123456);
    EXPECT_EQ(history[0].user, "anna");
    EXPECT_EQ(history[0].source, "netconf");
    EXPECT_EQ(history[0].comment, "more of it");
    EXPECT_EQ(history[0].undo, "");  // what undoes it is asked for by itself
    EXPECT_EQ(m_store->HistoryUndo(2).value().undo, entry.undo);
    EXPECT_EQ(history[1].commit, 1U);
    EXPECT_EQ(m_store->History(1).size(), 1U);
    EXPECT_EQ(m_store->History(0).size(), 0U);
}

TEST_F(StoreTest, DropsTheOldestHistoryBeyondItsLimit)
{
    Reopen({.historyLimit = 3});
    for (std::uint64_t commit = 1; commit <= 5; ++commit) Commit({}, commit);
    std::vector<std::uint64_t> commits;
    for (const auto& entry : m_store->History(10)) commits.push_back(entry.commit);
    EXPECT_EQ(commits, (std::vector<std::uint64_t>{5, 4, 3}));
    Reopen({.historyLimit = 1});  // a smaller limit takes effect with the next commit
    Commit({}, 6);
    EXPECT_EQ(m_store->History(10).size(), 1U);
}

TEST_F(StoreTest, NumbersFaultsAndDropsTheOldest)
{
    Reopen({.faultLimit = 2});
    for (int i = 1; i <= 3; ++i)
        ASSERT_EQ(m_store->AddFaults({{99, i, "sflow-app", 4711, 1, "HandleCfg", "src/x.cpp", 12,
                                       "text " + std::to_string(i)}}),
                  std::nullopt);
    Reopen({.faultLimit = 2});
    const auto faults = m_store->Faults(10);
    ASSERT_EQ(faults.size(), 2U);
    EXPECT_EQ(faults[0].number, 3U);
    EXPECT_EQ(faults[0].timeUs, 3);
    EXPECT_EQ(faults[0].process, "sflow-app");
    EXPECT_EQ(faults[0].pid, 4711);
    EXPECT_EQ(faults[0].kind, 1);
    EXPECT_EQ(faults[0].function, "HandleCfg");
    EXPECT_EQ(faults[0].file, "src/x.cpp");
    EXPECT_EQ(faults[0].line, 12);
    EXPECT_EQ(faults[0].text, "text 3");
    EXPECT_EQ(faults[1].number, 2U);
    ASSERT_EQ(m_store->AddFaults({cdb::Fault{}}), std::nullopt);
    EXPECT_EQ(m_store->Faults(1).at(0).number, 4U);
}

TEST_F(StoreTest, CutsTheTextsOfAFault)
{
    const std::string text(100000, 'x');
    ASSERT_EQ(m_store->AddFaults({{0, 0, text, 0, 0, text, text, 0, text}}), std::nullopt);
    const auto fault = m_store->Faults(1).at(0);
    for (const auto* part : {&fault.process, &fault.function, &fault.file, &fault.text})
        EXPECT_EQ(part->size(), 4096U);
}

TEST_F(StoreTest, KeepsTheSchemaForReaders)
{
    EXPECT_EQ(m_store->Directory(), Directory());
    m_store.reset();
    EXPECT_EQ(cdb::StoreReader::Open(Directory())->Schema(), sample::Table());
}

TEST_F(StoreTest, WritesAnUnchangedSchemaOnce)
{
    const auto size = fs::file_size(Directory() / "data.mdb");
    const auto time = fs::last_write_time(Directory() / "data.mdb");
    for (int i = 0; i < 3; ++i) m_store->SetSchema(sample::Table());
    EXPECT_EQ(fs::file_size(Directory() / "data.mdb"), size);
    EXPECT_EQ(fs::last_write_time(Directory() / "data.mdb"), time);
}

TEST_F(StoreTest, KeepsTheSchemasFingerprint)
{
    EXPECT_EQ(m_store->SchemaFingerprint(), "");
    m_store->SetSchema(sample::Table(), "abc");
    EXPECT_EQ(m_store->SchemaFingerprint(), "abc");
    m_store.reset();
    m_store = Store::Open(Directory());
    EXPECT_EQ(m_store->SchemaFingerprint(), "abc");
    EXPECT_EQ(m_store->Schema(), sample::Table());
    m_store->SetSchema(sample::Table());  // nothing is known of the rows any more
    m_store.reset();
    m_store = Store::Open(Directory());
    EXPECT_EQ(m_store->SchemaFingerprint(), "");
}

TEST_F(StoreTest, AddsFaultsTogether)
{
    Reopen({.faultLimit = 3});
    ASSERT_EQ(m_store->AddFaults({}), std::nullopt);
    std::vector<cdb::Fault> faults(5);
    for (std::size_t i = 0; i < faults.size(); ++i) faults[i].line = static_cast<std::int32_t>(i);
    ASSERT_EQ(m_store->AddFaults(faults), std::nullopt);
    faults.resize(1);
    ASSERT_EQ(m_store->AddFaults(faults), std::nullopt);
    std::vector<std::pair<std::uint64_t, std::int32_t>> kept;
    for (const auto& fault : m_store->Faults(10)) kept.emplace_back(fault.number, fault.line);
    EXPECT_THAT(kept, testing::ElementsAre(std::pair(4U, 0), std::pair(3U, 4), std::pair(2U, 3)));
}

TEST_F(StoreTest, IsCopiedWhileItIsInUse)
{
    Commit({{Key(sample::kInterface, {"eth1"}), RateRow(1)}}, 1);
    const auto copy = m_directory.Path() / "copy" / "data.mdb";
    auto task = m_store->Backup(copy);
    EXPECT_EQ(task()->tag, cdb::ErrorTag::kInvalidValue);  // there is no such directory
    fs::create_directory(copy.parent_path());
    const auto transaction = m_store->Begin();
    EXPECT_EQ(task(), std::nullopt);
    EXPECT_EQ(task()->tag, cdb::ErrorTag::kDataExists);
    EXPECT_EQ(m_store->Backup("copy.mdb")()->tag, cdb::ErrorTag::kInvalidValue);
    EXPECT_EQ(std::distance(fs::directory_iterator(copy.parent_path()), {}), 1);
    const auto reader = cdb::StoreReader::Open(copy.parent_path());
    EXPECT_EQ(reader->Read().Get(Key(sample::kInterface, {"eth1"})), RateRow(1));
    EXPECT_EQ(reader->Read().Commit(), 1U);
}

// A reader takes the map's size from the file.
TEST_F(StoreTest, GrowsItsMapOnALaterStart)
{
    constexpr std::size_t kSmall = std::size_t{1} << 20;
    Reopen({.mapSize = kSmall});
    m_store.reset();
    EXPECT_EQ(Store::Check(Directory()).mapSize, std::size_t{1} << 30);  // it does not shrink
    fs::remove_all(Directory());
    Reopen({.mapSize = kSmall});
    m_store.reset();
    EXPECT_EQ(Store::Check(Directory()).mapSize, kSmall);
    Reopen({.mapSize = 4 * kSmall});
    m_store.reset();
    EXPECT_EQ(Store::Check(Directory()).mapSize, 4 * kSmall);
}

/// The schema with a leaf less, or one more, in an interface.
cdb::SchemaTable Evolved(bool more)
{
    std::vector<cdb::SchemaNode> nodes;
    for (const auto& node : sample::Table().Nodes()) {
        auto copy = node;
        if (copy.name == "max-header-size") copy.name = more ? "new-leaf" : copy.name;
        nodes.push_back(copy);
    }
    return cdb::SchemaTable(std::move(nodes));
}

// Rows name their leaves, so a row outlives changes of the schema around it.
TEST_F(StoreTest, ReadsRowsThatWereWrittenUnderAnotherSchema)
{
    const cdb::Row row{{{"sampling-rate", std::uint32_t{5}}, {"max-header-size", std::uint16_t{64}}}};
    Commit({{Key(sample::kInterface, {"eth1"}), row}});
    m_store->SetSchema(Evolved(true));
    EXPECT_EQ(m_store->Read().Get(Key(sample::kInterface, {"eth1"})), row);
    m_store.reset();
    const auto reader = cdb::StoreReader::Open(Directory());
    EXPECT_EQ(reader->Schema(), Evolved(true));
    EXPECT_EQ(sample::ScanAll(reader->Read(), sample::kInterface),
              (std::vector<sample::Entry>{{{"eth1"}, row}}));
}

TEST_F(StoreTest, MovesNoRowWhenNodesGetOtherNumbers)
{
    Commit({{Key(sample::kInterface, {"eth1"}), RateRow(5)}});
    std::vector<cdb::SchemaNode> nodes{{.name = "first"}};  // everything else moves by one
    for (auto node : sample::Table().Nodes()) {
        if (node.parent != cdb::kNoNode) ++node.parent;
        if (node.defaultRef != cdb::kNoNode) ++node.defaultRef;
        nodes.push_back(node);
    }
    const cdb::SchemaTable moved(std::move(nodes));
    m_store->SetSchema(moved);
    EXPECT_EQ(m_store->Read().Get({moved.Find(sample::kInterface), {"eth1"}}), RateRow(5));
}

TEST_F(StoreTest, GivesItsFilesToItsOwnerAndGroupOnly)
{
    const auto mode = [](const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777U;
    };
    EXPECT_EQ(mode(Directory()), 0750U);
    EXPECT_EQ(mode(Directory() / "data.mdb"), 0640U);
    EXPECT_EQ(mode(Directory() / "lock.mdb"), 0660U);
    EXPECT_EQ(mode(Directory() / "writer.lock"), 0640U);
}

TEST_F(StoreTest, LeavesOnlyItsFilesBehind)
{
    std::vector<std::string> names;
    for (const auto& file : fs::directory_iterator(Directory())) names.push_back(file.path().filename());
    EXPECT_THAT(names, testing::UnorderedElementsAre("data.mdb", "lock.mdb", "store.id", "writer.lock"));
}

TEST_F(StoreTest, DoesNotGrowOnceTheHistoryIsFull)
{
    constexpr std::uint64_t kLimit = 20;
    Reopen({.historyLimit = kLimit});
    std::uint64_t commit = 0;
    const auto run = [&](std::uint64_t count) {
        for (std::uint64_t i = 0; i < count; ++i) {
            ++commit;
            Commit({{Key(sample::kInterface, {"eth1"}), RateRow(static_cast<std::uint32_t>(commit))}},
                   commit);
            const auto snapshot = m_store->Read();  // readers come and go, and pin nothing
            ASSERT_EQ(snapshot.Get(Key(sample::kInterface, {"eth1"})),
                      RateRow(static_cast<std::uint32_t>(commit)));
        }
    };
    run(2 * kLimit);
    const auto size = fs::file_size(Directory() / "data.mdb");
    run(20 * kLimit);
    EXPECT_EQ(fs::file_size(Directory() / "data.mdb"), size);
}

}  // namespace
