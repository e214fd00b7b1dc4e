// SPDX-License-Identifier: Apache-2.0
// What stands in a counter sample.

#include "manager/export/poller_sample.h"

#include <net/if_arp.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/export/poller_world.h"

namespace {

using testing::ElementsAre;

constexpr std::uint32_t kNone32 = 0xFFFFFFFF;

struct PollerSample : testing::Test, PollerWorld {
    void PutMember(std::uint32_t index, std::uint32_t aggregate)
    {
        net::Link link = *m_links.Find(index);
        link.aggregate = aggregate;
        m_links.Put(link);
    }
    support::DecodedCounters Sent()
    {
        Poll("a", 1, 1, 0);
        Advance(1);
        return m_one.m_samples.empty() ? support::DecodedCounters{} : m_one.m_samples.back();
    }
};

// sFlow v5, if_counters, and RFC 2863, 6 (ifTable, ifXTable); what is not counted is all ones.
TEST_F(PollerSample, HasEachNumberInItsPlaceAndAllOnesWhereNothingIsCounted)
{
    net::Link link;
    link.index = 1;
    link.hardwareType = ARPHRD_ETHER;
    link.up = true;
    link.promiscuous = true;
    link.speed = 100'000'000'000;
    link.duplex = net::Duplex::kHalf;
    m_links.Put(link);
    m_reader.m_counters[1] = {.ifIndex = 1,
                              .rxPackets = 1000,
                              .txPackets = 11,
                              .rxBytes = 0x1'2345'6789,
                              .txBytes = 0x9'8765'4321,
                              .rxErrors = 12,
                              .txErrors = 13,
                              .rxDropped = 14,
                              .txDropped = 15,
                              .rxMissed = 16,
                              .multicast = 17};
    const support::DecodedCounters expected{.expanded = false,
                                            .sequence = 1,
                                            .sourceClass = 0,
                                            .sourceIndex = 1,
                                            .records = {1, 1005},
                                            .generic = support::DecodedGeneric{.ifIndex = 1,
                                                                               .ifType = 6,
                                                                               .speed = 100'000'000'000,
                                                                               .direction = 2,
                                                                               .adminUp = true,
                                                                               .operUp = false,
                                                                               .inOctets = 0x1'2345'6789,
                                                                               .inUnicast = 983,
                                                                               .inMulticast = 17,
                                                                               .inBroadcast = kNone32,
                                                                               .inDiscards = 30,
                                                                               .inErrors = 12,
                                                                               .inUnknownProtocols = kNone32,
                                                                               .outOctets = 0x9'8765'4321,
                                                                               .outUnicast = 11,
                                                                               .outMulticast = kNone32,
                                                                               .outBroadcast = kNone32,
                                                                               .outDiscards = 15,
                                                                               .outErrors = 13,
                                                                               .promiscuous = 1},
                                            .ethernet = std::nullopt,
                                            .lag = std::nullopt,
                                            .portName = "a"};
    EXPECT_EQ(Sent(), expected);
}

// sFlow v5, if_counters: octets have 64 bits, packets 32; RFC 2863, 3.1.6: counters wrap.
TEST_F(PollerSample, CountsWrapAtThirtyTwoBitsAndOctetsDoNot)
{
    m_reader.m_counters[1] = {.ifIndex = 1,
                              .rxPackets = (3ULL << 32) + 5,
                              .txPackets = (1ULL << 32) + 6,
                              .rxBytes = ~0ULL - 1,
                              .rxErrors = kNone32,
                              .rxDropped = kNone32,
                              .rxMissed = 2};
    const auto generic = Sent().generic.value();
    EXPECT_EQ(generic.inUnicast, 5U);
    EXPECT_EQ(generic.outUnicast, 6U);
    EXPECT_EQ(generic.inOctets, ~0ULL - 1);
    EXPECT_EQ(generic.inDiscards, 1U);
    EXPECT_EQ(generic.inErrors, kNone32);  // it can't be told from "not counted"
}

// RFC 2863: ifInUcastPkts and ifInMulticastPkts have no packet in common.
TEST_F(PollerSample, MoreMulticastsThanPacketsMeanNoUnicast)
{
    m_reader.m_counters[1] = {.ifIndex = 1, .rxPackets = 3, .multicast = 4};
    EXPECT_EQ(Sent().generic->inUnicast, 0U);
}

// sFlow v5, ethernet_counters: dot3StatsTable of the EtherLike-MIB (RFC 3635).
TEST_F(PollerSample, HasAnEthernetRecordWhereTheDriverCounts)
{
    m_reader.m_ethernet[1] = {.alignmentErrors = 1,
                              .fcsErrors = (1ULL << 32) + 2,
                              .singleCollisions = 3,
                              .multipleCollisions = 4,
                              .sqeTestErrors = std::nullopt,
                              .deferred = 6,
                              .lateCollisions = 7,
                              .excessiveCollisions = 8,
                              .macTransmitErrors = 9,
                              .carrierSenseErrors = 10,
                              .frameTooLongs = 11,
                              .macReceiveErrors = 12,
                              .symbolErrors = 13};
    const auto sample = Sent();
    EXPECT_THAT(sample.records, ElementsAre(1, 2, 1005));
    const support::DecodedEthernet expected{.alignmentErrors = 1,
                                            .fcsErrors = 2,
                                            .singleCollisions = 3,
                                            .multipleCollisions = 4,
                                            .sqeTestErrors = kNone32,
                                            .deferred = 6,
                                            .lateCollisions = 7,
                                            .excessiveCollisions = 8,
                                            .macTransmitErrors = 9,
                                            .carrierSenseErrors = 10,
                                            .frameTooLongs = 11,
                                            .macReceiveErrors = 12,
                                            .symbolErrors = 13};
    EXPECT_EQ(sample.ethernet, expected);
}

// sflow.org, sflow_lag.txt: lag_port_stats.
TEST_F(PollerSample, HasARecordOfItsAggregateWhereItIsAMember)
{
    PutMember(1, 8);
    m_reader.m_members[1] = {.aggregate = 8,
                             .actorSystem = {2, 0, 0, 0, 0, 8},
                             .partnerSystem = {2, 0, 0, 0, 0, 9},
                             .actorState = 0x3D,
                             .partnerState = 0x3F,
                             .lacpdusIn = (1ULL << 32) + 1,
                             .markersIn = 2,
                             .markerResponsesIn = 3,
                             .unknownIn = 4,
                             .illegalIn = 5,
                             .lacpdusOut = 6,
                             .markersOut = 7,
                             .markerResponsesOut = 8};
    const auto sample = Sent();
    EXPECT_THAT(sample.records, ElementsAre(1, 7, 1005));
    const support::DecodedLag expected{.actorSystem = "02:00:00:00:00:08",
                                       .partnerSystem = "02:00:00:00:00:09",
                                       .aggregate = 8,
                                       .actorState = 0x3D,
                                       .partnerState = 0x3F,
                                       .lacpdusIn = 1,
                                       .markersIn = 2,
                                       .markerResponsesIn = 3,
                                       .unknownIn = 4,
                                       .illegalIn = 5,
                                       .lacpdusOut = 6,
                                       .markersOut = 7,
                                       .markerResponsesOut = 8};
    EXPECT_EQ(sample.lag, expected);
}

TEST_F(PollerSample, OfAMemberWithoutLacpOnlyTheAggregateIsKnown)
{
    PutMember(1, 8);
    m_reader.m_members[1] = {.aggregate = 8, .actorSystem = {2, 0, 0, 0, 0, 8}};
    const auto lag = Sent().lag.value();
    EXPECT_EQ(lag.aggregate, 8U);
    EXPECT_EQ(lag.partnerSystem, "00:00:00:00:00:00");
    EXPECT_EQ(lag.actorState, 0U);
    EXPECT_EQ(lag.lacpdusIn, kNone32);
    EXPECT_EQ(lag.markerResponsesOut, kNone32);
}

TEST_F(PollerSample, NobodyIsAskedAboutAggregatesButMembers)
{
    PutMember(2, 8);
    PutMember(5, 8);
    for (std::uint32_t index = 1; index <= 9; ++index) Poll(std::to_string(index), index, 1, 0);
    Advance(1);
    EXPECT_THAT(m_reader.m_askedForMembers, ElementsAre(5, 2));  // as the fake's counters come
    // Both have left meanwhile; the second is told of.
    PutMember(5, 0);
    Advance(1);
    EXPECT_THAT(m_reader.m_askedForMembers, ElementsAre(5, 2, 2));
    for (const auto& sample : m_one.m_samples) EXPECT_FALSE(sample.lag);
}

TEST_F(PollerSample, TheAggregateItselfHasItsOwnCountersAndNoSuchRecord)
{
    net::Link link;
    link.index = 1;
    link.kind = "bond";
    m_links.Put(link);
    m_reader.m_members[1] = {.aggregate = 1};
    const auto sample = Sent();
    EXPECT_THAT(sample.records, ElementsAre(1, 1005));
    EXPECT_EQ(sample.generic->ifIndex, 1U);
    EXPECT_EQ(sample.generic->ifType, 161U);
}

TEST_F(PollerSample, IsTheSameForAllStreamsWithRoomAndLosesRecordsWhereThereIsLess)
{
    m_reader.m_ethernet[1].fcsErrors = 1;
    RecordingStream third(m_timers);
    m_other.m_room = 172;
    auto target = Target(1, 1);
    const std::vector<manager::Stream*> streams{&m_one, &m_other, &third};
    target.streams = &streams;
    m_poller.Set(std::string(64, 'n'), target);
    Advance(1);
    ASSERT_EQ(m_one.m_samples.size(), 1U);
    ASSERT_EQ(m_other.m_samples.size(), 1U);
    EXPECT_EQ(m_one.m_bytes, third.m_bytes);
    EXPECT_THAT(m_one.m_samples[0].records, ElementsAre(1, 2, 1005));
    EXPECT_LE(m_other.m_bytes[0].size(), 172U);
    EXPECT_LT(m_other.m_samples[0].records.size(), 3U);
    EXPECT_EQ(m_other.m_samples[0].generic, m_one.m_samples[0].generic);
    EXPECT_EQ(m_other.m_samples[0].sequence, m_one.m_samples[0].sequence);
}

TEST_F(PollerSample, AfterARestartSequencesBeginAnewInTheOtherEncoding)
{
    Poll("a", 1, 1, 0);
    Advance(2);
    m_poller.Restart(wire::Encoding::kExpanded);
    Advance(1);
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{1, 1, 1}, Taken{2, 1, 2}, Taken{3, 1, 1}));
    EXPECT_FALSE(m_one.m_samples[1].expanded);
    EXPECT_TRUE(m_one.m_samples[2].expanded);
}

struct Type {
    const char* name;
    std::uint16_t hardware;
    const char* kind;
    std::uint32_t type;
};
void PrintTo(const Type& type, std::ostream* out) { *out << type.name; }
struct InterfaceTypes : testing::TestWithParam<Type> {};

// RFC 2863, ifType: a value of IANAifType-MIB.
TEST_P(InterfaceTypes, FollowTheKindAndTheHardware)
{
    net::Link link;
    link.hardwareType = GetParam().hardware;
    link.kind = GetParam().kind;
    EXPECT_EQ(manager::InterfaceType(link), GetParam().type);
}

INSTANTIATE_TEST_SUITE_P(
    Links, InterfaceTypes,
    testing::Values(Type{"Ethernet", ARPHRD_ETHER, "", 6}, Type{"VirtualPair", ARPHRD_ETHER, "veth", 6},
                    Type{"Tap", ARPHRD_ETHER, "tun", 6}, Type{"Bridge", ARPHRD_ETHER, "bridge", 209},
                    Type{"Bond", ARPHRD_ETHER, "bond", 161}, Type{"Team", ARPHRD_ETHER, "team", 161},
                    Type{"Vlan", ARPHRD_ETHER, "vlan", 135}, Type{"Macvlan", ARPHRD_ETHER, "macvlan", 53},
                    Type{"Dummy", ARPHRD_ETHER, "dummy", 53}, Type{"Vxlan", ARPHRD_ETHER, "vxlan", 131},
                    Type{"GreTap", ARPHRD_ETHER, "gretap", 131}, Type{"Loopback", ARPHRD_LOOPBACK, "", 24},
                    Type{"Tunnel", ARPHRD_TUNNEL, "ipip", 131}, Type{"Gre", ARPHRD_IPGRE, "gre", 131},
                    Type{"Gre6", 823, "ip6gre", 131}, Type{"Tun", ARPHRD_NONE, "tun", 131},
                    Type{"Ppp", ARPHRD_PPP, "ppp", 23}, Type{"Wireless", ARPHRD_IEEE80211, "", 71},
                    Type{"Other", ARPHRD_CAN, "vcan", 1}),
    [](const auto& row) { return row.param.name; });

}  // namespace
