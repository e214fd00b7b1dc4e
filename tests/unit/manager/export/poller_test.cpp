// SPDX-License-Identifier: Apache-2.0
// When counters are polled, and whose streams get them.

#include "manager/export/poller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/export/poller_world.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Poller : testing::Test, PollerWorld {};

struct Start {
    const char* name;
    std::uint32_t random;  // milliseconds
    std::vector<std::int64_t> seconds;
};
void PrintTo(const Start& start, std::ostream* out) { *out << start.name; }
struct PollerStart : testing::TestWithParam<Start>, PollerWorld {};

TEST_P(PollerStart, FallsAtRandomIntoTheFirstIntervalAndIsEvenlySpacedThereafter)
{
    Poll("a", 1, 10, GetParam().random);
    EXPECT_THAT(m_asked, ElementsAre(10'000));
    Advance(40);
    std::vector<std::int64_t> seconds;
    for (const Taken& taken : m_one.m_taken) seconds.push_back(taken.second);
    EXPECT_EQ(seconds, GetParam().seconds);
}

INSTANTIATE_TEST_SUITE_P(Starts, PollerStart,
                         testing::Values(Start{"AtOnce", 0, {1, 11, 21, 31}},
                                         Start{"WithinASecond", 999, {1, 11, 21, 31}},
                                         Start{"InTheMiddle", 4'321, {5, 15, 25, 35}},
                                         Start{"AtTheEnd", 9'999, {10, 20, 30, 40}}),
                         [](const auto& row) { return row.param.name; });

TEST_F(Poller, TheFirstSampleIsWithinTheIntervalWhereverOnTheGridItBegins)
{
    m_timers.Advance(std::chrono::milliseconds(1'999));
    Poll("a", 1, 10, 9'999);
    Poll("b", 2, 10, 0);
    Advance(10);
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{2, 2, 1}, Taken{11, 1, 1}));
}

TEST_F(Poller, SeveralIntervalsGoTheirOwnWays)
{
    Poll("a", 1, 3, 0);
    Poll("b", 2, 5, 2'000);
    Poll("c", 3, 3600, 3'599'000);
    Advance(10);
    EXPECT_THAT(m_one.m_taken,
                testing::UnorderedElementsAre(Taken{1, 1, 1}, Taken{4, 1, 2}, Taken{7, 1, 3}, Taken{10, 1, 4},
                                              Taken{3, 2, 1}, Taken{8, 2, 2}));
    m_one.m_taken.clear();
    Advance(3590);
    EXPECT_THAT(m_one.m_taken, testing::Contains(Taken{3600, 3, 1}));
}

TEST_F(Poller, AnIntervalOfZeroTurnsPollingOff)
{
    Poll("a", 1, 0, 0);
    EXPECT_EQ(m_timers.Waiting(), 0U);
    Poll("a", 1, 2, 0);
    Advance(3);
    Poll("a", 1, 0, 0);
    EXPECT_EQ(m_timers.Waiting(), 0U);
    Advance(100);
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{1, 1, 1}, Taken{3, 1, 2}));
}

TEST_F(Poller, AChangedIntervalBeginsAnewAndNothingElseDoes)
{
    Poll("a", 1, 10, 4'000);
    Advance(6);
    m_random = 0;
    auto forBoth = Target(1, 10);
    forBoth.streams = &m_both;
    m_poller.Set("a", forBoth);
    m_poller.Set("a", forBoth);
    EXPECT_THAT(m_asked, ElementsAre(10'000));
    Advance(10);
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{5, 1, 1}, Taken{15, 1, 2}));
    EXPECT_THAT(m_other.m_taken, ElementsAre(Taken{15, 1, 2}));

    Poll("a", 1, 20, 1'000);
    EXPECT_THAT(m_asked, ElementsAre(10'000, 20'000));
    Advance(24);
    EXPECT_THAT(m_one.m_taken,
                ElementsAre(Taken{5, 1, 1}, Taken{15, 1, 2}, Taken{18, 1, 3}, Taken{38, 1, 4}));
}

TEST_F(Poller, AnotherKernelInterfaceOfTheNameIsPolledInTheSameRhythm)
{
    Poll("a", 1, 5, 0);
    Advance(2);
    Poll("a", 2, 5, 3'000);
    Advance(10);
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{1, 1, 1}, Taken{6, 2, 1}, Taken{11, 2, 2}));
}

TEST_F(Poller, WithoutStreamsNothingIsReadAndTheRhythmIsKept)
{
    Poll("a", 1, 10, 3'000);
    Advance(5);
    auto target = Target(1, 10);
    target.streams = &m_none;
    m_poller.Set("a", target);
    EXPECT_EQ(m_timers.Waiting(), 0U);
    Advance(50);
    EXPECT_EQ(m_reader.m_reads.size(), 1U);
    m_poller.Set("a", Target(1, 10));
    Advance(10);
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{4, 1, 1}, Taken{64, 1, 2}));
}

TEST_F(Poller, OnlyItsOwnCollectorsGetIt)
{
    auto one = Target(1, 2), both = Target(2, 2), other = Target(3, 2);
    both.streams = &m_both;
    other.streams = &m_otherStreams;
    m_poller.Set("a", one);
    m_poller.Set("b", both);
    m_poller.Set("c", other);
    Advance(1);
    EXPECT_THAT(m_one.m_taken, testing::UnorderedElementsAre(Taken{1, 1, 1}, Taken{1, 2, 1}));
    EXPECT_THAT(m_other.m_taken, testing::UnorderedElementsAre(Taken{1, 2, 1}, Taken{1, 3, 1}));

    both.streams = &m_otherStreams;
    m_poller.Set("b", both);
    Advance(2);
    EXPECT_THAT(m_one.m_taken, testing::UnorderedElementsAre(Taken{1, 1, 1}, Taken{1, 2, 1}, Taken{3, 1, 2}));
    EXPECT_TRUE(m_one.m_onlyCounters);
}

TEST_F(Poller, AllThatIsDueIsReadOnceAndFlushedOnce)
{
    for (std::uint32_t index = 1; index <= 9; ++index)
        Poll("p" + std::to_string(index), index, 10, index % 2 == 0 ? 0 : 3'500);
    EXPECT_EQ(m_timers.Waiting(), 1U);
    Advance(1);
    EXPECT_THAT(m_reader.m_reads, ElementsAre(ElementsAre(2, 4, 6, 8)));
    EXPECT_EQ(m_flushes, 1);
    Advance(2);
    EXPECT_EQ(m_reader.m_reads.size(), 1U);
    Advance(1);
    EXPECT_THAT(m_reader.m_reads, ElementsAre(ElementsAre(2, 4, 6, 8), ElementsAre(1, 3, 5, 7, 9)));
    EXPECT_EQ(m_flushes, 2);
    EXPECT_EQ(m_one.m_taken.size(), 9U);
}

TEST_F(Poller, TwoNamesOfOneKernelInterfaceShareItsSequence)
{
    Poll("a", 1, 5, 0);
    Poll("b", 1, 5, 0);
    Advance(6);
    EXPECT_THAT(m_reader.m_reads, ElementsAre(ElementsAre(1), ElementsAre(1)));
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{1, 1, 1}, Taken{1, 1, 2}, Taken{6, 1, 3}, Taken{6, 1, 4}));
}

TEST_F(Poller, AnInterfaceThatIsGoneForAWhileCostsItsSamplesOnly)
{
    Poll("a", 1, 5, 0);
    Poll("b", 2, 5, 0);
    Advance(1);
    m_one.m_taken.clear();
    m_reader.m_counters.erase(1);  // the kernel has it no longer
    m_links.Remove(2);             // its removal was heard of already
    Advance(5);
    EXPECT_THAT(m_one.m_taken, IsEmpty());
    Appear(1);
    Appear(2);
    Advance(5);
    EXPECT_THAT(m_one.m_taken, testing::UnorderedElementsAre(Taken{11, 1, 2}, Taken{11, 2, 2}));
}

TEST_F(Poller, TheSequenceGoesOnUntilTheInterfaceIsForgotten)
{
    Poll("a", 1, 5, 0);
    Advance(6);
    m_poller.Remove("a");
    EXPECT_EQ(m_timers.Waiting(), 0U);
    Advance(20);
    Poll("a", 1, 5, 0);
    Advance(1);
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{1, 1, 1}, Taken{6, 1, 2}, Taken{27, 1, 3}));
    m_one.m_taken.clear();

    m_poller.Forget(1);
    Advance(5);
    EXPECT_THAT(m_reader.m_forgotten, ElementsAre(1));
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{32, 1, 1}));
    Advance(5);
    EXPECT_THAT(m_reader.m_forgotten, ElementsAre(1)) << "once";
}

TEST_F(Poller, RemovingWhatIsNotThereDoesNothing)
{
    Poll("a", 1, 5, 0);
    m_poller.Remove("b");
    m_poller.Forget(77);
    Advance(1);
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{1, 1, 1}));
}

TEST_F(Poller, AClockThatJumpsGivesOneSampleAndTheRhythmStays)
{
    Poll("a", 1, 10, 0);
    Poll("b", 2, 3, 0);
    Advance(2);
    m_one.m_taken.clear();
    m_jump = std::chrono::seconds(1000);  // while nothing ran
    Advance(2);                           // the timer of second 4 fires at 1004 of the clock
    EXPECT_THAT(m_one.m_taken, testing::UnorderedElementsAre(Taken{4, 1, 2}, Taken{4, 2, 2}));
    m_one.m_taken.clear();
    Advance(8);  // of the clock: 1,11,… goes on at 1011, and 1,4,… at 1006, 1009 and 1012
    EXPECT_THAT(m_one.m_taken, testing::UnorderedElementsAre(Taken{6, 2, 3}, Taken{9, 2, 4}, Taken{11, 1, 3},
                                                             Taken{12, 2, 5}));
}

TEST_F(Poller, ATimerThatFiresEarlyPollsNothingBeforeItsTime)
{
    Poll("a", 1, 10, 4'000);
    m_jump = std::chrono::seconds(-1);
    Advance(5);
    EXPECT_THAT(m_one.m_taken, IsEmpty());
    Advance(1);
    EXPECT_THAT(m_one.m_taken, ElementsAre(Taken{6, 1, 1}));
}

TEST_F(Poller, SaysWhatItHasSent)
{
    Poll("a", 1, 5, 0);
    manager::InterfaceStatus status;
    m_poller.Fill("a", status);
    EXPECT_EQ(status.countersSent, 0U);
    EXPECT_EQ(status.lastCounters, std::nullopt);
    Advance(8);
    m_poller.Fill("a", status);
    EXPECT_EQ(status.countersSent, 2U);
    EXPECT_EQ(status.lastCounters, manager::WallTime(std::chrono::seconds(1'000'006)));
    m_poller.Fill("unknown", status);
    EXPECT_EQ(status.countersSent, 0U);
    EXPECT_EQ(status.lastCounters, std::nullopt);
}

}  // namespace
