// SPDX-License-Identifier: Apache-2.0
// Who is told of what (RFC 8341, section 3.4.6).

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "agent/agent_world.h"
#include "agent/events/event_subscription.h"
#include "agent/rpc_text.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;
using testing::Not;

/// A subscription of the user bob, to whom these rules apply.
class EventAccess : public testing::Test {
protected:
    void Begin(const std::string& rules, std::optional<agent::SubtreeFilter> filter = {})
    {
        WriteRules(rules);
        m_access = std::make_unique<agent::Access>(Schema().Context(),
                                                   agent::Access::Options{File(), AGENT_TEST_YANG, ""});
        m_subscription = std::make_unique<agent::EventSubscription>(
            m_events, m_timers, *m_access, m_access->Grant({"bob", 4711, {}}),
            agent::EventSubscription::Wanted{std::move(filter), {}, {}}, [] {});
    }
    void WriteRules(const std::string& rules)
    {
        std::ofstream(File()) << "<nacm xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-acm\">"
                                 "<groups><group><name>g</name><user-name>bob</user-name></group></groups>"
                                 "<rule-list><name>l</name><group>g</group>" +
                                     rules + "</rule-list></nacm>";
    }
    std::filesystem::path File() const { return m_directory.Path() / "rules.xml"; }

    /// Commits two new collectors, and a rate of an interface that is there.
    void Change()
    {
        const auto& table = Schema().Table();
        const auto node = [&](const char* path) { return table.Find(path); };
        cdb::ChangeNode collector{
            node("/config/oam/sflow/collector"), {"c1"}, cdb::ChangeOp::kCreated, {}, {}};
        cdb::ChangeNode other = collector;
        other.keys = {"c2"};
        cdb::ChangeNode rate{
            node("/config/oam/sflow/interface/sampling-rate"), {}, cdb::ChangeOp::kValueSet, {}, {}};
        cdb::ChangeNode interface {
            node("/config/oam/sflow/interface"), {"eth1"}, cdb::ChangeOp::kModified, {}, { rate }
        };
        cdb::ChangeNode sflow{
            node("/config/oam/sflow"), {}, cdb::ChangeOp::kNone, {}, {collector, other, interface}};
        cdb::ChangeNode oam{node("/config/oam"), {}, cdb::ChangeOp::kNone, {}, {sflow}};
        m_events.ConfigChanged({7, {node("/config"), {}, cdb::ChangeOp::kNone, {}, {oam}}},
                               agent::SessionParty{"alice", 3}, "");
    }
    std::string Told()
    {
        std::string all;
        for (const auto& text : m_subscription->Take(1U << 20U)) all += *text;
        return all;
    }

    Directory m_directory;
    boost::asio::io_context m_loop;
    support::ManualTimers m_timers;
    agent::Events m_events{m_loop, Schema(), [] { return std::int64_t{1'795'231'211'000'000}; }, {}};
    std::unique_ptr<agent::Access> m_access;
    std::unique_ptr<agent::EventSubscription> m_subscription;
};

std::string Rule(const std::string& name, const std::string& about, const std::string& action = "deny")
{
    return "<rule><name>" + name + "</name>" + about + "<action>" + action + "</action></rule>";
}

TEST_F(EventAccess, AKindOfEventCanBeDenied)
{
    Begin(Rule("r",
               "<module-name>ietf-netconf-notifications</module-name>"
               "<notification-name>netconf-config-change</notification-name>"));
    Change();
    m_events.SessionStarted({"alice", 4});
    EXPECT_THAT(Told(), testing::AllOf(HasSubstr("netconf-session-start"), Not(HasSubstr("config-change"))));
}

TEST_F(EventAccess, ARuleForOtherOperationsThanReadDoesNotCount)
{
    Begin(Rule("r", "<notification-name>*</notification-name><access-operations>exec</access-operations>"));
    Change();
    EXPECT_THAT(Told(), HasSubstr("config-change"));
}

TEST_F(EventAccess, TheFirstRuleDecides)
{
    Begin(Rule("some",
               "<module-name>switch-events</module-name><notification-name>process-lost</notification-name>",
               "permit") +
          Rule("no", "<module-name>*</module-name><notification-name>*</notification-name>"));
    m_events.ProcessLost({"worker", 12}, "gone");
    m_events.ProcessConnected({"worker", 12}, "");
    const std::string told = Told();
    EXPECT_THAT(told, HasSubstr("<process-lost"));
    EXPECT_THAT(told, Not(HasSubstr("<process-connected")));
}

TEST_F(EventAccess, WhatTheUserMayNotReadIsNotAmongTheEdits)
{
    Begin(Rule("r",
               "<path xmlns:c=\"urn:switch:yang:switch-config\" xmlns:s=\"urn:switch:yang:switch-oam-sflow\">"
               "/c:config/s:oam/s:sflow/s:collector[s:name='c1']</path>"));
    Change();
    const std::string told = Told();
    EXPECT_THAT(told, Not(HasSubstr("'c1'")));
    EXPECT_THAT(told, HasSubstr("'c2'"));
    EXPECT_THAT(told, HasSubstr("'eth1'"));
    EXPECT_THAT(told, HasSubstr("<commit xmlns=\"urn:switch:yang:switch-events\">7</commit>"));
}

TEST_F(EventAccess, WhatIsBelowAHiddenNodeIsHidden)
{
    Begin(Rule("r",
               "<path xmlns:c=\"urn:switch:yang:switch-config\" xmlns:s=\"urn:switch:yang:switch-oam-sflow\">"
               "/c:config/s:oam</path>"));
    Change();
    EXPECT_THAT(Told(), testing::AllOf(HasSubstr("<netconf-config-change"), Not(HasSubstr("<edit>"))));
}

TEST_F(EventAccess, AFilterDoesNotFindWhatIsHidden)
{
    // libyang's prefixes are part of what a filter compares, so it asks for edits that create something.
    const auto filter = ReadFilter(
        "<netconf-config-change "
        "xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-notifications\">"
        "<edit><operation>create</operation></edit></netconf-config-change>");
    const std::string deny =
        "<path xmlns:c=\"urn:switch:yang:switch-config\" xmlns:s=\"urn:switch:yang:switch-oam-sflow\">"
        "/c:config/s:oam/s:sflow/s:collector</path>";
    Begin(Rule("r", deny), filter);
    Change();
    EXPECT_EQ("", Told());
    Begin(Rule("r", deny, "permit"), filter);
    Change();
    EXPECT_THAT(Told(), HasSubstr("'c1'"));
}

TEST_F(EventAccess, NewRulesHoldForASubscriptionThatIsThere)
{
    Begin(Rule("r", "<notification-name>*</notification-name>"));
    Change();
    EXPECT_EQ("", Told());
    WriteRules(Rule("r", "<notification-name>*</notification-name>", "permit"));
    ASSERT_EQ("", m_access->Reload());
    Change();
    EXPECT_THAT(Told(), HasSubstr("<netconf-config-change"));
}

}  // namespace
}  // namespace agent_tests
