// SPDX-License-Identifier: Apache-2.0
// The module switch-history over NETCONF: the number of a commit, the history's state, rolling back,
// comparing, checkpoints, and who may do what.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>
#include <unistd.h>

#include <string>

#include "agent/agent_world.h"
#include "agent/other_user.h"
#include "base/user.h"

namespace agent_tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr std::string_view kNs = "urn:switch:yang:switch-history";

std::string Operation(const std::string& name, const std::string& content)
{
    return "<" + name + " xmlns=\"" + std::string(kNs) + "\">" + content + "</" + name + ">";
}

std::string HistoryFilter(const std::string& content = "")
{
    return "<state xmlns=\"urn:switch:yang:switch-state\"><system><history xmlns=\"" + std::string(kNs) +
           "\">" + content + "</history></system></state>";
}

std::string Port(int port)
{
    return netconf::EditConfig(
        Sflow(Collector("c1", "<ip>192.0.2.1</ip><port>" + std::to_string(port) + "</port>")));
}

/// Edits and commits; returns the commit's number.
std::uint64_t CommitPort(netconf::Client& client, int port, const std::string& comment = {})
{
    Do(client, Port(port));
    return client.Call(netconf::Commit(comment)).commit.value_or(0);
}

class HistoryRequests : public testing::Test {
protected:
    std::string State(const std::string& content = "")
    {
        return m_client.Call(netconf::Get(HistoryFilter(content))).data;
    }

    World m_world;
    netconf::Client m_client = m_world.Connect();
};

// ---- the commit's number ----

TEST_F(HistoryRequests, ACommitIsAnsweredWithItsNumber)
{
    Do(m_client, Port(1));
    const auto reply = m_client.Call(netconf::Commit());
    EXPECT_EQ(reply.commit, 1U);
    EXPECT_THAT(reply.xml, HasSubstr("switch-history:commit=\"1\""));
    EXPECT_EQ(CommitPort(m_client, 2), 2U);
    // Nothing was committed.
    EXPECT_EQ(m_client.Call(netconf::Commit()).commit, std::nullopt);
    EXPECT_EQ(m_client.Call(netconf::Validate()).commit, std::nullopt);
}

TEST_F(HistoryRequests, RepliesSayHowManyChangesWereMadeOrTakenBack)
{
    Do(m_client, Port(1));
    const auto committed = m_client.Call(netconf::Commit());
    EXPECT_EQ(committed.changes, 1U);
    EXPECT_EQ(m_client.Call(netconf::Commit()).changes, std::nullopt);
    Do(m_client, Port(2));
    EXPECT_EQ(m_client.Call(netconf::DiscardChanges()).changes, 1U);
    EXPECT_EQ(m_client.Call(netconf::DiscardChanges()).changes, 0U);
    EXPECT_EQ(m_client.Call(netconf::RollBack({"1", false})).changes, 1U);
    EXPECT_EQ(m_client.Call(netconf::RollBack({"0", false})).changes, 0U);
}

TEST_F(HistoryRequests, ACommitNamesTheOthersWhoseEditsItTakes)
{
    auto other = m_world.Connect();
    Do(other, Port(1));
    Do(other, Port(2));
    Do(m_client, Port(3));
    const auto reply = m_client.Call(netconf::Commit());
    ASSERT_EQ(reply.alsoEditedBy.size(), 1U);
    EXPECT_EQ(reply.alsoEditedBy[0].second, 2U);
    EXPECT_EQ(reply.alsoEditedBy[0].first, base::UserName(::geteuid()));
    Do(m_client, Port(4));
    EXPECT_TRUE(m_client.Call(netconf::Commit()).alsoEditedBy.empty());
    // The own edits that a discard has taken back are not taken by the other's commit.
    Do(m_client, Port(5));
    Do(m_client, netconf::DiscardChanges());
    Do(other, Port(6));
    EXPECT_TRUE(other.Call(netconf::Commit()).alsoEditedBy.empty());
}

TEST_F(HistoryRequests, ACommitThatChangesNoValueHasANumberToo)
{
    CommitPort(m_client, 1);
    Do(m_client, netconf::EditConfig(Sflow(Collector("c1", "<datagram-size>1400</datagram-size>"))));
    const auto reply = m_client.Call(netconf::Commit());
    EXPECT_THAT(reply.xml, HasSubstr("<ok/>"));
    EXPECT_EQ(reply.commit, 2U);
}

/// As libnetconf2 does it.
TEST_F(HistoryRequests, LibyangReadsTheReplyWithTheNumber)
{
    // No subscriber misses a default that was made explicit, so this one is answered without a warning.
    CommitPort(m_client, 1);
    Do(m_client, netconf::EditConfig(Sflow(Collector("c1", "<datagram-size>1400</datagram-size>"))));
    const auto reply = m_client.Call(netconf::Commit());
    ASSERT_EQ(reply.commit, 2U);
    lyd_node* request = nullptr;
    ASSERT_EQ(lyd_new_path(nullptr, Schema().Context(), "/ietf-netconf:commit", nullptr, 0, &request),
              LY_SUCCESS);
    const cdb::TreePtr owned(request);
    ly_in* input = nullptr;
    ASSERT_EQ(ly_in_new_memory(reply.xml.c_str(), &input), LY_SUCCESS);
    lyd_node* envelope = nullptr;
    EXPECT_EQ(
        lyd_parse_op(Schema().Context(), request, input, LYD_XML, LYD_TYPE_REPLY_NETCONF, &envelope, nullptr),
        LY_SUCCESS)
        << cdb::LastMessage(Schema().Context());
    const cdb::TreePtr ownedEnvelope(envelope);
    ly_in_free(input, 0);
    ASSERT_NE(envelope, nullptr);
    const auto* root = reinterpret_cast<const lyd_node_opaq*>(envelope);
    EXPECT_STREQ(root->name.name, "rpc-reply");
    ASSERT_NE(root->child, nullptr);
    EXPECT_STREQ(reinterpret_cast<const lyd_node_opaq*>(root->child)->name.name, "ok");
}

TEST_F(HistoryRequests, AnAttributeOfTheClientsOwnIsNotDoubled)
{
    const auto commitWith = [this](const std::string& attributes) {
        const std::string rpc = "<rpc xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" message-id=\"9\" " +
                                attributes + "><commit/></rpc>";
        m_client.SendRaw("\n#" + std::to_string(rpc.size()) + "\n" + rpc + "\n##\n");
        return m_client.Receive().xml;
    };
    Do(m_client, Port(1));
    EXPECT_THAT(commitWith("xmlns:x=\"" + std::string(kNs) + "\" x:commit=\"77\""),
                AllOf(HasSubstr("x:commit=\"77\""), Not(HasSubstr("switch-history:commit"))));
    Do(m_client, Port(2));
    EXPECT_THAT(commitWith("xmlns:switch-history=\"urn:other\" switch-history:commit=\"78\""),
                AllOf(HasSubstr("switch-history:commit=\"78\""), Not(HasSubstr("commit=\"2\""))));
    Do(m_client, Port(3));
    EXPECT_THAT(commitWith("xmlns:x=\"urn:other\" x:a=\"b\""),
                AllOf(HasSubstr("x:a=\"b\""), HasSubstr("switch-history:commit=\"3\"")));
}

// ---- the state ----

TEST_F(HistoryRequests, TheStateListsCommitsAndCheckpoints)
{
    EXPECT_THAT(State(), HasSubstr("<newest>0</newest>"));
    CommitPort(m_client, 1, "first <of> all");
    Do(m_client, netconf::SetCheckpoint("good"));
    CommitPort(m_client, 2);
    m_world.Restart();
    m_client = m_world.Connect();
    const std::string first = State("<commit><id>1</id></commit>");
    EXPECT_THAT(first, AllOf(HasSubstr("<comment>first &lt;of&gt; all</comment>"),
                             HasSubstr("<source>netconf</source>"), HasSubstr("<changes>1</changes>"),
                             HasSubstr("<undo-kept>true</undo-kept>"),
                             HasSubstr("<checkpoint>good</checkpoint>"), Not(HasSubstr("<id>2</id>"))));
    EXPECT_THAT(State("<newest/>"), HasSubstr("<newest>2</newest>"));
    EXPECT_THAT(State("<checkpoint/>"), AllOf(HasSubstr("<name>good</name>"), HasSubstr("<commit>1</commit>"),
                                              HasSubstr("<in-reach>true</in-reach>")));
    Do(m_client, netconf::DeleteCheckpoint("good"));
    EXPECT_THAT(State(), Not(HasSubstr("good")));
}

// ---- rolling back ----

TEST_F(HistoryRequests, ARollBackIsCommittedLikeAnEdit)
{
    for (int port = 1; port <= 3; ++port) CommitPort(m_client, port);
    Do(m_client, netconf::RollBack({"1"}));
    EXPECT_THAT(Config(m_client, "candidate"), HasSubstr("<port>2</port>"));
    EXPECT_THAT(Config(m_client, "running"), HasSubstr("<port>3</port>"));
    EXPECT_EQ(m_client.Call(netconf::Commit()).commit, 4U);
    EXPECT_THAT(Config(m_client, "running"), HasSubstr("<port>2</port>"));
    // Once more: the commit before was the roll-back.
    Do(m_client, netconf::RollBack({"1"}));
    EXPECT_EQ(m_client.Call(netconf::Commit()).commit, 5U);
    EXPECT_THAT(Config(m_client, "running"), HasSubstr("<port>3</port>"));
    Do(m_client, netconf::RollBack({"1", true}));
    EXPECT_THAT(Config(m_client, "candidate"), HasSubstr("<port>1</port>"));
    Do(m_client, netconf::RollBack({"0"}));
    EXPECT_EQ(m_client.Call(netconf::Commit()).commit, std::nullopt);
    m_world.Restart();
    m_client = m_world.Connect();
    Do(m_client, netconf::RollBack({"5"}));
    EXPECT_EQ(Config(m_client, "candidate"), "");
}

TEST_F(HistoryRequests, ALockOfAnotherSessionKeepsARollBackOut)
{
    CommitPort(m_client, 1);
    CommitPort(m_client, 2);
    auto holder = m_world.Connect();
    Do(holder, netconf::Lock("candidate"));
    Refused(m_client, netconf::RollBack({"1"}), "in-use");
    Do(holder, netconf::RollBack({"1"}));
    Do(holder, netconf::Unlock("candidate"));
    EXPECT_THAT(Config(m_client, "candidate"), HasSubstr("<port>2</port>"));
}

TEST_F(HistoryRequests, RollBacksAtOnceHaveTheirTurns)
{
    CommitPort(m_client, 1);
    CommitPort(m_client, 2);
    auto other = m_world.Connect();
    for (int i = 0; i < 20; ++i) {
        m_client.Send(netconf::RollBack({"1"}));
        other.Send(netconf::RollBack({"1"}));
        EXPECT_TRUE(m_client.Receive().ok);
        EXPECT_TRUE(other.Receive().ok);
        m_client.Send(netconf::Commit());
        other.Send(netconf::Commit());
        const auto one = m_client.Receive();
        const auto two = other.Receive();
        EXPECT_TRUE(one.ok && two.ok);
        // One of them has committed, and the other one had nothing to commit.
        EXPECT_NE(one.commit.has_value(), two.commit.has_value());
        EXPECT_THAT(Config(m_client, "running"), HasSubstr(i % 2 == 0 ? "<port>1</port>" : "<port>2</port>"));
    }
    EXPECT_EQ(m_world.Store().LastCommit(), 22U);
}

TEST_F(HistoryRequests, WhatNamesNoMomentIsRefused)
{
    CommitPort(m_client, 1);
    Do(m_client, Port(2));
    const auto candidate = Config(m_client, "candidate");
    for (const char* name : {"rollback", "compare"}) {
        const auto refused = [&](const std::string& content, const std::string& tag) {
            return Refused(m_client, Operation(name, content), tag).message;
        };
        EXPECT_THAT(refused("<back>2</back>", "invalid-value"), HasSubstr("no 2 commits"));
        EXPECT_THAT(refused("<back>4294967295</back>", "invalid-value"), HasSubstr("no 4294967295 commits"));
        refused("<back>4294967296</back>", "invalid-value");
        refused("<back>-1</back>", "invalid-value");
        refused("<back>1.5</back>", "invalid-value");
        refused("<back/>", "invalid-value");
        EXPECT_THAT(refused("<commit>18446744073709551615</commit>", "invalid-value"),
                    HasSubstr("no commit 18446744073709551615"));
        EXPECT_THAT(refused("<checkpoint>never-set</checkpoint>", "data-missing"), HasSubstr("never-set"));
        for (const char* bad : {"", "1st", "commit", "a b", "a/b", "..", "a&#10;b", "&lt;x&gt;", "\xc3\xa9"})
            refused("<checkpoint>" + std::string(bad) + "</checkpoint>", "invalid-value");
        refused("<checkpoint>" + std::string(65, 'a') + "</checkpoint>", "invalid-value");
        EXPECT_FALSE(m_client.Call(Operation(name, "")).ok);
        EXPECT_FALSE(m_client.Call(Operation(name, "<back>1</back><commit>1</commit>")).ok);
        EXPECT_FALSE(m_client.Call(Operation(name, "<back>1</back><back>1</back>")).ok);
    }
    EXPECT_EQ(Config(m_client, "candidate"), candidate);
}

// ---- comparing ----

TEST_F(HistoryRequests, AComparisonHasWhatTheTwoMayDifferIn)
{
    Do(m_client, netconf::EditConfig(Sflow(Collector("c1") + Collector("c2") + Collector("c3"))));
    Do(m_client, netconf::Commit());
    CommitPort(m_client, 2);
    Do(m_client, netconf::EditConfig(Sflow(Collector("c2", "<port>9</port>"))));
    auto output = m_client.Call(netconf::CompareWith({"1"})).output;
    EXPECT_THAT(output["before"], AllOf(HasSubstr("<name>c1</name>"), HasSubstr("<name>c2</name>"),
                                        Not(HasSubstr("<name>c3</name>")), Not(HasSubstr("<port>"))));
    EXPECT_THAT(output["after"], AllOf(HasSubstr("<port>2</port>"), HasSubstr("<port>9</port>")));
    output = m_client.Call(netconf::CommitChanges("2")).output;
    EXPECT_THAT(output["before"], AllOf(HasSubstr("c1"), Not(HasSubstr("c2")), Not(HasSubstr("<port>"))));
    EXPECT_THAT(output["after"], AllOf(HasSubstr("<port>2</port>"), Not(HasSubstr("c2"))));
    output = m_client.Call(netconf::CommitChanges("1")).output;
    EXPECT_EQ(output["before"], "");
    EXPECT_THAT(output["after"], AllOf(HasSubstr("<name>c3</name>"), Not(HasSubstr("<port>"))));
    Refused(m_client, netconf::CommitChanges("0"), "invalid-value");
    Refused(m_client, netconf::CommitChanges("3"), "invalid-value");
}

// ---- checkpoints ----

TEST_F(HistoryRequests, ACheckpointMarksTheLastCommit)
{
    Do(m_client, netconf::SetCheckpoint("empty"));
    CommitPort(m_client, 1);
    Do(m_client, netconf::SetCheckpoint("good"));
    CommitPort(m_client, 2);
    EXPECT_THAT(Refused(m_client, netconf::SetCheckpoint("good"), "data-exists").message, HasSubstr("good"));
    Do(m_client, netconf::RollBack({"good"}));
    EXPECT_THAT(Config(m_client, "candidate"), HasSubstr("<port>1</port>"));
    Do(m_client, netconf::SetCheckpoint("good", true));
    Do(m_client, netconf::RollBack({"good"}));
    EXPECT_THAT(Config(m_client, "candidate"), HasSubstr("<port>2</port>"));
    Do(m_client, netconf::RollBack({"empty"}));
    EXPECT_EQ(Config(m_client, "candidate"), "");
    Do(m_client, netconf::DeleteCheckpoint("good"));
    Refused(m_client, netconf::DeleteCheckpoint("good"), "data-missing");
    Refused(m_client, netconf::RollBack({"good"}), "data-missing");
}

TEST_F(HistoryRequests, CheckpointsAreBounded)
{
    for (int i = 0; i < 100; ++i) Do(m_client, netconf::SetCheckpoint("c" + std::to_string(i)));
    EXPECT_THAT(Refused(m_client, netconf::SetCheckpoint("more"), "resource-denied").message,
                HasSubstr("100 checkpoints"));
    Do(m_client, netconf::SetCheckpoint("c7", true));
    Do(m_client, netconf::DeleteCheckpoint("c8"));
    Do(m_client, netconf::SetCheckpoint("more"));
}

// ---- who may do what ----

class LimitedHistory : public BoundByRules {
protected:
    /// Collectors may be made and read but for their address, the rest of the configuration may not be
    /// changed.
    LimitedHistory()
        : BoundByRules(
              "<rule><name>a</name><path>/c:config/s:oam/s:sflow/s:collector/s:ip</"
              "path><access-operations>read</access-operations><action>deny</action></rule>"
              "<rule><name>c</name><path>/c:config/s:oam/s:sflow/s:collector</path><access-operations>create "
              "delete</access-operations><action>permit</action></rule>")
    {
    }
};

TEST_F(LimitedHistory, ARollBackIsCheckedLikeAnEdit)
{
    CommitPort(m_root, 1);
    CommitPort(m_root, 2);
    Do(m_root, netconf::EditConfig(Sflow(Collector("c9"))));
    Do(m_root, netconf::Commit());
    // One commit back it only deletes a collector; further back it would change one.
    const auto error = Refused(*m_bound, netconf::RollBack({"2"}), "access-denied");
    EXPECT_THAT(error.message, HasSubstr("may not change"));
    EXPECT_EQ(m_root.Call(netconf::Commit()).commit, std::nullopt);  // the candidate is as before
    Do(*m_bound, netconf::RollBack({"1"}));
    EXPECT_EQ(m_bound->Call(netconf::Commit()).commit, 4U);
    EXPECT_THAT(m_root
                    .Call(netconf::Get("<state xmlns=\"urn:switch:yang:switch-state\"><system><access/>"
                                       "</system></state>"))
                    .data,
                HasSubstr("<denied-data-writes>1<"));
}

TEST_F(LimitedHistory, AComparisonShowsWhatMayBeRead)
{
    CommitPort(m_root, 1);
    CommitPort(m_root, 2);
    for (const auto& operation : {netconf::CommitChanges("2"), netconf::CompareWith({"1"})}) {
        auto shown = m_bound->Call(operation).output;
        EXPECT_THAT(shown["before"], AllOf(HasSubstr("<port>1</port>"), Not(HasSubstr("192.0.2.1"))));
        EXPECT_THAT(shown["after"], AllOf(HasSubstr("<port>2</port>"), Not(HasSubstr("192.0.2.1"))));
        EXPECT_THAT(m_root.Call(operation).output["after"], HasSubstr("192.0.2.1"));
    }
}

TEST_F(LimitedHistory, CheckpointsAreOnlyForThoseWhoAreExplicitlyPermitted)
{
    Refused(*m_bound, netconf::SetCheckpoint("mine"), "access-denied");
    Do(m_root, netconf::SetCheckpoint("roots"));
    Refused(*m_bound, netconf::DeleteCheckpoint("roots"), "access-denied");
}

}  // namespace
}  // namespace agent_tests
