// SPDX-License-Identifier: Apache-2.0
// The switch for expedited grace periods, on an ordinary file.

#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "capture/ebpf/grace.h"
#include "support/manual_timers.h"

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
    // The value that names the process.
    static std::string Of(pid_t process) { return std::to_string(0x5f000000 + process); }
    static std::string Ours() { return Of(::getpid()); }

    std::string m_path = "/tmp/grace.XXXXXX";
    support::ManualTimers m_timers;
};

TEST_F(GraceTest, StaysOffForAStepOrTwo)
{
    capture::GracePeriods grace(m_timers, true, m_path);
    grace.Step();
    grace.Step();
    EXPECT_EQ(Value(), "0");
}

TEST_F(GraceTest, TouchesNothingUnasked)
{
    for (const std::string& before :
         {Of(0x3ffffe), std::string("0")}) {  // a killed process has left the first
        Write(before + "\n");
        {
            capture::GracePeriods grace(m_timers, false, m_path);
            for (int i = 0; i < 5; ++i) grace.Step();
            EXPECT_EQ(Value(), before);
        }
        EXPECT_EQ(Value(), before);
    }
}

TEST_F(GraceTest, GoesOnWithTheThirdStepOfARowAndOffWhenAllIsQuiet)
{
    capture::GracePeriods grace(m_timers, true, m_path);
    for (int i = 0; i < 3; ++i) grace.Step();
    EXPECT_EQ(Value(), Ours());
    m_timers.Advance(milliseconds(99));
    grace.Step();
    m_timers.Advance(milliseconds(1));
    EXPECT_EQ(Value(), Ours()) << "a step came just now";
    m_timers.Advance(milliseconds(100));
    EXPECT_EQ(Value(), "0");
}

TEST_F(GraceTest, DoesNotCountStepsThatAreFarApart)
{
    capture::GracePeriods grace(m_timers, true, m_path);
    for (int i = 0; i < 5; ++i) {
        grace.Step();
        m_timers.Advance(milliseconds(250));
        EXPECT_EQ(Value(), "0") << i;
    }
}

TEST_F(GraceTest, GoesOnAgainForTheNextRow)
{
    capture::GracePeriods grace(m_timers, true, m_path);
    for (int i = 0; i < 3; ++i) grace.Step();
    m_timers.Advance(milliseconds(100));
    m_timers.Advance(milliseconds(100));
    ASSERT_EQ(Value(), "0");
    for (int i = 0; i < 3; ++i) grace.Step();
    EXPECT_EQ(Value(), Ours());
}

TEST_F(GraceTest, LeavesAloneWhatSomebodyElseHasSet)
{
    Write("1\n");
    capture::GracePeriods grace(m_timers, true, m_path);
    for (int i = 0; i < 3; ++i) grace.Step();
    m_timers.Advance(milliseconds(100));
    m_timers.Advance(milliseconds(100));
    EXPECT_EQ(Value(), "1");
}

TEST_F(GraceTest, GoesOnInARowOnceSomebodyElseLetsGo)
{
    Write("1\n");
    capture::GracePeriods grace(m_timers, true, m_path);
    for (int i = 0; i < 4; ++i) grace.Step();
    EXPECT_EQ(Value(), "1");
    Write("0\n");
    grace.Step();
    EXPECT_EQ(Value(), Ours());
}

TEST_F(GraceTest, GoesOffWhenDestroyed)
{
    {
        capture::GracePeriods grace(m_timers, true, m_path);
        for (int i = 0; i < 3; ++i) grace.Step();
        ASSERT_EQ(Value(), Ours());
    }
    EXPECT_EQ(Value(), "0");
}

TEST_F(GraceTest, LeavesAloneWhatSomebodyElseSetsMeanwhile)
{
    {
        capture::GracePeriods grace(m_timers, true, m_path);
        for (int i = 0; i < 3; ++i) grace.Step();
        Write("1\n");
    }
    EXPECT_EQ(Value(), "1");
}

TEST_F(GraceTest, TakesBackWhatAKilledProcessHasLeft)
{
    const pid_t child = ::fork();
    if (child == 0) {
        capture::GracePeriods grace(m_timers, true, m_path);
        for (int i = 0; i < 3; ++i) grace.Step();
        ::kill(::getpid(), SIGKILL);
    }
    ::waitpid(child, nullptr, 0);
    ASSERT_EQ(Value(), Of(child));
    const capture::GracePeriods grace(m_timers, true, m_path);
    EXPECT_EQ(Value(), "0");
}

TEST_F(GraceTest, LeavesAloneWhatALivingProcessHasSet)
{
    Write(Of(::getppid()) + "\n");
    {
        capture::GracePeriods grace(m_timers, true, m_path);
        for (int i = 0; i < 3; ++i) grace.Step();
    }
    EXPECT_EQ(Value(), Of(::getppid()));
}

TEST_F(GraceTest, DoesWithoutTheSwitch)
{
    capture::GracePeriods grace(m_timers, true, "/nonexistent/rcu_expedited");
    for (int i = 0; i < 5; ++i) grace.Step();
    EXPECT_EQ(Value(), "0");
}

}  // namespace
