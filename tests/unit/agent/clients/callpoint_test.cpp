// SPDX-License-Identifier: Apache-2.0
// Callpoints: requests for created entries, answers in any order, and every way in which they fail.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "agent/agent_world.h"

namespace agent_tests {
namespace {

using netconf::EditConfig;
using testing::AllOf;
using testing::HasSubstr;

class Callpoint : public testing::Test {
protected:
    std::unique_ptr<Process> Holder()
    {
        auto process = std::make_unique<Process>(m_world, "app");
        process->RegisterCallpoint();
        process->Ready();
        return process;
    }

    /// Returns when the agent has read what the holder has sent so far.
    static void AwaitAnswersTaken(Process& holder, netconf::Client& other)
    {
        other.Send(netconf::HaTransition("active"));
        ipc::cdb::ClientMessage reply;
        reply.mutable_ha_reply()->set_request(holder.Receive().ha_transition().request());
        reply.mutable_ha_reply()->set_handled(true);
        holder.Send(reply);
        other.Receive();
    }

    /// The edit under way is refused, naming the callpoint and why; the candidate is as before.
    void ExpectRefused(const std::string& why)
    {
        const auto reply = m_client.Receive();
        ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
        EXPECT_EQ(reply.errors[0].tag, "operation-failed");
        EXPECT_THAT(reply.errors[0].message, AllOf(HasSubstr("sflow-set-sampling-rate"), HasSubstr(why)));
        EXPECT_EQ(Config(m_client, "candidate"), "");
    }

    World m_world;
    netconf::Client m_client = m_world.Connect();
};

TEST_F(Callpoint, IsAskedForEachEntryWithoutWaitingForAnswers)
{
    const auto holder = Holder();
    std::string edit;
    std::vector<std::string> expected;
    for (const char* name : {"eth2", "eth10", "eth1"}) {
        edit += Interface(name);
        expected.push_back("/config/oam/sflow/interface{" + std::string(name) + "}");
    }
    m_client.Send(EditConfig(Sflow(edit)));
    std::vector<ipc::cdb::CallpointRequest> requests;
    std::vector<std::string> paths;
    for (int i = 0; i < 3; ++i) {
        requests.push_back(holder->ReceiveRequest());
        paths.push_back(requests.back().path());
        EXPECT_EQ(requests.back().operation(), ipc::cdb::CallpointRequest::CREATE);
        EXPECT_EQ(requests.back().callpoint(), "sflow-set-sampling-rate");
        EXPECT_EQ(requests.back().transaction(), requests.front().transaction());
    }
    EXPECT_EQ(paths, expected);
    // Answers in another order.
    holder->Answer(requests[2], 1000);
    holder->Answer(requests[0], 2000);
    holder->Answer(requests[1], 3000);
    EXPECT_TRUE(m_client.Receive().ok);
    EXPECT_THAT(Config(m_client, "candidate"),
                HasSubstr("<interface><name>eth1</name><default-sampling-rate>1000</default-sampling-rate>"
                          "</interface><interface><name>eth10</name><default-sampling-rate>3000"
                          "</default-sampling-rate></interface><interface><name>eth2</name>"
                          "<default-sampling-rate>2000</default-sampling-rate></interface>"));
}

TEST_F(Callpoint, GivesWayToTheEditsOwnValue)
{
    const auto holder = Holder();
    m_client.Send(EditConfig(Sflow(
        Interface("eth1", "<default-sampling-rate nc:operation=\"create\">77</default-sampling-rate>"))));
    holder->Serve(1, 1000);
    EXPECT_TRUE(m_client.Receive().ok);
    EXPECT_THAT(Config(m_client, "candidate"),
                HasSubstr("<default-sampling-rate>77</default-sampling-rate>"));
}

TEST_F(Callpoint, IsNotAskedWhereNothingIsCreated)
{
    const auto holder = Holder();
    m_client.Send(EditConfig(Sflow(Interface("eth1"))));
    holder->Serve(1);
    EXPECT_TRUE(m_client.Receive().ok);
    Do(m_client, EditConfig(Sflow(Interface("eth1", "<sampling-rate>5</sampling-rate>"))));
    Do(m_client, EditConfig(Sflow(Collector("c1"))));
    Do(m_client, netconf::DiscardChanges());
}

TEST_F(Callpoint, WithoutAProcessRefusesTheEdit)
{
    m_client.Send(EditConfig(Sflow(Interface("eth1"))));
    ExpectRefused("no process serves it; start sflow-app");
}

TEST_F(Callpoint, ThatRefusesRefusesTheEdit)
{
    const auto holder = Holder();
    m_client.Send(EditConfig(Sflow(Interface("eth1") + Interface("eth2"))));
    const auto first = holder->ReceiveRequest();
    holder->Answer(holder->ReceiveRequest(), 1);
    ipc::cdb::ClientMessage message;
    message.mutable_callpoint_reply()->set_request(first.request());
    message.mutable_callpoint_reply()->set_error("no such speed");
    holder->Send(message);
    ExpectRefused("no such speed");
}

TEST_F(Callpoint, ThatGoesRefusesTheEdit)
{
    auto holder = Holder();
    m_client.Send(EditConfig(Sflow(Interface("eth1") + Interface("eth2"))));
    holder->Serve(1);
    holder.reset();
    ExpectRefused("has gone");
    const auto next = Holder();
    m_client.Send(EditConfig(Sflow(Interface("eth1"))));
    next->Serve(1);
    EXPECT_TRUE(m_client.Receive().ok);
}

TEST_F(Callpoint, ThatDoesNotAnswerRefusesTheEdit)
{
    const auto holder = Holder();
    m_client.Send(EditConfig(Sflow(Interface("eth1") + Interface("eth2"))));
    const auto late = holder->ReceiveRequest();
    holder->Serve(1);
    m_world.Advance(std::chrono::seconds(10));
    ExpectRefused("has not answered for 5.0 s");
    // An answer that comes too late belongs to nothing.
    holder->Answer(late, 5);
    m_client.Send(EditConfig(Sflow(Interface("eth3"))));
    holder->Serve(1, 9);
    EXPECT_TRUE(m_client.Receive().ok);
    EXPECT_THAT(Config(m_client, "candidate"), AllOf(HasSubstr(">9<"), testing::Not(HasSubstr("eth1"))));
}

TEST_F(Callpoint, ThatTakesTooLongForAllQuestionsRefusesTheEdit)
{
    const auto holder = Holder();
    auto other = m_world.Connect();
    std::string edit;
    for (int i = 0; i < 10; ++i) edit += Interface("eth" + std::to_string(i));
    m_client.Send(EditConfig(Sflow(edit)));
    std::vector<ipc::cdb::CallpointRequest> requests;
    for (int i = 0; i < 10; ++i) requests.push_back(holder->ReceiveRequest());
    for (std::size_t i = 0; i < 7; ++i) {
        holder->Answer(requests[i], 1);
        AwaitAnswersTaken(*holder, other);
        m_world.Advance(std::chrono::milliseconds(4'200));
    }
    m_world.Advance(std::chrono::milliseconds(600));
    ExpectRefused("has not answered all questions within 30.0 s");
}

TEST_F(Callpoint, ThatWritesNonsenseRefusesTheEdit)
{
    const auto holder = Holder();
    for (const char* path : {"/config/oam/nonsense", "", "/config/oam/sflow/interface{eth1"}) {
        m_client.Send(EditConfig(Sflow(Interface("eth1"))));
        ipc::cdb::ClientMessage message;
        auto& reply = *message.mutable_callpoint_reply();
        reply.set_request(holder->ReceiveRequest().request());
        reply.set_ok(true);
        reply.add_writes()->set_path(path);
        holder->Send(message);
        ExpectRefused("can't be made");
    }
}

TEST_F(Callpoint, DelaysOtherEditsAndNoReader)
{
    const auto holder = Holder();
    m_client.Send(EditConfig(Sflow(Interface("eth1"))));
    const auto request = holder->ReceiveRequest();
    auto other = m_world.Connect();
    other.Send(EditConfig(Sflow(Collector("c1"))));
    auto reader = m_world.Connect();
    EXPECT_EQ(Config(reader, "candidate"), "");
    EXPECT_EQ(Config(reader, "running"), "");
    holder->Answer(request, 1);
    EXPECT_TRUE(m_client.Receive().ok);
    EXPECT_TRUE(other.Receive().ok);
    EXPECT_THAT(Config(reader, "candidate"), AllOf(HasSubstr("eth1"), HasSubstr("c1")));
}

TEST_F(Callpoint, DropsTheEditOfASessionThatIsKilled)
{
    const auto holder = Holder();
    m_client.Send(EditConfig(Sflow(Interface("eth1"))));
    const auto request = holder->ReceiveRequest();
    auto other = m_world.Connect();
    Do(other, netconf::KillSession(m_client.SessionId()));
    holder->Answer(request, 1);
    Do(other, EditConfig(Sflow(Collector("c1"))));
    EXPECT_THAT(Config(other, "candidate"), AllOf(HasSubstr("c1"), testing::Not(HasSubstr("eth1"))));
}

TEST_F(Callpoint, ServesManyEntriesAtOnce)
{
    const auto holder = Holder();
    constexpr int kMany = 5000;
    std::string edit;
    for (int i = 0; i < kMany; ++i) edit += Interface("eth" + std::to_string(i));
    m_client.Send(EditConfig(Sflow(edit)));
    holder->Serve(kMany, 4242);
    EXPECT_TRUE(m_client.Receive().ok);
    const std::string candidate = Config(m_client, "candidate");
    const std::string rate = ">4242<";
    int found = 0;
    for (std::size_t at = candidate.find(rate); at != std::string::npos; at = candidate.find(rate, at + 1))
        ++found;
    EXPECT_EQ(found, kMany);
}

}  // namespace
}  // namespace agent_tests
