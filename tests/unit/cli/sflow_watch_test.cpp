// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/sflow_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/watching.h"
#include "cli/yang.h"

namespace {

using cli::Rates;
using cli::SflowWatch;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kTime = "2026-11-23T15:00:00Z";
constexpr const char* kDay = "15:00:00Z";
constexpr std::size_t kLineWidth = 79;

/// Two interfaces that have seen so many packets and one in ten of them sampled.
cdb::TreePtr Seen(unsigned first, unsigned second)
{
    const auto interface = [](const char* name, unsigned seen) {
        return std::string(R"({"name":")") + name + R"(","packets-seen":")" + std::to_string(seen) +
               R"(","packets-sampled":")" + std::to_string(seen / 10) + R"("})";
    };
    return cli_test::FromJson(R"({"switch-state:state":{"oam":{"sflow":{
        "manager":{"session":"loaded","samples-per-second":"12","datagrams-per-second":"3"},
        "interface":[)" + interface("p10", first) +
                              "," + interface("p2", second) + R"(],
        "problem":[{"subject":"collector","name":"c1","reason":"refused","severity":"broken","text":"x"},
                   {"subject":"interface","name":"p2","reason":"no-traffic","severity":"idle","text":"x"}]}}}})");
}

TEST(SflowWatchTest, RatesAreOfTheTimeBetweenTwoLooks)
{
    SflowWatch watch("interface", "");
    const auto start = steady_clock::time_point(seconds(100));
    const auto first = watch.Look(Seen(1000, 50).get(), start);
    EXPECT_THAT(first.entries, ElementsAre(cli::WatchedEntry{"p2", {}, "", cli::Severity::kIdle},
                                           cli::WatchedEntry{"p10", {}, "", {}}));
    EXPECT_THAT(watch.Text(first, kDay, kLineWidth), HasSubstr("  - packets/s  12 samples/s"));
    const auto second = watch.Look(Seen(3000, 10).get(), start + seconds(2));
    EXPECT_THAT(second.entries,
                ElementsAre(cli::WatchedEntry{"p2", {}, "", cli::Severity::kIdle},  // counts anew
                            cli::WatchedEntry{"p10", Rates{1000, 100, {}}, "", {}}));
    EXPECT_THAT(second.broken, ElementsAre("collector c1"));
    EXPECT_EQ(watch.Text(second, kDay, kLineWidth),
              "15:00:00Z  1.0k packets/s  12 samples/s  3 datagrams/s  broken: collector c1");
    EXPECT_EQ(
        watch.Json(second, kTime),
        R"({"time":"2026-11-23T15:00:00Z","samples-per-second":12,"datagrams-per-second":3,)"
        R"("broken":["collector c1"],"interface":[)"
        R"({"name":"p2","packets-per-second":null,"bits-per-second":null,"samples-per-second":null},)"
        R"({"name":"p10","packets-per-second":1000,"bits-per-second":null,"samples-per-second":100}]})");
}

TEST(SflowWatchTest, AsksForOneEntryOnly)
{
    SflowWatch watch("interface", "p10");
    EXPECT_THAT(watch.Filter(), HasSubstr("<interface><name>p10</name>"));
    EXPECT_THAT(watch.Filter(), HasSubstr("<problem><subject>interface</subject><name>p10</name></problem>"));
    EXPECT_THAT(SflowWatch("collector", "a<b").Filter(), HasSubstr("<name>a&lt;b</name>"));
    EXPECT_EQ(watch.Text(watch.Look(cli_test::FromJson(R"({"switch-state:state":{"oam":{"sflow":{
                  "manager":{"session":"loaded"}}}}})")
                                        .get(),
                                    steady_clock::time_point(seconds(1))),
                         kDay, kLineWidth),
              "15:00:00Z  there is no interface p10 in the state");
}

TEST(SflowWatchTest, SaysThatNothingIsKnownWithoutAManager)
{
    SflowWatch watch("interface", "");
    const auto watched = watch.Look(nullptr, steady_clock::time_point(seconds(1)));
    EXPECT_EQ(watch.Text(watched, kDay, kLineWidth),
              "15:00:00Z  not known: the sFlow manager does not answer");
    EXPECT_EQ(watch.Json(watched, kTime),
              R"({"time":"2026-11-23T15:00:00Z","error":"the sFlow manager does not answer"})");
}

TEST(SflowWatchTest, BitsArePacketsOfTheMeanLengthOfTheLastSamples)
{
    SflowWatch watch("interface", "");
    auto look = [&, second = 0](unsigned seen, unsigned sampled, unsigned bytes) mutable {
        const std::string state =
            "<state "
            "xmlns=\"urn:switch:yang:switch-state\"><oam><sflow><interface><name>p1</name><packets-seen>" +
            std::to_string(seen) + "</packets-seen><packets-sampled>" + std::to_string(sampled) +
            "</packets-sampled><sampled-bytes>" + std::to_string(bytes) +
            "</sampled-bytes></interface></sflow></oam></state>";
        return watch.Look(cli_test::AnyXml(state).get(), steady_clock::time_point(seconds(++second)))
            .entries.front()
            .rates.bits;
    };
    EXPECT_EQ(look(0, 0, 0), std::nullopt);
    EXPECT_EQ(look(50, 0, 0), std::nullopt);  // no sample tells of a length
    EXPECT_EQ(look(150, 1, 1000), 100U * 1000 * 8);
    EXPECT_EQ(look(250, 1, 1000), 100U * 1000 * 8);  // as long as before
    EXPECT_EQ(look(350, 4, 1300), 100U * (1300 / 4) * 8);
    EXPECT_EQ(look(350, 4, 1300), 0U);
    for (unsigned i = 1; i <= 10; ++i) EXPECT_NE(look(350 + 100 * i, 4 + i, 1300 + 60 * i), std::nullopt);
    EXPECT_EQ(look(1450, 15, 1960), 100U * 60 * 8);  // the first lengths are forgotten
    EXPECT_EQ(look(10, 1, 60), std::nullopt);        // counts anew
}

TEST(SflowWatchTest, ThoseWhoAreNotLookedAtKeepTheirHistory)
{
    cli_test::Watching watching(5, 2);
    watching.watch.Turn("gigabit-ethernet-1/1/1");
    EXPECT_THAT(watching.watch.Filter(), HasSubstr("<flow-collector/>"));
    for (int second = 6; second <= 8; ++second) {
        watching.now += seconds(1);
        watching.watched = watching.watch.Look(
            cli_test::StateAfter(second, 2, "gigabit-ethernet-1/1/1").get(), watching.now);
    }
    EXPECT_EQ(watching.watched.speed, 1'000'000'000U);
    EXPECT_THAT(watching.watch.Filter(),
                HasSubstr("<kernel-interface><name>p1</name><speed/></kernel-interface>"));
    ASSERT_EQ(watching.watched.collectors.size(), 2U);
    EXPECT_TRUE(watching.watched.collectors[0].receives);
    EXPECT_EQ(watching.watched.collectors[1].problem, "no-route");
    const auto looked = watching.watch.HistoryOf("gigabit-ethernet-1/1/1", watching.now);
    const auto other = watching.watch.HistoryOf("gigabit-ethernet-1/1/2", watching.now);
    EXPECT_NE(looked[59], std::nullopt);
    EXPECT_EQ(other[59], std::nullopt);
    EXPECT_NE(other[56], std::nullopt);
    // The rate after that is the mean of the time between.
    watching.watch.Turn("");
    watching.now += seconds(1);
    const auto all = watching.watch.Look(cli_test::StateAfter(9, 2).get(), watching.now);
    EXPECT_EQ(all.entries[1].rates.packets, 6000U * 165 / 100);
    EXPECT_EQ(watching.watch.HistoryOf("nothing", watching.now), std::vector<cli::RateHistory::Rate>(60));
}

TEST(SflowWatchTest, LinesAreCutAndCountWhatDoesNotFit)
{
    SflowWatch watch("interface", "");
    cli::Watched watched;
    watched.isKnown = true;
    watched.samplesPerSecond = "1200";
    watched.datagramsPerSecond = "350";
    for (int i = 0; i < 30; ++i) watched.broken.push_back("interface p" + std::to_string(i));
    EXPECT_EQ(watch.Text(watched, kDay, 110),
              "15:00:00Z  - packets/s  1200 samples/s  350 datagrams/s  broken: interface p0, interface p1 "
              "+28 more");
    EXPECT_EQ(watch.Text(watched, kDay, kLineWidth),
              "15:00:00Z  - packets/s  1200 samples/s  broken: interface p0 +29 more");
    watched.broken.front().append(60, 'x');
    EXPECT_EQ(watch.Text(watched, kDay, kLineWidth), "15:00:00Z  - packets/s  1200 samples/s  30 broken");
    EXPECT_EQ(watch.Text(watched, kDay, 20), "15:00:00Z  - pack...");
    SflowWatch one("interface", std::string(64, 'n'));
    watched.entries = {{std::string(64, 'n'), {}, "interface-missing", {}}};
    const std::string line = one.Text(watched, kDay, kLineWidth);
    EXPECT_EQ(line.size(), kLineWidth);
    EXPECT_THAT(line, HasSubstr("...  - packets/s  - bits/s  - samples/s  interface-missing"));
}

}  // namespace
