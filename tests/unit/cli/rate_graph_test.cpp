// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/rate_graph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/screens/scaled.h"
#include "cli/screens/styled_line.h"

namespace {

using cli::Charset;
using cli::RateHistory;
using testing::ElementsAre;

TEST(Scaled, HasAtMostFiveCharacters)
{
    const std::vector<std::pair<std::uint64_t, std::string>> cases = {{0, "0"},
                                                                      {999, "999"},
                                                                      {1000, "1.0k"},
                                                                      {1049, "1.0k"},
                                                                      {1950, "1.9k"},
                                                                      {99'949, "99.9k"},
                                                                      {99'950, "100k"},
                                                                      {999'499, "999k"},
                                                                      {999'500, "1.0M"},
                                                                      {1'234'567, "1.2M"},
                                                                      {10'000'000'000, "10.0G"},
                                                                      {18'446'744'073'709'551'615U, "18.4E"}};
    for (const auto& [figure, text] : cases) EXPECT_EQ(text, cli::Scaled(figure)) << figure;
    EXPECT_EQ("-", cli::Scaled(std::nullopt));
}

TEST(RateHistory, KeepsAMinuteAndLeavesGaps)
{
    RateHistory history;
    for (std::int64_t second = 1; second <= 100; ++second)
        if (second != 98) history.Add(second, static_cast<std::uint64_t>(second));
    const auto rates = history.Until(100);
    ASSERT_EQ(60U, rates.size());
    EXPECT_EQ(41U, rates.front());
    EXPECT_EQ(std::nullopt, rates[57]);
    EXPECT_EQ(100U, rates.back());
    // Later, what was then has moved on.
    EXPECT_EQ(100U, history.Until(103)[56]);
    EXPECT_EQ(std::nullopt, history.Until(103).back());
    EXPECT_EQ(std::vector<RateHistory::Rate>(60), history.Until(500));
    // A long gap leaves nothing of before.
    history.Add(1000, 7);
    EXPECT_EQ(std::nullopt, history.Until(1000).front());
    EXPECT_EQ(7U, history.Until(1000).back());
    history.Add(1000, 8);
    EXPECT_EQ(8U, history.Until(1000).back());
}

TEST(RateGraph, ABarHasHalves)
{
    EXPECT_EQ("████    ", cli::Bar(50, 100, 8, Charset::kUtf8));
    EXPECT_EQ("████▌   ", cli::Bar(56, 100, 8, Charset::kUtf8));
    EXPECT_EQ("####-   ", cli::Bar(56, 100, 8, Charset::kAscii));
    EXPECT_EQ("▌       ", cli::Bar(1, 1'000'000, 8, Charset::kUtf8));
    EXPECT_EQ("        ", cli::Bar(0, 0, 8, Charset::kUtf8));
    EXPECT_EQ("████████", cli::Bar(200, 100, 8, Charset::kUtf8));
}

TEST(RateGraph, TheHistoryIsOfTheHighest)
{
    std::vector<RateHistory::Rate> rates(60);
    for (std::size_t i = 52; i < 60; ++i) rates[i] = i - 52 + 1;
    const std::string line = cli::HistoryLine(rates, 60, Charset::kUtf8);
    EXPECT_EQ(std::string(52, ' ') + "▁▂▃▄▅▆▇█", line);
    EXPECT_EQ(std::string(52, ' ') + "...:::||", cli::HistoryLine(rates, 60, Charset::kAscii));
    // A span has its highest rate.
    EXPECT_EQ("          ▃█", cli::HistoryLine(rates, 12, Charset::kUtf8));
    EXPECT_THAT(cli::HistoryGraph({0, 1, 8, 16}, 4, 2, Charset::kUtf8), ElementsAre("   █", " ▁██"));
    EXPECT_THAT(cli::HistoryGraph({1, 2}, 4, 1, Charset::kUtf8), ElementsAre("▄▄██"));
}

TEST(RateGraph, ItsWidthIsAPartOfAMinute)
{
    EXPECT_EQ(60U, cli::HistoryWidth(99));
    EXPECT_EQ(30U, cli::HistoryWidth(59));
    EXPECT_EQ(12U, cli::HistoryWidth(14));
    EXPECT_EQ(0U, cli::HistoryWidth(9));
}

TEST(StyledLine, IsCutInTheMiddleOfItsTexts)
{
    const cli::StyledLine line{{"abc", {}}, {"défghi", {cli::Tone::kBroken, false, false}}, {"xyz", {}}};
    EXPECT_EQ(12U, cli::Width(line));
    EXPECT_EQ(line, cli::Cut(line, 12));
    EXPECT_EQ((cli::StyledLine{line[0], {"dé...", {cli::Tone::kBroken, false, false}}}), cli::Cut(line, 8));
    EXPECT_EQ("...ghi", cli::CutFront("défghi"
                                      "jklghi",
                                      6));
    EXPECT_EQ("é", cli::CutFront("é", 1));
    EXPECT_EQ("..", cli::CutFront("abc", 2));
}

}  // namespace
