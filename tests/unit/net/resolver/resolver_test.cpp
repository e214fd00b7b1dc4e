// SPDX-License-Identifier: Apache-2.0
// The way of a packet through tables that the test fills.

#include <chrono>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "net/resolver_fixture.h"

namespace net {
namespace {

using Kind = Destination::Kind;
using support::Bytes;
using support::UdpFrame;

constexpr MacAddress kBroadcast{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
constexpr MacAddress kGroup{0x01, 0x00, 0x5E, 0, 0, 5};

TEST_F(ResolverTest, ALearnedAddressNamesItsPort)
{
    EXPECT_EQ(To(1, {.to = 2}), Made(Kind::kInterface, 2));
    EXPECT_EQ(To(1, {.to = 2}, 5), Made(Kind::kInterface, 2, 0, 5, 5)) << "a tag goes through as it is";
}

// sFlow.org, sflow_drops.txt: port_loopback_filter (268).
TEST_F(ResolverTest, WhatIsBehindTheSamePortIsDiscarded)
{
    EXPECT_EQ(To(2, {.to = 2}), Dropped(Discard::kSamePort));
    PutPort(2, {.forwarding = true, .hairpin = true}, {});
    EXPECT_EQ(To(2, {.to = 2}), Made(Kind::kInterface, 2));
}

// sFlow v5, section 5, struct interface: format 2 has the number of interfaces.
TEST_F(ResolverTest, FloodsCountTheOtherForwardingPorts)
{
    EXPECT_EQ(ToMac(1, kBroadcast), Made(Kind::kSeveral, 0, 3));
    EXPECT_EQ(ToMac(1, kGroup), Made(Kind::kSeveral, 0, 3));
    EXPECT_EQ(ToMac(1, NumberedMac(99)), Made(Kind::kSeveral, 0, 3));
    PutPort(3, {.forwarding = false}, {});
    EXPECT_EQ(ToMac(1, kBroadcast), Made(Kind::kSeveral, 0, 2));
    PutPort(4, {.forwarding = true, .floodsUnicast = false, .floodsMulticast = false}, {});
    EXPECT_EQ(ToMac(1, kBroadcast), Made(Kind::kSeveral, 0, 2));
    EXPECT_EQ(ToMac(1, kGroup), Made(Kind::kInterface, 2)) << "the one that is left";
    EXPECT_EQ(ToMac(1, NumberedMac(99)), Made(Kind::kInterface, 2));
    EXPECT_EQ(ToMac(2, NumberedMac(99)), Made(Kind::kInterface, 1));
    EXPECT_EQ(ToMac(4, kGroup), Made(Kind::kSeveral, 0, 2)) << "from a port that gets none itself";
    bridges.RemovePort(2);
    EXPECT_EQ(ToMac(1, NumberedMac(99)), Dropped(Discard::kNoPorts)) << "nobody is left to get it";
    EXPECT_EQ(ToMac(4, NumberedMac(99)), Made(Kind::kInterface, 1));
    EXPECT_EQ(ToMac(1, kGroup), Made(Kind::kLocal)) << "but the machine itself does";
}

// RFC 4541, 2.1.2 and 3: where snooping bridges send groups. sFlow v5, struct interface, format 2: 0 is not
// known.
TEST_F(ResolverTest, HowManyHaveJoinedAGroupIsNotKnownWhereTheBridgeGoesByThat)
{
    const Destination everywhere = Made(Kind::kSeveral, 0, 3), somewhere = Made(Kind::kSeveral);
    const auto group = [&](const char* address) {
        const bool six = std::string_view(address).find(':') != std::string_view::npos;
        Bytes frame = UdpFrame({.source = six ? "2001:db8::1" : "198.51.100.1", .destination = address});
        frame[0] = std::byte{static_cast<std::uint8_t>(six ? 0x33 : 0x01)};
        return ToFrame(1, frame, six ? 0x86DD : 0x0800, 0);
    };
    EXPECT_EQ(group("239.1.1.1"), everywhere);
    bridges.SetBridge(kBridge, {.multicastSnooping = true});
    for (const char* address : {"239.1.1.1", "224.0.1.1", "225.0.0.1", "ff0e::1", "ff02::2", "ff05::1"})
        EXPECT_EQ(group(address), somewhere) << address;
    for (const char* address : {"224.0.0.1", "224.0.0.251", "ff02::1"})
        EXPECT_EQ(group(address), everywhere) << address;
    EXPECT_EQ(ToMac(1, kBroadcast), everywhere);
    EXPECT_EQ(ToMac(1, NumberedMac(99)), everywhere);
    EXPECT_EQ(ToFrame(1, support::EthernetFrame(1, 0xFF, 0x88B5, 60), 0x88B5, 0), everywhere);
    Bytes cut = UdpFrame({.destination = "224.0.0.1"});
    cut[0] = std::byte{1};
    EXPECT_EQ(ToFrame(1, Bytes(cut.begin(), cut.begin() + 33), 0x0800, 0), somewhere) << "can't be read";
    EXPECT_EQ(ToFrame(1, Bytes(cut.begin(), cut.begin() + 34), 0x0800, 0), everywhere);
    bridges.SetBridge(kBridge, {.multicastSnooping = false});
    EXPECT_EQ(group("239.1.1.1"), everywhere);
}

TEST_F(ResolverTest, AGroupInATagIsOneToo)
{
    Filter();
    bridges.SetBridge(kBridge, {.filtering = true, .multicastSnooping = true});
    const auto group = [&](const char* address, bool inBytes) {
        support::FrameOptions options{.destination = address};
        if (inBytes) options.tags = {0x81000007};
        Bytes frame = UdpFrame(options);
        frame[0] = std::byte{1};
        return ToFrame(3, frame, 0x0800, 7);
    };
    for (const bool inBytes : {false, true}) {
        EXPECT_EQ(group("239.1.1.1", inBytes), Made(Kind::kSeveral, 0, 0, 7, 7));
        EXPECT_EQ(group("224.0.0.5", inBytes), Made(Kind::kSeveral, 0, 2, 7, 7));
    }
}

TEST_F(ResolverTest, IsolatedPortsDoNotReachEachOther)
{
    PutPort(1, {.forwarding = true, .isolated = true}, {});
    PutPort(2, {.forwarding = true, .isolated = true}, {});
    EXPECT_EQ(To(1, {.to = 2}), Dropped(Discard::kUnknown));
    EXPECT_EQ(To(3, {.to = 2}), Made(Kind::kInterface, 2));
    EXPECT_EQ(ToMac(1, kBroadcast), Made(Kind::kSeveral, 0, 2));
    EXPECT_EQ(ToMac(3, kBroadcast), Made(Kind::kSeveral, 0, 3));
    PutPort(3, {.forwarding = true, .isolated = true}, {});
    EXPECT_EQ(ToMac(1, kBroadcast), Made(Kind::kInterface, 4)) << "the one that is not isolated";
    PutPort(4, {.forwarding = true, .isolated = true}, {});
    EXPECT_EQ(ToMac(1, NumberedMac(99)), Dropped(Discard::kNoPorts));
    PutPort(1, {.forwarding = true, .isolated = true, .hairpin = true}, {});
    EXPECT_EQ(ToMac(1, kBroadcast), Made(Kind::kInterface, 1)) << "back out of where it came from";
}

TEST_F(ResolverTest, NothingGoesThroughAPortThatDoesNotForward)
{
    PutPort(1, {.forwarding = false}, {});
    EXPECT_EQ(To(1, {.to = 2}), Dropped(Discard::kPortNotForwarding));
    EXPECT_EQ(ToMac(1, kBroadcast), Dropped(Discard::kPortNotForwarding));
    PutPort(2, {.forwarding = false}, {});
    EXPECT_EQ(To(3, {.to = 2}), Dropped(Discard::kPortNotForwarding));
}

// IEEE 802.1D, 7.12.6: addresses that bridges do not forward.
TEST_F(ResolverTest, LinkLocalGroupsStayInTheBridge)
{
    EXPECT_EQ(ToMac(1, {0x01, 0x80, 0xC2, 0, 0, 0x0E}), Made(Kind::kLocal));
    EXPECT_EQ(ToMac(1, {0x01, 0x80, 0xC2, 0, 0, 0x01}), Dropped(Discard::kReservedMac));
    EXPECT_EQ(ToMac(1, {0x01, 0x80, 0xC2, 0, 0, 0x10}), Made(Kind::kSeveral, 0, 3));
    EXPECT_EQ(ToMac(1, {0x01, 0x80, 0xC2, 0, 0, 0x00}), Made(Kind::kSeveral, 0, 3)) << "no spanning tree";
    bridges.SetBridge(kBridge, {.spanningTree = true});
    EXPECT_EQ(ToMac(1, {0x01, 0x80, 0xC2, 0, 0, 0x00}), Made(Kind::kLocal));
}

TEST_F(ResolverTest, WhatMayBeKnownToTheKernelAloneIsUnknown)
{
    bridges.SetLimit(bridges.AddressCount());
    bridges.PutAddress(kBridge, 0, NumberedMac(50), {3, false}, 1);
    EXPECT_FALSE(bridges.Complete());
    EXPECT_EQ(ToMac(1, NumberedMac(50)), Made(Kind::kUnknown));
    EXPECT_EQ(To(1, {.to = 2}), Made(Kind::kInterface, 2));
}

// sFlow v5, extended_switch: an untagged packet has the VLAN of its port.
TEST_F(ResolverTest, PacketsWithoutATagBelongToTheVlanOfTheirPort)
{
    Filter();
    EXPECT_EQ(To(1, {.to = 2}), Made(Kind::kInterface, 2, 0, 7, 7));
    EXPECT_EQ(To(3, {.to = 2}, 7), Made(Kind::kInterface, 2, 0, 7, 7));
    EXPECT_EQ(To(3, {.to = 2}), Dropped(Discard::kIngressVlan)) << "port 3 has no VLAN for them";
    EXPECT_EQ(To(1, {.to = 2}, 8), Dropped(Discard::kIngressVlan, 8)) << "port 1 is not in 8";
    EXPECT_EQ(To(4, {.to = 2}), Dropped(Discard::kEgressVlan, 8)) << "port 2 is not in 8";
    EXPECT_EQ(resolver.PortVlan(1), 7);
    EXPECT_EQ(resolver.PortVlan(3), 0);
    EXPECT_EQ(resolver.PortVlan(kRouter), 0);
}

TEST_F(ResolverTest, FloodsStayInTheirVlan)
{
    Filter();
    EXPECT_EQ(ToMac(1, kBroadcast), Made(Kind::kSeveral, 0, 2, 7, 7));
    EXPECT_EQ(ToMac(3, kBroadcast, 7), Made(Kind::kSeveral, 0, 2, 7, 7));
    EXPECT_EQ(ToMac(4, NumberedMac(99)), Made(Kind::kInterface, 3, 0, 8, 8));
    EXPECT_EQ(ToMac(3, NumberedMac(99), 9), Dropped(Discard::kNoPorts, 9));
    bridges.RemoveVlans(2, {{7, 7, false, false}});
    EXPECT_EQ(ToMac(1, kBroadcast), Made(Kind::kInterface, 3, 0, 7, 7));
    bridges.AddVlans(4, {{6, 7, false, false}});
    EXPECT_EQ(ToMac(1, kBroadcast), Made(Kind::kSeveral, 0, 2, 7, 7));
    EXPECT_EQ(resolver.PortVlan(4), 8);
}

TEST_F(ResolverTest, WhatIsForTheBridgeGoesToTheRoutes)
{
    questions.kind = Kind::kLocal;
    EXPECT_EQ(To(1, {.to = 0x10}), Made(Kind::kLocal));
    EXPECT_EQ(questions.asked, std::vector<std::uint32_t>{kBridge});
    bridges.RemoveAddress(kBridge, 0, NumberedMac(0x10));
    EXPECT_EQ(To(1, {.to = 0x10}), Made(Kind::kLocal)) << "its own address, though nobody told";
}

TEST_F(ResolverTest, WhatIsForTheBridgeInAVlanGoesToItsVlanDevice)
{
    Filter();
    EXPECT_EQ(To(1, {.to = 0x10}), Dropped(Discard::kIngressVlan, 7)) << "nobody takes VLAN 7";
    PutLink(17, 0x10, {.vlanLower = kBridge, .vlanId = 7, .vlanProtocol = 0x8100});
    Destination routed = Made(Kind::kInterface, kRouter, 0, 7);
    routed.route = Destination::Route{{4, {}}, 24, 24};
    EXPECT_EQ(To(1, {.to = 0x10}), routed);
    EXPECT_EQ(questions.asked, (std::vector<std::uint32_t>{17, 0}));
    EXPECT_EQ(To(4, {.to = 0x10}), Dropped(Discard::kEgressVlan, 8)) << "the bridge is not in 8";
    resolver.RemoveDevice(17);
    EXPECT_EQ(To(1, {.to = 0x10}), Dropped(Discard::kIngressVlan, 7));
}

TEST_F(ResolverTest, OwnAddressesAreRoutedAndOthersUnknown)
{
    Destination routed = Made(Kind::kInterface, 21, 0, 0, 30);
    routed.route = Destination::Route{{4, {}}, 24, 16};
    questions.out = 21;
    PutLink(21, 0x21, {.vlanLower = 22, .vlanId = 30});
    EXPECT_EQ(To(kRouter, {.to = 0x20, .destination = "203.0.113.9"}), routed);
    EXPECT_EQ(To(kRouter, {.to = 0x99}), Made(Kind::kUnknown)) << "a device in another namespace may have it";
    EXPECT_EQ(To(kRouter, {.to = 0x20, .destination = "255.255.255.255"}), Made(Kind::kLocal));
    EXPECT_EQ(To(kRouter, {.to = 0x20}, 9), Dropped(Discard::kIngressVlan, 9));
    PutLink(kRouter, 0x20, {}, 1, true);
    EXPECT_EQ(To(kRouter, {.to = 0x20}, 9), Made(Kind::kUnknown, 0, 0, 9)) << "somebody made it take all";
}

TEST_F(ResolverTest, VlanDevicesOfOneNumberAreToldApartByTheirTags)
{
    PutLink(31, 0x40);
    PutLink(41, 0x40, {.vlanLower = 31, .vlanId = 5, .vlanProtocol = 0x8100});
    PutLink(42, 0x40, {.vlanLower = 31, .vlanId = 5, .vlanProtocol = 0x88A8});
    const Bytes frame = UdpFrame({.to = 0x40});
    ToFrame(31, frame, 0x0800, 5, 0x88A8);
    ToFrame(31, frame, 0x0800, 5, 0x8100);
    std::erase(questions.asked, 0U);
    EXPECT_EQ(questions.asked, (std::vector<std::uint32_t>{42, 41}));
    EXPECT_EQ(ToFrame(31, frame, 0x0800, 5, 0x9100), Dropped(Discard::kIngressVlan, 5));
    resolver.RemoveDevice(42);
    EXPECT_EQ(ToFrame(31, frame, 0x0800, 5, 0x88A8), Dropped(Discard::kIngressVlan, 5));
}

TEST_F(ResolverTest, ARoutesSourceIsLookedUpInItsVrf)
{
    PutLink(31, 0x40, {.vrf = 77});
    To(31, {.to = 0x40});
    EXPECT_EQ(questions.asked, (std::vector<std::uint32_t>{31, 0}));
    EXPECT_EQ(questions.vrfs, (std::vector<std::uint32_t>{77, 77}));
}

TEST_F(ResolverTest, TagsLeadThroughVlanDevicesAndBonds)
{
    PutMember(31, 0x31, 40);
    PutLink(40, 0x40);
    PutLink(41, 0x40, {.vlanLower = 40, .vlanId = 5, .vlanProtocol = 0x8100});
    PutLink(42, 0x40, {.vlanLower = 41, .vlanId = 6, .vlanProtocol = 0x8100});
    To(31, {.to = 0x40}, 0);
    To(31, {.to = 0x40}, 5);
    const std::uint32_t inner = 0x81000000 | 6;
    ToFrame(31, UdpFrame({.to = 0x40, .tags = {inner}}), 0x8100, 5);
    ToFrame(31, UdpFrame({.to = 0x40, .tags = {0x88A80000 | 5, inner}}), 0x8100, 5);
    std::vector<std::uint32_t> asked = questions.asked;
    std::erase(asked, 0U);
    EXPECT_EQ(asked, (std::vector<std::uint32_t>{40, 41, 42})) << "the fourth is the third again";
    EXPECT_EQ(To(31, {.to = 0x40}, 9), Dropped(Discard::kIngressVlan, 9));
}

// Which member a packet leaves by is the aggregate's choice, made when it is sent.
TEST_F(ResolverTest, WhatIsForAnAggregateGoesToTheAggregateAndWhatEntersByAMemberIsTheAggregates)
{
    PutMember(31, 0x40, 40);
    PutMember(32, 0x40, 40);
    PutLink(40, 0x40);
    PutPort(40, {.forwarding = true}, {});
    bridges.PutAddress(kBridge, 0, NumberedMac(9), {40, false}, 1);
    EXPECT_EQ(To(1, {.to = 9}), Made(Kind::kInterface, 40));
    EXPECT_EQ(To(31, {.to = 2}), Made(Kind::kInterface, 2));
    EXPECT_EQ(To(31, {.to = 9}), Dropped(Discard::kSamePort)) << "back to where it came from";
    EXPECT_EQ(ToMac(32, kBroadcast), Made(Kind::kSeveral, 0, 4)) << "not to the other member";
    questions.out = 40;
    EXPECT_EQ(To(kRouter, {.to = 0x20}).ifIndex, 40U);
}

TEST_F(ResolverTest, AMasterThatDecidesUnseenMakesItUnknown)
{
    PutLink(31, 0x31, {.foreignMaster = true});
    EXPECT_EQ(To(31, {.to = 0x31}), Made(Kind::kUnknown));
}

TEST_F(ResolverTest, ARingOfDevicesEnds)
{
    PutMember(31, 0x31, 32);
    PutMember(32, 0x32, 31);
    EXPECT_EQ(To(31, {.to = 0x31}), Made(Kind::kUnknown));
}

TEST_F(ResolverTest, DevicesWithoutLinkHeadersAreRouted)
{
    PutLink(50, 0, {}, 65534);
    Bytes frame = UdpFrame({});
    frame.erase(frame.begin(), frame.begin() + 14);
    EXPECT_EQ(ToFrame(50, frame, 0x0800, 0).kind, Kind::kInterface);
    EXPECT_EQ(questions.asked.front(), 50U);
    PutLink(51, 0, {}, 32);  // InfiniBand: not read
    EXPECT_EQ(ToFrame(51, frame, 0x0800, 0), Made(Kind::kUnknown));
}

TEST_F(ResolverTest, WhatIsNotIpIsForTheMachineItself)
{
    EXPECT_EQ(ToFrame(kRouter, support::EthernetFrame(1, 0x20, 0x0806, 60), 0x0806, 0), Made(Kind::kLocal));
    EXPECT_EQ(ToFrame(kRouter, support::EthernetFrame(1, 0x20, 0x8847, 60), 0x8847, 0), Made(Kind::kUnknown));
}

TEST_F(ResolverTest, HeadersThatEndEarlyAreUnknown)
{
    const Bytes whole = UdpFrame({.to = 0x20});
    for (std::size_t size = 0; size <= 34; ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(ToFrame(kRouter, cut, 0x0800, 0).kind, size < 34 ? Kind::kUnknown : Kind::kInterface)
            << size;
    }
    EXPECT_EQ(ToFrame(1, Bytes(13), 0x0800, 0), Made(Kind::kUnknown));
    EXPECT_EQ(ToFrame(999, whole, 0x0800, 0), Made(Kind::kUnknown));
}

TEST_F(ResolverTest, APortThatLeavesItsBridgeIsNoPortOfIt)
{
    bridges.RemovePort(2);
    EXPECT_EQ(To(1, {.to = 2}), Dropped(Discard::kPortNotForwarding));
    bridges.RemoveDevice(kBridge);
    EXPECT_EQ(bridges.AddressCount(), 0U);
    EXPECT_EQ(To(1, {.to = 2}), Made(Kind::kUnknown)) << "not for us";
}

}  // namespace
}  // namespace net
