// SPDX-License-Identifier: Apache-2.0
// Long answers that clients do not read are bounded in all: what does not fit waits, and at last is refused.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "agent/agent_world.h"
#include "agent/other_user.h"
#include "base/unique_fd.h"
#include "support/frames.h"
#include "support/poll.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;

constexpr int kCollectors = 10'000;

std::string NameOf(int collector)
{
    return "collector-with-a-name-that-is-long-" + std::to_string(100'000 + collector);
}

/// A session that can be asked whether anything has come for it.
class Watched {
public:
    explicit Watched(const World& world) : m_client(Connected(world), "test")
    {
        if (!m_watched) throw std::system_error(errno, std::generic_category(), "dup");
    }

    netconf::Client* operator->() { return &m_client; }
    netconf::Client& operator*() { return m_client; }

    [[nodiscard]] bool HasAnswer() const
    {
        pollfd watched{m_watched.Get(), POLLIN, 0};
        return ::poll(&watched, 1, 0) == 1;
    }
    /// Asks for everything; the answer is made now, and unread.
    void AskAndLeaveUnread()
    {
        m_client.Send(netconf::GetConfig("running"));
        support::Await("the answer", [this] { return HasAnswer(); });
    }

private:
    base::UniqueFd Connected(const World& world)
    {
        const sockaddr_un address = support::UnixAddress(world.NetconfSocket());
        base::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::system_error(errno, std::generic_category(), "connect");
        m_watched = base::UniqueFd(::fcntl(socket.Get(), F_DUPFD_CLOEXEC, 0));
        return socket;
    }

    base::UniqueFd m_watched;
    netconf::Client m_client;
};

class Unread : public testing::Test {
protected:
    Unread()
    {
        std::string collectors;
        for (int i = 0; i < kCollectors; ++i) collectors += Collector(NameOf(i));
        Do(m_other, netconf::EditConfig(Sflow(collectors)));
        Do(m_other, netconf::Commit());
        m_whole = Config(m_other, "running");
        EXPECT_GT(m_whole.size(), kRoom / 4);
        EXPECT_LT(m_whole.size(), kRoom / 3);
    }

    static agent::AgentOptions Options()
    {
        agent::AgentOptions options;
        options.answers.bytes = kRoom;
        options.answers.wait = kWait;
        return options;
    }

    /// As many sessions as there is room for, root's three, any other user's one, each with an unread answer.
    void Fill()
    {
        const int most = ::geteuid() == 0 ? 3 : 1;
        for (int i = 0; i < most; ++i) m_stalled.emplace_back(m_world).AskAndLeaveUnread();
    }

    /// Three requests of another client whose answers come from behind all long ones under way: the message
    /// is long, so that it is read in the thread that writes them.
    void AnswerOthers()
    {
        const std::string filter =
            "<config xmlns=\"urn:switch:yang:switch-config\">"
            "<oam xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow><collector><name>" +
            NameOf(7) + "</name></collector></sflow></oam></config>";
        for (int i = 0; i < 3; ++i) {
            const auto reply = m_other.Call(netconf::GetConfig("running", filter + std::string(50'000, ' ')));
            EXPECT_THAT(reply.data, HasSubstr(NameOf(7)));
            EXPECT_LT(reply.data.size(), 500U);
        }
    }

    /// Shorter than a client may go without reading: the stalled sessions stay.
    static constexpr std::chrono::seconds kWait{20};
    static constexpr std::size_t kRoom = std::size_t{3} << 20;
    World m_world{Options()};
    netconf::Client m_other = m_world.Connect();
    std::string m_whole;
    std::list<Watched> m_stalled;
};

TEST_F(Unread, ALongAnswerWaitsUntilAnotherIsRead)
{
    Fill();
    Watched late(m_world);
    late->Send(netconf::GetConfig("running"));
    AnswerOthers();
    EXPECT_FALSE(late.HasAnswer());
    // Nor do edits and commits wait.
    Do(m_other, netconf::EditConfig(Sflow(Collector(NameOf(7), "<port>7</port>"))));
    Do(m_other, netconf::Commit());
    EXPECT_FALSE(late.HasAnswer());
    EXPECT_EQ(m_stalled.front()->Receive().data, m_whole);
    // The answer is of the time when it is made.
    const auto reply = late->Receive();
    EXPECT_TRUE(reply.ok);
    EXPECT_THAT(reply.data, HasSubstr("<port>7</port>"));
    m_stalled.pop_front();
    for (auto& stalled : m_stalled) EXPECT_EQ(stalled->Receive().data, m_whole);
}

TEST_F(Unread, ALongAnswerWaitsUntilASessionIsClosed)
{
    Fill();
    Watched state(m_world);
    Watched candidate(m_world);
    state->Send(netconf::Get());
    candidate->Send(netconf::GetConfig("candidate"));
    AnswerOthers();
    EXPECT_FALSE(state.HasAnswer());
    EXPECT_FALSE(candidate.HasAnswer());
    m_stalled.clear();
    EXPECT_THAT(state->Receive().data, HasSubstr(m_whole));
    EXPECT_EQ(candidate->Receive().data, m_whole);
}

TEST_F(Unread, ManyWhoReadAreAllAnswered)
{
    std::atomic<int> whole = 0;
    std::vector<std::thread> clients;
    for (int i = 0; i < 20; ++i)
        clients.emplace_back([&] {
            auto client = m_world.Connect();
            if (Config(client, "running") == m_whole) ++whole;
        });
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(whole, 20);
}

TEST_F(Unread, OneUserHasHalfOfTheRoom)
{
    OpenToAll(m_world);
    std::list<Watched> others;
    {
        const OtherUser user;
        if (!user.Done()) GTEST_SKIP() << "needs root, to become another user";
        for (int i = 0; i < 2; ++i) others.emplace_back(m_world);
    }
    others.front().AskAndLeaveUnread();
    others.back()->Send(netconf::GetConfig("running"));
    AnswerOthers();
    EXPECT_FALSE(others.back().HasAnswer());
    // There is room, and for root it is.
    EXPECT_EQ(Config(m_other, "running"), m_whole);
    EXPECT_FALSE(others.back().HasAnswer());
    EXPECT_EQ(others.front()->Receive().data, m_whole);
    EXPECT_EQ(others.back()->Receive().data, m_whole);
}

TEST_F(Unread, ALongAnswerIsRefusedAtLast)
{
    Fill();
    Watched late(m_world);
    late->Send(netconf::GetConfig("running"));
    AnswerOthers();
    m_world.Advance(kWait);
    const auto reply = late->Receive();
    ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
    const auto& error = reply.errors.front();
    EXPECT_EQ(error.tag, "resource-denied");
    EXPECT_THAT(error.message, testing::AllOf(HasSubstr(" of 3145728 bytes"), HasSubstr("--max-unread")));
    EXPECT_EQ(error.type, "protocol");
    // The session goes on.
    Do(*late, netconf::Commit());
    EXPECT_EQ(m_stalled.front()->Receive().data, m_whole);
    EXPECT_EQ(Config(*late, "running"), m_whole);
}

}  // namespace
}  // namespace agent_tests
