// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/sflow_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/yang.h"

namespace {

using cli::Rates;
using cli::SflowWatch;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kTime = "2026-11-23T15:00:00Z";

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
    EXPECT_THAT(first.entries,
                ElementsAre(cli::WatchedEntry{"p2", {}, ""}, cli::WatchedEntry{"p10", {}, ""}));
    EXPECT_THAT(watch.Text(first, kTime), HasSubstr("  - packets/s  12 samples/s"));
    const auto second = watch.Look(Seen(3000, 10).get(), start + seconds(2));
    EXPECT_THAT(second.entries, ElementsAre(cli::WatchedEntry{"p2", {}, ""},  // counts anew
                                            cli::WatchedEntry{"p10", Rates{1000, 100}, ""}));
    EXPECT_THAT(second.broken, ElementsAre("collector c1"));
    EXPECT_EQ(
        watch.Text(second, kTime),
        "2026-11-23T15:00:00Z  1000 packets/s  12 samples/s  3 datagrams/s  1 broken, first collector c1");
    EXPECT_EQ(watch.Json(second, kTime),
              R"({"time":"2026-11-23T15:00:00Z","samples-per-second":12,"datagrams-per-second":3,)"
              R"("broken":["collector c1"],"interface":[)"
              R"({"name":"p2","packets-per-second":null,"samples-per-second":null},)"
              R"({"name":"p10","packets-per-second":1000,"samples-per-second":100}]})");
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
                         kTime),
              "2026-11-23T15:00:00Z  there is no interface p10 in the state");
}

TEST(SflowWatchTest, SaysThatNothingIsKnownWithoutAManager)
{
    SflowWatch watch("interface", "");
    const auto watched = watch.Look(nullptr, steady_clock::time_point(seconds(1)));
    EXPECT_EQ(watch.Text(watched, kTime),
              "2026-11-23T15:00:00Z  not known: the sFlow manager does not answer");
    EXPECT_EQ(watch.Json(watched, kTime),
              R"({"time":"2026-11-23T15:00:00Z","error":"the sFlow manager does not answer"})");
}

}  // namespace
