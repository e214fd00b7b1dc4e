// SPDX-License-Identifier: Apache-2.0
// Dropped packets on their way to the collectors that want to hear of them: when they are looked at and
// where, what a notification says (sflow.org, "sFlow Dropped Packet Notification Structures"), and what is
// shown.

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/sampling/fixture.h"

namespace manager {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class DiscardsTest : public SamplingTest {
protected:
    void Want(const std::string& collector, bool wants = true)
    {
        own.Update({.collectors = {{collector, OwnCollector{.discards = wants}}}});
        timers.Advance(milliseconds(0));
    }
    void Change(const OwnGeneral& general)
    {
        own.Update({.general = general});
        timers.Advance(milliseconds(0));
    }
    /// eth1, of index 5, is sampled for c1, which wants to hear of drops.
    void TellC1()
    {
        SampleEth1();
        Want("c1");
        DropCalls();
    }
    void DropAt(std::uint32_t ifIndex, int packets = 1)
    {
        for (int i = 0; i < packets; ++i) drops.Drop(ifIndex);
    }
    /// Hands over what was dropped, as the source does by itself in time.
    void Drain() { discards.Restart(); }
    Strings DropCalls() { return std::exchange(drops.calls, {}); }
    static std::vector<support::DecodedDiscard> DiscardsIn(const std::vector<support::Datagram>& datagrams)
    {
        std::vector<support::DecodedDiscard> all;
        for (const auto& datagram : datagrams)
            for (const auto& discard : datagram.Discards()) all.push_back(discard);
        return all;
    }
};

TEST_F(DiscardsTest, NothingIsLookedAtUntilACollectorWantsIt)
{
    SampleEth1();
    timers.Advance(milliseconds(0));
    EXPECT_THAT(DropCalls(), IsEmpty());
    EXPECT_FALSE(discards.Source().running);
    EXPECT_EQ("no collector wants notifications of them", discards.Source().reason);
    Want("c1");
    EXPECT_THAT(DropCalls(), ElementsAre("begin", "add 5", "change 100 128"));
    EXPECT_TRUE(discards.Source().running);
    EXPECT_EQ("", discards.Source().reason);
    Want("c1", false);
    EXPECT_THAT(DropCalls(), ElementsAre("end"));
    EXPECT_FALSE(discards.Source().running);
}

TEST_F(DiscardsTest, SettingsOfACollectorThatIsNotConfiguredHaveNoEffect)
{
    Want("c9");
    EXPECT_THAT(DropCalls(), IsEmpty());
    Collect("c9", c1);
    timers.Advance(milliseconds(0));
    EXPECT_THAT(DropCalls(), ElementsAre("begin", "change 100 128"));
    Apply(DeleteCollector{"c9"});
    timers.Advance(milliseconds(0));
    EXPECT_THAT(DropCalls(), ElementsAre("end"));
}

TEST_F(DiscardsTest, OneThatGoesForAnotherInOneCommitLeavesTheSourceAlone)
{
    TellC1();
    Collect("c2", c2);
    own.Update({.collectors = {{"c1", std::nullopt}, {"c2", OwnCollector{.discards = true}}}});
    timers.Advance(milliseconds(0));
    EXPECT_THAT(DropCalls(), ElementsAre("change 100 128"));
}

// The structure discarded_packet, its records sampled_header, function and linux_drop_reason.
TEST_F(DiscardsTest, ANotificationSaysWhatWasDroppedWhereAndWhy)
{
    TellC1();
    drops.Drop(5, false);
    DropAt(5);
    Drain();
    const auto told = DiscardsIn(c1.Datagrams());
    ASSERT_THAT(told, SizeIs(1));
    const support::DecodedDiscard& discard = told[0];
    EXPECT_EQ(1U, discard.sequence);
    EXPECT_EQ(0U, discard.sourceClass);
    EXPECT_EQ(5U, discard.sourceIndex);
    EXPECT_EQ(1U, discard.drops) << "the one that was not told";
    EXPECT_EQ(5U, discard.input);
    EXPECT_EQ(0U, discard.output);
    EXPECT_EQ(3U, discard.reason) << "port unreachable";
    ASSERT_TRUE(discard.header);
    EXPECT_EQ(104U, discard.header->frameLength) << "with the FCS";
    EXPECT_EQ(4U, discard.header->stripped);
    EXPECT_EQ("udp_rcv", discard.function);
    EXPECT_EQ("NO_SOCKET", discard.linuxReason);
    EXPECT_EQ(1U, exporter.Find("c1")->Status().discards);
    EXPECT_EQ(0U, exporter.Find("c1")->Status().flowSamples);
}

TEST_F(DiscardsTest, OnlyThoseWhoWantThemHearOfThem)
{
    TellC1();
    Collect("c2", c2);
    Update("eth1", "c2");
    timers.Advance(milliseconds(0));
    DropAt(5, 3);
    Drain();
    EXPECT_THAT(DiscardsIn(c1.Datagrams()), SizeIs(3));
    EXPECT_THAT(c2.Datagrams(), IsEmpty());
    // One that is attached to no interface hears of all.
    Collect("c3", c2);
    Want("c3");
    DropAt(5);
    Drain();
    EXPECT_THAT(DiscardsIn(c1.Datagrams()), SizeIs(1));
    EXPECT_THAT(DiscardsIn(c2.Datagrams()), SizeIs(1));
}

// Some collectors drop a whole datagram with a sample that they don't know.
TEST_F(DiscardsTest, ADatagramHasDiscardsOrOtherSamplesNeverBoth)
{
    TellC1();
    for (int round = 0; round < 3; ++round) {
        source.Draw(5);
        DropAt(5, 2);
        // Both without a flush in between.
        reconciler.Sink().OnSamples(std::exchange(source.waiting, {}));
        discards.OnDrops(std::exchange(drops.waiting, {}));
    }
    exporter.Flush();
    const auto datagrams = c1.Datagrams();
    EXPECT_THAT(datagrams, SizeIs(6));
    std::size_t flows = 0, told = 0;
    for (std::size_t i = 0; i < datagrams.size(); ++i) {
        EXPECT_EQ(i + 1, datagrams[i].sequence) << "one sequence for both kinds";
        EXPECT_TRUE(datagrams[i].Discards().empty() || datagrams[i].Flows().empty());
        flows += datagrams[i].Flows().size();
        told += datagrams[i].Discards().size();
    }
    EXPECT_EQ(3U, flows);
    EXPECT_EQ(6U, told);
}

TEST_F(DiscardsTest, ASmallDatagramCutsTheNotification)
{
    Collect("c1", c1, 200);
    Collect("c2", c2);
    links.Put(LinkOf(5, "eth1"));
    Update("eth1", "c1");
    own.Update(
        {.collectors = {{"c1", OwnCollector{.discards = true}}, {"c2", OwnCollector{.discards = true}}}});
    timers.Advance(milliseconds(0));
    DropAt(5);
    Drain();
    const auto cut = DiscardsIn(c1.Datagrams()), whole = DiscardsIn(c2.Datagrams());
    ASSERT_THAT(cut, SizeIs(1));
    ASSERT_THAT(whole, SizeIs(1));
    EXPECT_LT(cut[0].header->bytes.size(), 100U);
    EXPECT_THAT(whole[0].header->bytes, SizeIs(100));
    EXPECT_EQ(104U, cut[0].header->frameLength);
}

TEST_F(DiscardsTest, HeadersAreAsLargeAsConfigured)
{
    TellC1();
    drops.frame.resize(400);
    Apply(UpdateInterface{"eth1", "c1", "", {.rate = 10, .maxHeaderSize = 64, .interval = 0}});
    timers.Advance(milliseconds(0));
    EXPECT_THAT(DropCalls(), IsEmpty()) << "others may have the usual size";
    DropAt(5);
    DropAt(8);  // not configured
    Drain();
    auto told = DiscardsIn(c1.Datagrams());
    ASSERT_THAT(told, SizeIs(2));
    EXPECT_THAT(told[0].header->bytes, SizeIs(64));
    EXPECT_THAT(told[1].header->bytes, SizeIs(128));
    Apply(UpdateInterface{"eth1", "c1", "", {.rate = 10, .maxHeaderSize = 256, .interval = 0}});
    timers.Advance(milliseconds(0));
    EXPECT_THAT(DropCalls(), ElementsAre("change 100 256"));
    Apply(UnsetInterface{"eth1"});
    timers.Advance(milliseconds(0));
    EXPECT_THAT(DropCalls(), ElementsAre("remove 5"));
}

TEST_F(DiscardsTest, InterfacesComeAndGo)
{
    TellC1();
    links.Put(LinkOf(6, "eth2"));
    Update("eth2", "c1");
    EXPECT_THAT(DropCalls(), ElementsAre("add 6"));
    links.Remove(5);
    EXPECT_THAT(DropCalls(), testing::Contains("remove 5"));
    links.Put(LinkOf(7, "eth1"));
    EXPECT_THAT(DropCalls(), ElementsAre("add 7"));
    links.Put(LinkOf(7, "other"));
    EXPECT_THAT(DropCalls(), ElementsAre("remove 7"));
}

TEST_F(DiscardsTest, LimitAndInterfacesChangeAtOnce)
{
    TellC1();
    Change({.discardLimit = 7});
    EXPECT_THAT(DropCalls(), ElementsAre("change 7 128"));
    Change({.discardLimit = 7, .discardsEverywhere = true});
    EXPECT_THAT(DropCalls(), ElementsAre("change 7 128 all"));
    Change({.subAgent = 4, .discardLimit = 7, .discardsEverywhere = true});
    EXPECT_THAT(DropCalls(), IsEmpty());
}

TEST_F(DiscardsTest, SequencesGoOnWhateverChanges)
{
    TellC1();
    DropAt(5, 2);
    drops.Drop(5, false);
    Want("c1", false);
    EXPECT_THAT(DiscardsIn(c1.Datagrams()), SizeIs(2)) << "a collector that goes hears of what was before";
    Want("c1");
    DropAt(5);
    Apply(UnsetInterface{"eth1"});
    const auto told = DiscardsIn(c1.Datagrams());
    ASSERT_THAT(told, SizeIs(1));
    EXPECT_EQ(3U, told[0].sequence);
    EXPECT_EQ(1U, told[0].drops) << "of the source before";
}

TEST_F(DiscardsTest, ANewSubAgentBeginsSequencesAnew)
{
    TellC1();
    DropAt(5, 2);
    Change({.subAgent = 9});
    DropAt(5);
    Drain();
    const auto datagrams = c1.Datagrams();
    ASSERT_THAT(datagrams, SizeIs(2));
    EXPECT_EQ(0U, datagrams[0].subAgent);
    EXPECT_THAT(datagrams[0].Discards(), SizeIs(2));
    EXPECT_EQ(9U, datagrams[1].subAgent);
    ASSERT_THAT(datagrams[1].Discards(), SizeIs(1));
    EXPECT_EQ(1U, datagrams[1].Discards()[0].sequence);
}

TEST_F(DiscardsTest, WhereDropsCantBeSeenEverythingElseGoesOn)
{
    drops.refusal = "the kernel is too old";
    SampleEth1();
    Want("c1");
    EXPECT_FALSE(discards.Source().running);
    EXPECT_EQ("the kernel is too old", discards.Source().reason);
    DrawAndDrain(5);
    EXPECT_THAT(c1.Flows(), SizeIs(1));
    // The next change tries again.
    drops.refusal.clear();
    Change({.discardLimit = 7});
    EXPECT_THAT(DropCalls(), ElementsAre("begin", "add 5", "change 7 128"));
    EXPECT_EQ("", discards.Source().reason);
}

TEST_F(DiscardsTest, AnInterfaceThatFindsNoRoomCostsTheOthersNothing)
{
    drops.refusalOfPorts = "no room";
    TellC1();
    EXPECT_TRUE(discards.Source().running);
    links.Remove(5);
    EXPECT_TRUE(discards.Source().running);
}

TEST_F(DiscardsTest, DropsAreShownByInterfaceAndReason)
{
    TellC1();
    links.Put(LinkOf(8, "eth8"));
    links.Put(LinkOf(5, "renamed", "eth1"));  // is still eth1 of the configuration
    const auto elapsed = timers.Now().time_since_epoch();
    drops.time = static_cast<std::uint64_t>(std::chrono::nanoseconds(elapsed).count());
    DropAt(5, 3);
    drops.Drop(8, false);
    drops.Drop(0, false);
    drops.Drop(77, false);
    Drain();
    timers.Advance(seconds(4));
    const auto shown = discards.Drops();
    ASSERT_THAT(shown, SizeIs(4));
    EXPECT_EQ("eth1", shown[0].name);
    EXPECT_EQ(5U, shown[0].ifIndex);
    EXPECT_EQ(3U, shown[0].packets);
    EXPECT_EQ(0U, shown[0].untold);
    ASSERT_THAT(shown[0].reasons, SizeIs(1));
    EXPECT_EQ("NO_SOCKET", shown[0].reasons[0].name);
    EXPECT_EQ(3U, shown[0].reasons[0].packets);
    EXPECT_EQ(Wall() - seconds(4), shown[0].reasons[0].last);
    ASSERT_TRUE(shown[0].reasons[0].told);
    EXPECT_EQ(wire::DropReason::kPortUnreachable, shown[0].reasons[0].told->code);
    EXPECT_EQ("udp_rcv", shown[0].reasons[0].told->function);
    EXPECT_EQ("eth8", shown[1].name);
    EXPECT_EQ(1U, shown[1].untold);
    EXPECT_FALSE(shown[1].reasons[0].told);
    EXPECT_EQ("index 77", shown[2].name);
    EXPECT_EQ("n/a", shown[3].name);
    EXPECT_EQ(5U, discards.Source().uncounted);
}

TEST_F(DiscardsTest, WhatIsNoLongerLookedAtIsNotShown)
{
    TellC1();
    Change({.discardsEverywhere = true});
    links.Put(LinkOf(8, "eth8"));
    DropAt(5);
    DropAt(8);
    DropAt(0);
    EXPECT_THAT(discards.Drops(), SizeIs(3));
    Change({.discardsEverywhere = false});
    ASSERT_THAT(discards.Drops(), SizeIs(1));
    EXPECT_EQ("eth1", discards.Drops()[0].name);
    EXPECT_THAT(DiscardsIn(c1.Datagrams()), SizeIs(3)) << "what was dropped before is told";
}

TEST_F(DiscardsTest, InterfacesOfOneNameAreToldApart)
{
    links.Put(LinkOf(5, "k5", "n/a"));
    Collect("c1", c1);
    Update("n/a", "c1");
    Want("c1");
    Change({.discardsEverywhere = true});
    DropAt(5);
    DropAt(0);
    const auto shown = discards.Drops();
    ASSERT_THAT(shown, SizeIs(2));
    EXPECT_EQ("n/a", shown[0].name);
    EXPECT_EQ(0U, shown[0].ifIndex);
    EXPECT_EQ("n/a (index 5)", shown[1].name);
}

TEST_F(DiscardsTest, ARateIsThatOfTheLastSeconds)
{
    TellC1();
    const auto rate = [this] { return discards.Drops().at(0).reasons.at(0).rate; };
    DropAt(5, 100);
    timers.Advance(seconds(4));
    EXPECT_EQ(25U, rate()) << "since the beginning";
    timers.Advance(seconds(6));
    DropAt(5, 400);
    timers.Advance(seconds(10));
    EXPECT_EQ(40U, rate()) << "of the last 10 s";
    timers.Advance(seconds(10));
    EXPECT_EQ(0U, rate());
}

}  // namespace
}  // namespace manager
