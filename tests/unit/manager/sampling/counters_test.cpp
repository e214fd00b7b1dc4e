// SPDX-License-Identifier: Apache-2.0
// What the reconciler has the poller do as collectors and interfaces come and go.

#include <chrono>
#include <cstdint>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/sampling/fixture.h"

namespace manager {
namespace {

using testing::ElementsAre;

/// Counter samples that came at each second from 1 on, as sequence numbers; 0 for none.
class SamplingCountersTest : public SamplingTest {
protected:
    SamplingCountersTest()
    {
        links.Put(LinkOf(5, "eth1"));
        Apply(UpdateInterface{"eth1", "", "c1", {.rate = 10, .maxHeaderSize = 128, .interval = 3}});
    }
    std::vector<std::uint32_t> Seconds(int seconds)
    {
        std::vector<std::uint32_t> sequences;
        for (; seconds > 0; --seconds) {
            timers.Advance(std::chrono::seconds(1));
            const auto counters = c1.Counters();
            sequences.push_back(counters.empty() ? 0 : counters.front().sequence);
        }
        return sequences;
    }
    std::uint64_t Sent() { return reconciler.Interfaces().at("eth1").countersSent; }
};

TEST_F(SamplingCountersTest, KeepTheirRhythmAndCountsWhileTheirCollectorIsDetachedOrGone)
{
    Collect("c1", c1);
    EXPECT_THAT(Seconds(5), ElementsAre(1, 0, 0, 2, 0));
    Apply(Detach{Kind::kCounter, "eth1", "c1"});
    EXPECT_THAT(Seconds(3), ElementsAre(0, 0, 0));
    EXPECT_EQ(timers.Waiting(), 0U);
    EXPECT_EQ(Sent(), 2U);
    Apply(Attach{Kind::kCounter, "eth1", "c1"});
    EXPECT_THAT(Seconds(3), ElementsAre(0, 3, 0)) << "seconds 9, 10 and 11 of the rhythm 1, 4, 7, 10";
    Apply(DeleteCollector{"c1"});
    EXPECT_THAT(Seconds(4), ElementsAre(0, 0, 0, 0));
    Collect("c1", c1);
    EXPECT_THAT(Seconds(2), ElementsAre(4, 0));
    EXPECT_EQ(Sent(), 4U);
}

TEST_F(SamplingCountersTest, OfAnInterfaceThatComesAgainAreThoseOfANewDataSource)
{
    Collect("c1", c1);
    EXPECT_THAT(Seconds(4), ElementsAre(1, 0, 0, 2));
    links.Remove(5);
    EXPECT_EQ(timers.Waiting(), 0U);
    links.Put(LinkOf(8, "eth1"));
    EXPECT_EQ(Sent(), 0U);
    EXPECT_THAT(Seconds(4), ElementsAre(1, 0, 0, 2));
    EXPECT_EQ(Sent(), 2U);
    EXPECT_THAT(reader->forgotten, ElementsAre(5));
}

}  // namespace
}  // namespace manager
