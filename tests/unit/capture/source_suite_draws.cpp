// SPDX-License-Identifier: Apache-2.0
// How packets are sampled: exact counts of what was sampled from, numbers within what chance allows, and
// gaps that are independent.

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "capture/source_suite.h"

namespace source_suite {

TEST_P(SourceSuite, SamplesEveryFrameOnceAtRateOne)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    Add(port, {.rate = 1, .headerSize = 128});
    constexpr std::uint64_t kFrames = 20000;
    SendNumbered("far", 0, kFrames);
    EXPECT_TRUE(Settles(port, kFrames));
    std::vector<std::uint64_t> all(kFrames);
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(m_record.Numbers(port), all);
    EXPECT_EQ(m_source->Read(port).drops, 0U);
}

TEST_P(SourceSuite, CountsExactlyAndSamplesWithinTheBoundsOfChanceAtEachRate)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    std::uint64_t pool = 0;
    Add(port, {.rate = 1, .headerSize = 64});
    for (const std::uint32_t rate : {2U, 3U, 7U, 10U, 64U, 100U, 400U}) {
        SCOPED_TRACE(rate);
        Change(port, {.rate = rate, .headerSize = 64});
        m_record.all.clear();
        const std::uint64_t frames = std::clamp<std::uint64_t>(500ULL * rate, 20000, 200000);
        SendNumbered("far", pool, frames);
        pool += frames;
        EXPECT_TRUE(Settles(port, pool));
        EXPECT_TRUE(IsBinomial(m_record.Frames(port), frames, 1.0 / rate));
        EXPECT_EQ(m_source->Read(port).drops, 0U);
        std::uint64_t last = pool - frames;
        std::vector<std::uint64_t> rises;
        for (const SampledFrame& sampled : m_record.all) {
            ASSERT_EQ(sampled.sample.rate, rate);
            ASSERT_GE(sampled.sample.pool, last);
            ASSERT_LE(sampled.sample.pool, pool);
            rises.push_back(sampled.sample.pool - last);
            last = sampled.sample.pool;
        }
        // Each stands for about as many as the rate says, also where they are read many at a time.
        std::ranges::nth_element(rises, rises.begin() + static_cast<std::ptrdiff_t>(rises.size() / 2));
        EXPECT_GE(rises[rises.size() / 2], std::max(1U, rate / 3));
        EXPECT_LE(rises[rises.size() / 2], rate * 3);
    }
}

TEST_P(SourceSuite, SamplesOfAMillionOnlyWhatChanceAllows)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    constexpr std::uint32_t kRarest = 16777215;
    Add(port, {.rate = kRarest, .headerSize = 64});
    constexpr std::uint64_t kFrames = 50000;
    SendNumbered("far", 0, kFrames);
    EXPECT_TRUE(Settles(port, kFrames));
    EXPECT_TRUE(IsBinomial(m_record.Frames(port), kFrames, 1.0 / kRarest));
}

TEST_P(SourceSuite, SamplesWithIndependentGaps)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    std::uint64_t first = 0;
    for (const std::uint32_t rate : {2U, 10U, 37U}) {
        SCOPED_TRACE(rate);
        Add(port, {.rate = rate, .headerSize = 64});
        m_record.all.clear();
        const std::uint64_t frames = 4000ULL * rate;
        SendNumbered("far", first, frames);
        EXPECT_TRUE(Settles(port, frames));
        const std::vector<std::uint64_t> numbers = m_record.Numbers(port);
        ASSERT_GT(numbers.size(), 3000U);
        ASSERT_TRUE(std::ranges::is_sorted(numbers));
        std::vector<std::uint64_t> gaps;
        std::uint64_t before = first - 1;
        for (const std::uint64_t number : numbers) gaps.push_back(number - std::exchange(before, number));
        EXPECT_TRUE(IsGeometric(gaps, 1.0 / rate));
        // One gap says nothing of the next: of the pairs, so many are both longer than usual.
        const std::uint64_t usual = rate;
        std::uint64_t longer = 0;
        std::uint64_t both = 0;
        for (std::size_t i = 0; i + 1 < gaps.size(); i += 2) {
            longer += gaps[i] > usual ? 1U : 0U;
            both += gaps[i] > usual && gaps[i + 1] > usual ? 1U : 0U;
        }
        double chance = 1;
        for (std::uint64_t i = 0; i < usual; ++i) chance *= 1 - 1.0 / rate;
        EXPECT_TRUE(IsBinomial(both, longer, chance));
        EXPECT_EQ(m_source->Remove(port).pool, frames);
        first += frames;
    }
}

TEST_P(SourceSuite, CountsManyInterfacesEachByItself)
{
    constexpr std::uint32_t kInterfaces = 200;
    std::string links;
    for (std::uint32_t i = 0; i < kInterfaces; ++i) {
        const std::string number = std::to_string(i);
        links += "link add name n" + number + " type veth peer name f" + number + "\n";
        links += "link set n" + number + " up\nlink set f" + number + " up\n";
    }
    support::Network::Ip(links);
    Make();
    if (IsSkipped()) return;
    std::vector<std::uint32_t> ports;
    for (std::uint32_t i = 0; i < kInterfaces; ++i) {
        ports.push_back(support::Network::Index("n" + std::to_string(i)));
        m_source->Add(ports.back(), {.rate = 1 + i % 3, .headerSize = 64});
    }
    for (const std::uint32_t port : ports) EXPECT_TRUE(Becomes([&] { return m_source->Sampled(port); }));
    for (std::uint32_t i = 0; i < kInterfaces; ++i)
        SendNumbered("f" + std::to_string(i), 1000ULL * i, 50 + i);
    for (std::uint32_t i = 0; i < kInterfaces; ++i)
        EXPECT_TRUE(Becomes([&] { return m_source->Read(ports[i]).pool == 50 + i; })) << i;
    Run(std::chrono::milliseconds(300));
    std::uint64_t seen = 0;
    for (const auto& [ifIndex, counts] : m_source->ReadAll()) {
        const auto i = static_cast<std::uint32_t>(std::ranges::find(ports, ifIndex) - ports.begin());
        ASSERT_LT(i, kInterfaces);
        EXPECT_EQ(counts.pool, 50 + i);
        EXPECT_EQ(counts.drops, 0U);
        for (const std::uint64_t number : m_record.Numbers(ifIndex)) EXPECT_EQ(number / 1000, i);
        if (i % 3 == 0) {
            EXPECT_EQ(m_record.Frames(ifIndex), 50 + i);
        }
        ++seen;
    }
    EXPECT_EQ(seen, kInterfaces);
}

}  // namespace source_suite
