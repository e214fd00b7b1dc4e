// SPDX-License-Identifier: Apache-2.0
// What the program in the kernel samples, over many packets: how many, and how far apart.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "capture/ebpf_world.h"

namespace {

class EbpfRandomTest : public EbpfWorld {
protected:
    void CrossMany(std::size_t count)
    {
        const auto frames = Frames(10'000, 60);
        for (std::size_t sent = 0; sent < count; sent += frames.size()) {
            Cross(frames);
            source->Drain();
        }
    }
};

TEST_F(EbpfRandomTest, SamplesWithTheRatesProbabilityAndIndependently)
{
    constexpr double kRate = 10;
    constexpr double kFrames = 600'000;
    Add(right, {.rate = static_cast<std::uint32_t>(kRate), .headerSize = 64});
    CrossMany(static_cast<std::size_t>(kFrames));
    EXPECT_EQ(source->Read(right).pool, static_cast<std::uint64_t>(kFrames));
    EXPECT_EQ(source->Read(right).drops, 0U);

    // Binomial: mean 60,000, standard deviation 232; beyond six of them with a probability of 2e-9.
    const double deviation = std::sqrt(kFrames * (1 / kRate) * (1 - 1 / kRate));
    EXPECT_NEAR(static_cast<double>(sink.samples.size()), kFrames / kRate, 6 * deviation);

    // Gaps in 40 cells and the rest; and pairs of consecutive gaps, short and long ones.
    constexpr std::size_t kCells = 41;
    std::vector<double> cells(kCells);
    double pairs[2][2] = {};
    std::uint64_t before = 0;
    int lengthBefore = -1;
    for (const auto& sample : sink.samples) {
        const std::uint64_t gap = sample.pool - before;
        ASSERT_GE(gap, 1U);
        before = sample.pool;
        cells[std::min<std::size_t>(gap - 1, kCells - 1)] += 1;
        const int length = gap > 7 ? 1 : 0;
        if (lengthBefore >= 0) pairs[lengthBefore][length] += 1;
        lengthBefore = length;
    }
    const auto count = static_cast<double>(sink.samples.size());
    double chi = 0;
    for (std::size_t i = 0; i < kCells; ++i) {
        const double above = std::pow(1 - 1 / kRate, static_cast<double>(i));
        const double expected = count * (i + 1 < kCells ? above / kRate : above);
        chi += (cells[i] - expected) * (cells[i] - expected) / expected;
    }
    EXPECT_LT(chi, 110) << "40 degrees of freedom: a false alarm has a probability of 2e-8";

    const double isLong = std::pow(1 - 1 / kRate, 7);
    const double all = count - 1;
    double chiOfPairs = 0;
    for (const int first : {0, 1}) {
        for (const int second : {0, 1}) {
            const double expected =
                all * (first != 0 ? isLong : 1 - isLong) * (second != 0 ? isLong : 1 - isLong);
            chiOfPairs += (pairs[first][second] - expected) * (pairs[first][second] - expected) / expected;
        }
    }
    EXPECT_LT(chiOfPairs, 40) << "at most 3 degrees of freedom: 1.1e-8";
}

TEST_F(EbpfRandomTest, IsNotBiasedByChangesThatSampleTheGapsAnew)
{
    constexpr double kRate = 50;
    constexpr int kChanges = 20'000;
    Add(right, {.rate = static_cast<std::uint32_t>(kRate), .headerSize = 64});
    Add(left, {.rate = 1, .headerSize = 64});
    support::Injector injector("left");
    const auto frames = Frames(10, 60);
    for (int i = 0; i < kChanges; ++i) {
        injector.Send(frames);
        // Any change of any interface makes all sample anew, here each ten frames.
        Change(left, {.rate = 1, .headerSize = static_cast<std::uint16_t>(100 + i % 2)});
        if (i % 1000 == 0) source->Drain();
    }
    EXPECT_TRUE(support::Becomes([&] { return source->Read(right).pool == 10U * kChanges; }));
    source->Drain();
    // 200,000 frames: mean 4,000, standard deviation 62.6; six of them: 2e-9.
    EXPECT_NEAR(static_cast<double>(sink.samples.size()), 4000, 6 * 62.6);
}

}  // namespace
