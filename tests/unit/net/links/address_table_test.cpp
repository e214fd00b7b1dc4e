// SPDX-License-Identifier: Apache-2.0
// The table of learned addresses against the standard's.

#include <cstdint>
#include <random>
#include <unordered_map>

#include <gtest/gtest.h>

#include "net/links/address_table.h"

namespace net {
namespace {

void ExpectEqual(const AddressTable<int>& table, const std::unordered_map<std::uint64_t, int>& expected,
                 std::uint64_t keys)
{
    ASSERT_EQ(table.Size(), expected.size());
    for (std::uint64_t key = 0; key < keys; ++key) {
        const auto there = expected.find(key);
        const int* found = table.Find(key);
        ASSERT_EQ(found != nullptr, there != expected.end()) << key;
        if (found != nullptr) {
            ASSERT_EQ(*found, there->second) << key;
        }
    }
}

TEST(AddressTable, DoesAsTheStandardsTableDoes)
{
    // Few keys, so that most steps meet one that is there.
    constexpr std::uint64_t kKeys = 300;
    AddressTable<int> table;
    std::unordered_map<std::uint64_t, int> expected;
    std::mt19937_64 random(7);  // NOLINT(bugprone-random-generator-seed): the same run each time
    for (int step = 0; step < 20'000; ++step) {
        const std::uint64_t key = random() % kKeys;
        if (random() % 2 == 0) {
            table.Put(key, step);
            expected[key] = step;
        } else {
            ASSERT_EQ(table.Erase(key), expected.erase(key));
        }
        if (step % 500 == 0) ExpectEqual(table, expected, kKeys);
    }
    const auto odd = [](int value) { return value % 2 != 0; };
    const std::size_t gone = std::erase_if(expected, [&](const auto& entry) { return odd(entry.second); });
    EXPECT_GT(gone, 0U);
    EXPECT_EQ(table.EraseIf(odd), gone);
    ExpectEqual(table, expected, kKeys);
    EXPECT_EQ(table.EraseIf([](int) { return false; }), 0U);
    EXPECT_EQ(table.EraseIf([](int) { return true; }), expected.size());
    ExpectEqual(table, {}, kKeys);
    table.Put(1, 2);
    ExpectEqual(table, {{1, 2}}, kKeys);
}

TEST(AddressTable, EveryKeyIsOne)
{
    AddressTable<int> table;
    EXPECT_EQ(table.Find(0), nullptr);
    EXPECT_EQ(table.Erase(0), 0U);
    table.Put(0, 1);
    table.Put(~std::uint64_t{0}, 2);
    ASSERT_NE(table.Find(0), nullptr);
    EXPECT_EQ(*table.Find(0), 1);
    ASSERT_NE(table.Find(~std::uint64_t{0}), nullptr);
    EXPECT_EQ(*table.Find(~std::uint64_t{0}), 2);
}

}  // namespace
}  // namespace net
