// SPDX-License-Identifier: Apache-2.0
// Edits, validation, commit and discard over NETCONF: what the candidate and running hold after each.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "agent/agent_world.h"

namespace agent_tests {
namespace {

using netconf::EditConfig;
using netconf::EditOptions;
using testing::HasSubstr;

class Edit : public testing::Test {
protected:
    World m_world;
    netconf::Client m_client = m_world.Connect();

    [[nodiscard]] std::string Candidate() { return Config(m_client, "candidate"); }
    [[nodiscard]] std::string Running() { return Config(m_client, "running"); }
};

const std::string kIncomplete = Sflow("<collector><name>c1</name></collector>");

TEST_F(Edit, ReachesRunningWithTheCommit)
{
    Do(m_client, EditConfig(Sflow(Collector("c1"))));
    EXPECT_EQ(Running(), "");
    const std::string candidate = Candidate();
    EXPECT_THAT(candidate, HasSubstr("<name>c1</name>"));
    Do(m_client, netconf::Commit());
    EXPECT_EQ(Running(), candidate);
    EXPECT_EQ(Candidate(), candidate);
}

TEST_F(Edit, IsTakenBackByDiscard)
{
    Do(m_client, EditConfig(Sflow(Collector("c1"))));
    Do(m_client, netconf::DiscardChanges());
    EXPECT_EQ(Candidate(), "");
    Do(m_client, netconf::Commit());
    EXPECT_EQ(Running(), "");
}

TEST_F(Edit, OfNothingAndCommitOfNothingSucceed)
{
    Do(m_client, EditConfig(""));
    Do(m_client, netconf::Commit());
    Do(m_client, netconf::Validate());
    Do(m_client, netconf::Validate("running"));
    m_world.InLoop([this] { EXPECT_EQ(m_world.Store().LastCommit(), 0U); });
}

TEST_F(Edit, IsTestedUnlessItSaysOtherwise)
{
    for (const char* option : {"", "test-then-set", "test-only"}) {
        const auto reply = m_client.Call(EditConfig(kIncomplete, {"", option, ""}));
        EXPECT_FALSE(reply.ok) << option;
        EXPECT_EQ(Candidate(), "") << option;
    }
    Do(m_client, EditConfig(kIncomplete, {"", "set", ""}));
    EXPECT_NE(Candidate(), "");
    EXPECT_FALSE(m_client.Call(netconf::Validate()).ok);
    EXPECT_FALSE(m_client.Call(netconf::Commit()).ok);
    EXPECT_EQ(Running(), "");
    EXPECT_NE(Candidate(), "");
}

TEST_F(Edit, ThatIsOnlyTestedChangesNothing)
{
    Do(m_client, EditConfig(Sflow(Collector("c1")), {"", "test-only", ""}));
    EXPECT_EQ(Candidate(), "");
}

TEST_F(Edit, RefusesWithPathAndInfo)
{
    const auto error =
        Refused(m_client, EditConfig(Sflow(Collector("c1", "<speed>1</speed>"))), "unknown-element");
    EXPECT_EQ(error.type, "application");
    EXPECT_THAT(error.info, testing::ElementsAre(testing::Pair("bad-element", "speed")));
    EXPECT_THAT(error.path, HasSubstr("collector[switch-oam-sflow:name='c1']"));
    EXPECT_EQ(Candidate(), "");
}

TEST_F(Edit, ThatFailsIsTakenBackWhole)
{
    const std::string edit =
        Sflow(Collector("c1") + "<collector nc:operation=\"delete\"><name>c9</name></collector>");
    for (const char* test : {"", "set", "test-then-set", "test-only"})
        for (const char* onError : {"", "stop-on-error", "rollback-on-error"}) {
            Refused(m_client, EditConfig(edit, {"", test, onError}), "data-missing");
            EXPECT_EQ(Candidate(), "") << test << " " << onError;
        }
}

TEST_F(Edit, ReplacesWhatTheDefaultOperationSays)
{
    Do(m_client, EditConfig(Sflow(Collector("c1") + Collector("c2"))));
    Do(m_client, EditConfig(Sflow(Collector("c3")), {"replace", "", ""}));
    EXPECT_THAT(Candidate(), HasSubstr("c3"));
    EXPECT_THAT(Candidate(), testing::Not(HasSubstr("c1")));
    Refused(
        m_client,
        EditConfig(Sflow("<collector nc:operation=\"delete\"><name>c1</name></collector>"), {"none", "", ""}),
        "data-missing");
}

TEST_F(Edit, RefusesOperationsThatAreNone)
{
    const auto error =
        Refused(m_client, EditConfig(Sflow("<agent nc:operation=\"destroy\"/>")), "bad-attribute");
    EXPECT_EQ(error.type, "application");
    EXPECT_EQ(error.path,
              "/switch-config:config/switch-oam-sflow:oam/switch-oam-sflow:sflow/switch-oam-sflow:agent");
    EXPECT_THAT(error.info, testing::Contains(testing::Pair("bad-attribute", "operation")));
    EXPECT_EQ(Candidate(), "");
}

TEST_F(Edit, ShowsWhatDefaultsAreAskedFor)
{
    Do(m_client, EditConfig(Sflow(Collector("c1"))));
    const std::string with =
        "<with-defaults xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-with-defaults\">";
    const std::string open = "<get-config><source><candidate/></source>" + with;
    const std::string close = "</with-defaults></get-config>";
    EXPECT_THAT(m_client.Call(open + "report-all" + close).data, HasSubstr("<port>6343</port>"));
    EXPECT_EQ(m_client.Call(open + "explicit" + close).data, Candidate());
    EXPECT_EQ(m_client.Call(open + "trim" + close).data, Candidate());
    Refused(m_client, open + "everything" + close, "invalid-value");
}

TEST_F(Edit, IsSharedByAllSessions)
{
    netconf::Client other = m_world.Connect();
    Do(m_client, EditConfig(Sflow(Collector("c1"))));
    Do(other, EditConfig(Sflow(Collector("c2"))));
    Do(other, netconf::Commit());
    EXPECT_THAT(Running(), testing::AllOf(HasSubstr("c1"), HasSubstr("c2")));
}

}  // namespace
}  // namespace agent_tests
