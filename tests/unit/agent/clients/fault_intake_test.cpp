// SPDX-License-Identifier: Apache-2.0
// Faults on their way to the store: batches, and bounds for each process and for all.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/clients/fault_intake.h"
#include "support/manual_timers.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

class FaultIntakeTest : public testing::Test {
protected:
    void Take(const std::string& reporter, int count = 1)
    {
        for (int i = 0; i < count; ++i) {
            cdb::Fault fault;
            fault.process = reporter;
            fault.line = ++m_last;
            m_intake->Take(reporter, std::move(fault));
        }
    }

    void Advance(milliseconds time)
    {
        m_nowUs += std::chrono::microseconds(time).count();
        m_timers.Advance(time);
    }

    /// The sizes of the batches so far.
    [[nodiscard]] std::vector<std::size_t> Batches() const { return m_batches; }

    std::int64_t m_nowUs = 1'000'000'000;
    int m_last = 0;
    support::ManualTimers m_timers;
    std::vector<std::size_t> m_batches;
    std::vector<cdb::Fault> m_kept;
    std::unique_ptr<agent::FaultIntake> m_intake = std::make_unique<agent::FaultIntake>(
        m_timers, [this] { return m_nowUs; },
        [this](std::vector<cdb::Fault> faults) {
            m_batches.push_back(faults.size());
            for (cdb::Fault& fault : faults) m_kept.push_back(std::move(fault));
        });
};

TEST_F(FaultIntakeTest, HandsOverWhatComesTogetherInOrder)
{
    Take("a", 2);
    Take("b");
    EXPECT_TRUE(Batches().empty());
    Advance(milliseconds(50));
    EXPECT_THAT(Batches(), ElementsAre(3U));
    Take("a");
    Advance(milliseconds(50));
    EXPECT_THAT(Batches(), ElementsAre(3U, 1U));
    for (std::size_t i = 0; i < m_kept.size(); ++i) EXPECT_EQ(m_kept[i].line, static_cast<int>(i) + 1);
}

TEST_F(FaultIntakeTest, HandsOverWhatWaitsAtItsEnd)
{
    Take("a", 3);
    m_intake.reset();
    EXPECT_THAT(Batches(), ElementsAre(3U));
}

TEST_F(FaultIntakeTest, BoundsWhatOneProcessReportsAndSaysTheRestInOneLine)
{
    testing::internal::CaptureStderr();
    Take("storm (process 7)", 1000);
    Take("quiet (process 8)");
    Advance(milliseconds(1000));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(m_kept.size(), 21U);
    EXPECT_EQ(m_kept.back().process, "quiet (process 8)");
    EXPECT_THAT(log, HasSubstr("980 faults are left out, more than a process may report "
                               "(storm (process 7): 980)"));
    const auto first = log.find("are left out");
    EXPECT_EQ(log.find("are left out", first + 1), std::string::npos) << log;
}

TEST_F(FaultIntakeTest, LetsOneMoreInEachSecond)
{
    Take("a", 20);
    Take("a");
    Advance(milliseconds(999));
    Take("a");
    Advance(milliseconds(1));
    EXPECT_EQ(m_kept.size(), 20U);
    Take("a", 2);
    Advance(milliseconds(50));
    EXPECT_EQ(m_kept.size(), 21U);
    Advance(std::chrono::hours(1));
    Take("a", 100);
    Advance(milliseconds(50));
    EXPECT_EQ(m_kept.size(), 41U);
}

TEST_F(FaultIntakeTest, BoundsWhatAllReport)
{
    for (int i = 0; i < 1000; ++i) Take("process " + std::to_string(i));
    Advance(milliseconds(50));
    EXPECT_EQ(m_kept.size(), 100U);
    for (int second = 0; second < 10; ++second) {
        Advance(milliseconds(1000));
        for (int i = 0; i < 1000; ++i) Take("process " + std::to_string(second * 1000 + i));
    }
    Advance(milliseconds(50));
    EXPECT_LE(m_kept.size(), 200U);
    EXPECT_GE(m_kept.size(), 190U);
}

}  // namespace
