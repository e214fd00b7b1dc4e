// SPDX-License-Identifier: Apache-2.0
// Where a frame goes: what a sample says of it is where the kernel has sent it, as those at the far ends
// have heard.

#include <map>
#include <stdexcept>

#include "samples/samples_test.h"
#include "samples/shapes.h"
#include "samples/sniffer.h"

namespace samples_tests {

namespace {

using support::DecodedRouter;
using support::DecodedSwitch;
using support::FrameOptions;

struct PathRow {
    std::string name;
    FrameOptions frame;      // enters by p1
    std::vector<int> mac{};  // that it is sent to; empty: that of `frame`
    std::string port{};      // of the output; empty: `output` says it
    DecodedPort output{};
    std::vector<std::string> leaves{};  // interfaces by which the kernel sends it, in their order
    std::optional<DecodedRouter> router{};
    DecodedSwitch tags{};
};

class PathsTest : public SourceTest {
protected:
    void SetUp() override
    {
        SourceTest::SetUp();
        if (IsSkipped()) return;
        SetSwitch("ipv6/conf/default/disable_ipv6", "1");  // ports and hosts say nothing of their own
        MakeBridge(3);
        m_collector = std::make_unique<Collector>();
        for (const std::string number : {"2", "3"})
            m_far["p" + number] = std::make_unique<Sniffer>("h" + number);
    }

    /// The bridge's own address is a router's.
    void MakeRouter()
    {
        m_host = std::make_unique<Network::Host>();
        SamplesTest::MakeRouter(*m_host);
        m_host->Within([&] { m_far["r0"] = std::make_unique<Sniffer>("r1"); });
    }

    void Sample()
    {
        m_agent = &StartSource();
        m_agent->AddCollector("c1", m_collector->Port());
        m_agent->Update("p1", {.flows = "c1"});
    }

    /// Interfaces by which it has left.
    std::vector<std::string> LeftBy(std::uint64_t number)
    {
        std::vector<std::string> leaving;
        for (const auto& [interface, sniffer] : m_far)
            if (sniffer->Heard(number)) leaving.push_back(interface);
        return leaving;
    }

    void ExpectRows(const std::vector<PathRow>& rows)
    {
        Injector injector("h1");
        std::uint64_t count = 0;
        for (const PathRow& row : rows) {
            SCOPED_TRACE(row.name);
            FrameOptions options = row.frame;
            options.number = ++count;
            const Bytes frame = support::UdpFrame(options);
            injector.Send(row.mac.empty() ? frame : To(frame, row.mac));
            const DecodedFlow flow = m_collector->AwaitFlows(count).back();
            EXPECT_TRUE(
                support::Becomes([&] { return LeftBy(count) == row.leaves; }, std::chrono::seconds(5)))
                << "the kernel itself has sent it by " << testing::PrintToString(LeftBy(count));
            EXPECT_EQ(flow.input, (DecodedPort{0, Network::Index("p1")}));
            EXPECT_EQ(flow.output,
                      row.port.empty() ? row.output : (DecodedPort{0, Network::Index(row.port)}));
            EXPECT_EQ(flow.extendedRouter, row.router);
            EXPECT_EQ(flow.extendedSwitch, row.tags);
        }
    }

private:
    std::unique_ptr<Collector> m_collector;
    std::unique_ptr<Network::Host> m_host;
    std::map<std::string, std::unique_ptr<Sniffer>> m_far;  // by the interface that it is behind
    Agent* m_agent = nullptr;
};

INSTANTIATE_TEST_SUITE_P(, PathsTest, BothSources(), NameOfSource);

// sFlow v5, section 5, struct interface: format 0 one interface, 1 discarded, 2 several and their number. A
// flood to one port has left by one interface. 268: sFlow.org's sflow_drops.txt.
TEST_P(PathsTest, ABridgedFrameNamesThePortOrHowManyPortsItLeavesBy)
{
    Network::Bridge("link set dev p3 flood off");
    Sample();
    ExpectRows({
        {.name = "known", .frame = {.to = 2}, .port = "p2", .leaves = {"p2"}},
        {.name = "known, not flooded", .frame = {.to = 3}, .port = "p3", .leaves = {"p3"}},
        {.name = "unknown", .frame = {.to = kNobody}, .port = "p2", .leaves = {"p2"}},
        {.name = "broadcast",
         .frame = {},
         .mac = std::vector<int>(6, 0xFF),
         .output = {2, 2},
         .leaves = {"p2", "p3"}},
        {.name = "multicast",
         .frame = {},
         .mac = {1, 0, 0x5E, 1, 1, 1},
         .output = {2, 2},
         .leaves = {"p2", "p3"}},
        {.name = "where it came from", .frame = {.to = 1}, .output = {1, 268}},
    });
}

// sFlow v5, section 5, struct interface, format 2: 0 is a number that is not known. RFC 4541, 2.1.2: groups
// of the link go to all ports. The format can't say that one or none may be among "several".
TEST_P(PathsTest, ABridgeThatLooksAtMembershipsSendsAGroupToANumberOfPortsThatIsNotKnown)
{
    try {
        Network::Ip(
            "link set br0 type bridge mcast_snooping 1 mcast_query_response_interval 1\n"
            "link set br0 type bridge mcast_querier 1");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << "this kernel's bridges do not look at memberships: " << error.what();
    }
    Network::Bridge("mdb add dev br0 port p2 grp 239.1.1.1 permanent");
    Sample();
    ExpectRows({
        {.name = "joined by one",
         .frame = {.destination = "239.1.1.1"},
         .mac = {1, 0, 0x5E, 1, 1, 1},
         .output = {2, 0},
         .leaves = {"p2"}},
        {.name = "joined by nobody",
         .frame = {.destination = "239.2.2.2"},
         .mac = {1, 0, 0x5E, 2, 2, 2},
         .output = {2, 0}},
        {.name = "of the link",
         .frame = {.destination = "224.0.0.251"},
         .mac = {1, 0, 0x5E, 0, 0, 0xFB},
         .output = {2, 2},
         .leaves = {"p2", "p3"}},
        {.name = "broadcast",
         .frame = {.destination = "255.255.255.255"},
         .mac = std::vector<int>(6, 0xFF),
         .output = {2, 2},
         .leaves = {"p2", "p3"}},
        {.name = "unknown", .frame = {.to = kNobody}, .output = {2, 2}, .leaves = {"p2", "p3"}},
    });
}

// sFlow v5, extended_router. RFC 1812, 5.2.7.1 and sFlow.org's sflow_drops.txt (269) have the codes.
TEST_P(PathsTest, ARoutedPacketNamesInterfaceNextHopAndPrefixes)
{
    MakeRouter();
    Sample();
    const DecodedRouter far{"203.0.113.2", 24, 25};
    const DecodedRouter near{"0.0.0.0", 24, 28}, nearSix{"::", 64, 96};
    const DecodedRouter farSix{"2001:db8:b::2", 64, 48};
    const auto routed = [](const char* name, const char* to, const DecodedRouter& by) {
        return PathRow{.name = name, .frame = ToRouter(to), .port = "r0", .leaves = {"r0"}, .router = by};
    };
    ExpectRows({
        routed("by a next hop", "192.0.2.7", far),
        routed("by it again", "192.0.2.7", far),
        routed("to a neighbour", "203.0.113.3", near),
        routed("IPv6 by a next hop", "2001:db8:c::7", farSix),
        routed("IPv6 to a neighbour", "2001:db8:b::2", nearSix),
        {.name = "delivered here", .frame = ToRouter("10.0.0.254"), .output = kInternal},
        {.name = "to another address here", .frame = ToRouter("203.0.113.1"), .output = kInternal},
        {.name = "IPv6 delivered here", .frame = ToRouter("2001:db8:a::254"), .output = kInternal},
        {.name = "into a black hole", .frame = ToRouter("192.0.2.200"), .output = {1, 269}},
        {.name = "bridged, not routed",
         .frame = {.to = 2, .destination = "192.0.2.7"},
         .port = "p2",
         .leaves = {"p2"}},
    });
}

// RFC 8200, 5 and sFlow v5's code 262: an IPv6 router discards what is too big. RFC 791, 2.3: an IPv4 router
// fragments it if it may.
TEST_P(PathsTest, ARoutedPacketThatIsLargerThanTheMtuIsDiscardedOrLeavesInFragments)
{
    MakeRouter();
    Network::Ip("link set r0 mtu 1280");
    Sample();
    const auto large = [](const char* to, std::size_t packet) {
        FrameOptions options = ToRouter(to);
        options.size = 14 + packet;
        return options;
    };
    ExpectRows({
        {.name = "IPv6 that fits",
         .frame = large("2001:db8:c::7", 1280),
         .port = "r0",
         .leaves = {"r0"},
         .router = DecodedRouter{"2001:db8:b::2", 64, 48}},
        {.name = "IPv6 that is larger", .frame = large("2001:db8:c::7", 1281), .output = {1, 262}},
        {.name = "IPv4 that is larger",
         .frame = large("192.0.2.7", 1400),
         .port = "r0",
         .leaves = {"r0"},
         .router = DecodedRouter{"203.0.113.2", 24, 25}},
    });
}

// sFlow v5, extended_switch: an untagged packet has the VLAN of its port, that in which it leaves included.
// 265: sFlow.org's sflow_drops.txt.
TEST_P(PathsTest, ABridgeThatTellsVlansApartGivesEachFrameItsVlan)
{
    try {
        Network::Ip("link set br0 type bridge vlan_filtering 1");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << "this kernel's bridges do not tell VLANs apart: " << error.what();
    }
    // Frames leave without a tag, so that they are heard.
    Network::Bridge(
        "vlan del dev p1 vid 1\nvlan del dev p2 vid 1\nvlan del dev p3 vid 1\n"
        "vlan add dev p1 vid 10 pvid untagged\nvlan add dev p1 vid 20\n"
        "vlan add dev p2 vid 10 pvid untagged\nvlan add dev p2 vid 20 untagged\n"
        "vlan add dev p3 vid 20 untagged\n"
        "fdb add 02:00:00:00:00:02 dev p2 master static vlan 10\n"
        "fdb add 02:00:00:00:00:03 dev p3 master static vlan 20");
    Sample();
    ExpectRows({
        {.name = "untagged", .frame = {.to = 2}, .port = "p2", .leaves = {"p2"}, .tags = {10, 0, 10, 0}},
        {.name = "tagged",
         .frame = {.to = 3, .tags = {0x8100A014}},
         .port = "p3",
         .leaves = {"p3"},
         .tags = {20, 5, 20, 5}},
        {.name = "unknown in its VLAN",
         .frame = {.to = kNobody},
         .port = "p2",
         .leaves = {"p2"},
         .tags = {10, 0, 10, 0}},
        {.name = "unknown in the other VLAN",
         .frame = {.to = 2, .tags = {0x81000014}},
         .output = {2, 2},
         .leaves = {"p2", "p3"},
         .tags = {20, 0, 20, 0}},
        {.name = "of a VLAN that the port has not",
         .frame = {.to = 2, .tags = {0x8100001E}},
         .output = {1, 265},
         .tags = {30, 0, 0, 0}},
    });
}

}  // namespace

}  // namespace samples_tests
