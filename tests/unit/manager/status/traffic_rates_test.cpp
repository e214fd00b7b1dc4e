// SPDX-License-Identifier: Apache-2.0
#include "manager/status/traffic_rates.h"

#include <gtest/gtest.h>

#include "support/manual_timers.h"

namespace manager {
namespace {

TEST(TrafficRates, AreThoseOfTheLastPeriod)
{
    support::ManualTimers timers;
    TrafficCounts counts;
    const TrafficRates rates(timers, [&] { return counts; });
    EXPECT_EQ(0U, rates.PerSecond().samples);
    counts = {5000, 12};
    timers.Advance(TrafficRates::kPeriod);
    EXPECT_EQ(1000U, rates.PerSecond().samples);
    EXPECT_EQ(2U, rates.PerSecond().datagrams) << "12 in 5 s, rounded";
    counts.samples += 5;
    timers.Advance(TrafficRates::kPeriod - std::chrono::milliseconds{1});
    EXPECT_EQ(1000U, rates.PerSecond().samples);
    timers.Advance(std::chrono::milliseconds{1});
    EXPECT_EQ(1U, rates.PerSecond().samples);
    EXPECT_EQ(0U, rates.PerSecond().datagrams);
}

TEST(TrafficRates, AreZeroWhereACollectorHasGoneWithItsCounts)
{
    support::ManualTimers timers;
    TrafficCounts counts{1000, 1000};
    const TrafficRates rates(timers, [&] { return counts; });
    timers.Advance(TrafficRates::kPeriod);
    counts = {10, 10};
    timers.Advance(TrafficRates::kPeriod);
    EXPECT_EQ(0U, rates.PerSecond().samples);
    counts = {20, 15};
    timers.Advance(TrafficRates::kPeriod);
    EXPECT_EQ(2U, rates.PerSecond().samples);
    EXPECT_EQ(1U, rates.PerSecond().datagrams);
}

}  // namespace
}  // namespace manager
