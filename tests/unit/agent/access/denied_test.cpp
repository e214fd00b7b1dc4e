// SPDX-License-Identifier: Apache-2.0
// What access control denies over NETCONF is counted, and the state shows it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "agent/agent_world.h"
#include "agent/other_user.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;

constexpr const char* kAccess =
    "<state xmlns=\"urn:switch:yang:switch-state\"><system><access/></system></state>";

class Denied : public testing::Test {
protected:
    /// Everything is denied but reading and making collectors; validate is denied to all.
    static std::filesystem::path Rules(const Directory& directory)
    {
        const auto file = directory.Path() / "access.xml";
        std::ofstream(file) << "<nacm xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-acm\" "
                               "xmlns:c=\"urn:switch:yang:switch-config\" "
                               "xmlns:s=\"urn:switch:yang:switch-oam-sflow\"><rule-list><name>l</name>"
                               "<group>*</group><rule><name>v</name><rpc-name>validate</rpc-name>"
                               "<action>deny</action></rule><rule><name>c</name>"
                               "<path>/c:config/s:oam/s:sflow/s:collector</path>"
                               "<access-operations>create</access-operations><action>permit</action></rule>"
                               "</rule-list></nacm>";
        return file;
    }

    void SetUp() override
    {
        OpenToAll(m_world);
        const OtherUser other;
        if (!other.Done()) GTEST_SKIP() << "needs root, to become another user";
        m_other.emplace(m_world.Connect());
    }

    Directory m_directory;
    World m_world{{}, Rules(m_directory)};
    netconf::Client m_root = m_world.Connect();
    std::optional<netconf::Client> m_other;
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
    Refused(*m_other, netconf::Validate("candidate"), "access-denied");
    EXPECT_EQ(shown(), counts(1, 0));
    const auto edit = Refused(*m_other, netconf::EditConfig(Sflow(Interface("eth1"))), "access-denied");
    EXPECT_THAT(edit.message, HasSubstr("may not create"));
    EXPECT_EQ(shown(), counts(1, 1));
    // A commit is denied for what another user has edited.
    Do(m_root, netconf::EditConfig(Sflow(Collector("c1", "<ip>192.0.2.1</ip><port>7</port>"))));
    Do(m_root, netconf::Commit());
    Do(m_root, netconf::EditConfig(Sflow(Collector("c1", "<port>8</port>"))));
    const auto commit = Refused(*m_other, netconf::Commit(), "access-denied");
    EXPECT_THAT(commit.message, HasSubstr("may not change"));
    EXPECT_THAT(commit.message, HasSubstr("collector[name='c1']/port"));
    EXPECT_EQ(shown(), counts(1, 2));
    Do(*m_other, netconf::DiscardChanges());
    // What is permitted is not counted.
    Do(*m_other, netconf::EditConfig(Sflow(Collector("c2"))));
    Do(*m_other, netconf::Commit());
    EXPECT_EQ(shown(), counts(1, 2));
}

}  // namespace
}  // namespace agent_tests
