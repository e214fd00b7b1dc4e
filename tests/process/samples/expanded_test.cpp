// SPDX-License-Identifier: Apache-2.0
// Interfaces with an index of more than 24 bits, which the compact samples have no room for.

#include <algorithm>
#include <span>

#include "samples/samples_test.h"

namespace samples_tests {

namespace {

constexpr std::uint32_t kWide = (1U << 24U) + 1;

class ExpandedTest : public SourceTest {
protected:
    void SetUp() override
    {
        SourceTest::SetUp();
        if (!IsSkipped()) MakeBridge(2);
    }

    static void AddWide()
    {
        Network::Ip("link add wide index " + std::to_string(kWide) +
                    " type veth peer name far\nlink set wide up\nlink set far up");
    }

    static bool AreExpanded(std::span<const support::Arrival> arrivals, bool expanded)
    {
        return std::ranges::all_of(
                   support::FlowsIn(arrivals),
                   [expanded](const DecodedFlow& flow) { return flow.expanded == expanded; }) &&
               std::ranges::all_of(
                   support::CountersIn(arrivals),
                   [expanded](const DecodedCounters& counters) { return counters.expanded == expanded; });
    }
};

INSTANTIATE_TEST_SUITE_P(, ExpandedTest, BothSources(), NameOfSource);

// sFlow v5, flow_sample_expanded and counters_sample_expanded: for an ifIndex of 2^24 and more, and never
// in one agent with the others.
TEST_P(ExpandedTest, AnAgentThatFindsOneSendsAllSamplesExpandedFromItsFirst)
{
    AddWide();
    Collector collector;
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    agent.Update("p1", {.flows = "c1", .counters = "c1", .interval = 1});
    agent.Update("wide", {.flows = "c1", .counters = "c1", .interval = 1});
    Injector("h1").Send(support::UdpFrame({}));
    Injector("far").Send(support::UdpFrame({}));
    collector.AwaitFlows(2);
    collector.AwaitCounters(2);
    EXPECT_TRUE(AreExpanded(collector.Arrivals(), true));
    const auto flows = collector.Flows(kWide);
    ASSERT_EQ(flows.size(), 1U);
    EXPECT_EQ(flows[0].input, (DecodedPort{0, kWide}));
    EXPECT_EQ(collector.Flows(Network::Index("p1")).size(), 1U);
    const auto counters = collector.Counters(kWide);
    ASSERT_FALSE(counters.empty());
    EXPECT_EQ(counters[0].generic->ifIndex, kWide);
    EXPECT_EQ(counters[0].portName, "wide");
}

TEST_P(ExpandedTest, OneThatComesLaterMakesAllSamplesExpandedAndAllSequencesNewForEver)
{
    Collector collector, other;
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    agent.AddCollector("c2", other.Port());
    agent.Update("p1", {.flows = "c1"});
    agent.Update("p2", {.flows = "c2"});
    agent.Update("wide", {.flows = "c1"});
    Injector h1("h1"), h2("h2");
    h1.Send(std::vector<Bytes>(3, support::UdpFrame({})));
    h2.Send(std::vector<Bytes>(2, support::UdpFrame({.from = 2, .to = 1})));
    collector.AwaitFlows(3);
    other.AwaitFlows(2);
    EXPECT_TRUE(AreExpanded(collector.Arrivals(), false));
    EXPECT_TRUE(AreExpanded(other.Arrivals(), false));
    const std::size_t compact = collector.Arrivals().size();
    const std::size_t otherCompact = other.Arrivals().size();

    AddWide();
    agent.AwaitMetric("sflow_interface_sampled{interface=\"wide\"}", 1);
    collector.AllowRestart();
    other.AllowRestart();
    Injector("far").Send(support::UdpFrame({}));
    collector.AwaitFlows(4);
    Network::Ip("link del wide");
    agent.AwaitMetric("sflow_interface_present{interface=\"wide\"}", 0);
    h1.Send(support::UdpFrame({}));
    h2.Send(support::UdpFrame({.from = 2, .to = 1}));
    collector.AwaitFlows(5);
    other.AwaitFlows(3);

    const auto after = std::span(collector.Arrivals()).subspan(compact);
    EXPECT_TRUE(AreExpanded(after, true)) << "also when the wide one has gone";
    EXPECT_EQ(after.front().datagram.sequence, 1U);
    const auto flows = support::FlowsIn(after);
    ASSERT_EQ(flows.size(), 2U);
    EXPECT_EQ(flows[0].sourceIndex, kWide);
    EXPECT_EQ(flows[1].sourceIndex, Network::Index("p1"));
    EXPECT_EQ(flows[1].sequence, 1U);
    EXPECT_EQ(flows[1].pool, 4U) << "the pool goes on";
    const auto& others = other.Arrivals().at(otherCompact).datagram;
    EXPECT_EQ(others.sequence, 1U);
    EXPECT_EQ(others.Flows().at(0).sequence, 1U);
    EXPECT_TRUE(others.Flows().at(0).expanded);
}

}  // namespace

}  // namespace samples_tests
