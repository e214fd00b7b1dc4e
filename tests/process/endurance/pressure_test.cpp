// SPDX-License-Identifier: Apache-2.0
// Hundreds of interfaces sampled while other programs hold the kernel's lock of links most of the time: what
// waits for that lock waits beside the loop, and the end of the process does not wait for it.

#include <algorithm>
#include <thread>

#include "endurance/endurance_test.h"
#include "endurance/link_storm.h"

namespace endurance {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kSampled = 256;  // besides p1

// The lock is held for half a second at a time on a slow machine, and hundreds of calls that wait for it one
// after the other take many seconds.
constexpr milliseconds kInTime{1500};
constexpr milliseconds kEnd{2500};  // 2 s are promised

milliseconds Since(steady_clock::time_point begin)
{
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
}

class Pressure : public EnduranceTest, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override
    {
        EnduranceTest::SetUp();
        if (!IsSkipped()) Start(GetParam());
        if (IsSkipped() || HasFatalFailure()) return;
        std::vector<std::string> all{"p1"};
        std::string lines;
        for (std::size_t i = 0; i < kSampled; i += 2)
            lines += "link add " + Name(i) + " type veth peer name " + Name(i + 1) + "\n";
        for (std::size_t i = 0; i < kSampled; ++i) all.push_back(Name(i));
        Network::Ip(lines);
        Configure(collector.emplace(), all);
    }

    static std::string Name(std::size_t i) { return "e" + std::to_string(i); }

    /// What samples at an interface but p1: empty if nothing does.
    static std::string SamplingAt(const std::string& device)
    {
        if (GetParam() == std::string(kTcx)) {
            const int programs = support::ProgramsAtTcx(Network::Index(device));
            return programs == 0 ? "" : std::to_string(programs);
        }
        if (GetParam() == std::string(kClsact))
            return Network::Run({"tc", "filter", "show", "dev", device, "ingress"});
        return support::PacketSocketsAt(Network::Index(device));
    }

    /// The longest time without a datagram, of those from this one on.
    milliseconds LongestSilence(std::size_t from)
    {
        const auto& all = collector->Arrivals();
        milliseconds longest{0};
        for (std::size_t i = from + 1; i < all.size(); ++i)
            longest =
                std::max(longest, std::chrono::duration_cast<milliseconds>(all[i].time - all[i - 1].time));
        return longest;
    }

    /// Asks for the numbers until the time is over, and returns the longest time without an answer.
    milliseconds LongestAnswer(milliseconds time) const
    {
        milliseconds longest{0};
        for (const auto end = steady_clock::now() + time; steady_clock::now() < end;) {
            const auto asked = steady_clock::now();
            (void)World().Numbers();
            longest = std::max(longest, Since(asked));
        }
        return longest;
    }

    std::optional<DecodingCollector> collector;
};

TEST_P(Pressure, SamplesAndAnswersComeInTimeWhileSamplingBeginsAndEndsElsewhere)
{
    constexpr milliseconds kEach{3000};
    BackgroundTraffic traffic("h1", NumberedFrames(1, 2), 1000);
    AwaitSamples(*collector, Network::Index("p1"), 300);
    const LinkStorm storm;
    const auto begun = storm.Rounds();
    const auto from = collector->Arrivals().size();
    for (std::size_t i = 0; i < kSampled; i += 2) Service().UnsetInterface(Name(i));
    EXPECT_LT(LongestAnswer(kEach), kInTime) << "amid ends";
    for (std::size_t i = 0; i < kSampled; i += 2)
        Service().UpdateInterface({.name = Name(i), .flowCollector = "a"});
    EXPECT_LT(LongestAnswer(kEach), kInTime) << "amid beginnings";
    EXPECT_LT(LongestSilence(from), kInTime);
    EXPECT_GT(storm.Rounds(), begun) << "nobody has held the lock";
    traffic.Stop();
    DecodingCollector::AwaitQuiet({&*collector});
    const auto flows = collector->Flows(Network::Index("p1"));
    EXPECT_EQ(FaultInSequence(flows), "");
    EXPECT_EQ(flows.back().pool, flows.size());
}

TEST_P(Pressure, TheProcessEndsInTimeAndWhatSampledGoes)
{
    const std::string sampled = SamplingAt(Name(0));
    const LinkStorm storm;
    const auto begin = steady_clock::now();
    EXPECT_EQ(World().Manager().Terminate(), 0);
    EXPECT_LT(Since(begin), kEnd);
    for (const std::size_t i : {std::size_t{0}, kSampled - 1})
        support::Await("nothing to sample at " + Name(i), [&] { return SamplingAt(Name(i)) != sampled; });
}

INSTANTIATE_TEST_SUITE_P(, Pressure, testing::Values(kTcx, kClsact, kPacketSocket),
                         [](const auto& row) { return TestName(row.param); });

}  // namespace
}  // namespace endurance
