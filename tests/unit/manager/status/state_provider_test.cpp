// SPDX-License-Identifier: Apache-2.0
// The manager as a client of the database, which the test plays on a real cdb.sock.

#include "manager/status/state_provider.h"

#include <unistd.h>

#include <gmock/gmock.h>

#include <algorithm>

#include "ipc/cdb.pb.h"
#include "manager/loop_fixture.h"

namespace manager {
namespace {

using ProviderMessage = ipc::cdb::ClientMessage;
using CdbdMessage = ipc::cdb::ServerMessage;
using Database = Peer<ProviderMessage>;
using std::chrono::milliseconds;

/// What the manager says before it is accepted.
constexpr std::size_t kIntroduction = 4;
/// And right after that: that it has loaded.
constexpr std::size_t kWelcomed = kIntroduction + 1;

/// An answer that knows only how many parts it has.
class Parts final : public StateParts {
public:
    Parts(int count, std::size_t bytes) : m_count(count), m_bytes(bytes) {}
    bool Next(ipc::cdb::StateReply& part) override
    {
        part.add_names(std::string(m_bytes, 'x'));
        return --m_count > 0;
    }

private:
    int m_count;
    std::size_t m_bytes;
};

CdbdMessage Question(std::uint64_t number)
{
    CdbdMessage message;
    message.mutable_state_request()->set_request(number);
    message.mutable_state_request()->add_parts()->set_path("/state/oam/sflow");
    return message;
}

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
            m_connections.push_back(
                std::make_unique<Database>(ipc::Channel::Create(std::move(socket), m_timers)));
            Accept();
        });
    }

    /// The newest connection, once the manager has introduced itself on it.
    Database& Introduced(std::size_t connections)
    {
        EXPECT_TRUE(RunUntil([&] {
            m_timers.Advance(milliseconds{10});
            return m_connections.size() == connections && m_connections.back()->All().size() >= kIntroduction;
        }));
        return *m_connections.back();
    }

    /// What the manager says to the message.
    ProviderMessage Answer(const CdbdMessage& message)
    {
        auto& database = *m_connections.back();
        const std::size_t before = database.All().size();
        database.Send(message);
        EXPECT_TRUE(RunUntil([&] { return database.All().size() > before; }));
        return database.All().back();
    }

    static CdbdMessage Welcome()
    {
        CdbdMessage message;
        message.mutable_welcome()->set_store_dir("/nowhere");
        return message;
    }

    std::optional<boost::asio::local::stream_protocol::acceptor> m_acceptor;
    std::vector<std::unique_ptr<Database>> m_connections;
    int m_parts = 1;           // of an answer
    std::size_t m_bytes = 10;  // of a part
    std::vector<std::string> m_stores;
    std::vector<std::string> m_asked;
    std::string m_resyncError;
    int m_resyncs = 0;
    int m_clears = 0;
    std::string m_tested;
    std::vector<ActionDone> m_tests;
    std::vector<std::uint64_t> m_changes;
    StateProvider m_provider{
        m_loop,
        m_timers,
        Path(),
        {[this](const std::string& store) { m_stores.push_back(store); },
         [this](const ipc::cdb::StateRequest& request) {
             m_asked.push_back(request.parts(0).path());
             return std::make_unique<Parts>(m_parts, m_bytes);
         },
         [this] {
             ++m_resyncs;
             return m_resyncError;
         },
         [this](const ipc::cdb::ChangeSet& changes) { m_changes.push_back(changes.commit()); },
         {},
         [this](const std::string& collector, const ActionDone& done) {
             m_tested = collector;
             m_tests.push_back(done);
         },
         [](const std::string& interface) {
             return ActionResult{"", {{"samples", "1"}, {"talker", "", {{"source", interface}}}}};
         },
         [this] { ++m_clears; }}};
};

TEST_F(Provider, IntroducesItself)
{
    Listen();
    m_provider.Start();
    const auto& said = Introduced(1).All();
    ASSERT_EQ(kIntroduction, said.size());
    EXPECT_EQ(ipc::kProtocolVersion, said[0].hello().protocol());
    EXPECT_EQ("sflow-mgr", said[0].hello().process());
    EXPECT_EQ(::getpid(), said[0].hello().pid());
    EXPECT_EQ("/config/oam/sflow-manager", said[1].subscribe().path());
    EXPECT_EQ("/state/oam/sflow", said[2].register_state_provider().path());
    EXPECT_TRUE(said[3].has_ready());
}

TEST_F(Provider, TellsProblemsInMessagesOfABoundedSize)
{
    Listen();
    m_provider.Start();
    auto& database = Introduced(1);
    database.Send(Welcome());
    ASSERT_TRUE(RunUntil([&] { return database.All().size() == kWelcomed; }));
    std::vector<ProblemChange> changes(1001,
                                       {true, {Subject::kInterface, "eth1", Reason::kPollingOff, "why"}});
    changes.back() = {false, {Subject::kCollector, "c1", Reason::kRefused, {}}};
    m_provider.Tell(changes);
    ASSERT_TRUE(RunUntil([&] { return database.All().size() == kWelcomed + 3; }));
    const auto of = [&](std::size_t i) -> const ipc::cdb::ProblemChanges& {
        return database.All()[kWelcomed + i].problem_changes();
    };
    EXPECT_EQ(500, of(0).changes_size());
    EXPECT_EQ(500, of(1).changes_size());
    ASSERT_EQ(1, of(2).changes_size());
    const auto& first = of(0).changes(0);
    EXPECT_TRUE(first.begins());
    EXPECT_EQ("interface", first.subject());
    EXPECT_EQ("eth1", first.name());
    EXPECT_EQ("polling-off", first.reason());
    EXPECT_EQ("off", first.severity());
    EXPECT_EQ("why", first.text());
    const auto& last = of(2).changes(0);
    EXPECT_FALSE(last.begins());
    EXPECT_EQ("collector", last.subject());
    EXPECT_EQ("broken", last.severity());
}

TEST_F(Provider, SaysThatItHasLoadedWhenItIsAccepted)
{
    Listen();
    m_provider.Start();
    Database& database = Introduced(1);
    database.Send(Welcome());
    ASSERT_TRUE(RunUntil([&] { return database.All().size() == kWelcomed; }));
    EXPECT_TRUE(database.All().back().has_loaded());
    EXPECT_EQ(1U, m_stores.size()) << "after the store was opened";
}

TEST_F(Provider, IsToldOfTheStoreEachTimeItIsAccepted)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    EXPECT_TRUE(RunUntil([&] { return m_stores.size() == 1; }));
    m_connections.back()->Close();
    Introduced(2).Send(Welcome());
    EXPECT_TRUE(RunUntil([&] { return m_stores.size() == 2; }));
    EXPECT_EQ(std::vector<std::string>(2, "/nowhere"), m_stores);
}

TEST_F(Provider, AnswersAQuestionInParts)
{
    Listen();
    m_provider.Start();
    Database& database = Introduced(1);
    m_parts = 3;
    database.Send(Question(7));
    ASSERT_TRUE(RunUntil([&] { return database.All().size() == kIntroduction + 3; }));
    for (std::size_t i = kIntroduction; i < kIntroduction + 3; ++i) {
        EXPECT_EQ(7U, database.All()[i].state_reply().request());
        EXPECT_EQ(i < kIntroduction + 2, database.All()[i].state_reply().more());
        EXPECT_EQ("", database.All()[i].state_reply().error());
    }
    EXPECT_EQ(std::vector<std::string>{"/state/oam/sflow"}, m_asked);
}

TEST_F(Provider, AnswersASmallQuestionAmidALargeOne)
{
    Listen();
    m_provider.Start();
    Database& database = Introduced(1);
    m_parts = 1'000'000'000;
    database.Send(Question(1));
    ASSERT_TRUE(RunUntil([&] { return database.All().size() > kIntroduction; }));
    m_parts = 1;
    database.Send(Question(2));
    ASSERT_TRUE(RunUntil([&] {
        return std::any_of(database.All().begin() + kIntroduction, database.All().end(),
                           [](const ProviderMessage& message) {
                               return message.state_reply().request() == 2 && !message.state_reply().more();
                           });
    }));
}

TEST_F(Provider, WaitsWhileTheDatabaseTakesNothing)
{
    Listen();
    m_provider.Start();
    Database& database = Introduced(1);
    m_parts = 100;
    m_bytes = StateProvider::kMaxUnsent / 4;
    database.Send(Question(1));
    // Never more than a part beyond the bound waits, so all of it arrives; the timer is the pause.
    ASSERT_TRUE(RunUntil([&] {
        m_timers.Advance(milliseconds{10});
        return database.All().size() == kIntroduction + 100;
    }));
    EXPECT_FALSE(database.Ended());
}

TEST_F(Provider, RefusesQuestionsBeyondABound)
{
    Listen();
    m_provider.Start();
    Database& database = Introduced(1);
    m_parts = 1'000'000;
    for (std::uint64_t number = 1; number <= StateProvider::kMaxQuestions + 1; ++number)
        database.Send(Question(number));
    const auto refused = [](const ProviderMessage& message) {
        return !message.state_reply().error().empty();
    };
    ASSERT_TRUE(RunUntil([&] { return std::any_of(database.All().begin(), database.All().end(), refused); }));
    const auto& all = database.All();
    const auto refusal = std::find_if(all.begin(), all.end(), refused);
    EXPECT_EQ(StateProvider::kMaxQuestions + 1, refusal->state_reply().request());
    EXPECT_FALSE(refusal->state_reply().more());
    m_connections.back()->Close();  // ends all of them
    m_parts = 1;
    Introduced(2).Send(Question(1));
    EXPECT_TRUE(RunUntil([&] { return m_connections.back()->All().size() == kIntroduction + 1; }));
}

TEST_F(Provider, PassesOnTheRequestForEverythingAnew)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    CdbdMessage request;
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

TEST_F(Provider, AnswersATestOfACollectorWhenItIsDone)
{
    Listen();
    m_provider.Start();
    auto& database = Introduced(1);
    database.Send(Welcome());
    ASSERT_TRUE(RunUntil([&] { return database.All().size() > kIntroduction; })) << "it has loaded";
    CdbdMessage request;
    request.mutable_action_request()->set_request(8);
    request.mutable_action_request()->set_name("test-collector");
    request.mutable_action_request()->set_subject("c1");
    database.Send(request);
    ASSERT_TRUE(RunUntil([&] { return m_tests.size() == 1; }));
    EXPECT_EQ("c1", m_tested);
    // Other requests do not wait for it.
    CdbdMessage clear;
    clear.mutable_action_request()->set_request(9);
    clear.mutable_action_request()->set_name("clear-statistics");
    EXPECT_EQ(9U, Answer(clear).action_reply().request());
    EXPECT_EQ(1, m_clears);
    const std::size_t said = database.All().size();
    m_tests[0]({"", {{"outcome", "silent"}}});
    ASSERT_TRUE(RunUntil([&] { return database.All().size() > said; }));
    const auto& answer = database.All().back().action_reply();
    EXPECT_EQ(8U, answer.request());
    ASSERT_EQ(1, answer.output_size());
    EXPECT_EQ("outcome", answer.output(0).name());
    EXPECT_EQ("silent", answer.output(0).value());
}

TEST_F(Provider, AnswersALookAtTalkersWithTheirEntries)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    CdbdMessage request;
    request.mutable_action_request()->set_request(8);
    request.mutable_action_request()->set_name("top-talkers");
    request.mutable_action_request()->set_subject("eth1");
    const auto reply = Answer(request).action_reply();
    EXPECT_EQ(8U, reply.request());
    ASSERT_EQ(2, reply.output_size());
    ASSERT_EQ(1, reply.output(1).children_size());
    EXPECT_EQ("source", reply.output(1).children(0).name());
    EXPECT_EQ("eth1", reply.output(1).children(0).value());
}

TEST_F(Provider, AcknowledgesAChangeAndPassesItOn)
{
    Listen();
    m_provider.Start();
    Database& database = Introduced(1);
    database.Send(Welcome());
    CdbdMessage message;
    message.mutable_change_set()->set_commit(5);
    EXPECT_EQ(5U, Answer(message).change_set_ack().commit());
    EXPECT_TRUE(RunUntil([&] { return !m_changes.empty(); }));
    for (const std::uint64_t commit : {6U, 6U}) {  // one that is sent twice is acknowledged twice
        message.mutable_change_set()->set_commit(commit);
        database.Send(message);
    }
    EXPECT_TRUE(RunUntil([&] { return m_changes.size() == 3; }));
    EXPECT_EQ((std::vector<std::uint64_t>{5, 6, 6}), m_changes);
    ASSERT_TRUE(RunUntil([&] { return database.All().size() == kWelcomed + 3; }));
    EXPECT_EQ(6U, database.All().back().change_set_ack().commit());
}

TEST_F(Provider, RefusesARequestItDoesNotKnow)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    CdbdMessage request;
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
    CdbdMessage request;
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
    CdbdMessage refused;
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
    garbage.add_names("\xff\xff\xff");  // where another kind of message is expected
    Introduced(1).Send(garbage);
    Introduced(2);
}

TEST_F(Provider, IgnoresWhatItHasNotAskedFor)
{
    Listen();
    m_provider.Start();
    Introduced(1).Send(Welcome());
    CdbdMessage message;
    message.mutable_callpoint_request()->set_request(5);
    m_connections.back()->Send(message);
    m_connections.back()->Send(CdbdMessage{});
    EXPECT_EQ(11U, Answer(Question(11)).state_reply().request());
    EXPECT_EQ(kWelcomed + 1, m_connections.back()->All().size());
}

}  // namespace
}  // namespace manager
