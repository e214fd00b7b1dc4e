// SPDX-License-Identifier: Apache-2.0
// Whole configurations: copy-config, delete-config, the validation of a configuration that is sent along; and
// edits that go on after an error.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "agent/agent_world.h"
#include "agent/rpc_text.h"

namespace agent_tests {
namespace {

using netconf::EditConfig;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::string Copy(const std::string& source, const std::string& target = "<candidate/>")
{
    return "<copy-config><target>" + target + "</target><source>" + source + "</source></copy-config>";
}

std::string CopySent(const std::string& content) { return Copy("<config>" + content + "</config>"); }

std::string ValidateSent(const std::string& content)
{
    return "<validate><source><config>" + content + "</config></source></validate>";
}

std::string Delete(const std::string& what, const std::string& key)
{
    return "<" + what + " nc:operation=\"delete\"><name>" + key + "</name></" + what + ">";
}

class Copying : public testing::Test {
protected:
    World m_world;
    netconf::Client m_client = m_world.Connect();
    netconf::Client m_other = m_world.Connect();

    std::string Candidate() { return Config(m_client, "candidate"); }
    std::string Running() { return Config(m_client, "running"); }

    void CommitCollectors(const std::string& collectors)
    {
        Do(m_client, EditConfig(Sflow(collectors)));
        Do(m_client, netconf::Commit());
    }
};

TEST_F(Copying, OfRunningTakesTheCandidatesChangesBack)
{
    CommitCollectors(Collector("c1"));
    Do(m_client, EditConfig(Sflow(Collector("c2") + Delete("collector", "c1"))));
    Do(m_client, Copy("<running/>"));
    EXPECT_EQ(Candidate(), Running());
    EXPECT_THAT(Candidate(), HasSubstr("c1"));
    Do(m_client, netconf::Lock("candidate"));  // refused while there are changes
}

TEST_F(Copying, OfAConfigurationReplacesTheWholeCandidate)
{
    CommitCollectors(Collector("c1") + Collector("c2"));
    Do(m_client, CopySent(Sflow(Collector("c2", "<ip>192.0.2.2</ip>") + Collector("c3"))));
    EXPECT_THAT(Candidate(), HasSubstr("192.0.2.2"));
    EXPECT_THAT(Candidate(), HasSubstr("c3"));
    EXPECT_THAT(Candidate(), Not(HasSubstr("c1")));
    EXPECT_THAT(Running(), HasSubstr("c1"));
    Do(m_client, netconf::Commit());
    EXPECT_EQ(Candidate(), Running());
    Do(m_client, CopySent(""));
    EXPECT_EQ(Candidate(), "");
}

TEST_F(Copying, OfWhatIsNotValidYetIsLeftToTheCommit)
{
    Do(m_client, CopySent(Sflow("<collector><name>c1</name></collector>")));
    Refused(m_client, netconf::Commit(), "missing-element");
}

TEST_F(Copying, OfABadValueChangesNothing)
{
    CommitCollectors(Collector("c1"));
    Do(m_client, EditConfig(Sflow(Collector("c2"))));
    const std::string before = Candidate();
    Refused(m_client, CopySent(Sflow(Collector("c3") + Collector("c4", "<ip>nowhere</ip>"))),
            "invalid-value");
    Refused(m_client, CopySent(Sflow("<collector/>")), "missing-element");
    Refused(m_client, CopySent("text"), "bad-element");
    EXPECT_EQ(Candidate(), before);
}

TEST_F(Copying, AsksForTheRatesOfNewInterfaces)
{
    Process manager(m_world, "manager");
    manager.RegisterCallpoint();
    manager.Ready();
    std::thread server([&manager] { manager.Serve(1, 4711); });
    Do(m_client, CopySent(Sflow(Interface("eth1"))));
    server.join();
    EXPECT_THAT(Candidate(), HasSubstr("4711"));
}

TEST_F(Copying, IsRefusedWhereItMakesNoSense)
{
    CommitCollectors(Collector("c1"));
    EXPECT_THAT(Refused(m_client, Copy("<candidate/>"), "invalid-value").message, HasSubstr("both"));
    Refused(m_client, Copy("<candidate/>", "<running/>"), "unknown-element");
    Refused(m_client, Copy("<running/>", "<startup/>"), "unknown-element");
    Refused(m_client, Copy("<url>file:///etc/passwd</url>"), "unknown-element");
    Refused(m_client, Copy(""), "missing-element");
    for (const char* target : {"<running/>", "<candidate/>", "<startup/>"})
        Refused(m_client, "<delete-config><target>" + std::string(target) + "</target></delete-config>",
                "unknown-element");
    EXPECT_THAT(Running(), HasSubstr("c1"));
}

/// What an element declares holds inside of it only.
TEST_F(Copying, ReadsPrefixesInTheirPlaces)
{
    const std::string other = " xmlns:s=\"urn:elsewhere\"";
    const std::string content = "<config xmlns=\"" + kConfigNamespace +
                                "\"><s:oam><s:sflow><s:collector><s:name>c1</s:name>"
                                "<s:ip>192.0.2.1</s:ip></s:collector></s:sflow></s:oam></config>";
    const std::string here = " xmlns:s=\"" + kSflowNamespace + "\"";
    Do(m_client, "<copy-config" + here + "><target" + other + "><candidate" + other +
                     "/></target><source><config>" + content + "</config></source></copy-config>");
    EXPECT_THAT(Candidate(), HasSubstr("c1"));
    Do(m_client, "<edit-config" + here + "><target" + other + "><candidate/></target><config>" + content +
                     "</config></edit-config>");
}

TEST_F(Copying, HeedsTheLockOfAnother)
{
    Do(m_other, netconf::Lock("candidate"));
    Refused(m_client, Copy("<running/>"), "in-use");
    Refused(m_client, CopySent(Sflow(Collector("c1"))), "in-use");
    Do(m_other, CopySent(Sflow(Collector("c2"))));
}

TEST_F(Copying, TakesNoOperations)
{
    Refused(m_client, CopySent(Sflow(Delete("collector", "c1"))), "unknown-attribute");
    Refused(m_client, ValidateSent(Sflow(Delete("collector", "c1"))), "unknown-attribute");
}

TEST_F(Copying, ValidatesWhatIsSentByItself)
{
    CommitCollectors(Collector("c1"));
    Do(m_client, EditConfig(Sflow(Collector("c2"))));
    const std::string before = Candidate();
    const std::string reference = "<counter-sampling-collector><name>c1</name></counter-sampling-collector>";
    // What running and the candidate have is not there: the configuration is a whole.
    const auto error = Refused(m_client, ValidateSent(Sflow(Interface("eth1", reference))), "data-missing");
    EXPECT_EQ(error.appTag, "instance-required");
    Do(m_client, ValidateSent(Sflow(Collector("c1") + Interface("eth1", reference))));
    Do(m_client, ValidateSent(""));
    Refused(m_client, ValidateSent(Sflow("<collector><name>c9</name></collector>")), "missing-element");
    Refused(m_client, ValidateSent(Sflow(Collector("c1", "<ip>nowhere</ip>"))), "invalid-value");
    EXPECT_EQ(Candidate(), before);
    Do(m_client, netconf::Commit());
    EXPECT_EQ(Running(), before);
}

TEST_F(Copying, ValidatesWhatIsSentWhileAnotherHasTheLock)
{
    Do(m_other, netconf::Lock("candidate"));
    Do(m_client, ValidateSent(Sflow(Collector("c1"))));
}

/// Waits for no edit: one that awaits its callpoint has the candidate meanwhile.
TEST_F(Copying, ValidatesWhatIsSentWhileAnEditWaits)
{
    Process manager(m_world, "manager");
    manager.RegisterCallpoint();
    manager.Ready();
    std::thread editor([this] { Do(m_other, EditConfig(Sflow(Interface("eth1")))); });
    const auto request = manager.ReceiveRequest();
    Do(m_client, ValidateSent(Sflow(Collector("c1"))));
    manager.Answer(request, 4096);
    editor.join();
}

class GoingOn : public Copying {
protected:
    netconf::Reply Edit(const std::string& content, const std::string& test = "",
                        const std::string& operation = "")
    {
        return m_client.Call(EditConfig(Sflow(content), {operation, test, "continue-on-error"}));
    }
};

TEST_F(GoingOn, DoesWhatCanBeDoneAndTellsEachError)
{
    CommitCollectors(Collector("c1"));
    const auto reply =
        Edit(Delete("collector", "c8") + Collector("c2") +
             "<collector nc:operation=\"create\"><name>c1</name></collector>" + Collector("c3"));
    ASSERT_EQ(reply.errors.size(), 2U) << reply.xml;
    EXPECT_EQ(reply.errors[0].tag, "data-missing");
    EXPECT_EQ(reply.errors[1].tag, "data-exists");
    EXPECT_THAT(Candidate(), HasSubstr("c2"));
    EXPECT_THAT(Candidate(), HasSubstr("c3"));
    Do(m_client, netconf::Commit());
}

TEST_F(GoingOn, IsOkWithoutErrors)
{
    EXPECT_TRUE(Edit(Collector("c1")).ok);
    EXPECT_THAT(Candidate(), HasSubstr("c1"));
}

/// A collector with a wrong "enabled" must not come into being with the default, which is true.
TEST_F(GoingOn, MakesANewEntryWholeOrNotAtAll)
{
    const auto reply =
        Edit(Collector("c1", "<ip>192.0.2.1</ip><enabled>perhaps</enabled>") + Collector("c2"));
    ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
    EXPECT_EQ(reply.errors[0].tag, "invalid-value");
    EXPECT_THAT(Candidate(), Not(HasSubstr("c1")));
    EXPECT_THAT(Candidate(), HasSubstr("c2"));
}

TEST_F(GoingOn, KeepsAnEntryThatCouldNotBeReplaced)
{
    CommitCollectors(Collector("c1", "<ip>192.0.2.1</ip><port>7000</port>"));
    const auto reply = Edit(
        "<collector nc:operation=\"replace\"><name>c1</name><ip>192.0.2.9</ip>"
        "<port>no</port></collector>" +
        Collector("c2"));
    ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
    EXPECT_THAT(Candidate(), HasSubstr("7000"));
    EXPECT_THAT(Candidate(), Not(HasSubstr("192.0.2.9")));
    EXPECT_THAT(Candidate(), HasSubstr("c2"));
}

TEST_F(GoingOn, ChangesTheOtherLeavesOfAnEntryThatIsThere)
{
    CommitCollectors(Collector("c1"));
    const auto reply = Edit(Collector("c1", "<datagram-size>9</datagram-size><port>7001</port>"));
    ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
    EXPECT_THAT(Candidate(), HasSubstr("7001"));
    EXPECT_THAT(Candidate(), Not(HasSubstr("datagram-size")));
}

TEST_F(GoingOn, ReplacesEverythingOrNothing)
{
    CommitCollectors(Collector("c1"));
    const std::string before = Candidate();
    const auto reply = Edit(Collector("c2") + Collector("c3", "<ip>no</ip>"), "", "replace");
    ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
    EXPECT_EQ(Candidate(), before);
}

TEST_F(GoingOn, ChangesNothingWhereTheRestIsNotValid)
{
    const auto reply = Edit(Delete("collector", "c8") + "<collector><name>c2</name></collector>");
    ASSERT_EQ(reply.errors.size(), 2U) << reply.xml;
    EXPECT_EQ(reply.errors[0].tag, "data-missing");
    EXPECT_EQ(reply.errors[1].tag, "missing-element");
    EXPECT_EQ(Candidate(), "");
    EXPECT_FALSE(Edit(Delete("collector", "c8") + Collector("c1"), "test-only").ok);
    EXPECT_EQ(Candidate(), "");
}

TEST_F(GoingOn, AsksForTheRatesBehindAnError)
{
    Process manager(m_world, "manager");
    manager.RegisterCallpoint();
    manager.Ready();
    std::thread server([&manager] { manager.Serve(1, 4711); });
    EXPECT_FALSE(Edit(Delete("interface", "eth8") + Interface("eth1")).ok);
    server.join();
    EXPECT_THAT(Candidate(), HasSubstr("4711"));
}

TEST_F(GoingOn, TellsTwentyErrorsAndCountsTheRest)
{
    std::string edit;
    for (int i = 0; i < 5000; ++i) edit += Delete("collector", "c" + std::to_string(i));
    const auto reply = Edit(edit + Collector("d1"));
    ASSERT_EQ(reply.errors.size(), 21U);
    EXPECT_THAT(reply.errors.back().message, HasSubstr("4980"));
    EXPECT_THAT(Candidate(), HasSubstr("d1"));
}

}  // namespace
}  // namespace agent_tests
