// SPDX-License-Identifier: Apache-2.0
// The agent's own datagrams pass the interfaces that it samples, at one in one, and are neither counted nor
// sampled: else each datagram would make another.

#include "samples/samples_test.h"

namespace samples_tests {

namespace {

class LoopTest : public SourceTest {
protected:
    static constexpr std::size_t kFrames = 10;
};

INSTANTIATE_TEST_SUITE_P(, LoopTest, BothSources(), NameOfSource);

TEST_P(LoopTest, DatagramsThatLeaveByASampledInterfaceAreNotSampled)
{
    MakeBridge(2);
    const Network::Host host;
    Network::Ip("link set h2 netns " + std::to_string(host.Pid()) +
                "\nlink set br0 address 02:00:00:00:00:30\naddr add 10.0.0.254/24 dev br0\n"
                "neigh add 10.0.0.2 lladdr 02:00:00:00:00:02 nud permanent dev br0");
    std::unique_ptr<Collector> collector;
    host.Within([&] {
        Network::Ip(
            "link set h2 address 02:00:00:00:00:02 up\naddr add 10.0.0.2/24 dev h2\n"
            "neigh add 10.0.0.254 lladdr 02:00:00:00:00:30 nud permanent dev h2");
        collector = std::make_unique<Collector>(1400, "10.0.0.2");
    });
    Agent& agent = StartSource({"--direction", "both"});
    agent.AddCollector("c1", collector->Port(), 1400, "10.0.0.2");
    for (const char* interface : {"p1", "p2", "br0"}) agent.Update(interface, {.flows = "c1"});
    Injector injector("h1");
    for (std::size_t i = 0; i < kFrames; ++i) {
        // One by one, so that many datagrams are sent.
        injector.Send(support::UdpFrame({.to = kNobody, .number = i}));
        collector->AwaitFlows(2 * (i + 1));
    }
    EXPECT_GE(collector->Arrivals().size(), kFrames);
    EXPECT_GE(CountersOf("p2").txPackets, 2 * kFrames) << "the datagrams have passed p2";
    // Entering by p1 and leaving by p2, and nothing else.
    EXPECT_EQ(agent.OfInterface("p1", "packets_seen_total"), kFrames);
    EXPECT_EQ(agent.OfInterface("p2", "packets_seen_total"), kFrames);
    EXPECT_EQ(agent.OfInterface("br0", "packets_seen_total"), 0U);
    EXPECT_EQ(collector->Flows().size(), 2 * kFrames);
}

TEST_P(LoopTest, DatagramsOnASampledLoopbackInterfaceAreNotSampled)
{
    Collector collector;
    Agent& agent = StartSource({"--direction", "both"});
    agent.AddCollector("c1", collector.Port());
    agent.Update("lo", {.flows = "c1"});
    // What asks for the agent's metrics passes the interface too, and is sampled.
    const auto isDatagram = [&](const DecodedFlow& flow) {
        constexpr std::size_t kProtocol = 23, kPort = 36, kUdp = 17;
        const auto& bytes = flow.header->bytes;
        return bytes.size() > kPort + 1 && std::to_integer<std::size_t>(bytes[kProtocol]) == kUdp &&
               (std::to_integer<unsigned>(bytes[kPort]) << 8U |
                std::to_integer<unsigned>(bytes[kPort + 1])) == collector.Port();
    };
    std::size_t before = 0;
    for (std::size_t i = 0; i < kFrames; ++i) {
        (void)agent.Metric("sflow_manager_operations_total");
        const auto flows = collector.AwaitFlows(before + 1);
        before = flows.size();
        for (const DecodedFlow& flow : flows) ASSERT_FALSE(isDatagram(flow));
    }
    EXPECT_GE(collector.Arrivals().size(), 3U);
}

// RFC 1122, 3.2.2.1: port unreachable.
TEST_P(LoopTest, TheErrorThatAnswersADatagramToNobodyMakesNoStorm)
{
    // It is no datagram of the agent's, so it is sampled like any packet; and its sample goes to a closed
    // port again. That goes on while no collector listens, but never faster than the manager looks for
    // samples.
    constexpr std::size_t kAnswers = 12;
    Collector collector;
    std::uint16_t nobody = 0;
    {
        const Collector gone;
        nobody = gone.Port();
    }
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    agent.AddCollector("nobody", nobody);
    agent.Update("lo", {.flows = "c1"});
    agent.AddFlows("lo", "nobody");
    const auto isError = [](const DecodedFlow& flow) {
        constexpr std::size_t kProtocol = 23;
        constexpr std::byte kIcmp{1};
        return flow.header->bytes.size() > kProtocol && flow.header->bytes[kProtocol] == kIcmp;
    };
    std::vector<WallTime> times;
    support::Await("answers", [&] {
        times.clear();
        for (const auto& arrival : collector.Arrivals())
            for (const DecodedFlow& flow : arrival.datagram.Flows())
                if (isError(flow)) times.push_back(arrival.time);
        return times.size() >= 2 * kAnswers;
    });
    EXPECT_GE(times.back() - times[times.size() - kAnswers], std::chrono::milliseconds(100));
    EXPECT_EQ(agent.Metric("sflow_collector_lost_datagrams_total{collector=\"c1\"}"), 0U);
    EXPECT_GE(agent.Metric("sflow_collector_errors_total{collector=\"nobody\"}"), 1U);
}

}  // namespace

}  // namespace samples_tests
