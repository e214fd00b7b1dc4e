// SPDX-License-Identifier: Apache-2.0
// The sFlow service client: found and lost, operations, the gate, and managers that misbehave.

#include "support/proto_text.h"
#include "world.h"

namespace {

using ipc::manager::ServerMessage;
using std::chrono::milliseconds;

class ServiceTest : public World {
protected:
    void Opened()
    {
        ServerMessage message;
        message.mutable_opened()->set_pid(1);
        m_manager->Send(message);
        Settle();
    }

    std::vector<std::string> Received()
    {
        std::vector<std::string> texts;
        for (const auto& message : m_manager->Take()) texts.push_back(support::TextOf(message));
        return texts;
    }

    std::size_t ReceivedLoads()
    {
        std::size_t loads = 0;
        for (const auto& message : m_manager->Take()) loads += message.has_loaded() ? 1 : 0;
        return loads;
    }
};

TEST_F(ServiceTest, GreetsTheManagerOnceTheLoadIsHandedOver)
{
    m_manager->Listen();
    MakeService();
    m_cdb->Listen();
    MakeFramework();
    Settle();
    EXPECT_EQ(m_manager->connections, 0);
    Welcome();
    Settle();
    const auto messages = m_manager->Take();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].hello().process(), "sflow-app");
    EXPECT_EQ(messages[0].hello().pid(), ::getpid());
    EXPECT_EQ(m_events.back(), "apply initial");
    EXPECT_FALSE(m_service->IsConnected());
}

TEST_F(ServiceTest, CallsFoundOnOpenedAndSendsTheEndOfTheLoadAfterIt)
{
    m_manager->Listen();
    Connect();
    m_manager->Take();
    const auto tell = [this](const boost::any&) { m_service->DeleteCollector("from found"); };
    m_service = sflow::IService::Build({tell, boost::any()}, {tell, boost::any()});
    Settle();
    m_manager->Take();
    Opened();
    EXPECT_EQ(Received(),
              (std::vector<std::string>{R"(delete_collector { name: "from found" })", "loaded { }"}));
    EXPECT_TRUE(m_service->IsConnected());
}

TEST_F(ServiceTest, SendsEachOperation)
{
    OpenSession();
    const nettypes::IPv4Addr address(0x010200c0);
    m_service->AddCollector("c1", address, 6343, 1400);
    m_service->DeleteCollector("c2");
    m_service->UpdateInterface("eth1", "c1", "", 4096, 2, 128, 20);
    m_service->AddSampleCollector("eth1", "c1");
    m_service->RemoveSampleCollector("eth1", "c2");
    m_service->AddCounterCollector("eth1", "c3");
    m_service->RemoveCounterCollector("eth1", "c4");
    m_service->UnsetInterface("eth2");
    m_service->SetAgentAddress(address);
    Settle();
    EXPECT_EQ(
        Received(),
        (std::vector<std::string>{
            R"(add_collector { name: "c1" address: 16908480 port: 6343 datagram_size: 1400 })",
            R"(delete_collector { name: "c2" })",
            R"(update_interface { interface: "eth1" sample_collector: "c1" rate: 4096 direction: 2 max_header_size: 128 interval: 20 })",
            R"(add_sample_collector { interface: "eth1" collector: "c1" })",
            R"(remove_sample_collector { interface: "eth1" collector: "c2" })",
            R"(add_counter_collector { interface: "eth1" collector: "c3" })",
            R"(remove_counter_collector { interface: "eth1" collector: "c4" })",
            R"(unset_interface { interface: "eth2" })", R"(set_agent_address { address: 16908480 })"}));
}

TEST_F(ServiceTest, DropsOperationsOutsideASession)
{
    m_manager->Listen();
    Connect();
    m_service->DeleteCollector("before");
    m_manager->Take();
    Opened();
    EXPECT_EQ(Received(), (std::vector<std::string>{"loaded { }"}));
    m_manager->Hangup();
    Settle();
    m_service->DeleteCollector("after");
    Advance(milliseconds{100});
    m_manager->Take();
    Opened();
    EXPECT_EQ(Received(), (std::vector<std::string>{"loaded { }"}));
}

TEST_F(ServiceTest, CallsLostAndFoundAgain)
{
    OpenSession();
    m_manager->Die();
    Settle();
    EXPECT_EQ(m_events, (Events{"lost"}));
    for (int i = 0; i < 5; ++i) Advance(milliseconds{2000});
    m_manager->Listen();
    Advance(milliseconds{2000});
    Opened();
    EXPECT_EQ(m_events, (Events{"lost", "found"}));
    EXPECT_EQ(ReceivedLoads(), 1U);
}

TEST_F(ServiceTest, ClosesTheSessionWhenCdbdGoesAndLoadsOnceWhenItIsBack)
{
    OpenSession();
    m_cdb->Hangup();
    Settle();
    EXPECT_EQ(m_events, (Events{"disconnected", "data disconnected", "lost"}));
    EXPECT_FALSE(m_manager->IsConnected());
    Advance(milliseconds{100});
    EXPECT_EQ(m_manager->connections, 1);
    m_events.clear();
    Welcome();
    Settle();
    Opened();
    EXPECT_EQ(m_events, (Events{"connected in phase 2", "data connected in phase 2", "load", "apply initial",
                                "found"}));
}

TEST_F(ServiceTest, CallsNoLostWithoutAFound)
{
    m_manager->Listen();
    Connect();
    m_manager->Hangup();
    Settle();
    m_cdb->Hangup();
    Settle();
    EXPECT_EQ(m_events, (Events{"disconnected", "data disconnected"}));
}

TEST_F(ServiceTest, SendsEverythingAnewWhenTheManagerAsks)
{
    OpenSession();
    ServerMessage resync;
    resync.mutable_resync();
    m_manager->Send(resync);
    Settle();
    EXPECT_EQ(m_events, (Events{"lost"}));
    EXPECT_EQ(m_manager->connections, 2);
    m_manager->Take();
    Opened();
    EXPECT_EQ(m_events, (Events{"lost", "found"}));
    EXPECT_EQ(ReceivedLoads(), 1U);
}

TEST_F(ServiceTest, LogsARefusalOnceAndTriesAgain)
{
    m_manager->Listen();
    Connect();
    for (int attempt = 0; attempt < 3; ++attempt) {
        ServerMessage refused;
        refused.mutable_refused()->set_reason("the session is taken");
        refused.mutable_refused()->set_holder_pid(4711);
        m_manager->Send(refused);
        m_manager->Hangup();
        Settle();
        Advance(milliseconds{2000});
    }
    EXPECT_EQ(m_manager->connections, 4);
    const std::string log = Log();
    const auto found = log.find("the session is taken (held by process 4711)");
    EXPECT_NE(found, std::string::npos) << log;
    EXPECT_EQ(found, log.rfind("the session is taken"));
    EXPECT_EQ(m_events, Events{});
    Opened();
    EXPECT_EQ(m_events, (Events{"found"}));
}

TEST_F(ServiceTest, TreatsAManagerThatTakesNothingAsLost)
{
    OpenSession();
    Advance(milliseconds{1000});
    EXPECT_EQ(m_events, Events{});
    // Queued and not yet written: the manager has read none of it.
    m_service->DeleteCollector("waits");
    m_timers->Advance(milliseconds{9000});
    EXPECT_EQ(m_events, Events{});
    m_timers->Advance(milliseconds{1000});
    EXPECT_EQ(m_events, (Events{"lost"}));
    EXPECT_FALSE(m_service->IsConnected());
    Advance(milliseconds{100});
    EXPECT_EQ(m_manager->connections, 2);
}

TEST_F(ServiceTest, TreatsAFullQueueAsLoss)
{
    OpenSession();
    const std::string name(std::size_t{1} << 20, 'x');
    for (int i = 0; i < 70; ++i) m_service->DeleteCollector(name);
    EXPECT_EQ(m_events, Events{});  // not from inside an operation
    Settle();
    EXPECT_EQ(m_events, (Events{"lost"}));
    EXPECT_EQ(ReceivedLoads(), 0U);
}

TEST_F(ServiceTest, SaysNothingFromBuildOrDestruction)
{
    OpenSession();
    MakeService();  // the old one goes, with its session
    EXPECT_EQ(m_events, Events{});
    Settle();
    EXPECT_EQ(m_events, Events{});
    EXPECT_EQ(m_manager->connections, 2);
    Opened();
    EXPECT_EQ(m_events, (Events{"found"}));
    m_service.reset();
    Settle();
    EXPECT_EQ(m_events, (Events{"found"}));
    EXPECT_FALSE(m_manager->IsConnected());
}

TEST_F(ServiceTest, WritesWhatIsQueuedBeforeItGoes)
{
    OpenSession();
    m_service->DeleteCollector("last");
    m_service.reset();
    Settle();
    EXPECT_EQ(Received(), (std::vector<std::string>{R"(delete_collector { name: "last" })"}));
}

TEST_F(ServiceTest, LetsAnExceptionOfFoundOutThroughTheLoop)
{
    m_manager->Listen();
    Connect();
    m_service =
        sflow::IService::Build({[](const boost::any&) { throw std::runtime_error("found"); }, boost::any()},
                               {nullptr, boost::any()});
    Settle();
    EXPECT_THROW(Opened(), std::runtime_error);
}

TEST_F(ServiceTest, NeedsAnInstalledContext)
{
    qxos::the_context = nullptr;
    EXPECT_THROW(sflow::IService::Build({nullptr, boost::any()}, {nullptr, boost::any()}), std::logic_error);
    qxos::the_context = m_context.get();
}

}  // namespace
