// SPDX-License-Identifier: Apache-2.0
// The store's rows as of one moment: order, nesting, parents in any order, threads.

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/rows/row_view.h"
#include "cdb/sample.h"
#include "cdb/temp_directory.h"

namespace {

using cdb::Row;
using cdb::RowView;
using cdb::Store;
using sample::Key;
using sample::Node;
using sample::RateRow;
using Strings = std::vector<std::string>;
using Keys = std::span<const std::string_view>;

class RowViewTest : public testing::Test {
protected:
    RowViewTest() : m_store(Store::Open(m_directory.Path())) { m_store->SetSchema(sample::Table()); }

    void Put(const std::vector<std::pair<cdb::RowKey, Row>>& rows)
    {
        auto transaction = m_store->Begin();
        for (const auto& [key, row] : rows) transaction.Put(key, row);
        transaction.Append(sample::History(m_store->LastCommit() + 1));
        ASSERT_EQ(transaction.Commit(), std::nullopt);
    }

    static Strings Below(RowView& view, std::string_view list, const Strings& parents)
    {
        Strings names;
        view.ForEach(Node(list), parents, [&](Keys keys, const Row&) {
            names.emplace_back(keys.front());
            return true;
        });
        return names;
    }

    TempDirectory m_directory;
    std::unique_ptr<Store> m_store;
};

TEST_F(RowViewTest, GetsRows)
{
    Put({{Key(sample::kInterface, {"eth1"}), RateRow(7)}, {Key(sample::kFlow, {"eth1", "c1"}), {}}});
    const auto view = cdb::MakeRowView(*m_store);
    const auto get = [&](std::string_view list, const Strings& keys) { return view->Get(Node(list), keys); };
    ASSERT_NE(get(sample::kInterface, {"eth1"}), nullptr);
    EXPECT_EQ(*get(sample::kInterface, {"eth1"}), RateRow(7));
    ASSERT_NE(get(sample::kFlow, {"eth1", "c1"}), nullptr);
    EXPECT_EQ(*get(sample::kFlow, {"eth1", "c1"}), Row());
    EXPECT_EQ(get(sample::kInterface, {"eth"}), nullptr);
    EXPECT_EQ(get(sample::kInterface, {""}), nullptr);
    EXPECT_EQ(get(sample::kInterface, {std::string(1000, 'x')}), nullptr);
    EXPECT_EQ(get(sample::kFlow, {"eth1", "c2"}), nullptr);
}

TEST_F(RowViewTest, LeavesTheOuterRowAndKeysValid)
{
    Put({{Key(sample::kInterface, {"eth1"}), RateRow(1)},
         {Key(sample::kInterface, {"eth2"}), RateRow(2)},
         {Key(sample::kInterface, {"eth3"}), RateRow(3)},
         {Key(sample::kFlow, {"eth1", "c1"}), {}},
         {Key(sample::kFlow, {"eth2", "c2"}), {}}});
    const auto view = cdb::MakeRowView(*m_store);
    Strings seen;
    view->ForEach(Node(sample::kInterface), {}, [&](Keys keys, const Row& row) {
        const std::string name(keys.front());
        Below(*view, sample::kInterface, {});  // the same list again, from within
        static_cast<void>(view->Get(Node(sample::kInterface), Strings{"eth3"}));
        for (const auto& below : Below(*view, sample::kFlow, {name})) seen.push_back(below);
        EXPECT_EQ(keys.front(), name);
        EXPECT_EQ(row, RateRow(static_cast<std::uint32_t>(name.back() - '0')));
        seen.push_back(name);
        return true;
    });
    EXPECT_EQ(seen, (Strings{"c1", "eth1", "c2", "eth2", "eth3"}));
}

TEST_F(RowViewTest, FindsEntriesOfParentsInAnyOrder)
{
    std::mt19937 random(1);
    const auto below = [&random](int bound) {
        return std::uniform_int_distribution<int>(0, bound - 1)(random);
    };
    std::vector<std::pair<cdb::RowKey, Row>> rows;
    for (int i = 0; i < 200; ++i) {
        const std::string name = "eth" + std::to_string(i);
        if (below(4) > 0) rows.emplace_back(Key(sample::kInterface, {name}), RateRow(1));
        for (int c = below(4); c > 0; --c)
            rows.emplace_back(Key(sample::kFlow, {name, "c" + std::to_string(c)}), Row());
    }
    Put(rows);
    const auto view = cdb::MakeRowView(*m_store);
    const auto snapshot = m_store->Read();
    for (int i = 0; i < 5000; ++i) {
        // Onward in steps of any size, now and then back; some names are those of no entry.
        const Strings parents{"eth" + std::to_string(below(8) == 0 ? below(250) : i * 3 / 10 % 250)};
        const int limit = below(6) == 0 ? 1 : 100;
        Strings names;
        view->ForEach(Node(sample::kFlow), parents, [&](Keys keys, const Row&) {
            names.emplace_back(keys.front());
            return static_cast<int>(names.size()) < limit;
        });
        auto expected = sample::Names(sample::ScanAll(snapshot, sample::kFlow, parents));
        if (static_cast<int>(expected.size()) > limit) expected.resize(static_cast<std::size_t>(limit));
        ASSERT_EQ(names, expected) << parents[0] << ", step " << i;
    }
}

TEST_F(RowViewTest, ShowsOneMoment)
{
    Put({{Key(sample::kInterface, {"eth1"}), RateRow(1)}});
    const auto before = cdb::MakeRowView(*m_store);
    Put({{Key(sample::kInterface, {"eth1"}), RateRow(2)}, {Key(sample::kInterface, {"eth2"}), RateRow(2)}});
    EXPECT_EQ(Below(*before, sample::kInterface, {}), Strings{"eth1"});
    EXPECT_EQ(*before->Get(Node(sample::kInterface), Strings{"eth1"}), RateRow(1));
    const auto now = cdb::MakeRowView(*m_store);
    EXPECT_EQ(Below(*now, sample::kInterface, {}), (Strings{"eth1", "eth2"}));
}

TEST_F(RowViewTest, IsReadInManyThreadsWhileCommitsGoOn)
{
    constexpr std::uint32_t kCommits = 50;
    constexpr int kNames = 20;
    const auto commit = [&](std::uint32_t number) {
        std::vector<std::pair<cdb::RowKey, Row>> rows;
        for (int i = 0; i < kNames; ++i)
            rows.emplace_back(Key(sample::kInterface, {"eth" + std::to_string(i)}), RateRow(number));
        Put(rows);
    };
    commit(0);
    std::atomic<bool> done = false;
    const auto read = [&] {
        int views = 0;
        while (!done || views == 0) {
            ++views;
            const auto view = cdb::MakeRowView(*m_store);
            const Row first = *view->Get(Node(sample::kInterface), Strings{"eth0"});
            int rows = 0;
            view->ForEach(Node(sample::kInterface), {}, [&](Keys, const Row& row) {
                EXPECT_EQ(row, first);
                ++rows;
                return true;
            });
            EXPECT_EQ(rows, kNames);
        }
    };
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) readers.emplace_back(read);
    for (std::uint32_t number = 1; number <= kCommits; ++number) commit(number);
    done = true;
    for (auto& reader : readers) reader.join();
}

}  // namespace
