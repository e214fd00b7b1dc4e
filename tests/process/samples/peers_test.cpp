// SPDX-License-Identifier: Apache-2.0
// Collectors of other people's on the manager's datagrams: what they make of the samples is the traffic
// that was sent and that the interfaces counted. Needs sfcapd and nfdump (nfdump-sflow), and sfacctd
// (pmacct).

#include <cstdint>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "samples/binomial.h"
#include "samples/frame_sizes.h"
#include "samples/peer.h"
#include "samples/samples_test.h"
#include "samples/shapes.h"

namespace samples_tests {

namespace {

struct Totals {
    std::uint64_t packets = 0, bytes = 0;
    friend bool operator==(const Totals&, const Totals&) = default;
};

void PrintTo(const Totals& totals, std::ostream* out)
{
    *out << totals.packets << " packets of " << totals.bytes << " bytes";
}

class PeersTest : public SourceTest {
protected:
    /// A bridge with two ports that is a router too.
    void MakeNetwork()
    {
        SetSwitch("ipv6/conf/default/disable_ipv6", "1");  // ports and hosts say nothing of their own
        MakeBridge(2);
        m_far.emplace();
        MakeRouter(*m_far);
    }

    /// An agent that samples p1 for the peer and for the test's own collector, each frame or one of many.
    Agent& Sample(Collector& own, const std::vector<std::string>& interfaces)
    {
        Agent& agent = StartSource({"--ring-size", "4M"});
        agent.AddCollector("own", own.Port());
        agent.AddCollector("peer", Peer::kPort);
        for (const std::string& interface : interfaces) {
            agent.Update(interface, {.flows = "own"});
            agent.AddFlows(interface, "peer");
        }
        return agent;
    }

    /// Waits until the peer has taken all that the test's own collector has: its socket holds little.
    void AwaitPeer(std::size_t flows)
    {
        TheAgent().AwaitMetric("sflow_collector_samples_total{collector=\"peer\",kind=\"flow\"}", flows);
        Peer::AwaitTaken();
    }

private:
    std::optional<Network::Host> m_far;
};

/// Frames that both peers can read, with how often each is sent: bridged ones and routed ones, of these some
/// to directly connected neighbours. All IP, one tag at most.
std::vector<Bytes> Mixture()
{
    std::vector<Bytes> frames;
    const auto add = [&](std::size_t times, const Bytes& frame) {
        frames.insert(frames.end(), times, frame);
    };
    const auto six = [](std::size_t size, std::uint16_t port) {
        return support::FrameOptions{
            .source = "2001:db8::1", .destination = "2001:db8::2", .destinationPort = port, .size = size};
    };
    add(50, IpUdp({.destinationPort = 4001, .size = 200}));
    add(30, IpUdp({.destinationPort = 4002, .size = 1514}));
    add(20, TcpFrame({.destinationPort = 4003, .size = 60}));
    add(10, IpUdp({.tags = {0x8100600A}, .destinationPort = 4004, .size = 404}));
    add(25, IpUdp(six(300, 4005)));
    add(15, TcpFrame(six(1000, 4006)));
    const auto routed = [](const char* destination, std::uint16_t port, std::size_t size) {
        support::FrameOptions options = ToRouter(destination);
        options.destinationPort = port;
        options.size = size;
        return options;
    };
    add(12, IpUdp(routed("203.0.113.2", 4011, 200)));
    add(8, TcpFrame(routed("2001:db8:b::2", 4012, 500)));
    add(5, IpUdp(routed("192.0.2.7", 4013, 700)));
    add(5, IpUdp(routed("2001:db8:c::7", 4014, 800)));
    return frames;
}

/// Lower ports are those of bridged frames.
constexpr unsigned kFirstRouted = 4011;

/// By destination port.
std::map<unsigned, Totals> TotalsOfMixture(std::uint64_t rounds)
{
    std::map<unsigned, Totals> totals{{4001, {50, 50 * (200 + kFcs)}}, {4002, {30, 30 * (1514 + kFcs)}},
                                      {4003, {20, 20 * (60 + kFcs)}},  {4004, {10, 10 * (404 + kFcs)}},
                                      {4005, {25, 25 * (300 + kFcs)}}, {4006, {15, 15 * (1000 + kFcs)}},
                                      {4011, {12, 12 * (200 + kFcs)}}, {4012, {8, 8 * (500 + kFcs)}},
                                      {4013, {5, 5 * (700 + kFcs)}},   {4014, {5, 5 * (800 + kFcs)}}};
    for (auto& [port, one] : totals) one = {one.packets * rounds, one.bytes * rounds};
    return totals;
}

INSTANTIATE_TEST_SUITE_P(, PeersTest, BothSources(), NameOfSource);

TEST_P(PeersTest, SfcapdFindsEachFlowsPacketsAndBytesAndNoGap)
{
    constexpr std::uint64_t kRounds = 4;
    if (const std::string why = Peer::WhyNot(Sfcapd::kProgram); !why.empty()) GTEST_SKIP() << why;
    MakeNetwork();
    Sfcapd peer;
    Collector own;
    Sample(own, {"p1"});
    const auto frames = Mixture();
    Injector injector("h1");
    for (std::uint64_t round = 1; round <= kRounds; ++round) {
        injector.Send(frames);
        own.AwaitFlows(round * frames.size());
        AwaitPeer(round * frames.size());
    }
    EXPECT_EQ(peer.End(), 0U);

    EXPECT_THAT(peer.Log(), testing::HasSubstr("Sequence Errors: 0, Bad Packets: 0"));
    EXPECT_THAT(peer.Log(), testing::HasSubstr("Packets: " + std::to_string(kRounds * frames.size()) + ", "));
    const std::string p1 = std::to_string(Network::Index("p1"));
    const std::string p2 = std::to_string(Network::Index("p2")), r0 = std::to_string(Network::Index("r0"));
    std::map<unsigned, Totals> found;
    std::istringstream flows(peer.Flows("%in %out %dp %pkt %byt"));
    for (std::string in, out; flows >> in >> out;) {
        unsigned port = 0;
        Totals one;
        flows >> port >> one.packets >> one.bytes;
        EXPECT_EQ(in, p1);
        EXPECT_EQ(out, port < kFirstRouted ? p2 : r0) << port;
        found[port].packets += one.packets;
        found[port].bytes += one.bytes;
    }
    EXPECT_EQ(found, TotalsOfMixture(kRounds));
}

TEST_P(PeersTest, SfacctdsRenormalizedTotalsAgreeWithTheInterfaceCounters)
{
    constexpr std::uint64_t kRounds = 4, kManyRounds = 150;
    constexpr std::uint32_t kRate = 50;
    if (const std::string why = Peer::WhyNot(Sfacctd::kProgram); !why.empty()) GTEST_SKIP() << why;
    MakeNetwork();
    Sfacctd peer("in_iface, dst_port");
    Collector own;
    Agent& agent = Sample(own, {"p1", "p2"});
    SendFromOneCpu();
    const auto frames = Mixture();
    Injector h1("h1"), h2("h2");
    for (std::uint64_t round = 1; round <= kRounds; ++round) {
        h1.Send(frames);
        own.AwaitFlows(round * frames.size());
        AwaitPeer(round * frames.size());
    }
    // The other interface with one frame in many, and one more that is surely sampled and ends it.
    agent.Update("p2", {.flows = "own", .rate = kRate});
    for (std::uint64_t round = 0; round < kManyRounds; ++round) {
        h2.Send(frames);
        if (round % 10 == 0) Peer::AwaitTaken();
    }
    agent.AwaitMetric("sflow_interface_packets_seen_total{interface=\"p2\"}", Received("p2"));
    agent.Update("p2", {.flows = "own", .rate = 1});
    h2.Send(IpUdp({.destinationPort = 4999, .size = 100}));
    const std::uint32_t p1 = Network::Index("p1"), p2 = Network::Index("p2");
    std::vector<DecodedFlow> sampled;
    support::Await("the last sample", [&] {
        sampled = own.Flows(p2);
        return !sampled.empty() && sampled.back().pool == Received("p2") && sampled.back().rate == 1;
    });
    AwaitPeer(own.Flows().size());
    EXPECT_EQ(peer.End(), 0U);

    std::map<unsigned, Totals> onP1;
    std::map<std::uint32_t, Totals> all;
    for (const nlohmann::json& one : peer.Totals()) {
        const Totals totals{one.at("packets"), one.at("bytes")};
        const std::uint32_t in = one.at("iface_in");
        all[in].packets += totals.packets;
        all[in].bytes += totals.bytes;
        if (in == p1) onP1[one.at("port_dst")] = totals;
    }
    EXPECT_EQ(onP1, TotalsOfMixture(kRounds));
    const KernelCounters kernel = CountersOf("p1");
    EXPECT_EQ(all[p1], (Totals{kernel.rxPackets, kernel.rxBytes + kernel.rxPackets * kFcs}));
    // Of the other one it knows what its samples stand for. It does better than the rate, because it goes by
    // the differences of the pools; what it can't know is how many frames were before the first sample. That
    // these are more than 1350, a twentieth, has the probability 0.98^1350, 1e-12.
    const std::uint64_t sent = Received("p2");
    EXPECT_GE(all[p2].packets, sent - sent / 20);
    EXPECT_LE(all[p2].packets, sent + sent / 20);
    const Bounds bounds = BinomialBounds(sent - 1, 1.0 / kRate, kFalseAlarm);
    EXPECT_GE(sampled.size() - 1, bounds.least);
    EXPECT_LE(sampled.size() - 1, bounds.most);
    EXPECT_THAT(peer.Log(), testing::Not(testing::HasSubstr("WARN")));
}

}  // namespace

}  // namespace samples_tests
