// SPDX-License-Identifier: Apache-2.0
// The gaps between drawn frames: the very function that runs in the kernel, integrated and drawn from.

#include <cmath>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture/ebpf/gap.h"

namespace {

using capture::LogTable;

const LogTable& Table()
{
    static const LogTable kTable = capture::MakeLogTable();
    return kTable;
}

std::uint32_t Gap(std::uint64_t bits, const GapScale& scale) { return GapOf(bits, scale, Table().data()); }

// How many of the 2^64 random values give a gap above k: the gap falls as the value rises.
long double Above(std::uint32_t k, const GapScale& scale)
{
    if (Gap(~0ULL, scale) > k) return 1;
    std::uint64_t above = 0;  // gap above k (or no value at all), and one that is not
    std::uint64_t notAbove = ~0ULL;
    while (notAbove - above > 1) {
        const std::uint64_t middle = above + (notAbove - above) / 2;
        (Gap(middle, scale) > k ? above : notAbove) = middle;
    }
    return std::ldexp(static_cast<long double>(notAbove), -64);
}

// The mean of the gap over all random values: the sum of P(gap > k), exact.
long double SummedMean(const GapScale& scale)
{
    long double mean = 0;
    for (std::uint32_t k = 0;; ++k) {
        const long double above = Above(k, scale);
        mean += above;
        if (above < 1e-17L) return mean;
    }
}

// Likewise for rates whose gaps are too many to sum: midpoints of each octave of random values.
long double IntegratedMean(const GapScale& scale)
{
    constexpr int kPoints = 1 << 18;
    long double mean = 0;
    for (int octave = 63; octave > 24; --octave) {
        long double sum = 0;
        for (int i = 0; i < kPoints; ++i) {
            const long double value = std::ldexp(1 + (i + 0.5L) / kPoints, octave);
            sum += Gap(static_cast<std::uint64_t>(value), scale);
        }
        mean += std::ldexp(sum / kPoints, octave - 64);
    }
    return mean;  // what lies below is less than 2^-39 of all, at gaps of less than 45 rates
}

struct RateRow {
    std::string name;
    std::uint32_t rate;
};
void PrintTo(const RateRow& row, std::ostream* out) { *out << row.name; }

class GapOfRate : public testing::TestWithParam<RateRow> {};

TEST_P(GapOfRate, HasExactlyTheMeanOfTheRate)
{
    const auto rate = GetParam().rate;
    const GapScale scale = capture::MakeGapScale(rate);
    const long double mean = rate <= 4096 ? SummedMean(scale) : IntegratedMean(scale);
    EXPECT_NEAR(static_cast<double>(mean / rate), 1, 1e-6);
}

TEST_P(GapOfRate, IsGeometric)
{
    const auto rate = GetParam().rate;
    const GapScale scale = capture::MakeGapScale(rate);
    for (const double quantile : {0.001, 0.01, 0.1, 0.3, 0.5, 0.7, 0.9, 0.99, 0.999}) {
        const auto k = static_cast<std::uint32_t>(quantile * rate * 4);
        const long double expected = rate == 1 ? (k == 0 ? 1 : 0) : std::pow(1 - 1.0L / rate, k);
        EXPECT_NEAR(static_cast<double>(Above(k, scale)), static_cast<double>(expected), 1e-6) << "k " << k;
    }
}

TEST_P(GapOfRate, PassesAChiSquaredTestOfDrawnValues)
{
    const auto rate = GetParam().rate;
    const GapScale scale = capture::MakeGapScale(rate);
    constexpr int kDraws = 400'000;
    constexpr int kCells = 32;
    // Cells of about equal probability, of whole gaps; cell i holds the gaps in (edges[i], edges[i + 1]].
    std::vector<std::uint32_t> edges{0};
    for (int i = 1; i < kCells; ++i) {
        const auto edge = static_cast<std::uint32_t>(std::log1p(-static_cast<double>(i) / kCells) /
                                                     std::log1p(-1.0 / rate));
        if (edge > edges.back()) edges.push_back(edge);
    }
    std::vector<int> counts(edges.size());
    std::mt19937_64 random(4711);
    for (int i = 0; i < kDraws; ++i) {
        const auto gap = Gap(random(), scale);
        std::size_t cell = edges.size() - 1;
        while (edges[cell] >= gap) --cell;
        ++counts[cell];
    }
    double chi = 0;
    for (std::size_t cell = 0; cell < edges.size(); ++cell) {
        const double from = std::pow(1 - 1.0 / rate, edges[cell]);
        const double to = cell + 1 < edges.size() ? std::pow(1 - 1.0 / rate, edges[cell + 1]) : 0;
        const double expected = kDraws * (from - to);
        chi += (counts[cell] - expected) * (counts[cell] - expected) / expected;
    }
    // At most 31 degrees of freedom: above 95 with a probability below 3e-8.
    EXPECT_LT(chi, 95);
}

INSTANTIATE_TEST_SUITE_P(Rates, GapOfRate,
                         testing::Values(RateRow{"one", 1}, RateRow{"two", 2}, RateRow{"three", 3},
                                         RateRow{"ten", 10}, RateRow{"hundred", 100},
                                         RateRow{"default", 4096}, RateRow{"most", 16777215}),
                         [](const auto& row) { return row.param.name; });

TEST(Gap, IsAlwaysOneAtRateOne)
{
    const GapScale scale = capture::MakeGapScale(1);
    for (const std::uint64_t bits : {0ULL, 1ULL, 2ULL, 1ULL << 32, 1ULL << 63, ~0ULL})
        EXPECT_EQ(Gap(bits, scale), 1U) << bits;
}

TEST(Gap, IsNeverZeroAndNeverOverflowsAtTheLargestRate)
{
    const GapScale scale = capture::MakeGapScale(16777215);
    EXPECT_EQ(Gap(~0ULL, scale), 1U);
    EXPECT_NEAR(Gap(1, scale), 64 * std::log(2.0) * 16777215, 16777215 * 1e-5);
    EXPECT_EQ(Gap(0, scale), Gap(1, scale));
}

TEST(Gap, CountsTheRateZeroAsOne) { EXPECT_EQ(Gap(1, capture::MakeGapScale(0)), 1U); }

}  // namespace
