// The switch for expedited grace periods, on an ordinary file.

#include <chrono>
#include <fstream>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include "capture/ebpf_grace.h"
#include "embedded/manual_timers.h"

namespace {

using std::chrono::milliseconds;

class GraceTest : public testing::Test {
protected:
    GraceTest()
    {
        ::close(::mkstemp(m_path.data()));
        Write("0\n");
    }
    ~GraceTest() override { ::unlink(m_path.c_str()); }
    void Write(const std::string& text) { std::ofstream(m_path) << text; }
    std::string Value()
    {
        std::string text;
        std::ifstream(m_path) >> text;
        return text;
    }

    std::string m_path = "/tmp/grace.XXXXXX";
    ManualTimers m_timers;
};

TEST_F(GraceTest, StaysOffForAStepOrTwo)
{
    capture::GracePeriods grace(m_timers, m_path);
    grace.Step();
    grace.Step();
    EXPECT_EQ(Value(), "0");
}

TEST_F(GraceTest, GoesOnWithTheThirdStepOfARowAndOffWhenAllIsQuiet)
{
    capture::GracePeriods grace(m_timers, m_path);
    for (int i = 0; i < 3; ++i) grace.Step();
    EXPECT_EQ(Value(), "1");
    m_timers.Advance(milliseconds(99));
    grace.Step();
    m_timers.Advance(milliseconds(1));
    EXPECT_EQ(Value(), "1") << "a step came just now";
    m_timers.Advance(milliseconds(100));
    EXPECT_EQ(Value(), "0");
}

TEST_F(GraceTest, DoesNotCountStepsThatAreFarApart)
{
    capture::GracePeriods grace(m_timers, m_path);
    for (int i = 0; i < 5; ++i) {
        grace.Step();
        m_timers.Advance(milliseconds(250));
        EXPECT_EQ(Value(), "0") << i;
    }
}

TEST_F(GraceTest, GoesOnAgainForTheNextRow)
{
    capture::GracePeriods grace(m_timers, m_path);
    for (int i = 0; i < 3; ++i) grace.Step();
    m_timers.Advance(milliseconds(100));
    m_timers.Advance(milliseconds(100));
    ASSERT_EQ(Value(), "0");
    for (int i = 0; i < 3; ++i) grace.Step();
    EXPECT_EQ(Value(), "1");
}

TEST_F(GraceTest, LeavesAloneWhatSomebodyElseHasSet)
{
    Write("1\n");
    capture::GracePeriods grace(m_timers, m_path);
    for (int i = 0; i < 3; ++i) grace.Step();
    m_timers.Advance(milliseconds(100));
    m_timers.Advance(milliseconds(100));
    EXPECT_EQ(Value(), "1");
}

TEST_F(GraceTest, GoesOffWhenDestroyed)
{
    {
        capture::GracePeriods grace(m_timers, m_path);
        for (int i = 0; i < 3; ++i) grace.Step();
        ASSERT_EQ(Value(), "1");
    }
    EXPECT_EQ(Value(), "0");
}

TEST_F(GraceTest, DoesWithoutTheSwitch)
{
    capture::GracePeriods grace(m_timers, "/nonexistent/rcu_expedited");
    for (int i = 0; i < 5; ++i) grace.Step();
    EXPECT_EQ(Value(), "0");
}

}  // namespace
