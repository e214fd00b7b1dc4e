// SPDX-License-Identifier: Apache-2.0
// For how long no packet has been counted at an interface, and what it costs to know.

#include <chrono>

#include <gtest/gtest.h>

#include "manager/sampling/fixture.h"

namespace manager {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class TrafficTest : public SamplingTest {
protected:
    /// As the state shows it now.
    seconds Quiet() { return reconciler.Interfaces().at("eth1").quiet; }
};

TEST_F(TrafficTest, IsQuietFromWhereItWasLastSeenToGrow)
{
    SampleEth1();
    EXPECT_EQ(Quiet(), seconds(0));
    timers.Advance(seconds(3));
    EXPECT_EQ(Quiet(), seconds(3)) << "since sampling began";
    DrawAndDrain(5);
    EXPECT_EQ(Quiet(), seconds(0));
    timers.Advance(milliseconds(12'900));
    EXPECT_EQ(Quiet(), seconds(12));
    DrawAndDrain(5);
    EXPECT_EQ(Quiet(), seconds(0));
}

TEST_F(TrafficTest, AnEndThatNobodySawIsKnownTwentySecondsLaterAtMost)
{
    SampleEth1();
    timers.Advance(milliseconds(1));
    DrawAndDrain(5);
    timers.Advance(milliseconds(19'999));
    EXPECT_EQ(Quiet(), seconds(10));
    EXPECT_EQ(source.reads, 3) << "each 10 s, and for the state";
}

TEST_F(TrafficTest, TrafficThatGoesOnIsNeverQuietForTenSeconds)
{
    SampleEth1();
    for (int n = 0; n < 30; ++n) {
        DrawAndDrain(5);
        timers.Advance(milliseconds(3'300));
        if (n % 7 == 0) {
            EXPECT_LT(Quiet(), seconds(10)) << n;
        }
    }
}

TEST_F(TrafficTest, BeginsAnewWithTheSamplingAndWithItsChanges)
{
    SampleEth1();
    DrawAndDrain(5);
    timers.Advance(seconds(60));
    Apply(Detach{Kind::kFlow, "eth1", "c1"});
    EXPECT_EQ(Quiet(), seconds(0)) << "nothing is counted";
    timers.Advance(seconds(60));
    Apply(Attach{Kind::kFlow, "eth1", "c1"});
    EXPECT_EQ(Quiet(), seconds(0));
    timers.Advance(seconds(9));
    EXPECT_EQ(Quiet(), seconds(9));
    Update("eth1", "c1", 20);
    EXPECT_EQ(Quiet(), seconds(0));
    timers.Advance(seconds(9));
    DrawAndDrain(5);
    timers.Advance(seconds(9));
    EXPECT_LT(Quiet(), seconds(10));
    links.Remove(5);
    timers.Advance(seconds(60));
    links.Put(LinkOf(5, "eth1"));
    EXPECT_EQ(Quiet(), seconds(0));
}

TEST_F(TrafficTest, LooksAtAllAtOnceAndOnlyWhileSomethingIsSampled)
{
    links.Put(LinkOf(6, "eth2"));
    timers.Advance(seconds(60));
    EXPECT_EQ(source.reads, 0);
    SampleEth1();
    Update("eth2", "c1");
    timers.Advance(seconds(60));
    EXPECT_EQ(source.reads, 6);
    Apply(DeleteCollector{"c1"});
    timers.Advance(seconds(60));
    EXPECT_EQ(source.reads, 7) << "once more, and nothing is there";
    Collect("c1", c1);
    timers.Advance(seconds(60));
    EXPECT_EQ(source.reads, 13);
    reconciler.End();
    timers.Advance(seconds(60));
    EXPECT_EQ(source.reads, 13);
}

}  // namespace
}  // namespace manager
