// SPDX-License-Identifier: Apache-2.0
// What access control denies over NETCONF is counted, and the state shows it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "agent/agent_world.h"
#include "agent/other_user.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;

constexpr const char* kAccess =
    "<state xmlns=\"urn:switch:yang:switch-state\"><system><access/></system></state>";

class Denied : public BoundByRules {
protected:
    /// Everything is denied but reading and making collectors; validate is denied to all.
    Denied()
        : BoundByRules(
              "<rule><name>v</name><rpc-name>validate</rpc-name><action>deny</action></rule>"
              "<rule><name>c</name><path>/c:config/s:oam/s:sflow/s:collector</"
              "path><access-operations>create</access-operations><action>permit</action></rule>")
    {
    }
};

TEST_F(Denied, IsCountedAndShown)
{
    const auto shown = [this] { return m_root.Call(netconf::Get(kAccess)).data; };
    const auto counts = [](int operations, int writes) {
        return "<state xmlns=\"urn:switch:yang:switch-state\"><system><access><denied-operations>" +
               std::to_string(operations) + "</denied-operations><denied-data-writes>" +
               std::to_string(writes) + "</denied-data-writes></access></system></state>";
    };
    EXPECT_EQ(shown(), counts(0, 0));
    Refused(*m_bound, netconf::Validate("candidate"), "access-denied");
    EXPECT_EQ(shown(), counts(1, 0));
    const auto edit = Refused(*m_bound, netconf::EditConfig(Sflow(Interface("eth1"))), "access-denied");
    EXPECT_THAT(edit.message, HasSubstr("may not create"));
    EXPECT_EQ(shown(), counts(1, 1));
    // A commit is denied for what another user has edited.
    Do(m_root, netconf::EditConfig(Sflow(Collector("c1", "<ip>192.0.2.1</ip><port>7</port>"))));
    Do(m_root, netconf::Commit());
    Do(m_root, netconf::EditConfig(Sflow(Collector("c1", "<port>8</port>"))));
    const auto commit = Refused(*m_bound, netconf::Commit(), "access-denied");
    EXPECT_THAT(commit.message, HasSubstr("may not change"));
    EXPECT_THAT(commit.message, HasSubstr("collector[name='c1']/port"));
    EXPECT_EQ(shown(), counts(1, 2));
    Do(*m_bound, netconf::DiscardChanges());
    // What is permitted is not counted.
    Do(*m_bound, netconf::EditConfig(Sflow(Collector("c2"))));
    Do(*m_bound, netconf::Commit());
    EXPECT_EQ(shown(), counts(1, 2));
}

}  // namespace
}  // namespace agent_tests
