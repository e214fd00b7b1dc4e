// SPDX-License-Identifier: Apache-2.0
// The way of packets that reach this machine's own protocols: groups, addresses of devices on top, and what
// may not be forwarded.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "net/bridges/bridges.h"
#include "net/destinations.h"
#include "net/resolver/resolver.h"
#include "support/network.h"

namespace net {
namespace {

using Kind = Destination::Kind;
using support::Bytes;
using support::FrameOptions;
using support::UdpFrame;

constexpr std::uint32_t kOut = 21;

/// Answers what the test says, and keeps what was asked.
class OneAnswer final : public RouteQuestions {
public:
    std::optional<RouteAnswer> Ask(RouteFrom from, const Address& destination, const Address&) override
    {
        asked.push_back(from.ifIndex);
        RouteAnswer given = answer;
        if (from.ifIndex == 0) given.kind = Kind::kInterface;
        given.nextHop = {destination.size, {}};
        return given;
    }
    RouteAnswer answer{.kind = Kind::kInterface, .ifIndex = kOut};
    std::vector<std::uint32_t> asked;
};

class HostTest : public testing::Test {
protected:
    HostTest()
    {
        PutLink(kRouter, 0x20);
        PutLink(kOut, 0x21);
    }
    void PutLink(std::uint32_t index, std::uint8_t mac, Placement placement = {}, std::uint16_t type = 1)
    {
        Link link;
        link.index = index;
        link.mac = {2, 0, 0, 0, 0, mac};
        link.hardwareType = type;
        resolver.PutDevice(link, placement);
    }
    Destination To(const FrameOptions& options, std::uint32_t device = kRouter)
    {
        const bool six = options.destination.find(':') != std::string::npos;
        return ToFrame(UdpFrame(options), six ? 0x86DD : 0x0800, device);
    }
    Destination ToFrame(const Bytes& frame, std::uint16_t etherType, std::uint32_t device = kRouter)
    {
        return resolver.Resolve({device, etherType, 0, frame});
    }
    /// To a group's link address: broadcast, or one of multicast.
    Destination ToGroup(std::string_view destination, bool broadcast = false)
    {
        const bool six = destination.find(':') != std::string_view::npos;
        Bytes frame = UdpFrame(
            {.source = six ? "2001:db8::1" : "198.51.100.1", .destination = std::string(destination)});
        for (std::size_t i = 0; i < 6; ++i) frame[i] = std::byte{0xFF};
        if (!broadcast) frame[0] = std::byte{1};
        return ToFrame(frame, six ? 0x86DD : 0x0800);
    }
    /// An IP packet of so many bytes; the kernel holds `length` bytes of frame, 0: not told.
    Destination Sized(bool six, std::size_t size, bool fragmentable, std::uint32_t length = 0)
    {
        Bytes frame = UdpFrame({.to = 0x20,
                                .source = six ? "2001:db8::1" : "198.51.100.1",
                                .destination = six ? "2001:db8:1::1" : "203.0.113.9",
                                .size = 14 + size});
        if (!six) frame[14 + 6] = fragmentable ? std::byte{0} : std::byte{0x40};
        return resolver.Resolve(
            {kRouter, static_cast<std::uint16_t>(six ? 0x86DD : 0x0800), 0, frame, 0x8100, length});
    }
    Destination Routed(std::uint8_t size = 4) const
    {
        Destination to = Made(Kind::kInterface, kOut);
        to.route = Destination::Route{{size, {}}, 0, 0};
        return to;
    }

    Bridges bridges;
    OneAnswer questions;
    Routes routes{questions};
    Resolver resolver{bridges, routes};
};

// RFC 5771, 4: 224.0.0.0/24 is never forwarded; RFC 4291, 2.7: scopes of IPv6 groups.
TEST_F(HostTest, GroupsOfTheLinkAreDeliveredHere)
{
    for (const char* group : {"224.0.0.1", "224.0.0.5", "224.0.0.251", "ff02::1", "ff02::fb", "ff01::1"})
        EXPECT_EQ(ToGroup(group), Made(Kind::kLocal)) << group;
    EXPECT_EQ(To({.to = 0x20, .destination = "224.0.0.5"}), Made(Kind::kLocal));
    EXPECT_TRUE(questions.asked.empty());
}

TEST_F(HostTest, OtherGroupsGoWhereTheKernelSays)
{
    questions.answer = {.kind = Kind::kDiscarded, .brief = true};
    EXPECT_EQ(ToGroup("239.1.1.1"), Dropped(Discard::kUnknown));
    questions.answer.kind = Kind::kUnknown;
    EXPECT_EQ(ToGroup("ff05::1"), Made(Kind::kUnknown));
    routes.Forget();
    questions.answer.kind = Kind::kSeveral;
    EXPECT_EQ(ToGroup("239.1.1.1"), Made(Kind::kSeveral));
    EXPECT_EQ(questions.asked, (std::vector<std::uint32_t>{kRouter, kRouter, kRouter}));
}

// IEEE 802.1D, 7.12.6: addresses that bridges do not forward.
TEST_F(HostTest, GroupsThatAreNotIpAreDeliveredIfTheyAreTheLinks)
{
    const auto frame = [](std::initializer_list<std::uint8_t> mac, std::uint16_t type) {
        Bytes bytes = support::EthernetFrame(1, 0x20, type, 60);
        std::size_t at = 0;
        for (const std::uint8_t byte : mac) bytes[at++] = std::byte{byte};
        return bytes;
    };
    EXPECT_EQ(ToFrame(frame({0x01, 0x80, 0xC2, 0, 0, 0x0E}, 0x88CC), 0x88CC), Made(Kind::kLocal)) << "LLDP";
    EXPECT_EQ(ToFrame(frame({0x01, 0x80, 0xC2, 0, 0, 0x02}, 0x8809), 0x8809), Made(Kind::kLocal)) << "LACP";
    EXPECT_EQ(ToFrame(frame({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 0x0806), 0x0806), Made(Kind::kLocal));
    EXPECT_EQ(ToFrame(frame({0x01, 0, 0x0C, 0xCC, 0xCC, 0xCC}, 0x2000), 0x2000), Made(Kind::kUnknown))
        << "a program may listen to it";
}

// RFC 1812, 5.3.4: what came as a link-layer broadcast is not forwarded.
TEST_F(HostTest, APacketToAGroupsLinkAddressIsNeverForwarded)
{
    EXPECT_EQ(ToGroup("203.0.113.9"), Dropped(Discard::kUnicastInGroup));
    EXPECT_EQ(ToGroup("203.0.113.9", true), Dropped(Discard::kUnicastInGroup));
    routes.Forget();
    questions.answer.kind = Kind::kLocal;
    EXPECT_EQ(ToGroup("203.0.113.9", true), Made(Kind::kLocal)) << "but it may be for this machine";
    EXPECT_EQ(ToGroup("255.255.255.255", true), Made(Kind::kLocal));
}

// RFC 1812, 5.3.1: time to live; RFC 8200, 3: hop limit. sFlow v5: code 257.
TEST_F(HostTest, WhatCantLiveOnIsNotForwarded)
{
    const auto with = [&](std::uint8_t timeToLive, bool six) {
        Bytes frame = UdpFrame({.to = 0x20,
                                .source = six ? "2001:db8::1" : "198.51.100.1",
                                .destination = six ? "2001:db8:1::1" : "203.0.113.9"});
        frame[six ? 14 + 7 : 14 + 8] = std::byte{timeToLive};
        return ToFrame(frame, six ? 0x86DD : 0x0800);
    };
    for (const bool six : {false, true}) {
        EXPECT_EQ(with(0, six), Dropped(Discard::kTimeToLive));
        EXPECT_EQ(with(1, six), Dropped(Discard::kTimeToLive));
        EXPECT_EQ(with(2, six), Routed(six ? 16 : 4));
    }
    routes.Forget();
    questions.answer.kind = Kind::kLocal;
    EXPECT_EQ(with(1, false), Made(Kind::kLocal)) << "delivered, not forwarded";
}

// RFC 791, 2.3 and RFC 1812, 5.2.7.1 (code 4): with DF a router discards what it would have to fragment. RFC
// 8200, 5 and RFC 4443, 3.2: an IPv6 router never fragments.
TEST_F(HostTest, WhatIsLargerThanTheMtuIsForwardedInFragmentsOrDiscarded)
{
    PutLink(kOut, 0x21, {.mtu = 1300});
    EXPECT_EQ(Sized(false, 1300, false), Routed());
    EXPECT_EQ(Sized(false, 1301, false), Dropped(Discard::kFragmentation));
    EXPECT_EQ(Sized(false, 1301, true), Routed()) << "in fragments";
    EXPECT_EQ(Sized(true, 1300, false), Routed(16));
    EXPECT_EQ(Sized(true, 1301, false), Dropped(Discard::kTooBig));
    PutLink(kOut, 0x21, {.mtu = 9000});
    EXPECT_EQ(Sized(false, 1400, false), Routed());
    PutLink(kOut, 0x21);
    EXPECT_EQ(Sized(false, 1400, false), Routed()) << "the MTU is not known";
}

TEST_F(HostTest, TheRoutesMtuGoesBeforeThatOfTheInterface)
{
    PutLink(kOut, 0x21, {.mtu = 1300});
    questions.answer.mtu = 1000;
    EXPECT_EQ(Sized(false, 1001, false), Dropped(Discard::kFragmentation));
    EXPECT_EQ(Sized(false, 1000, false), Routed());
    questions.answer.mtu = 1400;
    routes.Forget();
    EXPECT_EQ(Sized(false, 1400, false), Routed());
}

TEST_F(HostTest, APacketOfSeveralSegmentsIsJudgedByTheLongest)
{
    PutLink(kOut, 0x21, {.mtu = 1300});
    EXPECT_EQ(Sized(false, 1400, false, 14 + 1300), Routed());
    EXPECT_EQ(Sized(false, 1400, false, 14 + 1301), Dropped(Discard::kFragmentation));
    EXPECT_EQ(Sized(true, 1400, false, 14 + 1300), Routed(16));
    // The kernel holds more than the packet: what is behind it is not forwarded.
    EXPECT_EQ(Sized(false, 1200, false, 14 + 1301), Routed());
}

TEST_F(HostTest, WhatIsDeliveredHereMayBeOfAnySize)
{
    PutLink(kOut, 0x21, {.mtu = 1300});
    questions.answer.kind = Kind::kLocal;
    EXPECT_EQ(Sized(false, 1400, false), Made(Kind::kLocal));
}

TEST_F(HostTest, TheKernelsReasonForADiscardIsKept)
{
    for (const Discard reason : {Discard::kNoRoute, Discard::kProhibited, Discard::kReversePath}) {
        questions.answer = {.kind = Kind::kDiscarded, .reason = reason};
        routes.Forget();
        EXPECT_EQ(To({.to = 0x20}), Dropped(reason));
        EXPECT_EQ(To({.to = 0x20}), Dropped(reason)) << "remembered";
    }
    EXPECT_EQ(questions.asked.size(), 3U);
}

// sFlow v5, section 5, struct interface: 0x3FFFFFFF, the agent itself.
TEST_F(HostTest, WhatPassesTheLoopbackIsForThisMachine)
{
    PutLink(1, 0, {}, 772);
    EXPECT_EQ(To({.to = 0, .destination = "203.0.113.9"}, 1), Made(Kind::kLocal));
    EXPECT_EQ(To({.to = 0x77, .source = "::1", .destination = "::1"}, 1), Made(Kind::kLocal));
    EXPECT_TRUE(questions.asked.empty());
}

// sFlow v5, section 5, struct interface: what the agent does not know is 0.
TEST_F(HostTest, TheAddressOfAMacvlanDeviceLeadsToItsRoutes)
{
    PutLink(31, 0x31, {.macvlanLower = kRouter});
    PutLink(32, 0x32, {.macvlanLower = kRouter, .vrf = 5});
    EXPECT_EQ(To({.to = 0x31}), Routed());
    EXPECT_EQ(To({.to = 0x32}), Routed());
    EXPECT_EQ(To({.to = 0x20}), Routed()) << "its own";
    std::erase(questions.asked, 0U);
    EXPECT_EQ(questions.asked, (std::vector<std::uint32_t>{31, 32, kRouter}));
    resolver.RemoveDevice(31);
    EXPECT_EQ(To({.to = 0x31}), Made(Kind::kUnknown)) << "it may have moved to another namespace";
    PutLink(32, 0x33, {.macvlanLower = kRouter});
    EXPECT_EQ(To({.to = 0x33}), Routed()) << "its address has changed";
    EXPECT_EQ(To({.to = 0x32}), Made(Kind::kUnknown));
}

}  // namespace
}  // namespace net
