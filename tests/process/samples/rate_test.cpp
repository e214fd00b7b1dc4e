// SPDX-License-Identifier: Apache-2.0
// How many frames are sampled, and that pool, samples and the kernel's own counters tell the same story.
//
// False alarms: every bound here fails a right manager with a probability of 1e-8 at most; a run has 12 of
// them, so it fails by chance less than once in eight million times.

#include <algorithm>

#include "samples/binomial.h"
#include "samples/samples_test.h"

namespace samples_tests {

namespace {

constexpr std::size_t kPayload = 14 + 20 + 8;  // where the number of a frame is

/// Puts numbered frames on an interface from one CPU, so that they are counted in their order.
class NumberedTraffic {
public:
    explicit NumberedTraffic(const std::string& device) : m_injector(device) {}

    void Send(std::uint64_t count)
    {
        constexpr std::uint64_t kAtOnce = 200;
        std::vector<Bytes> frames(std::min(kAtOnce, count), support::UdpFrame({.size = 100}));
        while (count > 0) {
            frames.resize(std::min(kAtOnce, count));
            for (Bytes& frame : frames) {
                ++m_sent;
                for (unsigned byte = 0; byte < 8; ++byte)
                    frame[kPayload + byte] = static_cast<std::byte>(m_sent >> (56U - 8U * byte));
            }
            m_injector.Send(frames);
            count -= frames.size();
        }
    }
    [[nodiscard]] std::uint64_t Sent() const { return m_sent; }

private:
    Injector m_injector;
    std::uint64_t m_sent = 0;
};

/// From 1.
std::uint64_t NumberOf(const DecodedFlow& flow) { return support::NumberOf(flow.header->bytes); }

class RateTest : public SourceTest {
protected:
    /// After frames at one in `rate`: how many samples there may be, and what each says.
    void ExpectDrawn(const std::vector<DecodedFlow>& flows, std::uint64_t frames, std::uint32_t rate)
    {
        const Bounds bounds = BinomialBounds(frames, 1.0 / rate, kFalseAlarm);
        EXPECT_GE(flows.size(), bounds.least) << "of " << frames << " at 1 in " << rate;
        EXPECT_LE(flows.size(), bounds.most) << "of " << frames << " at 1 in " << rate;
        std::uint64_t number = 0, pool = 0;
        for (const DecodedFlow& flow : flows) {
            ASSERT_EQ(flow.rate, rate);
            ASSERT_EQ(flow.drops, 0U);
            ASSERT_GT(NumberOf(flow), number) << "no frame is sampled twice";
            number = NumberOf(flow);
            // With eBPF each frame has its place. Packet sockets count what is between two looks as a whole.
            ASSERT_GE(flow.pool, IsEbpf() ? number : pool);
            ASSERT_LE(flow.pool, IsEbpf() ? number : frames + 1);
            pool = flow.pool;
        }
    }
};

INSTANTIATE_TEST_SUITE_P(, RateTest, BothSources(), NameOfSource);

// sFlow v5, flow_sample: sampling_rate, and sample_pool, the packets that could have been sampled.
TEST_P(RateTest, TheSamplesOfEachInterfaceAreWithinWhatChanceAllowsAndThePoolIsTheKernelsCount)
{
    struct Row {
        std::string port, host;
        std::uint32_t rate;
        std::uint64_t frames;
    };
    const std::vector<Row> rows{{"p1", "h1", 64, 64000}, {"p2", "h2", 10, 20000}, {"p3", "h3", 2, 6000}};
    MakeBridge(3);
    Collector collector;
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    for (const Row& row : rows) agent.Update(row.port, {.flows = "c1", .rate = row.rate});
    SendFromOneCpu();
    std::uint64_t sent = 0, pools = 0, received = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.port);
        NumberedTraffic traffic(row.host);
        traffic.Send(row.frames);
        // With one more frame that is surely sampled, the pool of the last sample is that of all frames; and
        // what was sampled before it has come.
        agent.AwaitMetric("sflow_interface_packets_seen_total{interface=\"" + row.port + "\"}", row.frames);
        agent.Update(row.port, {.flows = "c1", .rate = 1});
        traffic.Send(1);
        std::vector<DecodedFlow> flows;
        support::Await("the last frame's sample", [&] {
            flows = collector.Flows(Network::Index(row.port));
            return !flows.empty() && NumberOf(flows.back()) == row.frames + 1;
        });
        EXPECT_EQ(flows.back().rate, 1U);
        EXPECT_EQ(flows.back().pool, row.frames + 1);
        pools += flows.back().pool;
        received += Received(row.port);
        sent += traffic.Sent();
        EXPECT_EQ(agent.OfInterface(row.port, "samples_total"), flows.size());
        flows.pop_back();
        ExpectDrawn(flows, row.frames, row.rate);
    }
    EXPECT_EQ(pools, sent);
    EXPECT_EQ(pools, received);
}

TEST_P(RateTest, WhatTheSamplesStandForIsTheTrafficOfEachFlow)
{
    // Three flows of different sizes, one in 20 sampled: samples by rate estimate each one's frames.
    constexpr std::uint32_t kRate = 20;
    constexpr std::size_t kRounds = 4000;
    MakeBridge(2);
    Collector collector;
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    agent.Update("p1", {.flows = "c1", .rate = kRate});
    const std::vector<std::pair<std::uint16_t, std::size_t>> flows{{5001, 6}, {5002, 3}, {5003, 1}};
    std::vector<Bytes> round;
    for (const auto& [port, frames] : flows)
        for (std::size_t i = 0; i < frames; ++i)
            round.push_back(support::UdpFrame({.destinationPort = port, .size = 100 + port % 10U * 100}));
    Injector injector("h1");
    for (std::size_t i = 0; i < kRounds; ++i) injector.Send(round);
    agent.AwaitMetric("sflow_interface_packets_seen_total{interface=\"p1\"}", kRounds * round.size());
    agent.Update("p1", {.flows = "c1", .rate = 1});
    injector.Send(support::UdpFrame({.destinationPort = 6000}));
    const auto portOf = [](const DecodedFlow& flow) {
        return std::to_integer<unsigned>(flow.header->bytes.at(36)) << 8U |
               std::to_integer<unsigned>(flow.header->bytes.at(37));
    };
    std::vector<DecodedFlow> all;
    support::Await("the last frame's sample", [&] {
        all = collector.Flows();
        return !all.empty() && portOf(all.back()) == 6000;
    });
    for (const auto& [port, frames] : flows) {
        SCOPED_TRACE(port);
        const auto samples = static_cast<std::uint64_t>(
            std::ranges::count_if(all, [&, port = port](const auto& flow) { return portOf(flow) == port; }));
        const Bounds bounds = BinomialBounds(kRounds * frames, 1.0 / kRate, kFalseAlarm);
        EXPECT_GE(samples, bounds.least);
        EXPECT_LE(samples, bounds.most);
    }
}

// sFlow v5, flow_sample: drops, packets that were to be sampled and were lost for lack of resources.
TEST_P(RateTest, AStallLosesOnlyWhatTheBufferCantHoldAndTheSamplesSayHowMuch)
{
    constexpr std::uint64_t kFrames = 20000;  // of at least 250 bytes each in the buffer
    MakeBridge(1);
    Collector collector;
    Agent& agent = StartSource({"--ring-size", "1M"});
    agent.AddCollector("c1", collector.Port());
    agent.Update("p1", {.flows = "c1"});
    SendFromOneCpu();
    NumberedTraffic traffic("h1");
    traffic.Send(1);
    ASSERT_EQ(NumberOf(collector.AwaitFlows(1).back()), 1U);
    agent.Manager().Freeze();
    traffic.Send(kFrames);
    agent.Manager().Thaw();
    agent.AwaitMetric("sflow_interface_packets_seen_total{interface=\"p1\"}", traffic.Sent());
    std::uint64_t lost = 0;
    support::Await("all that was not lost", [&] {
        lost = agent.Metric("sflow_interface_drops_total{interface=\"p1\",cause=\"buffer\"}");
        return collector.Flows().size() + lost == traffic.Sent();
    });
    EXPECT_GT(lost, 0U) << "or the stall was none";
    EXPECT_GT(collector.Flows().size(), 1000U);
    traffic.Send(1);
    support::Await("the last frame's sample",
                   [&] { return NumberOf(collector.Flows().back()) == traffic.Sent(); });
    const DecodedFlow last = collector.Flows().back();
    EXPECT_EQ(last.pool, traffic.Sent());
    EXPECT_EQ(last.drops, lost);
    EXPECT_EQ(last.sequence, collector.Flows().size());
    EXPECT_EQ(last.sequence + last.drops, last.pool);
}

}  // namespace

}  // namespace samples_tests
