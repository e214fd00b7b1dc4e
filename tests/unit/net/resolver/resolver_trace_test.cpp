// SPDX-License-Identifier: Apache-2.0
// Where a packet that leaves has come from, by tables that the test fills: a router with a bridge, a device
// of its own, a VLAN device and a tunnel.

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "net/bridges/bridges.h"
#include "net/destinations.h"
#include "net/resolver/resolver.h"
#include "support/network.h"

namespace net {

// NOLINTNEXTLINE(readability-identifier-naming): GoogleTest's name
void PrintTo(const Origin& from, std::ostream* out)
{
    *out << "kind " << static_cast<int>(from.kind) << " ifIndex " << from.ifIndex;
    if (!from.route) return;
    *out << " route " << int{from.route->sourceBits} << " " << int{from.route->destinationBits} << " by "
         << int{from.route->nextHop.size} << ":" << int{from.route->nextHop.bytes[0]};
}

namespace {

using Kind = Destination::Kind;
using support::Bytes;
using support::FrameOptions;

constexpr std::uint32_t kVlan = 25, kTunnel = 50;
constexpr std::uint8_t kBridgeMac = 0x10, kRouterMac = 0x20;
constexpr std::uint16_t kVlanId = 5;
const std::optional<std::uint32_t> kNobodySays;

/// Answers by the first byte of the destination; what is not in the table has no route.
class Table final : public RouteQuestions {
public:
    std::optional<RouteAnswer> Ask(RouteFrom way, const Address& destination, const Address&) override
    {
        ++asked;
        RouteAnswer answer;
        answer.kind = Kind::kDiscarded;
        if (const auto at = ways.find(destination.bytes[0]); at != ways.end()) answer = at->second;
        if (way.ifIndex != 0 && answer.kind == Kind::kInterface && !forwards) answer.kind = Kind::kDiscarded;
        return answer;
    }
    std::map<std::uint8_t, RouteAnswer> ways{
        {10, {Kind::kInterface, kBridge, {}, 8}},                     // beside the bridge
        {20, {Kind::kInterface, kRouter, {}, 12}},                    // beside the device
        {21, {Kind::kInterface, kRouter, {4, {192, 0, 2, 1}}, 16}},   // behind it
        {25, {Kind::kInterface, kVlan, {4, {192, 0, 2, 5}}, 20}},     // behind the VLAN device
        {50, {Kind::kInterface, kTunnel, {}, 24}},                    // beside the tunnel
        {99, {Kind::kLocal, 0, {}, 32}},                              // this machine
        {0x20, {Kind::kInterface, kRouter, {16, {0xFE, 0x80}}, 48}},  // IPv6
        {0x30, {Kind::kInterface, kBridge, {}, 64}},
    };
    bool forwards = true;
    int asked = 0;
};

class TraceTest : public testing::Test {
protected:
    TraceTest()
    {
        Put(kBridge, kBridgeMac);
        Put(kRouter, kRouterMac);
        Put(kVlan, kRouterMac, {.vlanLower = kRouter, .vlanId = kVlanId, .vlanProtocol = 0x8100});
        Put(kTunnel, 0, {}, 65534);
        bridges.SetBridge(kBridge, {});
        for (const std::uint32_t port : {1U, 2U, 3U}) {
            Put(port, static_cast<std::uint8_t>(0x30 + port));
            bridges.PutPort(port, kBridge, {.forwarding = true}, {}, 1);
            bridges.PutAddress(kBridge, 0, {2, 0, 0, 0, 0, static_cast<std::uint8_t>(port)}, {port, false},
                               1);
        }
        bridges.PutAddress(kBridge, 0, {2, 0, 0, 0, 0, kBridgeMac}, {kBridge, true}, 1);
    }

    void Put(std::uint32_t index, std::uint8_t mac, Placement placement = {}, std::uint16_t type = 1)
    {
        Link link;
        link.index = index;
        link.mac = {2, 0, 0, 0, 0, mac};
        link.hardwareType = type;
        resolver.PutDevice(link, placement);
    }
    Origin Trace(std::uint32_t leavesBy, const FrameOptions& options,
                 std::optional<std::uint32_t> enteredBy = kNobodySays, std::uint16_t vlan = 0)
    {
        const bool six = options.destination.find(':') != std::string::npos;
        return TraceBytes(leavesBy, support::UdpFrame(options), enteredBy, six ? 0x86DD : 0x0800, vlan);
    }
    Origin TraceBytes(std::uint32_t leavesBy, const Bytes& frame, std::optional<std::uint32_t> enteredBy,
                      std::uint16_t etherType, std::uint16_t vlan = 0)
    {
        return resolver.Trace({leavesBy, etherType, vlan, frame}, enteredBy);
    }
    /// From the router's own device to a host there.
    static FrameOptions Sent(const std::string& source, const std::string& destination,
                             std::uint8_t mac = kRouterMac)
    {
        return {.from = mac, .to = 0x77, .source = source, .destination = destination};
    }

    Bridges bridges;
    Table table;
    Routes routes{table};
    Resolver resolver{bridges, routes};
};

Origin Came(std::uint32_t ifIndex) { return {Kind::kInterface, ifIndex, {}}; }
Origin CameRouted(std::uint32_t ifIndex, const Address& nextHop, std::uint8_t source,
                  std::uint8_t destination)
{
    return {Kind::kInterface, ifIndex, Destination::Route{nextHop, source, destination}};
}
const Origin kHere{Kind::kLocal, 0, {}};
const Origin kSomewhere{};
const Address kHop{4, {192, 0, 2, 1}};

TEST_F(TraceTest, ARoutedPacketHasTheInterfaceOfItsSourceAndItsRoute)
{
    const Origin expected = CameRouted(kBridge, kHop, 8, 16);
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "21.0.0.1")), expected);
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "21.0.0.1"), kBridge), expected);
    const int asked = table.asked;
    EXPECT_EQ(asked, 3) << "to the source, from where it left and from here; and to the destination";
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "21.0.0.1")), expected);
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "21.0.0.1"), kBridge), expected);
    EXPECT_EQ(table.asked, asked) << "remembered";
}

TEST_F(TraceTest, AsTheSampleOfItsEntryHasIt)
{
    const FrameOptions entering{.to = kBridgeMac, .source = "10.0.0.1", .destination = "21.0.0.1"};
    const Bytes frame = support::UdpFrame(entering);
    const Destination to = resolver.Resolve({1, 0x0800, 0, frame});
    ASSERT_EQ(to.ifIndex, kRouter);
    ASSERT_TRUE(to.route);
    const int asked = table.asked;
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "21.0.0.1"), kBridge).route, to.route);
    EXPECT_EQ(table.asked, asked) << "no question more";
}

TEST_F(TraceTest, TheNextHopIsNoneOfTheFamilyWhereTheDestinationIsDirectlyConnected)
{
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "20.0.0.1")), CameRouted(kBridge, {4, {}}, 8, 12));
    EXPECT_EQ(Trace(1, Sent("2000::1", "3000::1", kBridgeMac)), CameRouted(kRouter, {16, {}}, 48, 64));
    EXPECT_EQ(Trace(kRouter, Sent("3000::1", "2000::1"), kBridge),
              CameRouted(kBridge, {16, {0xFE, 0x80}}, 64, 48));
}

TEST_F(TraceTest, ItIsTracedThroughBridgesVlanDevicesAndTunnels)
{
    EXPECT_EQ(Trace(2, Sent("21.0.0.1", "10.0.0.1", kBridgeMac)), CameRouted(kRouter, {4, {}}, 16, 8));
    EXPECT_EQ(Trace(2, Sent("21.0.0.1", "10.0.0.1", kBridgeMac), kRouter),
              CameRouted(kRouter, {4, {}}, 16, 8));
    const Origin byVlan = CameRouted(kBridge, {4, {192, 0, 2, 5}}, 8, 20);
    FrameOptions options = Sent("10.0.0.1", "25.0.0.1");
    EXPECT_EQ(Trace(kRouter, options, kNobodySays, kVlanId), byVlan) << "the tag is told of";
    options.tags = {0x81000000 | kVlanId};
    EXPECT_EQ(Trace(kRouter, options, kNobodySays, kVlanId), byVlan) << "the tag is in the bytes";
    EXPECT_EQ(Trace(kRouter, options, kBridge, kVlanId), byVlan);
    EXPECT_EQ(Trace(kRouter, options, kBridge, 6), Came(kBridge)) << "nobody sends in that VLAN";
    Bytes packet = support::UdpFrame(Sent("10.0.0.1", "50.0.0.1"));
    packet.erase(packet.begin(), packet.begin() + 14);
    EXPECT_EQ(TraceBytes(kTunnel, packet, kNobodySays, 0x0800), CameRouted(kBridge, {4, {}}, 8, 24));
    EXPECT_EQ(TraceBytes(kTunnel, packet, kBridge, 0x0800), CameRouted(kBridge, {4, {}}, 8, 24));
}

TEST_F(TraceTest, ABridgedPacketHasThePortOfItsSourceAndNoRoute)
{
    EXPECT_EQ(Trace(2, {.from = 1, .to = 2, .source = "10.0.0.1"}), Came(1));
    EXPECT_EQ(Trace(2, {.from = 1, .to = 2, .source = "10.0.0.1"}, 3), Came(3)) << "the kernel knows better";
    EXPECT_EQ(Trace(2, {.from = 0x99, .to = 2, .source = "10.0.0.1"}), kSomewhere) << "not learned";
    EXPECT_EQ(table.asked, 0);
}

TEST_F(TraceTest, WhatThisMachineSendsIsMadeHere)
{
    for (const char* destination : {"20.0.0.1", "21.0.0.1", "239.1.1.1", "255.255.255.255", "20.15.255.255"})
        EXPECT_EQ(Trace(kRouter, Sent("99.0.0.1", destination)), kHere) << destination;
    EXPECT_EQ(Trace(1, Sent("99.0.0.1", "10.0.0.1", kBridgeMac)), kHere) << "by a port of its bridge";
    EXPECT_EQ(Trace(kRouter, Sent("0.0.0.0", "255.255.255.255")), kHere) << "looking for an address";
    EXPECT_EQ(Trace(kRouter, Sent("::", "ff02::1:ff00:1")), kHere) << "likewise";
    EXPECT_EQ(TraceBytes(kRouter, support::EthernetFrame(kRouterMac, 0x77, 0x0806, 60), kNobodySays, 0x0806),
              kHere);
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "21.0.0.1"), 0), kHere) << "the kernel says so";
    table.forwards = false;
    routes.Forget();
    EXPECT_EQ(Trace(kRouter, Sent("99.0.0.1", "20.0.0.1")), kHere) << "it need not be a router";
}

TEST_F(TraceTest, AnOriginThatCantBeToldIsUnknown)
{
    EXPECT_EQ(Trace(kRouter, Sent("60.0.0.1", "20.0.0.1")), kSomewhere) << "no route to its source";
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "21.0.0.1", 0x66)), kSomewhere) << "not this machine's address";
    EXPECT_EQ(Trace(999, Sent("10.0.0.1", "21.0.0.1")), kSomewhere);
    const Bytes whole = support::UdpFrame(Sent("10.0.0.1", "21.0.0.1"));
    for (std::size_t size = 0; size < 34; ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(TraceBytes(kRouter, cut, kNobodySays, 0x0800), kSomewhere) << size;
        EXPECT_EQ(TraceBytes(kRouter, cut, kBridge, 0x0800), Came(kBridge)) << size;
    }
}

TEST_F(TraceTest, ThereIsNoRouteWhereItIsNotKnownThatThePacketTookIt)
{
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "50.0.0.1"), kBridge), Came(kBridge)) << "it leads elsewhere";
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "60.0.0.1"), kBridge), Came(kBridge)) << "there is none";
    EXPECT_EQ(Trace(kRouter, Sent("99.0.0.1", "21.0.0.1"), kBridge), Came(kBridge)) << "translated";
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "239.1.1.1"), kBridge), Came(kBridge)) << "to a group";
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "239.1.1.1")), Came(kBridge)) << "to a group";
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "21.0.0.1", 0x66), kBridge), Came(kBridge))
        << "sent as another";
    EXPECT_EQ(Trace(kRouter, Sent("10.0.0.1", "21.0.0.1"), 998), Came(998)) << "a device that is gone";
    EXPECT_EQ(TraceBytes(kRouter, support::EthernetFrame(kRouterMac, 0x77, 0x88B5, 60), kBridge, 0x88B5),
              Came(kBridge))
        << "not IP";
}

}  // namespace
}  // namespace net
