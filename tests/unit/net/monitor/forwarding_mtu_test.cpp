// SPDX-License-Identifier: Apache-2.0
// What is too large to be forwarded: each packet is put on a live router's interface, and the kernel's counts
// say what it has done with it. The codes are those of RFC 1812, 5.2.7.1 (4, fragmentation needed) and RFC
// 4443, 3.2.

#include <cstdint>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "net/destinations.h"
#include "net/monitor_fixture.h"
#include "support/network.h"

namespace net {
namespace {

using Kind = Destination::Kind;
using support::Bytes;
using support::Network;

void Enable(const std::string& name)
{
    std::ofstream file("/proc/sys/net/" + name);
    file << "1";
    file.close();
    if (!file) throw std::runtime_error("can't set " + name);
}

/// What IP has forwarded and what was too large for that, of both versions.
struct Fates {
    std::uint64_t forwarded = 0, tooLarge = 0;
};

Fates KernelsFates()
{
    Fates fates;
    // Two lines for each protocol: names, then values.
    std::ifstream four("/proc/net/snmp");
    std::string names, values;
    while (std::getline(four, names) && std::getline(four, values)) {
        if (!names.starts_with("Ip:")) continue;
        std::istringstream name(names), value(values);
        std::string key, number;
        while (name >> key && value >> number) {
            if (key == "ForwDatagrams") fates.forwarded += std::stoull(number);
            if (key == "FragFails") fates.tooLarge += std::stoull(number);
        }
    }
    std::ifstream six("/proc/net/snmp6");
    std::string key;
    std::uint64_t value = 0;
    while (six >> key >> value) {
        if (key == "Ip6OutForwDatagrams") fates.forwarded += value;
        if (key == "Ip6InTooBigErrors") fates.tooLarge += value;
    }
    return fates;
}

/// Sets DF, and the checksum right again (RFC 1624).
void ForbidFragments(Bytes& frame)
{
    constexpr std::size_t kFlags = 14 + 6, kChecksum = 14 + 10;
    frame[kFlags] |= std::byte{0x40};
    const auto old = std::to_integer<std::uint32_t>(frame[kChecksum]) << 8 |
                     std::to_integer<std::uint32_t>(frame[kChecksum + 1]);
    std::uint32_t sum = (~old & 0xFFFF) + 0x4000;
    sum = (sum & 0xFFFF) + (sum >> 16);
    frame[kChecksum] = static_cast<std::byte>(~sum >> 8 & 0xFF);
    frame[kChecksum + 1] = static_cast<std::byte>(~sum & 0xFF);
}

/// A router between v0 and w0, whose MTU is 1300.
class ForwardingMtuTest : public MonitorFixture {
protected:
    void SetUp() override
    {
        MonitorFixture::SetUp();
        if (IsSkipped()) return;
        Network::Veth("v0", "v1");
        Network::Veth("w0", "w1");
        Enable("ipv4/ip_forward");
        Enable("ipv6/conf/all/forwarding");
        Network::Ip(
            "link set v0 address 02:00:00:00:00:20\n"
            "link set w0 mtu 1300\n"
            "addr add 198.51.100.1/24 dev v0\n"
            "addr add 203.0.113.1/24 dev w0\n"
            "addr add 2001:db8:1::1/64 dev v0 nodad\n"
            "addr add 2001:db8:2::1/64 dev w0 nodad\n"
            "route add 10.1.0.0/16 via 203.0.113.2\n"
            "route add 10.2.0.0/16 via 203.0.113.2 mtu 1000\n"
            "route add 10.3.0.0/16 via 203.0.113.2 mtu 1450\n"
            "route add 2001:db8:3::/48 via 2001:db8:2::2\n"
            "route add 2001:db8:4::/48 via 2001:db8:2::2 mtu 1290\n"
            "route add 2001:db8:5::/48 via 2001:db8:2::2 mtu lock 1290");
        Network::AwaitSending("v1");
        Network::AwaitSending("w0");
        m_monitor->Start();
        m_injector.emplace("v1");
        ASSERT_TRUE(Comes([&] { return Named(Frame("10.1.0.1", 200, true)).kind == Kind::kInterface; }));
    }

    static Bytes Frame(const std::string& destination, std::size_t packet, bool fragmentable)
    {
        const bool six = IsIpv6(destination);
        Bytes frame = support::UdpFrame({.to = 0x20,
                                         .source = six ? "2001:db8:1::9" : "198.51.100.9",
                                         .destination = destination,
                                         .size = 14 + packet});
        if (!six && !fragmentable) ForbidFragments(frame);
        return frame;
    }
    static bool IsIpv6(const std::string& destination) { return destination.find(':') != std::string::npos; }

    Destination Named(const Bytes& frame)
    {
        const auto type = static_cast<std::uint16_t>(std::to_integer<unsigned>(frame[12]) << 8 |
                                                     std::to_integer<unsigned>(frame[13]));
        return m_monitor->CurrentForwarding().Resolve(
            {Network::Index("v0"), type, 0, frame, 0x8100, static_cast<std::uint32_t>(frame.size())});
    }

    /// What is named, if the kernel does that with the packet; else a failure.
    Destination AsTheKernelDoes(const std::string& destination, std::size_t packet, bool fragmentable = false)
    {
        const Bytes frame = Frame(destination, packet, fragmentable);
        const Destination named = Named(frame);
        const Fates before = KernelsFates();
        m_injector->Send(frame);
        Fates after;
        EXPECT_TRUE(Comes([&] {
            after = KernelsFates();
            return after.forwarded + after.tooLarge > before.forwarded + before.tooLarge;
        })) << destination;
        EXPECT_EQ(after.tooLarge - before.tooLarge, named.kind == Kind::kDiscarded ? 1U : 0U)
            << destination << ", " << packet;
        return named;
    }
    bool IsForwarded(const std::string& destination, std::size_t packet, bool fragmentable = false)
    {
        const Destination to = AsTheKernelDoes(destination, packet, fragmentable);
        return to.kind == Kind::kInterface && to.ifIndex == Network::Index("w0");
    }

    std::optional<support::Injector> m_injector;
};

TEST_F(ForwardingMtuTest, TheInterfacesMtuIsTheLimit)
{
    EXPECT_TRUE(IsForwarded("10.1.0.1", 1300));
    EXPECT_EQ(AsTheKernelDoes("10.1.0.1", 1301), Dropped(Discard::kFragmentation));
    EXPECT_TRUE(IsForwarded("10.1.0.1", 1400, true)) << "in fragments";
    EXPECT_TRUE(IsForwarded("2001:db8:3::1", 1300));
    EXPECT_EQ(AsTheKernelDoes("2001:db8:3::1", 1301), Dropped(Discard::kTooBig));
}

TEST_F(ForwardingMtuTest, AnIpv4RoutesMtuGoesBeforeIt)
{
    EXPECT_TRUE(IsForwarded("10.2.0.1", 1000));
    EXPECT_EQ(AsTheKernelDoes("10.2.0.1", 1001), Dropped(Discard::kFragmentation));
    EXPECT_TRUE(IsForwarded("10.2.0.1", 1200, true));
    EXPECT_TRUE(IsForwarded("10.3.0.1", 1400)) << "above the interface's, too";
}

TEST_F(ForwardingMtuTest, AnIpv6RoutesMtuCountsIfItIsLocked)
{
    EXPECT_TRUE(IsForwarded("2001:db8:4::1", 1300));
    EXPECT_TRUE(IsForwarded("2001:db8:5::1", 1290));
    EXPECT_EQ(AsTheKernelDoes("2001:db8:5::1", 1291), Dropped(Discard::kTooBig));
}

TEST_F(ForwardingMtuTest, AChangedMtuCountsAtOnce)
{
    EXPECT_EQ(AsTheKernelDoes("10.1.0.1", 1400), Dropped(Discard::kFragmentation));
    Network::Ip("link set w0 mtu 1500");
    const Bytes frame = Frame("10.1.0.1", 1400, false);
    EXPECT_TRUE(Comes([&] { return Named(frame).kind == Kind::kInterface; }));
    EXPECT_TRUE(IsForwarded("10.1.0.1", 1400));
}

}  // namespace
}  // namespace net
