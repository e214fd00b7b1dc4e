// SPDX-License-Identifier: Apache-2.0
// How many drops are handed over: never more than the limit in any second, and all others counted as not
// told.

#include <algorithm>
#include <thread>
#include <vector>

#include "capture/drops_world.h"
#include "support/traffic.h"

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

class DropLimitTest : public DropsWorld {
protected:
    // Whether more than `limit` of what was told came within some second.
    [[nodiscard]] bool TooManyInASecond(std::size_t limit) const
    {
        std::vector<std::uint64_t> times;
        for (const auto& kept : sink.drops) times.push_back(kept.drop.time);
        std::ranges::sort(times);
        for (std::size_t i = limit; i < times.size(); ++i)
            if (times[i] - times[i - limit] < kSecond) return true;
        return false;
    }

    // Drops without end, as fast as they can be had, until so many were told.
    void FloodUntilTold(std::size_t wanted, std::uint64_t rate = 0)
    {
        host0->Within([&] {
            support::BackgroundTraffic traffic(
                "far0", {support::UdpFrame({.from = 1, .to = 0x99, .size = 100})}, rate);
            EXPECT_TRUE(support::Becomes([&] {
                source->Drain();
                return sink.drops.size() >= wanted;
            })) << sink.drops.size();
            m_sent = traffic.Stop().frames;
        });
    }

    std::uint64_t m_sent = 0;
};

TEST_F(DropLimitTest, ABurstIsToldUpToTheLimitAndTheRestIsCounted)
{
    source->Change({.limit = 5});
    source->Add(near0);
    SendForeign(100);
    Await(near0, 100);
    EXPECT_EQ(sink.drops.size(), 5U);
    EXPECT_EQ(Read(near0).counts, (capture::DropCounts{.drops = 100, .untold = 95, .own = 0}));
    EXPECT_EQ(DropsFor(near0, "OTHERHOST"), 100U);
    EXPECT_EQ(sink.drops.back().drop.untold, 95U) << "what is told says what was not";
}

TEST_F(DropLimitTest, NoSecondHasMoreThanTheLimit)
{
    constexpr std::size_t kLimit = 20;
    source->Change({.limit = kLimit});
    source->Add(near0);
    FloodUntilTold(3 * kLimit + 1);
    EXPECT_FALSE(TooManyInASecond(kLimit));
    Await(near0, m_sent);
    EXPECT_EQ(Read(near0).counts.untold, m_sent - sink.drops.size());
}

TEST_F(DropLimitTest, AStreamBelowTheLimitIsToldWhole)
{
    source->Change({.limit = 400});
    source->Add(near0);
    FloodUntilTold(500, 250);
    Await(near0, m_sent);
    EXPECT_EQ(sink.drops.size(), m_sent);
    EXPECT_EQ(Read(near0).counts.untold, 0U);
}

TEST_F(DropLimitTest, AllProcessorsHaveOneLimit)
{
    constexpr std::size_t kLimit = 50;
    source->Change({.limit = kLimit});
    source->Add(near0);
    source->Add(near1);
    const auto flood = [](const char* device) {
        support::Traffic traffic(device, {support::UdpFrame({.from = 1, .to = 0x99, .size = 100})});
        return traffic.SendFor(std::chrono::milliseconds(2300)).frames;
    };
    std::uint64_t sent0 = 0, sent1 = 0;
    std::thread other([&] { host1->Within([&] { sent1 = flood("far1"); }); });
    std::thread draining([&] { host0->Within([&] { sent0 = flood("far0"); }); });
    other.join();
    draining.join();
    Await(near0, sent0);
    Await(near1, sent1);
    EXPECT_FALSE(TooManyInASecond(kLimit));
    EXPECT_GE(sink.drops.size(), 2 * kLimit);
    EXPECT_EQ(Read(near0).counts.untold, sent0 - sink.At(near0));
    EXPECT_EQ(Read(near1).counts.untold, sent1 - sink.At(near1));
}

TEST_F(DropLimitTest, ChangesAtOnce)
{
    source->Change({.limit = 3});
    source->Add(near0);
    SendForeign(10);
    Await(near0, 10);
    EXPECT_EQ(sink.drops.size(), 3U);
    source->Change({.limit = 8});
    SendForeign(10);
    Await(near0, 20);
    EXPECT_EQ(sink.drops.size(), 8U) << "those of the same second count";
    source->Change({.limit = 0});
    SendForeign(10);
    Await(near0, 30);
    source->Change({.limit = capture::kMaxDropLimit});
    SendForeign(10);
    Await(near0, 40);
    EXPECT_EQ(sink.drops.size(), 18U);
    EXPECT_EQ(Read(near0).counts.untold, 22U);
}

TEST_F(DropLimitTest, MoreThanTheLargestLimitIsTheLargest)
{
    Start({.bufferSize = 64 << 20});
    source->Change({.limit = 0xFFFFFFFF});
    source->Add(near0);
    SendForeign(capture::kMaxDropLimit + 500);
    Await(near0, capture::kMaxDropLimit + 500);
    EXPECT_FALSE(TooManyInASecond(capture::kMaxDropLimit));
    EXPECT_GE(sink.drops.size(), capture::kMaxDropLimit);
    EXPECT_EQ(sink.drops.size() + Read(near0).counts.untold, capture::kMaxDropLimit + 500);
}

TEST_F(DropLimitTest, WhatFindsNoRoomIsCountedAsNotTold)
{
    Start({.bufferSize = 4096});
    source->Change({.limit = 1000});
    source->Add(near0);
    SendForeign(100);
    Await(near0, 100);
    EXPECT_GT(sink.drops.size(), 0U);
    EXPECT_LT(sink.drops.size(), 10U);
    EXPECT_EQ(Read(near0).counts.untold, 100 - sink.drops.size());
    SendForeign(2);
    Await(near0, 102);
    EXPECT_EQ(Read(near0).counts.untold + sink.drops.size(), 102U);
    EXPECT_EQ(support::NumberOf(sink.drops.back().header), 1U) << "there is room again";
}

}  // namespace
