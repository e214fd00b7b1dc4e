// SPDX-License-Identifier: Apache-2.0
// Sessions one after the other: what the mark at the end of a load removes, and what it must not.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "manager/recorder.h"
#include "manager/service/service_table.h"

namespace manager {
namespace {

class Sweep : public testing::Test {
protected:
    Sweep()
    {
        // What an earlier session has left.
        Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c1", "c2"), Update("eth2", "c2")});
        m_table.Sweep();
        m_touched.clear();
    }

    void Session(const std::vector<Operation>& operations)
    {
        m_table.BeginSession();
        Apply(operations);
    }

    void Apply(const std::vector<Operation>& operations)
    {
        for (const auto& operation : operations)
            for (auto& text : Text(m_table.Apply(operation))) m_touched.push_back(std::move(text));
    }

    /// What the mark touches.
    Texts Swept() { return Text(m_table.Sweep()); }
    /// What the operations touched since the last call.
    Texts Touched() { return std::exchange(m_touched, {}); }

    const Texts m_usual{"agent 192.0.2.9", "c1 192.0.2.1 6343 1400", "c2 192.0.2.1 6343 1400",
                        "eth1 4096 2 128 20 flow c1 counter c2", "eth2 4096 2 128 20 flow c2"};
    ServiceTable m_table;
    Texts m_touched;
};

TEST_F(Sweep, OfASessionThatSaysTheSameDisturbsNothing)
{
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c1"), AddCounter("eth1", "c2"),
             Update("eth2", "c2")});
    EXPECT_EQ(Texts{}, Touched());
    EXPECT_EQ(Texts{}, Swept());
    EXPECT_EQ(m_usual, Held(m_table));
}

TEST_F(Sweep, WithoutTheMarkNothingIsRemoved)
{
    Session({Add("c3")});
    Session({Add("c4")});
    EXPECT_EQ((Texts{"collector c3", "collector c4"}), Touched());
    EXPECT_EQ(7U, Held(m_table).size());
}

TEST_F(Sweep, RemovesInterfacesThenCollectorsThenTheAddress)
{
    Session({});
    EXPECT_EQ((Texts{"interface eth1", "interface eth2", "collector c1", "collector c2", "agent"}), Swept());
    EXPECT_EQ(Texts{}, Held(m_table));
}

TEST_F(Sweep, RemovesSingleAttachments)
{
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c2"), Update("eth2", "c2")});
    EXPECT_EQ(Texts{"interface eth1"}, Swept());
    EXPECT_EQ((Texts{"agent 192.0.2.9", "c1 192.0.2.1 6343 1400", "c2 192.0.2.1 6343 1400",
                     "eth1 4096 2 128 20 flow c2", "eth2 4096 2 128 20 flow c2"}),
              Held(m_table));
}

TEST_F(Sweep, RemovesACollectorAndLeavesTheAttachmentThatTheSessionNamed)
{
    Session({Agent("192.0.2.9"), Add("c1"), Update("eth1", "c1", "c2"), Update("eth2", "c2")});
    EXPECT_EQ(Texts{"collector c2"}, Swept());
}

TEST_F(Sweep, AnAttachmentAloneDoesNotKeepAnInterface)
{
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), AddFlow("eth1", "c1"), Update("eth2", "c2")});
    EXPECT_EQ(Texts{"interface eth1"}, Swept());
}

TEST_F(Sweep, WhatTheSessionHasRemovedAgainIsGoneAlready)
{
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c1", "c2"), Update("eth2", "c2"),
             Unset("eth1"), Delete("c1")});
    EXPECT_EQ((Texts{"interface eth1", "collector c1"}), Touched());
    EXPECT_EQ(Texts{}, Swept());
}

TEST_F(Sweep, ASessionCutShortLeavesItsThingsToTheNextMark)
{
    Session({Agent("192.0.2.9"), Add("c1"), Update("eth3", "c1")});
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c1", "c2"), Update("eth2", "c2")});
    EXPECT_EQ(Texts{"interface eth3"}, Swept());
    EXPECT_EQ(m_usual, Held(m_table));
}

TEST_F(Sweep, WhatComesAfterTheMarkBelongsToTheSession)
{
    Session({Agent("192.0.2.9"), Add("c1"), Add("c2"), Update("eth1", "c1", "c2"), Update("eth2", "c2")});
    EXPECT_EQ(Texts{}, Swept());
    Apply({Update("eth3", "c1"), AddCounter("eth2", "c1")});
    EXPECT_EQ(Texts{}, Swept());  // a second mark of the same session
    EXPECT_EQ(7U, Held(m_table).size() + 1);
}

TEST(SweepLimits, MakesRoomForOtherAttachments)
{
    ServiceTable table(ServiceTable::Limits{1, 2, 3});
    EXPECT_EQ("", ReasonOf(table.Apply(Update("eth1", "c1", "c2"))));
    EXPECT_EQ("", ReasonOf(table.Apply(Update("eth2", "c1"))));
    EXPECT_NE("", ReasonOf(table.Apply(Update("eth2", "c2"))));
    table.BeginSession();
    EXPECT_EQ("", ReasonOf(table.Apply(Update("eth1", "c1"))));
    table.Sweep();  // one goes with its interface, one alone
    EXPECT_EQ("", ReasonOf(table.Apply(Update("eth2", "c3", "c4"))));
    EXPECT_NE("", ReasonOf(table.Apply(Update("eth2", "c5"))));
}

}  // namespace
}  // namespace manager
