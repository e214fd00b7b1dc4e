// SPDX-License-Identifier: Apache-2.0
// What the operations are tried on (see the header).

#include "endurance/operations_world.h"

#include <algorithm>
#include <cmath>

namespace endurance {

OperationsWorld::OperationsWorld(SamplingWorld& samplingWorld, Pool countsPool)
    : world(samplingWorld), pool(countsPool), p1(Network::Index("p1")), p2(Network::Index("p2"))
{
    Configure();
    world.AwaitApplied();
    for (const char* port : {"p1", "p2"}) m_before[port] = Received(port);
    m_there.emplace("h1", NumberedFrames(1, 2), kRate, 0);
    m_back.emplace("h2", NumberedFrames(2, 1), kRate, 0);
    Flow();
    for (const auto port : {p1, p2}) flowsAtA[port] = a.LastSequence(port);
}

void OperationsWorld::Configure(const std::vector<std::string>& ports)
{
    Service().SetAgentAddress("192.0.2.1");
    world.AddCollector("a", a);
    world.AddCollector("b", b);
    for (const std::string& port : ports) {
        Service().UpdateInterface({.name = port, .flowCollector = "a"});
        Service().AddSampleCollector(port, "b");
    }
    Service().Loaded();
}

void OperationsWorld::Flow()
{
    const std::uint32_t before = b.LastSequence(p2);
    Await("samples of the port that stands by", [&] { return b.LastSequence(p2) >= before + kFlow; });
}

void OperationsWorld::FlowFor(std::chrono::milliseconds time)
{
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) Flow();
}

void OperationsWorld::EndTraffic()
{
    m_there->Stop();
    m_back->Stop();
    Await(
        "the last samples", [&] { return b.LastSequence(p2) >= Frames("p2"); }, std::chrono::seconds(5));
    DecodingCollector::AwaitQuiet({&a, &b, &c});
    for (const DecodingCollector* one : {&a, &b, &c})
        EXPECT_EQ(one->Overflowed(), 0U) << "the test itself loses datagrams";
}

std::uint64_t OperationsWorld::Frames(const std::string& port) const
{
    return Received(port) - m_before.at(port);
}

void OperationsWorld::ExpectRates(const std::vector<std::uint32_t>& rates)
{
    const Flows flows = b.Flows(p1);
    const std::uint64_t unseen = (rates.size() - 1) * MostUnseen();
    ASSERT_EQ(FaultInSequence(flows), "");
    EXPECT_EQ(FaultInPool(flows, pool), "");
    ExpectSeen(world.Numbers().OfInterface("p1", "packets_seen_total"), Frames("p1"), unseen);
    const auto positions = Positions(flows);
    std::size_t at = 0;
    for (const std::uint32_t rate : rates) {
        std::size_t end = at;
        while (end < flows.size() && flows[end].rate == rate) ++end;
        ASSERT_LT(at, end) << "no samples at 1:" << rate;
        const auto samples = static_cast<double>(end - at);
        const auto frames = static_cast<double>(positions[end - 1] - (at == 0 ? 0 : positions[at - 1]));
        if (rate == 1) {
            EXPECT_EQ(positions[end - 1] - positions[at] + 1, samples);
        } else {  // six standard deviations of the number of frames that so many samples take
            EXPECT_NEAR(frames, samples * rate,
                        6 * rate * std::sqrt(samples) + 6 * rate + static_cast<double>(unseen));
        }
        at = end;
    }
    EXPECT_EQ(at, flows.size()) << "a further change of the rate, to " << flows[at].rate;
    if (rates.back() == 1) {
        EXPECT_EQ(positions.back(), Frames("p1"));
    }
}

void OperationsWorld::ExpectSeen(std::uint64_t seen, std::uint64_t frames, std::uint64_t unseen)
{
    EXPECT_LE(seen, frames);
    EXPECT_GE(seen + unseen, frames);
}

void OperationsWorld::ExpectPause()
{
    const Flows flows = b.Flows(p1);
    ASSERT_EQ(FaultInSequence(flows), "");
    EXPECT_LT(flows.size(), Frames("p1")) << "there was no pause";
    EXPECT_EQ(flows.back().pool, flows.size());
    EXPECT_EQ(world.Numbers().OfInterface("p1", "packets_seen_total"), flows.size());
    unsigned pauses = 0;
    for (std::size_t i = 1; i < flows.size(); ++i) {
        EXPECT_GE(flows[i].pool, flows[i].sequence);
        pauses += NumberOf(flows[i]) == (NumberOf(flows[i - 1]) + 1) % kNumbers ? 0 : 1;
    }
    EXPECT_LE(pauses, 1U) << "frames are missing besides those of the pause";
}

void OperationsWorld::ExpectTheRestWhole(const Concerns& concerns)
{
    EXPECT_EQ(FaultInDatagrams(b.Arrivals()), "");
    EXPECT_EQ(FaultInWhole(b.Flows(p2), Frames("p2"), pool), "") << "p2 at b";
    EXPECT_EQ(world.Numbers().OfInterface("p2", "packets_seen_total"), Frames("p2"));
    if (!concerns.portOne) {
        EXPECT_EQ(FaultInWhole(b.Flows(p1), Frames("p1"), pool), "") << "p1 at b";
        EXPECT_EQ(world.Numbers().OfInterface("p1", "packets_seen_total"), Frames("p1"));
    }
    if (concerns.collectorA) return;
    EXPECT_EQ(FaultInWhole(a.Flows(p2), Frames("p2"), pool), "") << "p2 at a";
    if (!concerns.portOne && !concerns.portOneAtA) {
        EXPECT_EQ(FaultInWhole(a.Flows(p1), Frames("p1"), pool), "") << "p1 at a";
    }
}

}  // namespace endurance
