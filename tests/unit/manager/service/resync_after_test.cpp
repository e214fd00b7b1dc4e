// SPDX-License-Identifier: Apache-2.0
#include "manager/service/resync_after.h"

#include <gtest/gtest.h>

#include "support/manual_timers.h"

namespace manager {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kRest{10'000};

class Resync : public testing::Test {
protected:
    support::ManualTimers m_timers;
    bool m_needed = true;
    int m_resyncs = 0;
    ResyncAfter m_resync{m_timers, kRest, [this] { return m_needed; }, [this] { ++m_resyncs; }};
};

TEST_F(Resync, ComesOnceSoLongAfterTheLastOperation)
{
    m_timers.Advance(kRest * 2);
    EXPECT_EQ(0, m_resyncs);
    m_resync.Note();
    m_timers.Advance(kRest - milliseconds{1});
    m_resync.Note();
    m_timers.Advance(kRest - milliseconds{1});
    EXPECT_EQ(0, m_resyncs);
    m_timers.Advance(milliseconds{1});
    EXPECT_EQ(1, m_resyncs);
    m_timers.Advance(kRest * 5);
    EXPECT_EQ(1, m_resyncs);
    m_resync.Note();
    m_timers.Advance(kRest);
    EXPECT_EQ(2, m_resyncs);
}

TEST_F(Resync, DoesNotComeWhereASessionHasBeenLoadedMeanwhile)
{
    m_resync.Note();
    m_needed = false;
    m_timers.Advance(kRest * 2);
    EXPECT_EQ(0, m_resyncs);
    EXPECT_EQ(0U, m_timers.Waiting());
    m_needed = true;
    m_resync.Note();
    m_timers.Advance(kRest);
    EXPECT_EQ(1, m_resyncs);
}

TEST_F(Resync, AStormOfOperationsHasOneTimer)
{
    for (int i = 0; i < 1000; ++i) m_resync.Note();
    EXPECT_EQ(1U, m_timers.Waiting());
}

TEST_F(Resync, CanBeTurnedOff)
{
    ResyncAfter off(
        m_timers, milliseconds{0}, [] { return true; }, [this] { ++m_resyncs; });
    off.Note();
    m_timers.Advance(kRest * 10);
    EXPECT_EQ(0, m_resyncs);
}

}  // namespace
}  // namespace manager
