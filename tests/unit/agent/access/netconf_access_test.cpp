// SPDX-License-Identifier: Apache-2.0
// The rules of access bind copies of whole configurations, edits that go on after an error, tagged defaults,
// and what the server tells of itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "agent/agent_world.h"
#include "agent/other_user.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kSessions =
    "<netconf-state "
    "xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\"><sessions/></netconf-state>";

class BoundUser : public BoundByRules {
protected:
    /// All may make collectors and nothing else, and see no sessions.
    BoundUser()
        : BoundByRules(
              "<rule><name>c</name><path>/c:config/s:oam/s:sflow/s:collector</"
              "path><access-operations>create</access-operations><action>permit</action></rule>"
              "<rule><name>n</name><path>/n:netconf-state/n:sessions</path><access-operations>read</"
              "access-operations><action>deny</action></rule>")
    {
    }

    static std::string Copy(const std::string& source)
    {
        return "<copy-config><target><candidate/></target><source>" + source + "</source></copy-config>";
    }
};

TEST_F(BoundUser, CopiesOnlyWhatMayBeWritten)
{
    Do(*m_bound, Copy("<config>" + Sflow(Collector("c1")) + "</config>"));
    Do(m_root, netconf::Commit());
    // The copy would delete c1, and give it another port.
    Refused(*m_bound, Copy("<config/>"), "access-denied");
    Refused(*m_bound, Copy("<config>" + Sflow(Collector("c1", "<ip>192.0.2.9</ip>")) + "</config>"),
            "access-denied");
    Do(m_root, netconf::EditConfig(Sflow(Collector("c2"))));
    const std::string before = Config(m_root, "candidate");
    // Running has no c2.
    Refused(*m_bound, Copy("<running/>"), "access-denied");
    EXPECT_EQ(Config(m_root, "candidate"), before);
    Do(m_root, Copy("<running/>"));
    EXPECT_EQ(Config(m_root, "candidate"), Config(m_root, "running"));
    Do(*m_bound, Copy("<running/>"));  // changes nothing
}

TEST_F(BoundUser, IsDeniedAnEditThatWouldGoOn)
{
    Refused(*m_bound,
            netconf::EditConfig(Sflow(Collector("c1") + Interface("eth1")), {"", "", "continue-on-error"}),
            "access-denied");
    EXPECT_EQ(Config(m_root, "candidate"), "");
}

TEST_F(BoundUser, UnsetsNoLeafByATag)
{
    Do(m_root, netconf::EditConfig(Sflow(Collector("c1", "<ip>192.0.2.1</ip><port>6343</port>"))));
    const std::string tagged =
        "<port xmlns:wd=\"urn:ietf:params:xml:ns:netconf:default:1.0\" wd:default=\"true\">6343</port>";
    Refused(*m_bound, netconf::EditConfig(Sflow(Collector("c1", tagged))), "access-denied");
    EXPECT_THAT(Config(m_root, "candidate"), HasSubstr("6343"));
}

TEST_F(BoundUser, SeesNoSessionsWhereARuleHidesThem)
{
    EXPECT_THAT(m_root.Call(netconf::Get(kSessions)).xml, HasSubstr("<session-id>"));
    EXPECT_THAT(m_bound->Call(netconf::Get(kSessions)).xml, Not(HasSubstr("session-id")));
}

}  // namespace
}  // namespace agent_tests
