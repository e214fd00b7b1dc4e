// SPDX-License-Identifier: Apache-2.0
// Clients on a real manager.sock: one session, operations in order, refusals, and bytes that no
// well-meaning client sends.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "ipc/manager.pb.h"
#include "manager/loop_fixture.h"
#include "manager/recorder.h"
#include "manager/service/journal.h"
#include "manager/service/service.h"
#include "manager/service/session_server.h"
#include "support/few_files.h"
#include "support/proto_text.h"

namespace manager {
namespace {

using ipc::manager::ClientMessage;
using ipc::manager::ServerMessage;
using Client = Peer<ServerMessage>;
using std::chrono::seconds;
using std::chrono::system_clock;

ClientMessage Hello(std::uint32_t protocol = ipc::kProtocolVersion)
{
    ClientMessage message;
    message.mutable_hello()->set_protocol(protocol);
    message.mutable_hello()->set_process("test");
    message.mutable_hello()->set_pid(1);
    return message;
}

ClientMessage Loaded()
{
    ClientMessage message;
    message.mutable_loaded();
    return message;
}

ClientMessage DeleteMessage(const std::string& name)
{
    ClientMessage message;
    message.mutable_delete_collector()->set_name(name);
    return message;
}

ClientMessage UpdateMessage(const std::string& name, const std::string& collector)
{
    ClientMessage message;
    auto& update = *message.mutable_update_interface();
    update.set_interface(name);
    update.set_sample_collector(collector);
    update.set_rate(512);
    update.set_direction(2);
    update.set_max_header_size(128);
    update.set_interval(20);
    return message;
}

class Server : public LoopFixture {
protected:
    Server()
    {
        // The test's own umask must not decide what the manager promises.
        m_server.emplace(m_loop, m_timers, Path(), m_service);
    }

    [[nodiscard]] std::string Path() const { return (m_dir / "manager.sock").string(); }
    [[nodiscard]] std::string Noted() const { return Content(m_dir / "journal"); }

    [[nodiscard]] std::unique_ptr<Client> Connect()
    {
        std::string reason;
        auto channel = ipc::Connect(m_loop, m_timers, Path(), reason);
        if (channel == nullptr) throw std::runtime_error(reason);
        return std::make_unique<Client>(std::move(channel));
    }

    /// A client with the session.
    [[nodiscard]] std::unique_ptr<Client> Open()
    {
        auto client = Connect();
        client->Send(Hello());
        EXPECT_TRUE(RunUntil([&] { return !client->All().empty(); }));
        EXPECT_TRUE(client->All().front().has_opened()) << support::TextOf(client->All().front());
        return client;
    }

    /// A bare socket that writes these bytes; returns whether the other side then ends it.
    [[nodiscard]] bool IsEndedAfter(const std::string& bytes)
    {
        const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        Path().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address));
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL));
        char answer = 0;
        const bool ended = RunUntil([&] {
            const ssize_t got = ::recv(descriptor, &answer, 1, MSG_DONTWAIT);
            return got == 0 || (got < 0 && errno == ECONNRESET);
        });
        ::close(descriptor);
        return ended;
    }

    ServiceTable m_table;
    Journal m_journal{(m_dir / "journal").string()};
    system_clock::time_point m_now{seconds{1'000'000}};
    Service m_service{m_table, &m_journal, [this] { return m_now; }, [](const Touched&) {}};
    std::optional<SessionServer> m_server;
};

TEST_F(Server, OpensASessionAndSaysWhoItIs)
{
    const auto client = Open();
    EXPECT_EQ(::getpid(), client->All().front().opened().pid());
    EXPECT_EQ(Service::Session::kLoading, m_service.CurrentSession());
    EXPECT_EQ("{\"op\":\"SessionOpened\"}\n", Noted());
}

TEST_F(Server, AppliesAndNotesWhatASessionSays)
{
    auto client = Open();
    client->Send(UpdateMessage("eth1", "c1"));
    client->Send(Loaded());
    client->Send(DeleteMessage("c1"));
    m_now += seconds{5};
    ASSERT_TRUE(RunUntil([&] { return m_service.Operations() == 2; }));
    EXPECT_EQ(Service::Session::kLoaded, m_service.CurrentSession());
    EXPECT_EQ(m_now, m_service.Since());
    client.reset();
    ASSERT_TRUE(RunUntil([&] { return m_service.CurrentSession() == Service::Session::kNone; }));
    EXPECT_EQ(R"({"op":"SessionOpened"}
{"op":"UpdateInterface","args":["eth1","c1","",512,2,128,20]}
{"op":"SessionLoaded"}
{"op":"DeleteCollector","args":["c1"]}
{"op":"SessionClosed"}
)",
              Noted());
    EXPECT_EQ(Texts{"eth1 512 2 128 20 flow c1"}, Held(m_table));
}

TEST_F(Server, KeepsTheStateOfADeadSessionUntilTheMarkOfTheNext)
{
    auto first = Open();
    first->Send(UpdateMessage("eth1", "c1"));
    first->Send(Loaded());
    ASSERT_TRUE(RunUntil([&] { return m_service.CurrentSession() == Service::Session::kLoaded; }));
    first.reset();
    ASSERT_TRUE(RunUntil([&] { return m_service.CurrentSession() == Service::Session::kNone; }));
    EXPECT_EQ(Texts{"eth1 512 2 128 20 flow c1"}, Held(m_table));

    auto second = Open();
    second->Send(UpdateMessage("eth2", ""));
    ASSERT_TRUE(RunUntil([&] { return m_table.AllInterfaces().size() == 2; }));
    second->Send(Loaded());
    ASSERT_TRUE(RunUntil([&] { return m_service.CurrentSession() == Service::Session::kLoaded; }));
    EXPECT_EQ(Texts{"eth2 512 2 128 20"}, Held(m_table));
}

TEST_F(Server, RefusesASecondClientNamingTheFirstAndGoesOnWithIt)
{
    auto first = Open();
    auto second = Connect();
    second->Send(Hello());
    ASSERT_TRUE(RunUntil([&] { return second->Ended(); }));
    ASSERT_EQ(1U, second->All().size());
    EXPECT_EQ(::getpid(), second->All().front().refused().holder_pid());
    EXPECT_THAT(second->All().front().refused().reason(), testing::HasSubstr(std::to_string(::getpid())));
    first->Send(UpdateMessage("eth1", ""));
    EXPECT_TRUE(RunUntil([&] { return m_table.AllInterfaces().size() == 1; }));
}

TEST_F(Server, GivesTheSessionToTheNextWhenTheFirstHasGone)
{
    Open().reset();
    ASSERT_TRUE(RunUntil([&] { return m_service.CurrentSession() == Service::Session::kNone; }));
    const auto second = Open();
    EXPECT_EQ("{\"op\":\"SessionOpened\"}\n{\"op\":\"SessionClosed\"}\n{\"op\":\"SessionOpened\"}\n",
              Noted());
}

TEST_F(Server, RefusesAnotherProtocolVersion)
{
    auto client = Connect();
    client->Send(Hello(99));
    ASSERT_TRUE(RunUntil([&] { return client->Ended(); }));
    ASSERT_EQ(1U, client->All().size());
    EXPECT_THAT(client->All().front().refused().reason(), testing::HasSubstr("99"));
    EXPECT_EQ(0, client->All().front().refused().holder_pid());
    EXPECT_EQ("", Noted());
}

TEST_F(Server, RefusesAnOperationAndGoesOnWithTheSession)
{
    auto client = Open();
    client->Send(UpdateMessage(std::string(65, 'e'), ""));
    client->Send(UpdateMessage("eth\"1", ""));
    client->Send(UpdateMessage("eth1", ""));
    ASSERT_TRUE(RunUntil([&] { return m_service.Operations() == 3; }));
    EXPECT_EQ(2U, m_service.Refused());
    EXPECT_EQ(Texts{"eth1 512 2 128 20"}, Held(m_table));
    EXPECT_FALSE(client->Ended());
}

TEST_F(Server, AsksForANewSession)
{
    EXPECT_FALSE(m_server->RequestResync());
    auto client = Open();
    EXPECT_TRUE(m_server->RequestResync());
    ASSERT_TRUE(RunUntil([&] { return client->All().size() == 2; }));
    EXPECT_TRUE(client->All().back().has_resync());
    EXPECT_EQ(Service::Session::kLoading, m_service.CurrentSession());
}

TEST_F(Server, EndsWhoeverSendsAnythingBeforeHello)
{
    for (const auto& message : {Loaded(), DeleteMessage("c1"), ClientMessage{}}) {
        auto client = Connect();
        client->Send(message);
        EXPECT_TRUE(RunUntil([&] { return client->Ended(); })) << support::TextOf(message);
        EXPECT_TRUE(client->All().empty());
    }
    EXPECT_EQ("", Noted());
}

TEST_F(Server, EndsASessionThatSendsHelloAgainOrNothing)
{
    for (const auto& message : {Hello(), ClientMessage{}}) {
        auto client = Open();
        client->Send(message);
        EXPECT_TRUE(RunUntil([&] { return client->Ended(); })) << support::TextOf(message);
        EXPECT_EQ(Service::Session::kNone, m_service.CurrentSession());
    }
}

TEST_F(Server, EndsHostileConnectionsOnly)
{
    auto holder = Open();
    const std::string hello = Hello().SerializeAsString();
    for (const std::string& bytes : std::initializer_list<std::string>{
             std::string("\x04\x00\x00\x01", 4),                      // 64 MiB and one byte
             std::string("\xff\xff\xff\xff", 4),                      // the longest length
             std::string("\x00\x00\x00\x05\xff\xff\xff\xff\xff", 9),  // no message
             std::string("\x00\x00\x00\x00", 4),                      // an empty one
             std::string("\x00\x00\x00\x02\x0a\x7f", 6),              // cut short inside
             std::string("GET / HTTP/1.0\r\n\r\n"),                   // a length of 1195725856
         })
        EXPECT_TRUE(IsEndedAfter(bytes)) << testing::PrintToString(bytes);
    holder->Send(UpdateMessage("eth1", ""));
    EXPECT_TRUE(RunUntil([&] { return m_table.AllInterfaces().size() == 1; }));
}

TEST_F(Server, EndsConnectionsThatNeverSayHello)
{
    auto silent = Connect();
    auto holder = Open();  // has been accepted after the other
    m_timers.Advance(seconds{4});
    m_loop.poll();
    EXPECT_FALSE(silent->Ended());
    m_timers.Advance(seconds{1});
    EXPECT_TRUE(RunUntil([&] { return silent->Ended(); }));
    holder->Send(UpdateMessage("eth1", ""));
    EXPECT_TRUE(RunUntil([&] { return m_table.AllInterfaces().size() == 1; }));
    EXPECT_FALSE(holder->Ended());
}

TEST_F(Server, EndsTheOldestOfTooManySilentConnections)
{
    if (::geteuid() != 0) GTEST_SKIP() << "another user than root may have fewer of them";
    std::vector<std::unique_ptr<Client>> silent;
    for (std::size_t i = 0; i <= SessionServer::kMaxStrangers; ++i) silent.push_back(Connect());
    EXPECT_TRUE(RunUntil([&] { return silent.front()->Ended(); }));
    for (std::size_t i = 1; i < silent.size(); ++i) EXPECT_FALSE(silent[i]->Ended()) << i;
    const auto client = Open();
    EXPECT_FALSE(client->Ended());
}

TEST_F(Server, RefusesAUserTooManySilentConnections)
{
    // Root is not counted, so it connects as another user, who has to get as far as the socket.
    const bool isRoot = ::geteuid() == 0;
    constexpr uid_t kOther = 61'105;
    ::chmod(m_dir.c_str(), 0711);
    ::chmod(Path().c_str(), 0666);
    const auto connect = [&] {
        if (isRoot) {
            EXPECT_EQ(0, ::seteuid(kOther));
        }
        auto client = Connect();
        if (isRoot) {
            EXPECT_EQ(0, ::seteuid(0));
        }
        return client;
    };
    std::vector<std::unique_ptr<Client>> silent;
    for (std::size_t i = 0; i < SessionServer::kMaxStrangersOfUser; ++i) silent.push_back(connect());
    const auto tooMany = connect();
    ASSERT_TRUE(RunUntil([&] { return tooMany->Ended(); }));
    ASSERT_EQ(1U, tooMany->All().size());
    EXPECT_THAT(tooMany->All().front().refused().reason(), testing::HasSubstr("too many connections"));
    for (const auto& client : silent) EXPECT_FALSE(client->Ended());
    if (isRoot) {
        EXPECT_NE(nullptr, Open());
    }
}

TEST_F(Server, RefusesTheSessionToAUserWhoMayNotHaveIt)
{
    if (::geteuid() != 0) GTEST_SKIP() << "connects as another user, which only root may";
    ::chmod(m_dir.c_str(), 0711);
    ::chmod(Path().c_str(), 0666);
    EXPECT_EQ(0, ::seteuid(61'105));
    const auto client = Connect();
    EXPECT_EQ(0, ::seteuid(0));
    client->Send(Hello());
    ASSERT_TRUE(RunUntil([&] { return client->Ended(); }));
    ASSERT_EQ(1U, client->All().size());
    EXPECT_THAT(client->All().front().refused().reason(),
                testing::AllOf(testing::HasSubstr("uid-61105 may not have the session"),
                               testing::HasSubstr("--allow session=uid-61105")));
    EXPECT_EQ("", Noted());
}

TEST_F(Server, LogsOnceThatItCannotAcceptAndAcceptsOnceItCan)
{
    if (const std::string why = support::WhyNotWithoutFiles(); !why.empty()) GTEST_SKIP() << why;
    testing::internal::CaptureStderr();
    const auto client = Connect();
    client->Send(Hello());
    {
        const support::FewFiles none(0);
        for (int tries = 0; tries < 3; ++tries) {
            EXPECT_TRUE(RunUntil([&] { return m_timers.Waiting() == 1; }));
            m_timers.Advance(std::chrono::milliseconds(100));
        }
        EXPECT_TRUE(RunUntil([&] { return m_timers.Waiting() == 1; }));
    }
    m_timers.Advance(std::chrono::milliseconds(100));
    EXPECT_TRUE(RunUntil([&] { return !client->All().empty() && client->All().front().has_opened(); }));
    const std::string log = testing::internal::GetCapturedStderr();
    const std::string line = "cannot accept a connection on " + Path() + ": Too many open files";
    const std::size_t first = log.find(line);
    EXPECT_NE(first, std::string::npos) << log;
    EXPECT_EQ(log.find(line, first + 1), std::string::npos) << log;
}

TEST_F(Server, LetsUserAndGroupConnectOnly)
{
    struct stat status {};
    ASSERT_EQ(0, ::stat(Path().c_str(), &status));
    EXPECT_EQ(0660U, status.st_mode & 07777U);
}

TEST_F(Server, NamesTheManagerThatIsThereAlready)
{
    try {
        SessionServer second(m_loop, m_timers, Path(), m_service);
        FAIL() << "two managers on one socket";
    } catch (const std::exception& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("process " + std::to_string(::getpid())));
        EXPECT_THAT(error.what(), testing::HasSubstr(Path()));
    }
    EXPECT_NE(nullptr, Open());
}

TEST_F(Server, TakesThePlaceOfADeadManagersSocket)
{
    const auto copy = m_dir / "stale.sock";
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    copy.string().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(0, ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    ::close(descriptor);
    SessionServer server(m_loop, m_timers, copy.string(), m_service);
    std::string reason;
    EXPECT_NE(nullptr, ipc::Connect(m_loop, m_timers, copy.string(), reason)) << reason;
}

TEST_F(Server, EndsSessionAndSocketWhenItStops)
{
    auto client = Open();
    m_server->Stop();
    EXPECT_TRUE(RunUntil([&] { return client->Ended(); }));
    EXPECT_FALSE(std::filesystem::exists(Path()));
    EXPECT_EQ("{\"op\":\"SessionOpened\"}\n{\"op\":\"SessionClosed\"}\n", Noted());
}

}  // namespace
}  // namespace manager
