// The manager as a client of the database, which the test plays on a real cdb.sock.

#include "manager/state_provider.h"

#include <unistd.h>

#include <gmock/gmock.h>

#include "ipc/cdb.pb.h"
#include "manager/loop_fixture.h"

namespace manager {
namespace {

using ipc::cdb::ClientMessage;
using ipc::cdb::ServerMessage;
using Database = Peer<ClientMessage>;
using std::chrono::milliseconds;

class Provider : public LoopFixture {
protected:
    [[nodiscard]] std::string Path() const { return (m_dir / "cdb.sock").string(); }

    void Listen()
    {
        m_acceptor.emplace(ipc::Listen(m_loop, Path(), 0600));
        Accept();
    }

    void Accept()
    {
        m_acceptor->async_accept([this](const boost::system::error_code& error, ipc::Channel::Socket socket) {
            if (error) return;
            m_connections.push_back(std::make_unique<Database>(ipc::Channel::Create(std::move(socket))));
            Accept();
        });
    }

    /// The newest connection, once the manager has introduced itself on it.
    Database& Introduced(std::size_t connections)
    {
        EXPECT_TRUE(RunUntil([&] {
            m_timers.Advance(milliseconds{10});
            return m_connections.size() == connections && m_connections.back()->All().size() >= 3;
        }));
        return *m_connections.back();
    }

    /// What the manager says to the message.
    ClientMessage Answer(const ServerMessage& message)
    {
        auto& database = *m_connections.back();
        const std::size_t before = database.All().size();
        database.Send(message);
        EXPECT_TRUE(RunUntil([&] { return database.All().size() > before; }));
        return database.All().back();
    }

    static ServerMessage Welcome()
    {
        ServerMessage message;
        message.mutable_welcome()->set_store_dir("/nowhere");
        return message;
    }

    std::optional<boost::asio::local::stream_protocol::acceptor> m_acceptor;
    std::vector<std::unique_ptr<Database>> m_connections;
    std::string m_state = "{}";
    std::string m_configuration;
    std::string m_resyncError;
    int m_resyncs = 0;
    StateProvider m_provider{m_loop,
                             m_timers,
                             Path(),
                             {[this](std::string_view configuration) {
                                  m_configuration = configuration;
                                  return m_state;
                              },
                              [this] {
                                  ++m_resyncs;
                                  return m_resyncError;
                              }}};
};

TEST_F(Provider, IntroducesItself)
{
    Listen();
    m_provider.Start();
    const auto& said = Introduced(1).All();
    ASSERT_EQ(3U, said.size());
    EXPECT_EQ(ipc::kProtocolVersion, said[0].hello().protocol());
    EXPECT_EQ("sflow-mgr", said[0].hello().process());
    EXPECT_EQ(::getpid(), said[0].hello().pid());
    EXPECT_EQ("/state/oam/sflow", said[1].register_state_provider().path());
    EXPECT_EQ("/config/oam/sflow", said[1].register_state_provider().config_path());
    EXPECT_TRUE(said[2].has_ready());
}

TEST_F(Provider, AnswersWithTheStateOfTheMoment)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    ServerMessage request;
    request.mutable_state_request()->set_request(7);
    m_state = R"({"a":1})";
    const auto answer = Answer(request);
    EXPECT_EQ(7U, answer.state_reply().request());
    EXPECT_EQ(m_state, answer.state_reply().json());
    EXPECT_EQ("", answer.state_reply().error());
    m_state = R"({"a":2})";
    EXPECT_EQ(m_state, Answer(request).state_reply().json());
}

TEST_F(Provider, HandsOnTheConfigurationThatIsSentAlong)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    ServerMessage request;
    request.mutable_state_request()->set_request(7);
    auto& other = *request.mutable_state_request()->add_configuration();
    other.set_path("/config/interface");
    other.set_json("[]");
    auto& wanted = *request.mutable_state_request()->add_configuration();
    wanted.set_path("/config/oam/sflow");
    wanted.set_json(R"({"b":1})");
    Answer(request);
    EXPECT_EQ(R"({"b":1})", m_configuration);
    request.mutable_state_request()->clear_configuration();
    Answer(request);
    EXPECT_EQ("", m_configuration);
}

TEST_F(Provider, SaysSoWhenTheStateIsTooLargeForAMessage)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    ServerMessage request;
    request.mutable_state_request()->set_request(7);
    m_state.assign(ipc::kMaxFrame, 'x');
    const auto answer = Answer(request);
    EXPECT_EQ("", answer.state_reply().json());
    EXPECT_THAT(answer.state_reply().error(), testing::HasSubstr("larger than a message"));
}

TEST_F(Provider, PassesOnTheRequestForEverythingAnew)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    ServerMessage request;
    request.mutable_action_request()->set_request(8);
    request.mutable_action_request()->set_name("resync");
    auto answer = Answer(request);
    EXPECT_EQ(8U, answer.action_reply().request());
    EXPECT_EQ("", answer.action_reply().error());
    m_resyncError = "the configuration daemon has no session";
    answer = Answer(request);
    EXPECT_EQ(m_resyncError, answer.action_reply().error());
    EXPECT_EQ(2, m_resyncs);
}

TEST_F(Provider, RefusesARequestItDoesNotKnow)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    ServerMessage request;
    request.mutable_action_request()->set_request(9);
    request.mutable_action_request()->set_name("explode");
    EXPECT_THAT(Answer(request).action_reply().error(), testing::HasSubstr("explode"));
    EXPECT_EQ(0, m_resyncs);
}

TEST_F(Provider, TakesPartInATransition)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    ServerMessage request;
    request.mutable_ha_transition()->set_request(10);
    request.mutable_ha_transition()->set_role(ipc::cdb::HaTransition::STANDBY);
    const auto answer = Answer(request);
    EXPECT_EQ(10U, answer.ha_reply().request());
    EXPECT_TRUE(answer.ha_reply().handled());
}

TEST_F(Provider, ConnectsWhenTheDatabaseComesLaterAndAgainWhenItHasGone)
{
    m_provider.Start();
    for (int i = 0; i < 100; ++i) {
        m_timers.Advance(milliseconds{100});
        m_loop.restart();
        m_loop.poll();
    }
    Listen();
    Introduced(1).Send(Welcome());
    m_connections.back()->Close();
    Introduced(2);
}

TEST_F(Provider, TriesAgainWhenRefused)
{
    Listen();
    m_provider.Start();
    ServerMessage refused;
    refused.mutable_refused()->set_reason("process 1 provides /state/oam/sflow");
    Introduced(1).Send(refused);
    Introduced(2).Send(refused);
    Introduced(3).Send(Welcome());
    EXPECT_FALSE(m_connections.back()->Ended());
}

TEST_F(Provider, ConnectsAgainAfterAFrameThatMakesNoSense)
{
    Listen();
    m_provider.Start();
    ipc::cdb::StateReply garbage;
    garbage.set_json("\xff\xff\xff");  // where a refusal is expected
    Introduced(1).Send(garbage);
    Introduced(2);
}

TEST_F(Provider, IgnoresWhatItHasNotAskedFor)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    ServerMessage message;
    message.mutable_change_set()->set_commit(5);
    m_connections.back()->Send(message);
    message.mutable_callpoint_request()->set_request(5);
    m_connections.back()->Send(message);
    m_connections.back()->Send(ServerMessage{});
    message.mutable_state_request()->set_request(11);
    EXPECT_EQ(11U, Answer(message).state_reply().request());
    EXPECT_EQ(4U, m_connections.back()->All().size());
}

}  // namespace
}  // namespace manager
