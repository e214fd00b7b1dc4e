// SPDX-License-Identifier: Apache-2.0
// The connection to cdbd: what is registered, the order of the handlers' calls, refusals and
// reconnection.

#include "world.h"

namespace {

using std::chrono::milliseconds;

class ConnectionTest : public World {
protected:
    /// The kinds of messages that cdbd has received, in order.
    std::vector<std::string> Received()
    {
        std::vector<std::string> kinds;
        for (const auto& message : m_cdb->Take()) {
            if (message.has_hello()) {
                kinds.push_back("hello " + message.hello().process());
            } else if (message.has_subscribe()) {
                const auto& point = message.subscribe();
                kinds.push_back("subscribe " + std::to_string(point.id()) + " priority " +
                                std::to_string(point.priority()) + " ns " + std::to_string(point.ns()) +
                                " flags " + std::to_string(point.flags()) + " " + point.path());
            } else if (message.has_register_callpoint()) {
                kinds.push_back("callpoint " + message.register_callpoint().name());
            } else {
                kinds.emplace_back(message.has_ready() ? "ready" : "other");
            }
        }
        return kinds;
    }
};

const Events kLoaded = {"connected in phase 2", "data connected in phase 2", "load", "apply initial"};

TEST_F(ConnectionTest, RegistersEverythingBeforeItIsReady)
{
    m_cdb->Listen();
    MakeFramework();
    Settle();
    EXPECT_EQ(Received(),
              (std::vector<std::string>{
                  "hello sflow-app", "subscribe 0 priority 2 ns 116992694 flags 16 /config/oam/sflow",
                  "subscribe 1 priority 1 ns 116992694 flags 16 /config/interface/mgmt/ipv4/address/ip",
                  "callpoint sflow-set-sampling-rate", "ready"}));
    EXPECT_EQ(m_events, Events{});
    EXPECT_FALSE(m_config.Confd()->IsConnected());
}

TEST_F(ConnectionTest, LoadsOnceWelcome)
{
    m_cdb->Listen();
    MakeFramework();
    Settle();
    Welcome();
    Settle();
    EXPECT_EQ(m_events, kLoaded);
    EXPECT_TRUE(m_config.Confd()->IsConnected());
}

TEST_F(ConnectionTest, DoesNothingBeforeTheLoopRuns)
{
    m_cdb->Listen();
    MakeService();
    MakeFramework();
    DisposeFramework();
    Settle();
    EXPECT_EQ(m_cdb->connections, 0);
    EXPECT_EQ(m_events, Events{});
}

TEST_F(ConnectionTest, GivesTheLoadAReadSessionForItsDuration)
{
    int socket = -1;
    int count = -1;
    m_config.onLoad = [&](int given) {
        count = cdb_num_instances(socket = given, "/config/oam/sflow/collector");
    };
    Write({{{Node("/config/oam/sflow/collector"), {"c1"}}, {{{"ip", cdb::Ipv4{1}}}}}});
    Connect();
    EXPECT_EQ(count, 1);
    EXPECT_EQ(cdb_num_instances(socket, "/config/oam/sflow/collector"), CONFD_ERR);
}

TEST_F(ConnectionTest, TriesForEverWithABackOff)
{
    MakeFramework();
    Settle();
    for (int i = 0; i < 100; ++i) Advance(milliseconds{100});
    const std::vector<milliseconds> expected{milliseconds{100},  milliseconds{200},  milliseconds{400},
                                             milliseconds{800},  milliseconds{1600}, milliseconds{2000},
                                             milliseconds{2000}, milliseconds{2000}, milliseconds{2000}};
    EXPECT_EQ(m_timers->delays, expected);
    const std::string log = Log();
    const std::string text = "cdb.sock: No such file or directory; trying again";
    EXPECT_NE(log.find(text), std::string::npos) << log;
    EXPECT_EQ(log.find(text), log.rfind(text)) << log;
}

TEST_F(ConnectionTest, ReconnectsAndLoadsAgain)
{
    Connect();
    m_cdb->Hangup();
    Settle();
    EXPECT_EQ(m_events, (Events{"disconnected", "data disconnected"}));
    EXPECT_FALSE(m_config.Confd()->IsConnected());
    EXPECT_EQ(m_cdb->connections, 1);
    m_events.clear();
    Advance(milliseconds{100});
    EXPECT_EQ(m_cdb->connections, 2);
    EXPECT_EQ(Received().size(), 5U);
    EXPECT_EQ(m_events, Events{});
    Welcome();
    Settle();
    EXPECT_EQ(m_events, kLoaded);
}

TEST_F(ConnectionTest, BeginsTheBackOffAnewAfterAWelcome)
{
    Connect();
    m_cdb->Die();
    Settle();
    Advance(milliseconds{100});
    Advance(milliseconds{200});
    m_cdb->Listen();
    Advance(milliseconds{400});
    Welcome();
    Settle();
    m_timers->delays.clear();
    m_cdb->Die();
    Settle();
    EXPECT_EQ(m_timers->delays, (std::vector<milliseconds>{milliseconds{100}}));
}

TEST_F(ConnectionTest, LogsARefusalOnceWithItsHolderAndTriesAgain)
{
    m_cdb->Listen();
    MakeFramework();
    Settle();
    for (int attempt = 0; attempt < 3; ++attempt) {
        ASSERT_TRUE(m_cdb->IsConnected());
        ipc::cdb::ServerMessage refused;
        refused.mutable_refused()->set_reason("callpoint sflow-set-sampling-rate is held");
        refused.mutable_refused()->set_holder_pid(4711);
        m_cdb->Send(refused);
        m_cdb->Hangup();
        Settle();
        Advance(milliseconds{2000});
    }
    EXPECT_EQ(m_cdb->connections, 4);
    const std::string log = Log();
    const auto found = log.find("callpoint sflow-set-sampling-rate is held (held by process 4711)");
    EXPECT_NE(found, std::string::npos) << log;
    EXPECT_EQ(found, log.rfind("callpoint sflow-set-sampling-rate is held"));
    EXPECT_EQ(m_events, Events{});
    Welcome();
    Settle();
    EXPECT_EQ(m_events, kLoaded);
}

TEST_F(ConnectionTest, TriesAgainWhenTheStoreCannotBeRead)
{
    m_cdb->Listen();
    MakeFramework();
    Settle();
    ipc::cdb::ServerMessage welcome;
    welcome.mutable_welcome()->set_store_dir(m_directory / "missing");
    m_cdb->Send(welcome);
    Settle();
    EXPECT_EQ(m_events, Events{});
    Advance(milliseconds{100});
    EXPECT_EQ(m_cdb->connections, 2);
    Welcome();
    Settle();
    EXPECT_EQ(m_events, kLoaded);
}

TEST_F(ConnectionTest, GivesUpAPeerThatTalksBeforeItsWelcome)
{
    m_cdb->Listen();
    MakeFramework();
    Settle();
    SendChanges(Enabling("c1", true), {0});
    Settle();
    EXPECT_EQ(m_events, Events{});
    Advance(milliseconds{100});
    EXPECT_EQ(m_cdb->connections, 2);
}

TEST_F(ConnectionTest, GivesUpAPeerThatSendsWhatCannotBeRead)
{
    Connect();
    ipc::cdb::ServerMessage changes;
    SendChanges({9999, {}, cdb::ChangeOp::kModified, {}, {}}, {0});
    Settle();
    EXPECT_EQ(m_events, (Events{"disconnected", "data disconnected"}));
    Advance(milliseconds{100});
    EXPECT_EQ(m_cdb->connections, 2);
}

TEST_F(ConnectionTest, GivesUpAPeerThatNamesAPointNotSubscribed)
{
    Connect();
    SendChanges(Enabling("c1", true), {2});
    Settle();
    EXPECT_EQ(m_events, (Events{"disconnected", "data disconnected"}));
}

TEST_F(ConnectionTest, AnswersRequestsThatAreNotForIt)
{
    Connect();
    ipc::cdb::ServerMessage message;
    message.mutable_action_request()->set_request(7);
    message.mutable_action_request()->set_name("resync");
    m_cdb->Send(message);
    message.mutable_state_request()->set_request(8);
    m_cdb->Send(message);
    Settle();
    const auto answers = m_cdb->Take();
    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[0].action_reply().request(), 7U);
    EXPECT_EQ(answers[0].action_reply().error(), "sflow-app has no action resync");
    EXPECT_EQ(answers[1].state_reply().request(), 8U);
    EXPECT_EQ(answers[1].state_reply().error(), "sflow-app has no state");
    EXPECT_EQ(m_events, Events{});
}

TEST_F(ConnectionTest, CallsNoHandlerOnceDisposed)
{
    OpenSession();
    DisposeFramework();
    Settle();
    Advance(milliseconds{10'000});
    EXPECT_EQ(m_events, Events{});
    EXPECT_FALSE(m_cdb->IsConnected());
    EXPECT_FALSE(m_service->IsConnected());
    EXPECT_EQ(m_cdb->connections, 1);
    EXPECT_EQ(m_manager->connections, 1);
    EXPECT_EQ(m_config.Confd(), nullptr);
}

TEST_F(ConnectionTest, RefusesSessionsItCannotGive)
{
    m_cdb->Listen();
    MakeFramework();
    EXPECT_THROW(QxConfdCdbSessionBase(*m_config.Confd(), CDB_RUNNING, true), QxConfdSessionError);
    Settle();
    Welcome();
    Settle();
    EXPECT_NO_THROW(QxConfdCdbSessionBase(*m_config.Confd(), CDB_RUNNING, true));
    EXPECT_THROW(QxConfdCdbSessionBase(*m_config.Confd(), static_cast<cdb_db_type>(0), true),
                 QxConfdSessionError);
}

TEST_F(ConnectionTest, LetsAHandlersExceptionOutThroughTheLoop)
{
    m_config.onLoad = [](int) { throw std::runtime_error("handler"); };
    m_cdb->Listen();
    MakeFramework();
    Settle();
    Welcome();
    EXPECT_THROW(m_context->GetServer().Run(), std::runtime_error);
}

}  // namespace
