// SPDX-License-Identifier: Apache-2.0
// Sessions one after the other: what the mark at the end of a load removes, and what it must not.

#include <gtest/gtest.h>

#include "manager/recorder.h"
#include "manager/service/state.h"

namespace manager {
namespace {

class Sweep : public testing::Test {
protected:
    Sweep()
    {
        // What an earlier session has left.
        Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c1", "c2"), Update("eth2", "c2")});
        m_state.Sweep();
        m_state.AddObserver(m_recorder);
    }

    void Session(const std::vector<Operation>& operations)
    {
        m_state.BeginSession();
        Apply(operations);
    }

    void Apply(const std::vector<Operation>& operations)
    {
        for (const auto& operation : operations) EXPECT_EQ("", m_state.Apply(operation));
    }

    /// What the mark changes.
    Texts Swept()
    {
        m_recorder.Take();
        m_state.Sweep();
        return m_recorder.Take();
    }

    const Texts m_usual{"agent 192.0.2.9", "c1 192.0.2.1 6343 1400", "c2 192.0.2.1 6343 1400",
                        "eth1 4096 2 128 20 flow c1 counter c2", "eth2 4096 2 128 20 flow c2"};
    State m_state;
    Recorder m_recorder;
};

TEST_F(Sweep, OfASessionThatSaysTheSameDisturbsNothing)
{
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c1"), AddCounter("eth1", "c2"),
             Update("eth2", "c2")});
    EXPECT_EQ(Texts{}, m_recorder.Take());
    EXPECT_EQ(Texts{}, Swept());
    EXPECT_EQ(m_usual, Held(m_state));
}

TEST_F(Sweep, WithoutTheMarkNothingIsRemoved)
{
    Session({Add("c3")});
    Session({Add("c4")});
    EXPECT_EQ((Texts{"collector c3 192.0.2.1 6343 1400", "collector c4 192.0.2.1 6343 1400"}),
              m_recorder.Take());
    EXPECT_EQ(7U, Held(m_state).size());
}

TEST_F(Sweep, RemovesInterfacesThenCollectorsThenTheAddress)
{
    Session({});
    EXPECT_EQ((Texts{"interface eth1 gone", "interface eth2 gone", "collector c1 gone", "collector c2 gone",
                     "agent none"}),
              Swept());
    EXPECT_EQ(Texts{}, Held(m_state));
}

TEST_F(Sweep, RemovesSingleAttachments)
{
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c2"), Update("eth2", "c2")});
    EXPECT_EQ((Texts{"eth1 - flow c1", "eth1 - counter c2"}), Swept());
    EXPECT_EQ((Texts{"agent 192.0.2.9", "c1 192.0.2.1 6343 1400", "c2 192.0.2.1 6343 1400",
                     "eth1 4096 2 128 20 flow c2", "eth2 4096 2 128 20 flow c2"}),
              Held(m_state));
}

TEST_F(Sweep, RemovesACollectorAndLeavesTheAttachmentThatTheSessionNamed)
{
    Session({Agent("192.0.2.9"), Add("c1"), Update("eth1", "c1", "c2"), Update("eth2", "c2")});
    EXPECT_EQ(Texts{"collector c2 gone"}, Swept());
}

TEST_F(Sweep, AnAttachmentAloneDoesNotKeepAnInterface)
{
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), AddFlow("eth1", "c1"), Update("eth2", "c2")});
    EXPECT_EQ(Texts{"interface eth1 gone"}, Swept());
}

TEST_F(Sweep, WhatTheSessionHasRemovedAgainIsGoneAlready)
{
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c1", "c2"), Update("eth2", "c2"),
             Unset("eth1"), Delete("c1")});
    EXPECT_EQ((Texts{"interface eth1 gone", "collector c1 gone"}), m_recorder.Take());
    EXPECT_EQ(Texts{}, Swept());
}

TEST_F(Sweep, ASessionCutShortLeavesItsThingsToTheNextMark)
{
    Session({Agent("192.0.2.9"), Add("c1"), Update("eth3", "c1")});
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c1", "c2"), Update("eth2", "c2")});
    EXPECT_EQ(Texts{"interface eth3 gone"}, Swept());
    EXPECT_EQ(m_usual, Held(m_state));
}

TEST_F(Sweep, WhatComesAfterTheMarkBelongsToTheSession)
{
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c1", "c2"), Update("eth2", "c2")});
    EXPECT_EQ(Texts{}, Swept());
    Apply({Update("eth3", "c1"), AddCounter("eth2", "c1")});
    EXPECT_EQ(Texts{}, Swept());  // a second mark of the same session
    EXPECT_EQ(7U, Held(m_state).size() + 1);
}

TEST(SweepLimits, MakesRoomForOtherAttachments)
{
    State state(State::Limits{1, 2, 3});
    EXPECT_EQ("", state.Apply(Update("eth1", "c1", "c2")));
    EXPECT_EQ("", state.Apply(Update("eth2", "c1")));
    EXPECT_NE("", state.Apply(Update("eth2", "c2")));
    state.BeginSession();
    EXPECT_EQ("", state.Apply(Update("eth1", "c1")));
    state.Sweep();  // one goes with its interface, one alone
    EXPECT_EQ("", state.Apply(Update("eth2", "c3", "c4")));
    EXPECT_NE("", state.Apply(Update("eth2", "c5")));
}

}  // namespace
}  // namespace manager
