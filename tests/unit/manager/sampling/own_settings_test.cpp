// SPDX-License-Identifier: Apache-2.0
// The own settings brought into effect: the added direction, the sub-agent, how datagrams go to collectors.

#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/sampling/fixture.h"

namespace manager {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class OwnSettingsTest : public SamplingTest {
protected:
    void Add(std::optional<Direction> direction)
    {
        own.Update({.general = OwnGeneral{.direction = direction}});
    }
    void Send(const std::string& collector, const SendSettings& send)
    {
        own.Update({.collectors = {{collector, OwnCollector{.send = send}}}});
    }
    const StreamStatus& StatusOf(const std::string& collector) { return exporter.Find(collector)->Status(); }
};

TEST_F(OwnSettingsTest, AnAddedDirectionIsSampledFromThenOnUntilItGoes)
{
    SampleEth1();
    Calls();
    Add(Direction::kEgress);
    EXPECT_THAT(Calls(), ElementsAre("change 5 1/10 128 in out"));
    Add(Direction::kEgress);
    Add(Direction::kBoth);
    EXPECT_THAT(Calls(), IsEmpty()) << "both are sampled already";
    Add(std::nullopt);
    EXPECT_THAT(Calls(), ElementsAre("change 5 1/10 128 in"));
    Add(Direction::kIngress);
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(OwnSettingsTest, AnAddedDirectionIsThatOfInterfacesThatComeLater)
{
    Add(Direction::kEgress);
    SampleEth1();
    EXPECT_THAT(Calls(), ElementsAre("add 5 1/10 128 in out"));
}

TEST_F(OwnSettingsTest, ManyInterfacesGetADirectionInTurnsOfTheLoop)
{
    constexpr std::uint32_t kInterfaces = 2 * Reconciler::kTurned + 1;
    Collect("c1", c1);
    for (std::uint32_t i = 1; i <= kInterfaces; ++i) {
        const std::string name = "eth" + std::to_string(i);
        links.Put(LinkOf(i, name));
        Update(name, "c1");
    }
    Calls();
    Add(Direction::kEgress);
    EXPECT_EQ(Reconciler::kTurned, Calls().size());
    timers.Advance(milliseconds(0));
    EXPECT_EQ(kInterfaces - Reconciler::kTurned, Calls().size()) << "these timers run all that is due";
    // Another change amid the turns: everything gets the newer one, and the rest only once.
    Add(std::nullopt);
    EXPECT_EQ(Reconciler::kTurned, Calls().size());
    Add(Direction::kEgress);
    EXPECT_EQ(Reconciler::kTurned, Calls().size());
    timers.Advance(milliseconds(0));
    EXPECT_THAT(Calls(), IsEmpty());
    for (const auto& [name, interface] : reconciler.Interfaces()) EXPECT_TRUE(interface.sampled) << name;
    // An end amid the turns.
    Add(std::nullopt);
    Calls();
    reconciler.End();
    Calls();
    timers.Advance(milliseconds(0));
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(OwnSettingsTest, AnotherSubAgentBeginsAllSequencesAnewAfterWhatWasSampledBefore)
{
    Collect("c1", c1);
    Collect("c2", c2);
    links.Put(LinkOf(5, "eth1"));
    Apply(UpdateInterface{"eth1", "c1", "c2", {.rate = 10, .maxHeaderSize = 128, .interval = 3}});
    DrawAndDrain(5, 2);
    timers.Advance(std::chrono::seconds(1));
    source.Draw(5);
    own.Update({.general = OwnGeneral{.subAgent = 9}});
    DrawAndDrain(5);
    timers.Advance(std::chrono::seconds(3));
    const auto flows = c1.Flows();
    EXPECT_THAT(Sequences(flows), ElementsAre(1, 2, 3, 1));
    EXPECT_THAT(c1.sequences, ElementsAre(1, 2, 1));
    EXPECT_THAT(c1.subAgents, ElementsAre(0, 0, 9));
    const auto counters = c2.Counters();
    ASSERT_EQ(2U, counters.size());
    EXPECT_EQ(1U, counters[0].sequence);
    EXPECT_EQ(1U, counters[1].sequence);
    EXPECT_THAT(c2.subAgents, ElementsAre(0, 9));
    // An encoding that begins later keeps it.
    links.Put(LinkOf(1U << 24, "wide"));
    DrawAndDrain(5);
    EXPECT_THAT(Sequences(c1.Flows()), ElementsAre(1));
    EXPECT_EQ(9U, c1.subAgents.back());
}

TEST_F(OwnSettingsTest, OtherSettingsLeaveTheSequencesAlone)
{
    SampleEth1();
    DrawAndDrain(5);
    Add(Direction::kEgress);
    Send("c1", {.dscp = 46});
    own.Update({.general = OwnGeneral{.direction = Direction::kEgress, .discardLimit = 7}});
    DrawAndDrain(5);
    EXPECT_THAT(Sequences(c1.Flows()), ElementsAre(1, 2));
    EXPECT_THAT(c1.sequences, ElementsAre(1, 2));
}

TEST_F(OwnSettingsTest, SettingsOfACollectorActOnceThereIsOneAndOnNoOther)
{
    Send("c1", {.device = "nothing"});
    EXPECT_EQ(nullptr, exporter.Find("c1"));
    Collect("c1", c1);
    Collect("c2", c2);
    EXPECT_EQ(Tried::kDevice, StatusOf("c1").lastTried);
    EXPECT_EQ(0U, StatusOf("c2").errors);
    links.Put(LinkOf(5, "eth1"));
    Update("eth1", "c1");
    Update("eth1", "c2");
    DrawAndDrain(5);
    EXPECT_THAT(c1.Flows(), IsEmpty());
    own.Update({.collectors = {{"c1", std::nullopt}}});
    DrawAndDrain(5);
    EXPECT_THAT(c1.Flows(), testing::SizeIs(1));
    EXPECT_THAT(Sequences(c2.Flows()), ElementsAre(1, 2));
    EXPECT_THAT(c1.sequences, ElementsAre(2)) << "the lost datagram is a gap";
    EXPECT_THAT(c2.sequences, ElementsAre(1, 2));
    // A collector that goes and comes has its settings again.
    Send("c1", {.device = "nothing"});
    Apply(DeleteCollector{"c1"});
    Collect("c1", c1);
    EXPECT_EQ(Tried::kDevice, StatusOf("c1").lastTried);
}

TEST_F(OwnSettingsTest, WithoutASourceOfPacketsTheyAreHeldAllTheSame)
{
    reconciler.SetSource(nullptr, {.kind = "none", .reason = "", .permission = false});
    Collect("c1", c1);
    own.Update({.general = OwnGeneral{.subAgent = 3, .direction = Direction::kBoth},
                .collectors = {{"c1", OwnCollector{.send = {.dscp = 1}}}}});
    links.Put(LinkOf(5, "eth1"));
    Apply(UpdateInterface{"eth1", "", "c1", {.rate = 10, .maxHeaderSize = 128, .interval = 3}});
    timers.Advance(std::chrono::seconds(3));
    EXPECT_FALSE(c1.Counters().empty());
    EXPECT_EQ(3U, c1.subAgents.at(0));
}

}  // namespace
}  // namespace manager
