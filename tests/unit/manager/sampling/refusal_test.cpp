// SPDX-License-Identifier: Apache-2.0
// A source of packets that refuses, in whole or in part, and what becomes of it.

#include <chrono>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/sampling/fixture.h"

namespace manager {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SamplingTest, ASourceThatRefusesAnInterfaceIsNamedAndTriedAgain)
{
    Collect("c1", c1);
    source.refusal = "the interface has no hook";
    links.Put(LinkOf(5, "eth1"));
    Update("eth1", "c1");
    EXPECT_EQ(reconciler.Interfaces().at("eth1").samplingError, "the interface has no hook");
    EXPECT_FALSE(reconciler.Interfaces().at("eth1").sampled);
    source.refusal.clear();
    net::Link link = LinkOf(5, "eth1");
    link.speed = 1000;
    links.Put(link);
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in"));
    EXPECT_EQ(reconciler.Interfaces().at("eth1").samplingError, "");
}

TEST_F(SamplingTest, ARefusalIsTriedAgainAfterAWhileAndNoLongerThanItIsWanted)
{
    Collect("c1", c1);
    source.refusal = "too many open files";
    for (const char* name : {"eth1", "eth2", "eth3"}) {
        links.Put(LinkOf(static_cast<std::uint32_t>(name[3] - '0'), name));
        Update(name, "c1");
    }
    EXPECT_EQ(timers.Waiting(), 1U);
    timers.Advance(Reconciler::kRetry);
    EXPECT_EQ(reconciler.Interfaces().at("eth3").samplingError, "too many open files");
    links.Remove(1);
    Apply(UnsetInterface{"eth2"});
    source.refusal.clear();
    timers.Advance(Reconciler::kRetry);
    EXPECT_THAT(Calls(), ElementsAre("add 3 1/10 128 in"));
    EXPECT_EQ(reconciler.Interfaces().at("eth3").samplingError, "");
    EXPECT_EQ(timers.Waiting(), 1U) << "for the next look at the traffic of the one that is sampled";

    source.refusal = "too many open files";
    links.Put(LinkOf(4, "eth1"));
    Apply(Detach{Kind::kFlow, "eth1", "c1"});
    source.refusal.clear();
    timers.Advance(Reconciler::kRetry);
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_EQ(timers.Waiting(), 1U) << "for the next look at the traffic of the one that is sampled";
}

TEST_F(SamplingTest, ARefusalThatComesLaterIsShownAndTriedAgain)
{
    source.later = {5};
    SampleEth1();
    EXPECT_FALSE(reconciler.Interfaces().at("eth1").sampled) << "not attached yet";
    EXPECT_TRUE(reconciler.Interfaces().at("eth1").pending);
    EXPECT_EQ(reconciler.Interfaces().at("eth1").samplingError, "");
    reconciler.Sink().OnRefused(5, {capture::Unavailable::Cause::kOther, "too many open files"});
    reconciler.Sink().OnRefused(6, {capture::Unavailable::Cause::kOther, "what nothing is bound to"});
    EXPECT_EQ(reconciler.Interfaces().at("eth1").samplingError, "too many open files");
    EXPECT_FALSE(reconciler.Interfaces().at("eth1").sampled);
    source.later.clear();
    timers.Advance(Reconciler::kRetry);
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in", "change 5 1/10 128 in"));
    EXPECT_TRUE(reconciler.Interfaces().at("eth1").sampled);
    EXPECT_EQ(reconciler.Interfaces().at("eth1").samplingError, "");
}

TEST_F(SamplingTest, AChangeOfWhichOnlyPartWasMadeIsMadeAgainOrTakenBack)
{
    SampleEth1();
    source.refusal = "no egress here";
    Update("eth1", "c1", 20);
    EXPECT_EQ(reconciler.Interfaces().at("eth1").samplingError, "no egress here");
    EXPECT_TRUE(reconciler.Interfaces().at("eth1").sampled);
    source.refusal.clear();
    Update("eth1", "c1");
    EXPECT_EQ(reconciler.Interfaces().at("eth1").samplingError, "");
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in", "change 5 1/20 128 in", "change 5 1/10 128 in"));
    source.refusal = "no egress here";
    Update("eth1", "c1", 30);
    source.refusal.clear();
    timers.Advance(Reconciler::kRetry);
    EXPECT_THAT(Calls(), ElementsAre("change 5 1/30 128 in", "change 5 1/30 128 in"));
}

}  // namespace
}  // namespace manager
