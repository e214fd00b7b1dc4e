// SPDX-License-Identifier: Apache-2.0
// Delivery of commits: to which subscribers, in which order, and what happens to one that does not
// acknowledge.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/agent_world.h"

namespace agent_tests {
namespace {

using netconf::EditConfig;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kSubscribedSflow = "/config/oam/sflow";
constexpr const char* kSubscribedAgent = "/config/oam/sflow/agent";
constexpr const char* kSubscribedCollector = "/config/oam/sflow/collector";

class Delivery : public testing::Test {
protected:
    std::unique_ptr<Process> Subscriber(const std::string& name, std::int32_t priority, const char* path)
    {
        auto process = std::make_unique<Process>(m_world, name);
        process->Subscribe(1, priority, path);
        process->Ready();
        return process;
    }

    void SendCommit(const std::string& content)
    {
        Do(m_client, EditConfig(Sflow(content)));
        m_client.Send(netconf::Commit());
    }

    World m_world;
    netconf::Client m_client = m_world.Connect();
};

TEST_F(Delivery, IsAnsweredAfterTheLastAcknowledgement)
{
    const auto subscriber = Subscriber("app", 1, kSubscribedSflow);
    SendCommit(Collector("c1"));
    const auto changes = subscriber->ReceiveChangeSet();
    EXPECT_EQ(changes.commit(), 1U);
    EXPECT_THAT(changes.points(), ElementsAre(1U));
    // Readers see it already; only the committer waits.
    auto reader = m_world.Connect();
    EXPECT_THAT(Config(reader, "running"), HasSubstr("c1"));
    m_world.InLoop([this] { EXPECT_EQ(m_world.Store().LastCommit(), 1U); });
    subscriber->Acknowledge(1);
    const auto reply = m_client.Receive();
    EXPECT_EQ(reply.errors, std::vector<netconf::RpcError>{});
    ASSERT_EQ(reply.acknowledged.size(), 1U);
    EXPECT_EQ(reply.acknowledged[0].first, "app");
}

TEST_F(Delivery, CarriesTheChange)
{
    const auto subscriber = Subscriber("app", 1, kSubscribedSflow);
    SendCommit(Collector("c1"));
    const auto changes = subscriber->ReceiveChangeSet();
    const auto parsed = cdb::FromMessage(Schema().Table(), changes.root());
    cdb::ChangeSet set{changes.commit(), parsed};
    std::vector<std::string> walked;
    cdb::Walk(Schema().Table(), set, Schema().Table().Find(kSubscribedSflow), [&](const auto& ancestry) {
        std::string text = Schema().Table()[ancestry.back()->node].name;
        for (const std::string& key : ancestry.back()->keys) text += "{" + key + "}";
        walked.push_back(text);
        return cdb::Visit::kRecurse;
    });
    EXPECT_THAT(walked, ElementsAre("collector{c1}", "ip"));
    subscriber->Acknowledge(1);
    m_client.Receive();
}

TEST_F(Delivery, GoesInTheOrderOfTheLowestTouchedPriority)
{
    const auto late = Subscriber("late", 30, kSubscribedSflow);
    const auto first = std::make_unique<Process>(m_world, "first");
    first->Subscribe(7, 40, kSubscribedSflow);
    first->Subscribe(8, 5, kSubscribedAgent);
    first->Subscribe(9, 10, kSubscribedCollector);
    first->Ready();
    const auto early = Subscriber("early", 20, kSubscribedSflow);
    SendCommit(Collector("c1"));
    // Priority 5 is not touched.
    EXPECT_THAT(first->ReceiveChangeSet().points(), ElementsAre(9U, 7U));
    first->Acknowledge(1);
    EXPECT_THAT(early->ReceiveChangeSet().points(), ElementsAre(1U));
    early->Acknowledge(1);
    EXPECT_THAT(late->ReceiveChangeSet().points(), ElementsAre(1U));
    late->Acknowledge(1);
    EXPECT_TRUE(m_client.Receive().ok);
}

TEST_F(Delivery, PassesOverWhomItDoesNotTouch)
{
    const auto other = Subscriber("other", 1, kSubscribedAgent);
    SendCommit(Collector("c1"));
    EXPECT_TRUE(m_client.Receive().ok);
    SendCommit("<agent><ipv4>192.0.2.1</ipv4></agent>");
    EXPECT_EQ(other->ReceiveChangeSet().commit(), 2U);  // the first commit did not reach it
    other->Acknowledge(2);
    EXPECT_TRUE(m_client.Receive().ok);
}

TEST_F(Delivery, OfNothingHappensNot)
{
    const auto subscriber = Subscriber("app", 1, kSubscribedSflow);
    Do(m_client, netconf::Commit());
    SendCommit(Collector("c1"));
    EXPECT_EQ(subscriber->ReceiveChangeSet().commit(), 1U);
    subscriber->Acknowledge(1);
    EXPECT_TRUE(m_client.Receive().ok);
}

TEST_F(Delivery, LetsTheNextCommitWait)
{
    const auto subscriber = Subscriber("app", 1, kSubscribedSflow);
    SendCommit(Collector("c1"));
    EXPECT_EQ(subscriber->ReceiveChangeSet().commit(), 1U);
    auto other = m_world.Connect();
    other.Send(EditConfig(Sflow(Collector("c2"))));
    other.Send(netconf::Commit());
    auto reader = m_world.Connect();
    for (int i = 0; i < 5; ++i) EXPECT_THAT(Config(reader, "running"), testing::Not(HasSubstr("c2")));
    subscriber->Acknowledge(1);
    EXPECT_TRUE(m_client.Receive().ok);
    EXPECT_EQ(subscriber->ReceiveChangeSet().commit(), 2U);
    subscriber->Acknowledge(2);
    EXPECT_TRUE(other.Receive().ok);
    EXPECT_TRUE(other.Receive().ok);
}

TEST_F(Delivery, WarnsOfASubscriberThatGoes)
{
    auto gone = Subscriber("gone", 1, kSubscribedSflow);
    const auto stays = Subscriber("stays", 2, kSubscribedSflow);
    SendCommit(Collector("c1"));
    gone->ReceiveChangeSet();
    gone.reset();
    stays->ReceiveChangeSet();
    stays->Acknowledge(1);
    const auto reply = m_client.Receive();
    EXPECT_TRUE(reply.ok);
    ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
    EXPECT_TRUE(reply.errors[0].IsWarning());
    EXPECT_THAT(reply.errors[0].message, HasSubstr("gone (process "));
    EXPECT_THAT(reply.xml, testing::Not(HasSubstr("<ok/>")));
    EXPECT_THAT(Config(m_client, "running"), HasSubstr("c1"));
}

TEST_F(Delivery, DropsASubscriberThatTakesTooLong)
{
    const auto stuck = Subscriber("stuck", 1, kSubscribedSflow);
    const auto other = Subscriber("other", 2, kSubscribedSflow);
    SendCommit(Collector("c1"));
    stuck->ReceiveChangeSet();
    m_world.Advance(std::chrono::seconds(10));
    other->ReceiveChangeSet();
    other->Acknowledge(1);
    const auto reply = m_client.Receive();
    EXPECT_TRUE(reply.ok);
    ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
    EXPECT_THAT(reply.errors[0].message, testing::AllOf(HasSubstr("stuck"), HasSubstr("10000 ms")));
    EXPECT_TRUE(stuck->AwaitEnd());
    SendCommit(Collector("c2"));
    EXPECT_EQ(other->ReceiveChangeSet().commit(), 2U);
    other->Acknowledge(2);
    const auto next = m_client.Receive();
    ASSERT_EQ(next.errors.size(), 1U) << next.xml;
    EXPECT_THAT(next.errors[0].message,
                testing::AllOf(HasSubstr("commit 2 stands"), HasSubstr("stuck (process "),
                               HasSubstr("missed 2 commits"), HasSubstr("when it connects again")));
}

TEST_F(Delivery, DoesNotReachWhoJoinsLater)
{
    const auto first = Subscriber("first", 1, kSubscribedSflow);
    SendCommit(Collector("c1"));
    first->ReceiveChangeSet();
    auto joining = std::make_unique<Process>(m_world, "joining");
    joining->Subscribe(1, 2, kSubscribedSflow);
    EXPECT_EQ(joining->Ready().commit(), 1U);  // what it loads has the change
    first->Acknowledge(1);
    EXPECT_TRUE(m_client.Receive().ok);
    SendCommit(Collector("c2"));
    first->ReceiveChangeSet();
    first->Acknowledge(2);
    EXPECT_EQ(joining->ReceiveChangeSet().commit(), 2U);
    joining->Acknowledge(2);
    EXPECT_TRUE(m_client.Receive().ok);
}

TEST_F(Delivery, WarnsOfEachPartThatNoProcessHearsOf)
{
    const std::string unheard =
        "commit 1 stands, but no process that is connected subscribes to what it changes ";
    const std::string sflow = unheard + "below /config/oam/sflow; that takes effect when sflow-app connects";
    const std::string manager =
        unheard + "below /config/oam/sflow-manager; that takes effect when sflow-mgr connects";
    const auto commit = [this](const std::string& sflowContent, const std::string& managerContent) {
        std::string config = Sflow(sflowContent);
        config.insert(config.find("</oam>"),
                      "<sflow-manager xmlns=\"urn:switch:yang:switch-oam-sflow-manager\">" + managerContent +
                          "</sflow-manager>");
        Do(m_client, EditConfig(config));
        m_client.Send(netconf::Commit());
    };
    const auto warnings = [this] {
        std::vector<std::string> texts;
        const netconf::Reply reply = m_client.Receive();
        EXPECT_TRUE(reply.ok);
        for (const auto& error : reply.errors) {
            EXPECT_TRUE(error.IsWarning());
            texts.push_back("commit 1" + error.message.substr(error.message.find(' ', 7)));
        }
        return texts;
    };
    commit(Collector("c1"), "<sub-agent>1</sub-agent>");
    EXPECT_THAT(warnings(), ElementsAre(sflow, manager));
    commit("", "<collector><name>c1</name></collector>");
    EXPECT_THAT(warnings(), ElementsAre(manager)) << "an entry without a value is a change too";
    const auto app = Subscriber("app", 1, kSubscribedCollector);
    commit(Collector("c2"), "<sub-agent>2</sub-agent>");
    EXPECT_EQ(3U, app->ReceiveChangeSet().commit());
    app->Acknowledge(3);
    EXPECT_THAT(warnings(), ElementsAre(manager)) << "who hears of the part that has changed hears of it";
    commit("<agent><ipv4>192.0.2.1</ipv4></agent>", "");
    EXPECT_THAT(warnings(), ElementsAre(sflow));
    const auto everything = Subscriber("everything", 2, "/config");
    commit("<agent><ipv4>192.0.2.2</ipv4></agent>", "<sub-agent>3</sub-agent>");
    EXPECT_EQ(5U, everything->ReceiveChangeSet().commit());
    everything->Acknowledge(5);
    EXPECT_THAT(warnings(), testing::IsEmpty());
}

TEST_F(Delivery, PassesOverTheManagerWhereItsSettingsAreNotTouched)
{
    const auto app = Subscriber("app", 2, kSubscribedSflow);
    auto manager = std::make_unique<Process>(m_world, "manager");
    manager->Subscribe(0, 0, "/config/oam/sflow-manager");
    manager->Ready();
    SendCommit(Collector("c1"));
    EXPECT_EQ(1U, app->ReceiveChangeSet().commit());
    app->Acknowledge(1);
    EXPECT_EQ(m_client.Receive().errors, std::vector<netconf::RpcError>{});
    std::string config = Sflow(Collector("c2"));
    config.insert(config.find("</oam>"),
                  "<sflow-manager xmlns=\"urn:switch:yang:switch-oam-sflow-manager\"><sub-agent>1</sub-agent>"
                  "</sflow-manager>");
    Do(m_client, EditConfig(config));
    m_client.Send(netconf::Commit());
    EXPECT_EQ(2U, manager->ReceiveChangeSet().commit())
        << "the first did not reach it; of this it hears first";
    manager->Acknowledge(2);
    EXPECT_EQ(2U, app->ReceiveChangeSet().commit());
    app->Acknowledge(2);
    EXPECT_EQ(m_client.Receive().errors, std::vector<netconf::RpcError>{});
}

TEST_F(Delivery, EndsWithTheAgent)
{
    auto world = std::make_unique<World>();
    netconf::Client client = world->Connect();
    netconf::Client waiting = world->Connect();
    Process subscriber(*world, "app");
    subscriber.Subscribe(1, 1, kSubscribedSflow);
    subscriber.RegisterProvider();
    subscriber.Ready();
    Do(client, EditConfig(Sflow(Collector("c1"))));
    client.Send(netconf::Commit());
    subscriber.ReceiveChangeSet();
    waiting.Send(netconf::Get());  // waits for the provider
    subscriber.Receive();
    netconf::Client third = world->Connect();
    third.Send(EditConfig(Sflow(Collector("c2"))));  // waits for its turn
    netconf::Client reader = world->Connect();
    EXPECT_THAT(Config(reader, "running"), HasSubstr("c1"));
    world.reset();
    EXPECT_TRUE(subscriber.AwaitEnd());
}

TEST_F(Delivery, TakesNoAcknowledgementOfAnotherCommit)
{
    const auto subscriber = Subscriber("app", 1, kSubscribedSflow);
    SendCommit(Collector("c1"));
    subscriber->ReceiveChangeSet();
    subscriber->Acknowledge(99);
    auto other = m_world.Connect();
    other.Send(netconf::Commit());
    subscriber->Acknowledge(1);
    EXPECT_TRUE(m_client.Receive().ok);
    EXPECT_TRUE(other.Receive().ok);
}

}  // namespace
}  // namespace agent_tests
