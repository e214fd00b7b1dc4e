// SPDX-License-Identifier: Apache-2.0
// The high-availability hooks.

#include "support.h"

namespace daemon_tests {
namespace {

class HaTest : public DaemonTest {
protected:
    HaTest() { app.Init(); }
    bool GoActive() { return platform.callbacks.goActive->Invoke(); }
    bool GoStandby() { return platform.callbacks.goStandby->Invoke(); }

    SFlowApp app;
};

TEST_F(HaTest, StateIsAllOnesWhileNoTransitionIsReported)
{
    EXPECT_EQ(inside::HaState(app), 0xffffffffU);
    app.Run();
    EXPECT_EQ(inside::HaState(app), 0xffffffffU);
}

TEST_F(HaTest, TransitionsAreRecorded)
{
    EXPECT_TRUE(GoActive());
    EXPECT_EQ(inside::HaState(app), 1U);
    EXPECT_TRUE(GoStandby());
    EXPECT_EQ(inside::HaState(app), 2U);
}

TEST_F(HaTest, TheSameTransitionTwiceChangesNothing)
{
    EXPECT_TRUE(GoStandby());
    EXPECT_TRUE(GoStandby());
    EXPECT_EQ(inside::HaState(app), 2U);
    EXPECT_TRUE(GoActive());
    EXPECT_TRUE(GoActive());
    EXPECT_EQ(inside::HaState(app), 1U);
}

TEST_F(HaTest, TransitionsAreSilent)
{
    ForgetRecords();
    GoActive();
    GoStandby();
    EXPECT_THAT(platform.recorder.journal, IsEmpty());
}

TEST_F(HaTest, SetHaStateStoresAnyValueAndAnswersTrue)
{
    EXPECT_TRUE(app.SetHaState(77));
    EXPECT_EQ(inside::HaState(app), 77U);
}

TEST_F(HaTest, OwnerIsTheApplication)
{
    EXPECT_EQ(inside::GoActiveOwner(inside::GoActive(app)), &app);
    EXPECT_EQ(inside::GoStandbyOwner(inside::GoStandby(app)), &app);
}

TEST_F(DaemonTest, TransitionBeforeTheEndOfSetUpIsAnsweredFalse)
{
    SFlowApp app;
    std::vector<bool> answers;
    std::vector<std::uint32_t> states;
    platform.onFrameworkBuilt = [&] {
        answers.push_back(platform.callbacks.goActive->Invoke());
        states.push_back(inside::HaState(app));
        answers.push_back(platform.callbacks.goStandby->Invoke());
        states.push_back(inside::HaState(app));
    };
    app.Init();
    EXPECT_THAT(answers, ElementsAre(false, false));
    EXPECT_THAT(states, ElementsAre(0xffffffffU, 0xffffffffU));
}

TEST_F(DaemonTest, CallbackHoldsANullPointerAndNoOwner)
{
    SFlowApp::GoActive active;
    SFlowApp::GoStandby standby;
    EXPECT_EQ(inside::GoActiveOwner(active), nullptr);
    EXPECT_EQ(inside::GoStandbyOwner(standby), nullptr);
    EXPECT_EQ(boost::any_cast<void*>(inside::Payload(active)), nullptr);
    EXPECT_EQ(boost::any_cast<void*>(inside::Payload(standby)), nullptr);
    EXPECT_FALSE(active.Invoke());
    EXPECT_FALSE(standby.Invoke());
}

}  // namespace
}  // namespace daemon_tests
