// SPDX-License-Identifier: Apache-2.0
// The manager killed, stopped for a while and started again amid traffic at 1:1: what passes goes on
// unharmed, nothing is left behind that samples packets, and what is counted afterwards is right.

#include <fstream>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "endurance/endurance_test.h"

namespace endurance {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::uint64_t kFrameRate = 3000;
constexpr int kCore = 0;  // of the traffic: the counts in samples are those of the CPUs that sample

class Life : public EnduranceTest, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override
    {
        EnduranceTest::SetUp();
        if (!IsSkipped()) Start(GetParam(), {.arguments = {"--ring-size", "64k"}});
        if (IsSkipped() || HasFatalFailure()) return;
        p1 = Network::Index("p1");
        collector.emplace();
    }

    /// Programs or packet sockets at the port, whichever the source has.
    static std::string Sampling(const std::string& device)
    {
        if (GetParam() == std::string(kTcx))
            return std::to_string(support::ProgramsAtTcx(Network::Index(device)));
        if (GetParam() == std::string(kClsact))
            return Network::Run({"tc", "filter", "show", "dev", device, "ingress"});
        return support::PacketSocketsAt(Network::Index(device));
    }

    std::uint32_t p1 = 0;
    std::optional<DecodingCollector> collector;
};

TEST_P(Life, KilledAmidTrafficItLeavesTheTrafficAloneAndBeginsAnewWhenToldAgain)
{
    const std::string idle = Sampling("p1");
    Configure(*collector, {"p1", "p2"});
    EXPECT_NE(Sampling("p1"), idle);
    const auto entered = Received("p1"), left = Received("h2");
    BackgroundTraffic traffic("h1", NumberedFrames(1, 2), kFrameRate, kCore);
    AwaitSamples(*collector, p1, 300);
    World().Manager().Kill();
    if (GetParam() == std::string(kClsact)) {
        EXPECT_THAT(Sampling("p1"), HasSubstr("sflow_ingress")) << "filters stay, but pass everything on";
    } else {
        EXPECT_EQ(Sampling("p1"), idle);
    }
    const auto passed = Received("h2");
    Await("traffic to go on", [&] { return Received("h2") > passed + 300; });

    DecodingCollector second;
    const auto started = steady_clock::now();
    World().StartManager();
    EXPECT_EQ(Sampling("p1"), idle);
    World().OpenSession();
    const auto begun = Received("p1");
    Configure(second, {"p1", "p2"});
    AwaitSamples(second, p1, 300);
    const auto sent = traffic.Stop();
    Await("the last frames", [&] { return Received("p1") - entered >= sent.frames; });
    DecodingCollector::AwaitQuiet({&*collector, &second});

    EXPECT_EQ(Received("p1") - entered, sent.frames);
    EXPECT_EQ(Received("h2") - left, sent.frames) << "every frame has passed";
    const Flows flows = second.Flows(p1);
    EXPECT_EQ(FaultInSequence(flows), "");
    EXPECT_EQ(flows.back().pool, flows.size());
    EXPECT_LE(flows.size(), Received("p1") - begun);
    EXPECT_EQ(World().Numbers().OfInterface("p1", "packets_seen_total"), flows.size());
    EXPECT_EQ(FaultInDatagrams(second.Arrivals()), "");
    const auto age = std::chrono::duration_cast<milliseconds>(steady_clock::now() - started).count();
    std::uint32_t uptime = 0;
    for (const auto& arrival : second.Arrivals()) {
        const auto& datagram = arrival.datagram;
        EXPECT_GE(datagram.uptime, uptime);
        uptime = datagram.uptime;
    }
    EXPECT_LE(uptime, age) << "of this life";
    EXPECT_EQ(FaultInDatagrams(collector->Arrivals()), "") << "the life before";
}

TEST_P(Life, ItsJournalHoldsWholeLinesOnlyHoweverItEnds)
{
    for (int life = 0; life < 3; ++life) {
        for (unsigned i = 0; i < 200; ++i)
            Service().AddCollector("collector-" + std::to_string(i), "127.0.0.1", 6343);
        World().Manager().Kill();
        World().StartManager();
        World().OpenSession();
    }
    std::ifstream journal(World().JournalPath());
    unsigned lives = 0;
    for (std::string line; std::getline(journal, line);) {
        ASSERT_TRUE(nlohmann::json::accept(line)) << line;
        EXPECT_FALSE(journal.eof()) << "a line without an end: " << line;
        lives += line == R"({"op":"SessionOpened"})" ? 1 : 0;
    }
    EXPECT_EQ(lives, 4U);
}

TEST_P(Life, StoppedForAWhileItAccountsForEveryFrameOfThatTime)
{
    // With clsact the program rests when its manager has given no sign of life for 2 s.
    const bool rests = GetParam() == std::string(kClsact);
    Configure(*collector, {"p1"});
    const auto entered = Received("p1"), left = Received("h2");
    BackgroundTraffic traffic("h1", NumberedFrames(1, 2), kFrameRate, kCore);
    AwaitSamples(*collector, p1, 300);
    World().Manager().Freeze();
    const auto until = Received("p1") + kFrameRate * (rests ? 7 : 4) / 2;
    Await("frames of a long stall", [&] { return Received("p1") >= until; });
    World().Manager().Thaw();
    AwaitSamples(*collector, p1, 600);
    const auto sent = traffic.Stop();
    Await("the last frames", [&] { return Received("p1") - entered >= sent.frames; });
    DecodingCollector::AwaitQuiet({&*collector});

    EXPECT_EQ(Received("h2") - left, sent.frames) << "every frame has passed";
    const Flows flows = collector->Flows(p1);
    ASSERT_FALSE(flows.empty());
    const std::uint64_t pool = flows.back().pool, drops = flows.back().drops;
    EXPECT_EQ(flows.size() + drops, pool);
    if (rests) {
        EXPECT_LT(pool, sent.frames);
        EXPECT_GT(pool, sent.frames - kFrameRate * 7 / 2 + kFrameRate);
    } else {
        EXPECT_EQ(pool, sent.frames);
    }
    EXPECT_GT(drops, kFrameRate) << "the buffer is too small for the stall";
    const auto numbers = World().Numbers();
    EXPECT_EQ(numbers.OfInterface("p1", "packets_seen_total"), pool);
    EXPECT_EQ(numbers.OfInterface("p1", "samples_total"), flows.size());
    EXPECT_EQ(numbers.At("sflow_interface_drops_total{interface=\"p1\",cause=\"buffer\"}"), drops);
    for (std::size_t i = 0; i < flows.size(); ++i) {
        ASSERT_EQ(flows[i].sequence, i + 1);
        ASSERT_GE(flows[i].drops, i == 0 ? 0 : flows[i - 1].drops);
        ASSERT_GE(flows[i].pool, i + 1 + (CountsPool() == Pool::kExact ? flows[i].drops : 0))
            << "sample " << i;
    }
    EXPECT_EQ(FaultInDatagrams(collector->Arrivals()), "");
}

TEST_P(Life, StoppedForAWhileItAccountsForFramesOfACpuThatSamplesNoMore)
{
    if (std::thread::hardware_concurrency() < 2) GTEST_SKIP() << "there is one CPU only";
    Configure(*collector, {"p1"});
    const auto entered = Received("p1");
    BackgroundTraffic first("h1", NumberedFrames(1, 2), 2 * kFrameRate, kCore);
    AwaitSamples(*collector, p1, 300);
    World().Manager().Freeze();
    const auto until = Received("p1") + 2 * kFrameRate;
    Await("more frames than the buffer holds", [&] { return Received("p1") >= until; });
    first.Stop();
    World().Manager().Thaw();
    const auto other = World().Numbers();  // it has looked
    EXPECT_GT(other.At("sflow_interface_drops_total{interface=\"p1\",cause=\"buffer\"}"), kFrameRate);
    BackgroundTraffic second("h1", NumberedFrames(1, 2), kFrameRate, kCore + 1);
    AwaitSamples(*collector, p1, 600);
    second.Stop();
    DecodingCollector::AwaitQuiet({&*collector});

    const Flows flows = collector->Flows(p1);
    const auto frames = Received("p1") - entered;
    const auto numbers = World().Numbers();
    EXPECT_EQ(numbers.OfInterface("p1", "packets_seen_total"), frames);
    EXPECT_EQ(numbers.OfInterface("p1", "samples_total"), flows.size());
    EXPECT_EQ(numbers.At("sflow_interface_drops_total{interface=\"p1\",cause=\"buffer\"}"),
              frames - flows.size());
    ASSERT_FALSE(flows.empty());
    EXPECT_EQ(flows.size() + flows.back().drops, flows.back().pool);
    EXPECT_EQ(flows.back().pool, frames);
}

INSTANTIATE_TEST_SUITE_P(, Life, testing::Values(kTcx, kClsact, kPacketSocket),
                         [](const auto& row) { return TestName(row.param); });

}  // namespace
}  // namespace endurance
