// SPDX-License-Identifier: Apache-2.0
// An alarm on the loop and on any timers: once for each time it was set, at the time that was set last.

#include <chrono>
#include <memory>
#include <vector>

#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>

#include "base/timers.h"

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

class AlarmTest : public testing::Test {
protected:
    // Runs the loop until the alarm has gone off so often; fails after ten seconds.
    void Await(std::size_t times)
    {
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (m_rung.size() < times && Clock::now() < deadline) m_loop.run_one_for(milliseconds(100));
        EXPECT_EQ(m_rung.size(), times);
    }
    std::size_t Handlers(milliseconds time)
    {
        m_loop.restart();
        return m_loop.run_for(time);
    }
    [[nodiscard]] milliseconds After(std::size_t index) const
    {
        return std::chrono::duration_cast<milliseconds>(m_rung.at(index) - m_begin);
    }

    boost::asio::io_context m_loop;
    const std::unique_ptr<base::Timers> m_timers = base::MakeTimers(m_loop);
    std::vector<Clock::time_point> m_rung;
    std::unique_ptr<base::Alarm> m_alarm = m_timers->MakeAlarm([this] { m_rung.push_back(Clock::now()); });
    const Clock::time_point m_begin = Clock::now();
};

TEST_F(AlarmTest, GoesOffOnceWhenItsTimeHasCome)
{
    m_alarm->Set(milliseconds(20));
    Await(1);
    EXPECT_GE(After(0), milliseconds(20));
    EXPECT_EQ(Handlers(milliseconds(60)), 0U) << "the loop is not woken again";
    EXPECT_EQ(m_rung.size(), 1U);
}

TEST_F(AlarmTest, IsSilentUntilItIsSet)
{
    EXPECT_EQ(Handlers(milliseconds(30)), 0U);
    EXPECT_TRUE(m_rung.empty());
}

TEST_F(AlarmTest, TheTimeSetLastHolds)
{
    m_alarm->Set(milliseconds(5));
    m_alarm->Set(milliseconds(60));
    Await(1);
    EXPECT_GE(After(0), milliseconds(60));
    m_alarm->Set(std::chrono::hours(1));
    m_alarm->Set(milliseconds(1));
    Await(2);
}

TEST_F(AlarmTest, CanBeSetAgainByWhatItCalls)
{
    auto again = m_timers->MakeAlarm([&] {
        m_rung.push_back(Clock::now());
        if (m_rung.size() < 4) m_alarm->Set(milliseconds(10));
    });
    m_alarm = m_timers->MakeAlarm([&] { again->Set(milliseconds(0)); });
    again->Set(milliseconds(0));
    Await(4);
    EXPECT_GE(After(3), milliseconds(30));
}

TEST_F(AlarmTest, DoesNotGoOffOnceCancelledEvenIfItsTimeHasCome)
{
    m_alarm->Set(milliseconds(0));
    while (Clock::now() - m_begin < milliseconds(5)) continue;
    m_alarm->Cancel();
    Handlers(milliseconds(20));
    EXPECT_TRUE(m_rung.empty());
    m_alarm->Set(milliseconds(0));
    Await(1);
}

TEST_F(AlarmTest, CanBeDroppedByWhatItCalls)
{
    m_alarm = m_timers->MakeAlarm([this] {
        m_rung.push_back(Clock::now());
        m_alarm = nullptr;
    });
    m_alarm->Set(milliseconds(0));
    Await(1);
    Handlers(milliseconds(20));
    EXPECT_EQ(m_rung.size(), 1U);
}

// Timers without alarms of their own, like those that tests advance.
class OtherTimers final : public base::Timers {
public:
    explicit OtherTimers(base::Timers& timers) : m_timers(timers) {}
    [[nodiscard]] Clock::time_point Now() const override { return m_timers.Now(); }
    std::shared_ptr<void> After(milliseconds delay, std::function<void()> action) override
    {
        return m_timers.After(delay, std::move(action));
    }

private:
    base::Timers& m_timers;
};

TEST_F(AlarmTest, IsTheSameWithTimersThatHaveNone)
{
    OtherTimers others(*m_timers);
    m_alarm = others.MakeAlarm([this] { m_rung.push_back(Clock::now()); });
    m_alarm->Set(milliseconds(5));
    m_alarm->Set(milliseconds(40));
    Await(1);
    EXPECT_GE(After(0), milliseconds(40));
    m_alarm->Set(milliseconds(0));
    m_alarm->Cancel();
    Handlers(milliseconds(20));
    EXPECT_EQ(m_rung.size(), 1U);
}

}  // namespace
