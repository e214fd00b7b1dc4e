// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/watch_screen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "cli/golden.h"
#include "cli/watching.h"

namespace {

using cli::Charset;
using cli_test::ExpectGolden;
using cli_test::Watching;
using testing::HasSubstr;
using testing::Not;

constexpr cli::ScreenSize kUsual{80, 24}, kWide{160, 50}, kNarrow{40, 10};

TEST(WatchScreenGolden, ShowsAllPorts)
{
    const Watching watching(40, 7);
    ExpectGolden("watch-80x24", watching.Screen(kUsual));
    ExpectGolden("watch-160x50", watching.Screen(kWide));
    ExpectGolden("watch-60x15", watching.Screen({60, 15}));
    ExpectGolden("watch-40x10", watching.Screen(kNarrow));
    ExpectGolden("watch-30x6", watching.Screen(cli::kLeastScreen));
    ExpectGolden("watch-ascii", watching.Screen(kUsual, Charset::kAscii));
    ExpectGolden("watch-styles", watching.Screen(kUsual, Charset::kUtf8, true));
}

TEST(WatchScreenGolden, ShowsOnePort)
{
    Watching watching(40, 7, "gigabit-ethernet-1/1/1");
    watching.talkers.countedForMs = 9800;
    watching.talkers.samples = 1234;
    watching.talkers.list = {
        {"192.0.2.1:49152", "198.51.100.7:443", "tcp", 1200, 9'600'000},
        {"[2001:db8:0:1:a:b:c:d]:49153", "[2001:db8:ffff:2:a:b:c:d]:53", "udp", 20, 64'000},
        {"02:00:00:00:00:01", "ff:ff:ff:ff:ff:ff", "0x88b5", 1, 512}};
    ExpectGolden("watch-port-80x24", watching.Screen(kUsual));
    ExpectGolden("watch-port-160x50", watching.Screen(kWide));
    ExpectGolden("watch-port-40x10", watching.Screen(kNarrow));
}

TEST(WatchScreenGolden, ShowsAPortThatIsBroken)
{
    Watching watching(3, 7, "gigabit-ethernet-1/1/7");
    watching.talkers.problem = "it is not sampled; set a sampling-rate";
    ExpectGolden("watch-broken-port", watching.Screen(kUsual, Charset::kUtf8, true));
}

TEST(WatchScreenGolden, ExplainsTheKeys)
{
    Watching watching(3, 7);
    watching.view.helps = true;
    ExpectGolden("watch-help", watching.Screen(kUsual));
    EXPECT_EQ(10, std::ranges::count(watching.Screen(kNarrow), '\n'));
}

TEST(WatchScreenTest, FitsWhateverTheSize)
{
    for (const char* one : {"", "gigabit-ethernet-1/1/1"}) {
        Watching watching(5, 30, one);
        for (const bool helps : {false, true}) {
            watching.view.helps = helps;
            for (std::size_t columns = 0; columns < 170; columns += 3)
                for (const std::size_t rows : {0U, 1U, 5U, 6U, 7U, 12U, 60U}) {
                    const std::string screen = watching.Screen({columns, rows});  // expects the width
                    EXPECT_LE(std::ranges::count(screen, '\n'), static_cast<std::ptrdiff_t>(rows))
                        << columns << "x" << rows;
                }
        }
    }
}

TEST(WatchScreenTest, SaysThatItIsTooSmallAndGoesOn)
{
    const Watching watching(1, 3);
    EXPECT_EQ(watching.Screen({40, 5}), "too small: 30x6 is needed; q quits\n");
    EXPECT_EQ(watching.Screen({29, 24}), "too small: 30x6 is needed;...\n");
    EXPECT_EQ(watching.Screen({1, 1}), ".\n");
    EXPECT_EQ(watching.Screen({0, 0}), "");
}

TEST(WatchScreenTest, ShowsNoFigureThatIsNotOfNow)
{
    Watching watching(5, 3);
    EXPECT_THAT(watching.Screen(kUsual), HasSubstr("16.8k"));
    watching.failure = "sflow-mgr (process 812)\ndoes not answer since 12 s";
    const std::string screen = watching.Screen(kUsual, Charset::kUtf8, true);
    EXPECT_THAT(
        screen,
        HasSubstr("no figures: sflow-mgr (process 812)\\ndoes not answer since 12 s [broken bold]\n"));
    EXPECT_THAT(screen, Not(HasSubstr("16.8k")));
    EXPECT_THAT(screen, Not(HasSubstr("240 samples/s")));
    EXPECT_THAT(screen, HasSubstr("gigabit-ethernet-1/1/1          -        -          -"));
}

TEST(WatchScreenTest, NorOfOnePort)
{
    Watching watching(5, 3, "gigabit-ethernet-1/1/1");
    watching.talkers.list = {{"192.0.2.1", "192.0.2.2", "icmp", 1, 512}};
    EXPECT_THAT(watching.Screen(kUsual), HasSubstr("192.0.2.1"));
    EXPECT_THAT(watching.Screen(kUsual), HasSubstr("c1 receiving"));
    watching.failure = "away";
    const std::string screen = watching.Screen(kUsual);
    EXPECT_THAT(screen, HasSubstr("- packets/s  - bits/s of 1.0G  - samples/s"));
    EXPECT_THAT(screen, Not(HasSubstr("192.0.2.1")));
    EXPECT_THAT(screen, Not(HasSubstr("c1 receiving")));
}

TEST(WatchScreenTest, SaysThatItIsPaused)
{
    Watching watching(5, 3);
    watching.pausedSince = "14:59:00Z";
    const std::string screen = watching.Screen(kUsual, Charset::kUtf8, true);
    EXPECT_THAT(screen, HasSubstr("sFlow  spine1  paused since 14:59:00Z [ bold] [ bold] [ bold reverse]\n"));
}

TEST(WatchScreenTest, ShowsTheSelectedRowAndSaysWhatTheFilterLeaves)
{
    Watching watching(5, 40);
    watching.view.selected = "gigabit-ethernet-1/1/40";
    const std::string screen = watching.Screen(kUsual);
    EXPECT_THAT(screen, HasSubstr("> gigabit-ethernet-1/1/40 "));
    EXPECT_THAT(screen, Not(HasSubstr("gigabit-ethernet-1/1/1 ")));
    watching.view.filter = "1/1/3";
    EXPECT_THAT(watching.Screen(kUsual), HasSubstr("\"1/1/3\": 11 of 40"));
    watching.view.filters = true;
    EXPECT_THAT(watching.Screen(kUsual), HasSubstr("filter: 1/1/3_  Enter keeps it"));
    watching.view.filter = "x";
    EXPECT_THAT(watching.Screen(kUsual), HasSubstr("no name has \"x\""));
}

TEST(WatchScreenTest, LongNamesKeepWhatTellsThemApart)
{
    Watching watching(5, 2);
    for (cli::WatchedEntry& entry : watching.watched.entries) entry.name.insert(0, 45, 'x');
    EXPECT_THAT(watching.Screen(kUsual), HasSubstr("...xxxxxxxxgigabit-ethernet-1/1/2 "));
}

TEST(WatchScreenTest, OfAPortThatIsGoneItSaysSo)
{
    Watching watching(2, 3, "gigabit-ethernet-1/1/9");
    EXPECT_THAT(watching.Screen(kUsual),
                HasSubstr("there is no interface gigabit-ethernet-1/1/9 in the state"));
}

}  // namespace
