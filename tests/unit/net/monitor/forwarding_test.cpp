// SPDX-License-Identifier: Apache-2.0
// What the monitor says of packets, against what the kernel has learned and been told, in a network
// namespace of the test's own.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "base/unique_fd.h"
#include "net/destinations.h"
#include "net/monitor/monitor.h"
#include "net/monitor_fixture.h"
#include "support/network.h"

namespace net {
namespace {

using Kind = Destination::Kind;
using support::Bytes;
using support::FrameOptions;
using support::Injector;
using support::Network;

Destination Routed(std::uint32_t ifIndex, Address nextHop, std::uint8_t sourceBits,
                   std::uint8_t destinationBits)
{
    Destination to = Made(Kind::kInterface, ifIndex);
    to.route = Destination::Route{nextHop, sourceBits, destinationBits};
    return to;
}

Address Ipv4(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) { return {4, {a, b, c, d}}; }

void SetSwitch(const std::string& name, const std::string& value)
{
    std::ofstream file("/proc/sys/net/" + name);
    file << value;
    file.close();
    if (!file) throw std::runtime_error("can't set " + name);
}

class ForwardingTest : public MonitorFixture {
protected:
    void Start() { m_monitor->Start(); }

    void MakeBridge()
    {
        for (const std::string number : {"1", "2", "3"}) Network::Veth("p" + number, "h" + number);
        Network::MakeBridge("br0", {"p1", "p2", "p3"});
        Start();
        ASSERT_TRUE(Comes([&] { return To("p1", {.to = 0xEE}) == Made(Kind::kSeveral, 0, 2); }));
    }
    /// Two networks beside this router; what it sends leaves by v0 and w0.
    void MakeRouter()
    {
        Network::Veth("v0", "v1");
        Network::Veth("w0", "w1");
        Network::Ip(
            "link set v0 address 02:00:00:00:00:20\n"
            "addr add 198.51.100.1/24 dev v0\n"
            "addr add 203.0.113.1/28 dev w0\n"
            "route add 192.0.2.0/25 via 203.0.113.2\n"
            "route add blackhole 192.0.2.192/26\n"
            "route add unreachable 192.0.2.128/26");
        SetSwitch("ipv4/ip_forward", "1");
        Start();
    }

    Destination To(const char* device, const FrameOptions& options)
    {
        const std::uint16_t type = options.destination.find(':') == std::string::npos ? 0x0800 : 0x86DD;
        const Bytes frame = support::UdpFrame(options);
        return m_monitor->CurrentForwarding().Resolve({Network::Index(device), type, 0, frame});
    }
    Destination Routes(const std::string& destination, const std::string& source = "198.51.100.9")
    {
        return To("v0", {.to = 0x20, .source = source, .destination = destination});
    }

    bool BecomesRouted(const std::string& destination, const Destination& expected)
    {
        return Comes([&] { return Routes(destination) == expected; });
    }
};

TEST_F(ForwardingTest, FollowsWhatABridgeLearns)
{
    MakeBridge();
    const std::uint32_t p2 = Network::Index("p2");
    EXPECT_EQ(To("p1", {.to = 7}), Made(Kind::kSeveral, 0, 2));
    Injector("h2").Send(support::UdpFrame({.from = 7, .to = 8}));
    EXPECT_TRUE(Comes([&] { return To("p1", {.to = 7}) == Made(Kind::kInterface, p2); }));
    EXPECT_EQ(To("p2", {.to = 7}), Dropped(Discard::kSamePort));
    Injector("h3").Send(support::UdpFrame({.from = 7, .to = 8}));  // it has moved
    const std::uint32_t p3 = Network::Index("p3");
    EXPECT_TRUE(Comes([&] { return To("p1", {.to = 7}) == Made(Kind::kInterface, p3); }));
    Network::Ip("link set p3 nomaster");
    EXPECT_TRUE(Comes([&] { return To("p1", {.to = 7}) == Made(Kind::kInterface, Network::Index("p2")); }));
}

TEST_F(ForwardingTest, TakesStaticAddressesAndPortsThatGoDown)
{
    Network::Veth("p1", "h1");
    Network::Veth("p2", "h2");
    Network::Veth("p3", "h3");
    Network::MakeBridge("br0", {"p1", "p2", "p3"});
    Network::Bridge("fdb add 02:00:00:00:00:09 dev p2 master static");
    Start();
    EXPECT_TRUE(Comes([&] { return To("p1", {.to = 9}) == Made(Kind::kInterface, Network::Index("p2")); }));
    EXPECT_TRUE(Comes([&] { return To("p1", {.to = 0xEE}) == Made(Kind::kSeveral, 0, 2); }));
    Network::Bridge("fdb del 02:00:00:00:00:09 dev p2 master");
    EXPECT_TRUE(Comes([&] { return To("p1", {.to = 9}) == Made(Kind::kSeveral, 0, 2); }));
    Network::Ip("link set h3 down");
    EXPECT_TRUE(Comes([&] { return To("p1", {.to = 9}) == Made(Kind::kInterface, Network::Index("p2")); }));
    Network::Bridge("link set dev p2 flood off");
    EXPECT_TRUE(Comes([&] { return To("p1", {.to = 9}) == Dropped(Discard::kNoPorts); }));
}

TEST_F(ForwardingTest, FollowsWhetherABridgeLooksAtMemberships)
{
    MakeBridge();
    Bytes frame = support::UdpFrame({.destination = "239.1.1.1"});
    frame[0] = std::byte{1};
    const std::uint32_t p1 = Network::Index("p1");
    const auto becomes = [&](std::uint32_t interfaces) {
        return Comes([&] {
            return m_monitor->CurrentForwarding().Resolve({p1, 0x0800, 0, frame}) ==
                   Made(Kind::kSeveral, 0, interfaces);
        });
    };
    EXPECT_TRUE(becomes(2));
    try {
        Network::Ip("link set br0 type bridge mcast_snooping 1");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << "this kernel's bridges do not look at memberships: " << error.what();
    }
    EXPECT_TRUE(becomes(0));
    Network::Ip("link set br0 type bridge mcast_snooping 0");
    EXPECT_TRUE(becomes(2));
}

TEST_F(ForwardingTest, WhatIsForTheBridgeIsLocalOrRouted)
{
    MakeBridge();
    Network::Ip("link set br0 address 02:00:00:00:00:30\naddr add 198.51.100.1/24 dev br0");
    const FrameOptions own{.to = 0x30, .source = "198.51.100.9", .destination = "198.51.100.1"};
    EXPECT_TRUE(Comes([&] { return To("p1", own) == Made(Kind::kLocal); }));
    EXPECT_EQ(To("br0", own), Made(Kind::kLocal));
}

TEST_F(ForwardingTest, KnowsNextHopAndPrefixes)
{
    MakeRouter();
    const std::uint32_t out = Network::Index("w0");
    EXPECT_EQ(Routes("192.0.2.7"), Routed(out, Ipv4(203, 0, 113, 2), 24, 25));
    EXPECT_EQ(Routes("203.0.113.9"), Routed(out, Ipv4(0, 0, 0, 0), 24, 28));
    EXPECT_EQ(Routes("203.0.113.1"), Made(Kind::kLocal));
    EXPECT_EQ(Routes("198.51.100.1"), Made(Kind::kLocal));
    EXPECT_EQ(Routes("198.51.100.255"), Made(Kind::kLocal)) << "broadcast in the network";
    EXPECT_EQ(Routes("192.0.2.200"), Dropped(Discard::kBlackHole)) << "a black hole";
    EXPECT_EQ(Routes("192.0.2.130"), Dropped(Discard::kUnreachable)) << "unreachable";
    EXPECT_EQ(Routes("192.88.99.1"), Dropped(Discard::kNoRoute)) << "no route";
    EXPECT_EQ(To("v0", {.to = 0x99, .destination = "192.0.2.7"}), Made(Kind::kUnknown)) << "not for us";
}

TEST_F(ForwardingTest, FollowsRoutesAddressesLinksAndTheSwitch)
{
    MakeRouter();
    const std::uint32_t out = Network::Index("w0");
    const Destination before = Routed(out, Ipv4(203, 0, 113, 2), 24, 25);
    ASSERT_EQ(Routes("192.0.2.7"), before);
    Network::Ip("route add 192.0.2.0/28 via 203.0.113.3");
    EXPECT_TRUE(BecomesRouted("192.0.2.7", Routed(out, Ipv4(203, 0, 113, 3), 24, 28)));
    Network::Ip("route del 192.0.2.0/28 via 203.0.113.3");
    EXPECT_TRUE(BecomesRouted("192.0.2.7", before));
    Network::Ip("addr add 192.0.2.7/32 dev v0");
    EXPECT_TRUE(BecomesRouted("192.0.2.7", Made(Kind::kLocal)));
    Network::Ip("addr del 192.0.2.7/32 dev v0");
    EXPECT_TRUE(BecomesRouted("192.0.2.7", before));
    SetSwitch("ipv4/ip_forward", "0");
    EXPECT_TRUE(BecomesRouted("192.0.2.7", Dropped(Discard::kUnreachable)));
    SetSwitch("ipv4/ip_forward", "1");
    EXPECT_TRUE(BecomesRouted("192.0.2.7", before));
    Network::Ip("link set w0 down");
    EXPECT_TRUE(BecomesRouted("192.0.2.7", Dropped(Discard::kNoRoute)));
}

TEST_F(ForwardingTest, APolicyRuleCountsAtOnce)
{
    MakeRouter();
    const std::uint32_t out = Network::Index("w0");
    const Destination before = Routed(out, Ipv4(203, 0, 113, 2), 24, 25);
    ASSERT_EQ(Routes("192.0.2.7"), before);
    try {
        Network::Ip(
            "route add 192.0.2.0/26 via 203.0.113.4 table 100\n"
            "rule add from 198.51.100.8/31 table 100");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << "this kernel has no policy rules: " << error.what();
    }
    const Destination other = Routed(out, Ipv4(203, 0, 113, 4), 24, 26);
    EXPECT_TRUE(BecomesRouted("192.0.2.7", other));
    EXPECT_EQ(Routes("192.0.2.7", "198.51.100.20"), before) << "the rule is for the other source";
    EXPECT_EQ(Routes("192.0.2.7"), other);
    Network::Ip("rule del from 198.51.100.8/31 table 100");
    EXPECT_TRUE(BecomesRouted("192.0.2.7", before));
}

TEST_F(ForwardingTest, OfSeveralPathsItNamesOne)
{
    MakeRouter();
    try {
        Network::Ip("route add 10.0.0.0/8 nexthop via 203.0.113.5 nexthop via 203.0.113.6");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << "this kernel has no routes of several paths: " << error.what();
    }
    const std::uint32_t out = Network::Index("w0");
    const Destination fifth = Routed(out, Ipv4(203, 0, 113, 5), 24, 8);
    const Destination sixth = Routed(out, Ipv4(203, 0, 113, 6), 24, 8);
    ASSERT_TRUE(Comes([&] { return Routes("10.0.0.1").kind == Kind::kInterface; }));
    int fives = 0;
    int sixes = 0;
    for (int i = 2; i < 66; ++i) {
        const Destination to = Routes("10.0.0.1", "198.51.100." + std::to_string(i));
        fives += to == fifth ? 1 : 0;
        sixes += to == sixth ? 1 : 0;
    }
    EXPECT_EQ(fives + sixes, 64);
    EXPECT_GT(fives, 0);
    EXPECT_GT(sixes, 0);
}

TEST_F(ForwardingTest, RoutesIpv6)
{
    Network::Veth("v0", "v1");
    Network::Veth("w0", "w1");
    SetSwitch("ipv6/conf/all/forwarding", "1");
    Network::Ip(
        "link set v0 address 02:00:00:00:00:20\n"
        "addr add 2001:db8:1::1/64 dev v0 nodad\n"
        "addr add 2001:db8:2::1/64 dev w0 nodad\n"
        "route add 2001:db8:4000::/36 via 2001:db8:2::2");
    Start();
    const std::string source = "2001:db8:1::9";
    Address next{16, {0x20, 0x01, 0x0d, 0xb8, 0, 2}};
    next.bytes[15] = 2;
    const Destination routed = Routed(Network::Index("w0"), next, 64, 36);
    // The kernel makes an address's own route beside what `ip` waits for, some time after the one of its
    // network.
    EXPECT_TRUE(Comes([&] { return Routes("2001:db8:2::1", source) == Made(Kind::kLocal); }));
    EXPECT_EQ(Routes("2001:db8:4001::1", source), routed);
    EXPECT_EQ(Routes("2001:db8:2::9", source), Routed(Network::Index("w0"), {16, {}}, 64, 64)) << "beside it";
    EXPECT_EQ(Routes("ff02::1", source), Made(Kind::kLocal));
    EXPECT_EQ(Routes("ff0e::1", source), Made(Kind::kUnknown)) << "who has joined can't be asked";
    EXPECT_EQ(Routes("3fff::1", source), Dropped(Discard::kNoRoute));
    SetSwitch("ipv6/conf/all/forwarding", "0");
    EXPECT_TRUE(Comes([&] { return Routes("2001:db8:4001::1", source) == Dropped(Discard::kUnreachable); }));
    EXPECT_EQ(Routes("2001:db8:2::1", source), Made(Kind::kLocal));
}

// RFC 1812, 5.3.7 (martian addresses), 5.3.8 (source address validation), 5.2.7.1 (ICMP's codes); RFC 1122,
// 3.2.1.3: where 0.0.0.0 and 127.0.0.0/8 may not be.
TEST_F(ForwardingTest, TellsWhyTheKernelForwardsNothing)
{
    MakeRouter();
    Network::Ip("route add prohibit 192.0.2.64/28");
    EXPECT_TRUE(BecomesRouted("192.0.2.65", Dropped(Discard::kProhibited)));
    EXPECT_EQ(Routes("192.0.2.7", "127.0.0.1"), Dropped(Discard::kSourceLoopback));
    EXPECT_EQ(Routes("192.0.2.7", "0.0.0.0"), Dropped(Discard::kSourceUnspecified));
    EXPECT_EQ(Routes("192.0.2.7", "224.0.0.1"), Dropped(Discard::kSourceMulticast));
    EXPECT_EQ(Routes("127.0.0.1"), Dropped(Discard::kDestinationLoopback));
    SetSwitch("ipv4/conf/v0/rp_filter", "1");
    Network::Ip("route add 192.0.2.80/28 dev w0");  // forgets what is remembered
    EXPECT_TRUE(Comes([&] { return Routes("192.0.2.7", "203.0.113.9") == Dropped(Discard::kReversePath); }));
    EXPECT_EQ(Routes("192.0.2.7").kind, Kind::kInterface) << "the black hole and other sources stay apart";
    EXPECT_EQ(Routes("192.0.2.200", "203.0.113.9"), Dropped(Discard::kBlackHole));
}

// RFC 1112, 7.2: a host takes packets of the groups that it has joined.
TEST_F(ForwardingTest, AGroupIsLocalWhileAProgramHasJoinedIt)
{
    MakeRouter();
    EXPECT_EQ(Routes("239.1.1.1"), Dropped(Discard::kUnknown));
    EXPECT_EQ(Routes("224.0.0.251"), Made(Kind::kLocal));
    {
        const base::UniqueFd member(::socket(AF_INET, SOCK_DGRAM, 0));
        ip_mreqn join{};
        join.imr_multiaddr.s_addr = htonl(0xEF010101);
        join.imr_ifindex = static_cast<int>(Network::Index("v0"));
        ASSERT_EQ(::setsockopt(member.Get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &join, sizeof join), 0);
        EXPECT_TRUE(BecomesRouted("239.1.1.1", Made(Kind::kLocal))) << "though nobody tells";
    }
    EXPECT_TRUE(BecomesRouted("239.1.1.1", Dropped(Discard::kUnknown)));
}

TEST_F(ForwardingTest, AMacvlanDeviceTakesItsAddressHereOrElsewhere)
{
    MakeRouter();
    try {
        Network::Ip(
            "link add link v0 name m0 address 02:00:00:00:00:31 type macvlan mode bridge\nlink set m0 up\n"
            "addr add 198.51.100.31/24 dev m0");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << "this kernel has no macvlan devices: " << error.what();
    }
    const auto own = [&] {
        return To("v0", {.to = 0x31, .source = "198.51.100.9", .destination = "198.51.100.31"});
    };
    EXPECT_TRUE(Comes([&] { return own() == Made(Kind::kLocal); }));
    EXPECT_EQ(To("v0", {.to = 0x31, .source = "198.51.100.9", .destination = "192.0.2.7"}),
              Routed(Network::Index("w0"), Ipv4(203, 0, 113, 2), 24, 25));
    const Network::Host other;
    Network::Ip("link set m0 netns " + std::to_string(other.Pid()));
    (void)other.Run({"ip", "link", "set", "m0", "up"});
    EXPECT_TRUE(Comes([&] { return own() == Made(Kind::kUnknown); })) << "never discarded";
}

TEST_F(ForwardingTest, VlanDevicesTakeTheirPackets)
{
    MakeRouter();
    try {
        Network::Ip(
            "link add link v0 name v0.5 type vlan id 5\nlink set v0.5 up\n"
            "addr add 10.5.0.1/16 dev v0.5");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << "this kernel has no VLAN devices: " << error.what();
    }
    const Bytes frame = support::UdpFrame({.to = 0x20, .source = "10.5.0.9", .destination = "192.0.2.7"});
    Destination expected = Routed(Network::Index("w0"), Ipv4(203, 0, 113, 2), 16, 25);
    expected.inputVlan = 5;
    EXPECT_TRUE(Comes([&] {
        return m_monitor->CurrentForwarding().Resolve({Network::Index("v0"), 0x0800, 5, frame}) == expected;
    }));
}

}  // namespace
}  // namespace net
