// SPDX-License-Identifier: Apache-2.0
// Reading the store: order, ranges, nesting, and one commit at a time.

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/sample.h"
#include "cdb/temp_directory.h"

namespace {

using cdb::Store;
using cdb::StoreReader;
using sample::Key;
using sample::Names;
using sample::RateRow;
using sample::ScanAll;
using Strings = std::vector<std::string>;

class StoreReadTest : public testing::Test {
protected:
    StoreReadTest() : m_store(Store::Open(m_directory.Path())) { m_store->SetSchema(sample::Table()); }

    void Put(const std::vector<std::pair<cdb::RowKey, cdb::Row>>& rows)
    {
        auto transaction = m_store->Begin();
        for (const auto& [key, row] : rows) transaction.Put(key, row);
        transaction.Append(sample::History(m_store->LastCommit() + 1));
        ASSERT_EQ(transaction.Commit(), std::nullopt);
    }

    void PutInterfaces(const Strings& names)
    {
        std::vector<std::pair<cdb::RowKey, cdb::Row>> rows;
        for (const auto& name : names) rows.emplace_back(Key(sample::kInterface, {name}), RateRow(1));
        Put(rows);
    }

    TempDirectory m_directory;
    std::unique_ptr<Store> m_store;
};

TEST_F(StoreReadTest, ScansInAscendingByteOrder)
{
    PutInterfaces({"eth2", "eth10", "eth1", "eth", "Eth1", "b", "abc", "ab", "eth1/1", "eth1-1", "~"});
    EXPECT_EQ(Names(ScanAll(m_store->Read(), sample::kInterface)),
              (Strings{"Eth1", "ab", "abc", "b", "eth", "eth1", "eth1-1", "eth1/1", "eth10", "eth2", "~"}));
}

TEST_F(StoreReadTest, ScansFromAnyEntryOnAndStopsWhenTold)
{
    PutInterfaces({"a", "b", "c", "d"});
    const auto snapshot = m_store->Read();
    EXPECT_EQ(Names(ScanAll(snapshot, sample::kInterface, {}, 2)), (Strings{"c", "d"}));
    EXPECT_EQ(Names(ScanAll(snapshot, sample::kInterface, {}, 4)), Strings{});
    Strings seen;
    snapshot.Scan(sample::Node(sample::kInterface), {}, 1, [&seen](const auto& keys, const auto&) {
        seen.push_back(keys[0]);
        return seen.size() < 2;
    });
    EXPECT_EQ(seen, (Strings{"b", "c"}));
}

TEST_F(StoreReadTest, KeepsTheListsOfNeighboursApart)
{
    Put({{Key(sample::kInterface, {"eth1"}), RateRow(1)},
         {Key(sample::kInterface, {"eth10"}), RateRow(1)},
         {Key(sample::kFlow, {"eth1", "c1"}), {}},
         {Key(sample::kFlow, {"eth1", "c2"}), {}},
         {Key(sample::kFlow, {"eth10", "c3"}), {}},
         {Key(sample::kInterface + "/counter-sampling-collector", {"eth1", "c4"}), {}},
         {Key(sample::kCollector, {"c1"}), {}}});
    const auto snapshot = m_store->Read();
    EXPECT_EQ(Names(ScanAll(snapshot, sample::kFlow, {"eth1"})), (Strings{"c1", "c2"}));
    EXPECT_EQ(Names(ScanAll(snapshot, sample::kFlow, {"eth10"})), Strings{"c3"});
    EXPECT_EQ(Names(ScanAll(snapshot, sample::kFlow, {"eth"})), Strings{});
    EXPECT_EQ(snapshot.Count(sample::Node(sample::kFlow), {"eth1"}), 2U);
    EXPECT_EQ(snapshot.Count(sample::Node(sample::kInterface), {}), 2U);
    EXPECT_EQ(snapshot.Count(sample::Node(sample::kMgmt), {}), 0U);
}

TEST_F(StoreReadTest, ScansInsideAScan)
{
    Put({{Key(sample::kInterface, {"a"}), RateRow(1)},
         {Key(sample::kInterface, {"b"}), RateRow(2)},
         {Key(sample::kFlow, {"a", "c1"}), {}},
         {Key(sample::kFlow, {"b", "c2"}), {}},
         {Key(sample::kFlow, {"b", "c3"}), {}}});
    const auto snapshot = m_store->Read();
    Strings seen;
    snapshot.Scan(sample::Node(sample::kInterface), {}, 0, [&](const auto& keys, const cdb::Row& row) {
        snapshot.Scan(sample::Node(sample::kFlow), keys, 0, [&](const auto& inner, const auto&) {
            seen.push_back(inner[0]);
            return true;
        });
        EXPECT_EQ(snapshot.Get(Key(sample::kInterface, keys)), row);
        seen.push_back(keys[0] + cdb::ToText(row.leaves.at(0).second));
        return true;
    });
    EXPECT_EQ(seen, (Strings{"c1", "a1", "c2", "c3", "b2"}));
}

TEST_F(StoreReadTest, ReadsOneCommitHoweverManyFollow)
{
    PutInterfaces({"a"});
    const auto before = m_store->Read();
    PutInterfaces({"b"});
    const auto after = m_store->Read();
    EXPECT_EQ(before.Commit(), 1U);
    EXPECT_EQ(Names(ScanAll(before, sample::kInterface)), Strings{"a"});
    EXPECT_EQ(after.Commit(), 2U);
    EXPECT_EQ(Names(ScanAll(after, sample::kInterface)), (Strings{"a", "b"}));
}

TEST_F(StoreReadTest, MovesASnapshot)
{
    PutInterfaces({"a"});
    auto snapshot = m_store->Read();
    auto moved = std::move(snapshot);
    snapshot = m_store->Read();
    EXPECT_EQ(moved.Commit(), 1U);
    EXPECT_EQ(snapshot.Commit(), 1U);
}

TEST_F(StoreReadTest, ReusesReadersOfManySnapshots)
{
    PutInterfaces({"a"});
    for (int round = 0; round < 3; ++round) {
        std::vector<StoreReader::Snapshot> many;
        for (int i = 0; i < 300; ++i) many.push_back(m_store->Read());
        EXPECT_EQ(many.back().Count(sample::Node(sample::kInterface), {}), 1U);
    }
}

// The store against a map: any rows, in any order of commits, are read as the map has them.
TEST_F(StoreReadTest, AgreesWithAMapAfterAnyEdits)
{
    std::mt19937 random(3);
    const auto number = [&random](unsigned below) {
        return std::uniform_int_distribution<unsigned>(0, below - 1)(random);
    };
    std::map<std::string, cdb::Row> expected;
    for (int round = 0; round < 60; ++round) {
        auto transaction = m_store->Begin();
        for (unsigned edit = 0; edit < 1 + number(20); ++edit) {
            std::string name(1 + number(4), 'a');
            for (auto& letter : name) letter = static_cast<char>('!' + number(90));
            if (number(3) == 0 && !expected.empty()) {
                name = std::next(expected.begin(), number(static_cast<unsigned>(expected.size())))->first;
                expected.erase(name);
                transaction.Erase(Key(sample::kInterface, {name}));
            } else {
                expected[name] = RateRow(number(1000));
                transaction.Put(Key(sample::kInterface, {name}), expected[name]);
            }
        }
        ASSERT_EQ(transaction.Commit(), std::nullopt);
        std::map<std::string, cdb::Row> found;
        Strings order;
        for (auto& entry : ScanAll(m_store->Read(), sample::kInterface)) {
            order.push_back(entry.keys[0]);
            found.emplace(entry.keys[0], std::move(entry.row));
        }
        ASSERT_EQ(found, expected);
        ASSERT_TRUE(std::is_sorted(order.begin(), order.end()));
    }
}

TEST(StoreReader, SaysWhereThereIsNoStore)
{
    const TempDirectory directory;
    try {
        StoreReader::Open(directory.Path());
        FAIL();
    } catch (const cdb::FatalError& error) {
        EXPECT_EQ(error.what(),
                  "opening the store in " + directory.Path().string() +
                      " failed: there is none; is cdbd running, with the same SFLOW_STATE_DIR?");
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path()));
}

}  // namespace
