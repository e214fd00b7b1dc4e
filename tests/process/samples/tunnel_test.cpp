// SPDX-License-Identifier: Apache-2.0
// Interfaces without a link header: a sample has the packet from IP on.

#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "samples/frame_sizes.h"
#include "samples/samples_test.h"
#include "samples/shapes.h"

namespace samples_tests {

namespace {

class TunnelTest : public SourceTest {
protected:
    ~TunnelTest() override
    {
        if (m_tunnel >= 0) ::close(m_tunnel);
    }

    void SetUp() override
    {
        SourceTest::SetUp();
        if (IsSkipped()) return;
        m_tunnel = ::open("/dev/net/tun", O_RDWR | O_CLOEXEC);
        ifreq request{};
        request.ifr_flags = IFF_TUN | IFF_NO_PI;
        std::strcpy(request.ifr_name, "tun0");
        if (m_tunnel < 0 || ::ioctl(m_tunnel, TUNSETIFF, &request) != 0)
            GTEST_SKIP() << "no tunnel can be made here: " << std::strerror(errno);
        Network::Ip(
            "link set tun0 up\naddr add 10.9.0.1/24 dev tun0\n"
            "addr add 2001:db8:9::1/64 dev tun0 nodad");
    }

    /// The packet enters by the tunnel.
    void Enter(const Bytes& packet) const
    {
        ASSERT_EQ(::write(m_tunnel, packet.data(), packet.size()), static_cast<ssize_t>(packet.size()));
    }

private:
    int m_tunnel = -1;
};

Bytes WithoutLinkHeader(const Bytes& frame) { return {frame.begin() + kEthernet, frame.end()}; }

INSTANTIATE_TEST_SUITE_P(, TunnelTest, AllSources(), NameOfSource);

// sFlow v5, enum header_protocol: IPv4 is 11, IPv6 is 12; sampled_header: frame_length, without an FCS
// nothing is stripped. struct interface: 0x3FFFFFFF, the agent itself.
TEST_P(TunnelTest, APacketIsSampledFromIpOn)
{
    struct Row {
        const char* name;
        Bytes packet;
        std::uint32_t protocol;
    };
    Collector collector;
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    agent.Update("tun0", {.flows = "c1"});
    const auto packet = [](const char* from, const char* to, std::size_t size) {
        return WithoutLinkHeader(IpUdp({.source = from, .destination = to, .size = kEthernet + size}));
    };
    const std::uint32_t tunnel = Network::Index("tun0");
    std::size_t count = 0;
    for (const Row& row : {Row{"IPv4", packet("10.9.0.2", "10.9.0.1", 100), 11},
                           {"longer than what is sampled", packet("10.9.0.2", "10.9.0.1", 1000), 11},
                           {"IPv6", packet("2001:db8:9::2", "2001:db8:9::1", 120), 12}}) {
        SCOPED_TRACE(row.name);
        Enter(row.packet);
        const DecodedFlow flow = collector.AwaitFlows(++count).back();
        Bytes beginning = row.packet;
        beginning.resize(std::min<std::size_t>(beginning.size(), 128));
        ASSERT_TRUE(flow.header);
        EXPECT_EQ(flow.header->protocol, row.protocol);
        EXPECT_EQ(flow.header->frameLength, row.packet.size());
        EXPECT_EQ(flow.header->stripped, 0U) << "there is no FCS";
        EXPECT_EQ(flow.header->bytes, beginning);
        EXPECT_EQ(flow.input, (DecodedPort{0, tunnel}));
        EXPECT_EQ(flow.output, kInternal);
        EXPECT_EQ(flow.extendedSwitch, support::DecodedSwitch{});
    }
}

}  // namespace

}  // namespace samples_tests
