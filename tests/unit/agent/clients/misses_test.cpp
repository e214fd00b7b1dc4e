// SPDX-License-Identifier: Apache-2.0
// Subscribers that miss commits: how long they are waited for, when not any more, and how they come back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "agent/agent_world.h"
#include "support/poll.h"

namespace agent_tests {
namespace {

using netconf::EditConfig;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr const char* kSubscribed = "/config/oam/sflow";

agent::AgentOptions Options()
{
    agent::AgentOptions options;
    options.ackTimes = {std::chrono::seconds(10), {{"slow", std::chrono::seconds(30)}}};
    return options;
}

class Misses : public testing::Test {
protected:
    std::unique_ptr<Process> Subscriber(const std::string& name, std::int32_t priority = 1,
                                        const char* path = kSubscribed)
    {
        auto process = std::make_unique<Process>(m_world, name);
        process->Subscribe(1, priority, path);
        process->Ready();
        return process;
    }

    static void SayLoaded(Process& process)
    {
        ipc::cdb::ClientMessage message;
        message.mutable_loaded();
        process.Send(message);
    }

    /// Sends a commit with a change of its own.
    void SendCommit()
    {
        Do(m_client, EditConfig(Sflow(Collector("c" + std::to_string(++m_commits)))));
        m_client.Send(netconf::Commit());
    }

    /// The warnings of the commit that was sent.
    std::vector<std::string> Warnings()
    {
        const auto reply = m_client.Receive();
        EXPECT_TRUE(reply.ok) << reply.xml;
        std::vector<std::string> texts;
        for (const auto& error : reply.errors) texts.push_back(error.message);
        return texts;
    }

    /// A commit that it misses and is disconnected for.
    void MissOne(Process& process)
    {
        SendCommit();
        EXPECT_EQ(process.ReceiveChangeSet().commit(), m_commits);
        m_world.Advance(std::chrono::seconds(10));
        EXPECT_THAT(Warnings(), SizeIs(1));
        EXPECT_TRUE(process.AwaitEnd());
    }

    /// What the state says of the processes, as XML.
    std::string Shown()
    {
        auto reader = m_world.Connect();  // the session that commits waits for its answer
        return reader
            .Call(netconf::Get(
                "<state xmlns=\"urn:switch:yang:switch-state\"><system><process/></system></state>"))
            .data;
    }

    std::string ShownOf(const std::string& name)
    {
        const std::string shown = Shown();
        const auto at = shown.find("<name>" + name + "</name>");
        return at == std::string::npos ? "" : shown.substr(at, shown.find("</process>", at) - at);
    }

    World m_world{Options()};
    netconf::Client m_client = m_world.Connect();
    unsigned m_commits = 0;
};

TEST_F(Misses, TheTimeIsThatOfTheProcess)
{
    const auto slow = Subscriber("slow");
    SendCommit();
    slow->ReceiveChangeSet();
    m_world.Advance(std::chrono::seconds(29));
    slow->Acknowledge(1);
    EXPECT_THAT(Warnings(), IsEmpty());
    SendCommit();
    slow->ReceiveChangeSet();
    m_world.Advance(std::chrono::seconds(30));
    EXPECT_THAT(Warnings(), testing::ElementsAre(AllOf(HasSubstr("slow"), HasSubstr("30000 ms"))));
}

TEST_F(Misses, AfterTwoItIsSentChangesButNotWaitedForUntilItHasLoaded)
{
    auto app = Subscriber("app");
    MissOne(*app);
    EXPECT_THAT(Shown(), AllOf(HasSubstr("<health>late</health>"), HasSubstr("<state>disconnected</state>"),
                               HasSubstr("<missed-commits>1</missed-commits>"), HasSubstr("<health-since>")));
    app = Subscriber("app");
    MissOne(*app);  // it has not loaded: the second
    EXPECT_THAT(Shown(), HasSubstr("<health>not-awaited</health>"));

    app = Subscriber("app");
    SendCommit();
    EXPECT_THAT(Warnings(),
                testing::ElementsAre(AllOf(HasSubstr("app (process "), HasSubstr("missed 3 commits"),
                                           HasSubstr("has not loaded"))))
        << "without any time passing";
    EXPECT_EQ(app->ReceiveChangeSet().commit(), 3U) << "what it loads may be older";
    EXPECT_THAT(Shown(), AllOf(HasSubstr("<health>not-awaited</health>"), HasSubstr("<state>ready</state>")));

    SayLoaded(*app);
    app->Acknowledge(3);
    support::Await("it to be well",
                   [this] { return Shown().find("<health>ok</health>") != std::string::npos; });
    EXPECT_THAT(Shown(), AllOf(HasSubstr("<missed-commits>0</missed-commits>"),
                               HasSubstr("<last-acknowledgement>"), Not(HasSubstr("<health-since>"))));
    SendCommit();
    EXPECT_EQ(app->ReceiveChangeSet().commit(), 4U);
    app->Acknowledge(4);
    EXPECT_THAT(Warnings(), IsEmpty()) << "it is waited for again";
}

TEST_F(Misses, LoadingAfterOneMakesItWell)
{
    auto app = Subscriber("app");
    MissOne(*app);
    app = Subscriber("app");
    SayLoaded(*app);
    support::Await("it to be well",
                   [this] { return Shown().find("<health>ok</health>") != std::string::npos; });
    MissOne(*app);
    EXPECT_THAT(Shown(), HasSubstr("<missed-commits>1</missed-commits>"));
}

TEST_F(Misses, AreOfCommitsThatConcernIt)
{
    auto app = Subscriber("app", 1, "/config/oam/sflow/agent");
    const auto other = Subscriber("other", 2, "/config/oam/sflow");
    Do(m_client, EditConfig(Sflow("<agent><ipv4>192.0.2.1</ipv4></agent>")));
    m_client.Send(netconf::Commit());
    app->ReceiveChangeSet();
    m_world.Advance(std::chrono::seconds(10));
    EXPECT_EQ(other->ReceiveChangeSet().commit(), 1U);
    other->Acknowledge(1);
    EXPECT_THAT(Warnings(), SizeIs(1));
    SendCommit();
    EXPECT_EQ(other->ReceiveChangeSet().commit(), 2U);
    other->Acknowledge(2);
    EXPECT_THAT(Warnings(), IsEmpty());
    EXPECT_THAT(Shown(), HasSubstr("<missed-commits>1</missed-commits>"));
}

TEST_F(Misses, OfTwoOfOneNameAreCountedApart)
{
    auto first = Subscriber("app", 1);
    auto second = Subscriber("app", 2);
    SendCommit();
    first->ReceiveChangeSet();
    m_world.Advance(std::chrono::seconds(10));
    second->ReceiveChangeSet();
    second->Acknowledge(1);
    EXPECT_THAT(Warnings(), SizeIs(1));
    SendCommit();
    second->ReceiveChangeSet();
    m_world.Advance(std::chrono::seconds(10));
    EXPECT_THAT(Warnings(), SizeIs(2)) << "one that is gone, one that is late";
    // Each that returns takes one record; both have loaded then.
    first = Subscriber("app", 1);
    SayLoaded(*first);
    second = Subscriber("app", 2);
    SayLoaded(*second);
    support::Await("both to be well", [this] { return Shown().find("late") == std::string::npos; });
    SendCommit();
    EXPECT_EQ(first->ReceiveChangeSet().commit(), 3U);
    first->Acknowledge(3);
    EXPECT_EQ(second->ReceiveChangeSet().commit(), 3U);
    second->Acknowledge(3);
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(Misses, DoNotChangeTheOrderForOthers)
{
    auto stuck = Subscriber("stuck", 1);
    const auto third = Subscriber("third", 3);
    const auto second = Subscriber("second", 2);
    for (unsigned commit = 1; commit <= 3; ++commit) {
        if (commit > 1) stuck = Subscriber("stuck", 1);
        SendCommit();
        EXPECT_EQ(stuck->ReceiveChangeSet().commit(), commit);
        if (commit < 3) m_world.Advance(std::chrono::seconds(10));
        EXPECT_EQ(second->ReceiveChangeSet().commit(), commit);
        EXPECT_THAT(ShownOf("third"), HasSubstr("<state>ready</state>")) << "it has the change set too early";
        second->Acknowledge(commit);
        EXPECT_EQ(third->ReceiveChangeSet().commit(), commit);
        third->Acknowledge(commit);
        EXPECT_THAT(Warnings(), SizeIs(1));
    }
}

TEST_F(Misses, AcknowledgementsOfThePastOrTwiceTellNothing)
{
    auto app = Subscriber("app");
    MissOne(*app);
    app = Subscriber("app");
    MissOne(*app);
    app = Subscriber("app");
    for (const unsigned commit : {1U, 2U, 99U}) app->Acknowledge(commit);
    SendCommit();
    EXPECT_THAT(Warnings(), SizeIs(1)) << "it is not taken for loaded";
    app->ReceiveChangeSet();
    app->Acknowledge(3);
    app->Acknowledge(3);
    support::Await("it to be well",
                   [this] { return Shown().find("<health>ok</health>") != std::string::npos; });
    SendCommit();
    EXPECT_EQ(app->ReceiveChangeSet().commit(), 4U);
    app->Acknowledge(3);
    m_world.Advance(std::chrono::seconds(10));
    EXPECT_THAT(Warnings(), SizeIs(1)) << "another commit's does not stand for this one's";
}

TEST_F(Misses, AreKeptIfItGoesBeforeItHasLoaded)
{
    auto app = Subscriber("sflow-app");
    MissOne(*app);
    app = Subscriber("sflow-app");
    app.reset();
    support::Await("it to be gone",
                   [this] { return Shown().find("<state>disconnected</state>") != std::string::npos; });
    SendCommit();
    EXPECT_THAT(Warnings(), testing::ElementsAre(HasSubstr("missed 2 commits")))
        << "and no other text says that the process is not connected";
}

TEST_F(Misses, ATransitionNamesWhoIsMissing)
{
    auto app = Subscriber("app");
    MissOne(*app);
    m_client.Send(netconf::HaTransition("active"));
    EXPECT_THAT(Warnings(), testing::ElementsAre(AllOf(HasSubstr("transition"), HasSubstr("app (process "))));
}

TEST_F(Misses, SayingLoadedBeforeReadyEndsTheConnection)
{
    Process early(m_world, "early");
    SayLoaded(early);
    EXPECT_TRUE(early.AwaitEnd());
}

}  // namespace
}  // namespace agent_tests
