// SPDX-License-Identifier: Apache-2.0
// Steps of the wall clock, by hours and both ways, under a sampling manager: its rhythms are those of the
// monotonic clock, so samples and counters come as before, and what the state says of ages stays true. The
// manager's clock is libfaketime's, which reads its offset from a file anew at each look; that file is what
// the tests change.

#include <filesystem>
#include <fstream>
#include <ostream>

#include "endurance/database.h"
#include "endurance/endurance_test.h"

namespace endurance {
namespace {

constexpr std::uint64_t kRate = 1000;

struct Step {
    const char* name;
    const char* offset;  // libfaketime's form
};
void PrintTo(const Step& step, std::ostream* out) { *out << step.name; }

std::string Library()
{
    for (const char* directory : {"/usr/lib/x86_64-linux-gnu", "/usr/lib/aarch64-linux-gnu", "/usr/lib"}) {
        const auto path = std::filesystem::path(directory) / "faketime" / "libfaketime.so.1";
        if (std::filesystem::exists(path)) return path;
    }
    return {};
}

class ClockStep : public EnduranceTest, public testing::WithParamInterface<Step> {
protected:
    void SetUp() override
    {
        EnduranceTest::SetUp();
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "libfaketime and the sanitizer both want to be the first library";
#endif
        const std::string library = Library();
        if (library.empty()) GTEST_SKIP() << "libfaketime is not installed (tools/install-deps)";
        if (IsSkipped()) return;
        SetOffset("+0");
        Start(AnySource(), {.environment = {{"LD_PRELOAD", library},
                                            {"FAKETIME_TIMESTAMP_FILE", OffsetFile()},
                                            {"FAKETIME_NO_CACHE", "1"},
                                            {"FAKETIME_DONT_FAKE_MONOTONIC", "1"},
                                            {"DONT_FAKE_MONOTONIC", "1"}}});
    }

    [[nodiscard]] std::filesystem::path OffsetFile() const { return m_dir.Path() / "offset"; }
    void SetOffset(const std::string& offset) const
    {
        // Whole at any moment.
        const auto next = m_dir.Path() / "next";
        support::WriteFile(next, offset + "\n");
        std::filesystem::rename(next, OffsetFile());
    }

private:
    support::TempDir m_dir;
};

TEST_P(ClockStep, ChangesNoRhythmAndNoAge)
{
    const auto p1 = Network::Index("p1");
    DecodingCollector collector;
    Configure(collector, {"p1"});
    // One that fails once and is then never used again: its error ages.
    Service().AddCollector("gone", "255.255.255.255", 9);
    Service().UpdateInterface({.name = "p1", .counterCollector = "a", .interval = 1});
    World().AwaitApplied();
    Database database(World().Socket().parent_path() / "cdb.sock");
    const auto before = Received("p1");
    BackgroundTraffic traffic("h1", NumberedFrames(1, 2), kRate, 0);
    AwaitSamples(collector, p1, 200);
    Await("counters", [&] { return !collector.Counters().empty(); });
    const std::string sinceBefore = database.State().at("manager").at("since");

    SetOffset(GetParam().offset);
    const auto stepped = std::chrono::steady_clock::now();
    const auto had = collector.LastSequence(p1);
    const auto counters = collector.Counters().size();
    // Ages at once, before anything new has come, as far as that can be.
    const auto entry = database.Entry("interface", "p1");
    EXPECT_LE(entry.at("last-sample-age"), 2);
    EXPECT_LE(entry.at("last-counters-age"), 3);
    EXPECT_LE(database.Entry("collector", "a").at("last-packet-age"), 2);
    EXPECT_LE(database.Entry("collector", "gone").at("last-error-age"), 10);
    const std::string since = database.State().at("manager").at("since");
    EXPECT_NE(since.substr(0, 13), sinceBefore.substr(0, 13)) << "the manager sees the step";

    AwaitSamples(collector, p1, kRate);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - stepped;
    const double samples = collector.LastSequence(p1) - had;
    EXPECT_NEAR(samples / took.count(), kRate, kRate * 0.5);
    Await(
        "counters twice more", [&] { return collector.Counters().size() >= counters + 2; },
        std::chrono::seconds(4));
    SetOffset("+0");
    AwaitSamples(collector, p1, 200);
    Await(
        "counters again", [&] { return collector.Counters().size() >= counters + 3; },
        std::chrono::seconds(3));
    EXPECT_LE(database.Entry("interface", "p1").at("last-counters-age"), 3);
    traffic.Stop();
    DecodingCollector::AwaitQuiet({&collector});

    EXPECT_EQ(FaultInWhole(collector.Flows(p1), Received("p1") - before, CountsPool()), "");
    const auto all = collector.Counters(p1);
    for (std::size_t i = 0; i < all.size(); ++i) EXPECT_EQ(all[i].sequence, i + 1);
    std::uint32_t uptime = 0;
    for (const auto& arrival : collector.Arrivals()) {
        const auto& datagram = arrival.datagram;
        EXPECT_GE(datagram.uptime, uptime);
        EXPECT_LE(datagram.uptime, uptime + 1500) << "the uptime jumps";
        uptime = datagram.uptime;
    }
    EXPECT_EQ(World().Manager().Terminate(), 0);
}

INSTANTIATE_TEST_SUITE_P(, ClockStep, testing::Values(Step{"Forward", "+7h"}, Step{"AYearBack", "-1y"}),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace endurance
