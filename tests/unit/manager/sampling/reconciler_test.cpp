// SPDX-License-Identifier: Apache-2.0
// What the reconciler does with the operations of the service and the events of the kernel.

#include "manager/sampling/reconciler.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/sampling/fixture.h"

namespace manager {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SamplingTest, AnInterfaceIsSampledOnceItExistsAndHasACollector)
{
    Update("eth1", "");
    EXPECT_THAT(Calls(), IsEmpty());
    links.Put(LinkOf(5, "eth1"));
    EXPECT_THAT(Calls(), IsEmpty()) << "nobody wants the samples";
    Apply(Attach{Kind::kFlow, "eth1", "c1"});
    EXPECT_THAT(Calls(), IsEmpty()) << "the collector does not exist";
    Collect("c1", c1);
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in"));
}

TEST_F(SamplingTest, AnInterfaceThatComesLaterIsPickedUpByNameAlternativeNameOrAlias)
{
    Collect("c1", c1);
    Update("one", "c1");
    Update("two", "c1");
    Update("three/1", "c1");
    links.Put(LinkOf(1, "one"));
    net::Link second = LinkOf(2, "p2");
    second.altNames = {"zwei", "two"};
    links.Put(second);
    links.Put(LinkOf(3, "p3", "three/1"));
    EXPECT_THAT(Calls(), ElementsAre("add 1 1/10 128 in", "add 2 1/10 128 in", "add 3 1/10 128 in"));
}

TEST_F(SamplingTest, ASampleIsSentOnceToEachOfItsFlowCollectorsAndToNoOther)
{
    Collector other;
    Collect("c1", c1);
    Collect("c2", c2);
    Collect("other", other);
    links.Put(LinkOf(5, "eth1"));
    Update("eth1", "c1");
    Apply(Attach{Kind::kFlow, "eth1", "c2"});
    Apply(Attach{Kind::kCounter, "eth1", "other"});
    forwarding.answer.kind = net::Destination::Kind::kInterface;
    forwarding.answer.ifIndex = 9;
    DrawAndDrain(5, 3);
    const auto first = c1.Flows();
    EXPECT_EQ(first, c2.Flows());
    EXPECT_THAT(Sequences(first), ElementsAre(1, 2, 3));
    ASSERT_EQ(first.size(), 3U);
    EXPECT_EQ(first[2].pool, 3U);
    EXPECT_EQ(first[2].rate, 10U);
    EXPECT_EQ(first[2].sourceIndex, 5U);
    EXPECT_EQ(first[2].input, (support::DecodedPort{0, 5}));
    EXPECT_EQ(first[2].output, (support::DecodedPort{0, 9}));
    ASSERT_TRUE(first[2].header);
    EXPECT_EQ(first[2].header->frameLength, 104U);
    EXPECT_THAT(other.Flows(), IsEmpty());
}

// sFlow v5, sampled_header: the agent decides how much of the header it sends; frame_length stays that of
// the packet.
TEST_F(SamplingTest, ACollectorWithSmallDatagramsGetsLessOfTheHeaderAndTheOthersAllOfIt)
{
    Collect("small", c1, 200);
    Collect("large", c2);
    links.Put(LinkOf(5, "eth1"));
    Update("eth1", "small");
    Apply(Attach{Kind::kFlow, "eth1", "large"});
    DrawAndDrain(5, 2);
    const auto cut = c1.Flows();
    const auto whole = c2.Flows();
    ASSERT_EQ(cut.size(), 2U);
    ASSERT_EQ(whole.size(), 2U);
    EXPECT_LE(c1.largest, 200U);
    EXPECT_EQ(whole[0].header->bytes, source.frame);
    EXPECT_LT(cut[0].header->bytes.size(), source.frame.size());
    EXPECT_GT(cut[0].header->bytes.size(), 40U);
    EXPECT_EQ(cut[0].header->frameLength, 104U);
}

TEST_F(SamplingTest, AChangedRateIsChangedLiveAndNothingElseIsTouched)
{
    Collect("c1", c1);
    links.Put(LinkOf(5, "eth1"));
    links.Put(LinkOf(6, "eth2"));
    Update("eth1", "c1");
    Update("eth2", "c1");
    Calls();
    Update("eth1", "c1", 20);
    EXPECT_THAT(Calls(), ElementsAre("change 5 1/20 128 in"));
    Update("eth1", "c1", 20);
    EXPECT_THAT(Calls(), IsEmpty());
}

// sFlow v5, flow_sample: sequence_number grows with each sample of the source_id; sample_pool counts all
// packets that could have been sampled.
TEST_F(SamplingTest, SequenceAndPoolGoOnWhenSamplingEndsAndBeginsAgain)
{
    SampleEth1();
    DrawAndDrain(5, 4);
    Apply(Detach{Kind::kFlow, "eth1", "c1"});
    Apply(Attach{Kind::kFlow, "eth1", "c1"});
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in", "remove 5", "add 5 1/10 128 in"));
    DrawAndDrain(5);
    const auto flows = c1.Flows();
    EXPECT_THAT(Sequences(flows), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(flows.back().pool, 5U);
    EXPECT_EQ(reconciler.Interfaces().at("eth1").packetsSeen, 5U);
    EXPECT_EQ(reconciler.Interfaces().at("eth1").samples, 5U);
}

TEST_F(SamplingTest, WhatWasSampledBeforeACollectorWentIsStillSentToIt)
{
    Collect("c1", c1);
    Collect("c2", c2);
    links.Put(LinkOf(5, "eth1"));
    Update("eth1", "c1");
    Apply(Attach{Kind::kFlow, "eth1", "c2"});
    source.Draw(5);
    Apply(Detach{Kind::kFlow, "eth1", "c2"});
    source.Draw(5);
    Apply(DeleteCollector{"c1"});
    EXPECT_THAT(Sequences(c1.Flows()), ElementsAre(1, 2));
    EXPECT_THAT(Sequences(c2.Flows()), ElementsAre(1));
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in", "remove 5"));
}

TEST_F(SamplingTest, WhatWasSampledBeforeASweepIsStillSentToWhatItRemoves)
{
    Collect("c1", c1);
    Collect("c2", c2);
    links.Put(LinkOf(5, "eth1"));
    links.Put(LinkOf(6, "eth2"));
    Update("eth1", "c1");
    Update("eth1", "c2");
    Update("eth2", "c2");
    source.Draw(5);
    source.Draw(6);
    Calls();
    table.BeginSession();
    Collect("c1", c1);
    Update("eth1", "c1");
    EXPECT_THAT(Calls(), IsEmpty());
    const Touched swept = table.Sweep();
    reconciler.Reconcile(swept);
    EXPECT_THAT(Sequences(c1.Flows()), ElementsAre(1));
    EXPECT_THAT(Sequences(c2.Flows()), ElementsAre(1, 1)) << "one of each interface";
    EXPECT_EQ(exporter.Find("c2"), nullptr);
    EXPECT_THAT(Calls(), ElementsAre("remove 6"));
    DrawAndDrain(5);
    EXPECT_THAT(Sequences(c1.Flows()), ElementsAre(2));
}

TEST_F(SamplingTest, ACollectorOfManyInterfacesGoesWithOneLookAtWhatWasSampled)
{
    Collect("c1", c1);
    Collect("c2", c2);
    for (std::uint32_t index = 1; index <= 50; ++index) {
        const std::string name = "eth" + std::to_string(index);
        links.Put(LinkOf(index, name));
        Update(name, "c1");
        Update(name, "c2");
    }
    source.drains = 0;
    Apply(DeleteCollector{"c2"});
    EXPECT_EQ(source.drains, 1);
}

TEST_F(SamplingTest, AnInterfaceWithBothItsCollectorsIsBroughtIntoEffectAtOnce)
{
    Collect("c1", c1);
    Collect("c2", c2);
    links.Put(LinkOf(5, "eth1"));
    Apply(UpdateInterface{"eth1", "c1", "c2", {.rate = 10, .maxHeaderSize = 128, .interval = 3}});
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in"));
    EXPECT_EQ(source.drains, 0);
    DrawAndDrain(5);
    timers.Advance(std::chrono::seconds(1));
    EXPECT_EQ(c1.Flows().size(), 1U);
    EXPECT_EQ(c2.Counters().size(), 1U);
}

TEST_F(SamplingTest, AnUnsetInterfaceIsNotSampledAndItsKernelInterfaceServesAnotherName)
{
    Collect("c1", c1);
    net::Link link = LinkOf(5, "eth1", "uplink");
    links.Put(link);
    Update("eth1", "c1");
    Update("uplink", "c1");
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in"));
    EXPECT_THAT(reconciler.Interfaces().at("uplink").samplingError,
                testing::HasSubstr("in use under another name"));
    Apply(UnsetInterface{"eth1"});
    EXPECT_THAT(Calls(), ElementsAre("remove 5", "add 5 1/10 128 in"));
    EXPECT_TRUE(reconciler.Interfaces().at("uplink").sampled);
    EXPECT_FALSE(reconciler.Interfaces().contains("eth1"));
}

TEST_F(SamplingTest, ANameThatAnotherInterfaceLetsGoOfIsThatOfTheNext)
{
    Collect("c1", c1);
    links.Put(LinkOf(5, "eth5", "uplink"));
    links.Put(LinkOf(6, "eth6", "uplink"));
    Update("eth5", "c1");
    Update("uplink", "c1");
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in")) << "the first of the two serves another name";
    links.Put(LinkOf(5, "eth5"));
    EXPECT_THAT(Calls(), ElementsAre("add 6 1/10 128 in"));
    links.Put(LinkOf(4, "eth4", "uplink"));
    EXPECT_THAT(Calls(), ElementsAre("remove 6", "add 4 1/10 128 in"));
    Update("eth4", "c1");
    Apply(UnsetInterface{"uplink"});
    Update("uplink", "c1");
    Calls();
    links.Remove(4);
    EXPECT_THAT(Calls(), ElementsAre("remove 4", "add 6 1/10 128 in"));
    Apply(UnsetInterface{"uplink"});
    links.Put(LinkOf(5, "eth5"));
    EXPECT_THAT(Calls(), ElementsAre("remove 6"));
}

TEST_F(SamplingTest, ARenamedInterfaceIsLetGoAndOneThatGetsTheNameIsTaken)
{
    SampleEth1();
    links.Put(LinkOf(5, "eth9"));
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in", "remove 5"));
    EXPECT_FALSE(reconciler.Interfaces().at("eth1").present);
    links.Put(LinkOf(7, "eth1"));
    EXPECT_THAT(Calls(), ElementsAre("add 7 1/10 128 in"));
}

TEST_F(SamplingTest, AnInterfaceThatVanishesAndComesAgainIsANewDataSource)
{
    SampleEth1();
    DrawAndDrain(5, 2);
    links.Remove(5);
    links.Put(LinkOf(8, "eth1"));
    DrawAndDrain(8);
    const auto flows = c1.Flows();
    EXPECT_THAT(Sequences(flows), ElementsAre(1, 2, 1));
    EXPECT_EQ(flows.back().sourceIndex, 8U);
}

// sFlow v5, flow_sample_expanded: for an ifIndex of 2^24 and more; an agent sends one of the two encodings.
TEST_F(SamplingTest, AnIndexOf24BitsAndMoreMakesAllSamplesExpandedAndAllSequencesNew)
{
    SampleEth1();
    DrawAndDrain(5, 2);
    links.Put(LinkOf(1U << 24, "wide"));
    DrawAndDrain(5);
    links.Remove(1U << 24);
    DrawAndDrain(5);
    const auto flows = c1.Flows();
    ASSERT_EQ(flows.size(), 4U);
    EXPECT_FALSE(flows[1].expanded);
    EXPECT_TRUE(flows[2].expanded);
    EXPECT_TRUE(flows[3].expanded) << "never mixed, so never back";
    EXPECT_THAT(Sequences(flows), ElementsAre(1, 2, 1, 2));
    EXPECT_THAT(c1.sequences, ElementsAre(1, 1, 2));
}

TEST_F(SamplingTest, ARateOfZeroSamplesNothing)
{
    Collect("c1", c1);
    links.Put(LinkOf(5, "eth1"));
    Update("eth1", "c1", 0);
    EXPECT_THAT(Calls(), IsEmpty());
}

// sFlow v5, sampled_header: frame_length is that of a packet on the network; flow_sample: sample_pool
// counts such packets.
TEST_F(SamplingTest, ASegmentedPacketIsAsManySamplesAsItsFramesThatWereDrawn)
{
    SampleEth1();
    source.Draw(5, 40);
    source.waiting.back().segments = 40;
    source.waiting.back().segmentSize = 1000;
    source.waiting.back().count = 3;
    source.waiting.back().length = 40 * 1000;
    source.Drain();
    const auto flows = c1.Flows();
    EXPECT_THAT(Sequences(flows), ElementsAre(1, 2, 3));
    EXPECT_EQ(flows[0].header->frameLength, 1004U);
    EXPECT_EQ(flows[0].pool, 40U);
    EXPECT_THAT(forwarding.lengths, ElementsAre(1000)) << "its way is that of one frame";
}

// sFlow v5, section 5, flow_sample: input and output, of which one is the data source; struct interface:
// 0x3FFFFFFF the agent itself.
TEST_F(SamplingTest, ALeavingPacketHasTheInterfaceAsItsOutputAndItsOriginAsItsInput)
{
    SampleEth1();
    using Kind = net::Destination::Kind;
    const auto leave = [&](std::uint32_t origin, const net::Origin& answer) {
        source.Draw(5);
        source.waiting.back().egress = true;
        source.waiting.back().origin = origin;
        forwarding.origin = answer;
        source.Drain();
        const auto flows = c1.Flows();
        EXPECT_EQ(flows.at(0).output, (support::DecodedPort{0, 5}));
        return flows.at(0);
    };
    const net::Destination::Route route{{4, {192, 0, 2, 1}}, 24, 16};
    const auto routed = leave(8, {Kind::kInterface, 8, route});
    EXPECT_EQ(routed.input, (support::DecodedPort{0, 8}));
    EXPECT_EQ(routed.extendedRouter, (support::DecodedRouter{"192.0.2.1", 24, 16}));
    const auto made = leave(0, {Kind::kLocal, 0, {}});
    EXPECT_EQ(made.input, (support::DecodedPort{0, 0x3FFFFFFF})) << "made on this machine";
    EXPECT_FALSE(made.extendedRouter) << "of the packet before";
    EXPECT_EQ(leave(capture::kOriginUnknown, {Kind::kInterface, 12, {}}).input,
              (support::DecodedPort{0, 12}));
    EXPECT_EQ(leave(capture::kOriginUnknown, {}).input, (support::DecodedPort{0, 0}));
    EXPECT_EQ(forwarding.traced, (std::vector<std::pair<std::uint32_t, std::optional<std::uint32_t>>>{
                                     {5, 8}, {5, 0}, {5, std::nullopt}, {5, std::nullopt}}));
    EXPECT_THAT(forwarding.asked, IsEmpty());
}

class SamplingDirectionTest : public SamplingTest {
protected:
    SamplingDirectionTest() : SamplingTest(Direction::kEgress) {}
};

TEST_F(SamplingDirectionTest, AnAddedDirectionIsSampledBesides)
{
    SampleEth1();
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in out"));
    reconciler.End();
    EXPECT_THAT(Calls(), ElementsAre("remove 5"));
}

}  // namespace
}  // namespace manager
