// SPDX-License-Identifier: Apache-2.0
// What the service manager is told, on a socket of the test's own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ipc/notify.h"
#include "support/manual_timers.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class Notify : public testing::Test {
protected:
    Notify()
    {
        std::string name = (std::filesystem::temp_directory_path() / "notify-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) std::abort();
        m_dir = name;
    }
    ~Notify() override
    {
        if (m_socket >= 0) ::close(m_socket);
        std::filesystem::remove_all(m_dir);
    }

    /// The manager's end; `name` as in NOTIFY_SOCKET.
    void Bind(const std::string& name)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path - 1);
        if (name[0] == '@') address.sun_path[0] = '\0';
        m_socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        const auto size =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + (name[0] == '@' ? 0 : 1));
        ASSERT_EQ(::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), size), 0);
        m_variables["NOTIFY_SOCKET"] = name;
    }

    [[nodiscard]] std::unique_ptr<ipc::ServiceNotifier> Make()
    {
        return std::make_unique<ipc::ServiceNotifier>(
            m_timers, [this](const char* name) -> std::optional<std::string> {
                const auto found = m_variables.find(name);
                return found == m_variables.end() ? std::nullopt : std::optional(found->second);
            });
    }

    [[nodiscard]] std::vector<std::string> Told() const
    {
        std::vector<std::string> told;
        std::array<char, 256> text{};
        for (ssize_t got; (got = ::recv(m_socket, text.data(), text.size(), 0)) > 0;)
            told.emplace_back(text.data(), static_cast<std::size_t>(got));
        return told;
    }

    std::filesystem::path m_dir;
    int m_socket = -1;
    support::ManualTimers m_timers;
    std::map<std::string, std::string> m_variables;
};

TEST_F(Notify, SaysThatItServesTurnsAndEnds)
{
    Bind((m_dir / "notify").string());
    m_variables["WATCHDOG_USEC"] = "2000000";
    m_variables["WATCHDOG_PID"] = std::to_string(::getpid());
    auto notifier = Make();
    m_timers.Advance(milliseconds(5000));
    EXPECT_THAT(Told(), IsEmpty());
    notifier->Ready();
    EXPECT_THAT(Told(), ElementsAre("READY=1", "WATCHDOG=1"));
    m_timers.Advance(milliseconds(999));
    EXPECT_THAT(Told(), IsEmpty());
    m_timers.Advance(milliseconds(1));
    EXPECT_THAT(Told(), ElementsAre("WATCHDOG=1"));
    m_timers.Advance(milliseconds(2000));
    EXPECT_THAT(Told(), ElementsAre("WATCHDOG=1", "WATCHDOG=1"));
    notifier.reset();
    EXPECT_THAT(Told(), ElementsAre("STOPPING=1"));
    EXPECT_EQ(m_timers.Waiting(), 0U);
}

TEST_F(Notify, KnowsAbstractSockets)
{
    Bind("@notify-test-" + std::to_string(::getpid()));
    Make()->Ready();
    EXPECT_THAT(Told(), ElementsAre("READY=1", "STOPPING=1"));
}

TEST_F(Notify, IsNotWatchedWhenTheWatchdogIsAnothersOrOff)
{
    Bind((m_dir / "notify").string());
    for (const auto& [usec, pid] : std::vector<std::pair<std::string, std::string>>{
             {"2000000", "1"}, {"0", std::to_string(::getpid())}, {"soon", std::to_string(::getpid())}}) {
        m_variables["WATCHDOG_USEC"] = usec;
        m_variables["WATCHDOG_PID"] = pid;
        Make()->Ready();
        EXPECT_THAT(Told(), ElementsAre("READY=1", "STOPPING=1")) << usec;
    }
}

TEST_F(Notify, GoesOnWhereNobodyListens)
{
    for (const char* name : {"/nowhere/at/all", "relative", "", "@", "@nobody-listens-here"}) {
        m_variables["NOTIFY_SOCKET"] = name;
        m_variables["WATCHDOG_USEC"] = "2000000";
        Make()->Ready();
        EXPECT_EQ(m_timers.Waiting(), 0U) << name;
    }
    m_variables.clear();
    Make()->Ready();
}

TEST_F(Notify, DropsWhatAManagerDoesNotTake)
{
    Bind((m_dir / "notify").string());
    m_variables["WATCHDOG_USEC"] = "2000000";
    const auto notifier = Make();
    notifier->Ready();
    m_timers.Advance(std::chrono::hours(10));  // more than a socket holds
    EXPECT_LT(Told().size(), 10'000U);
    m_timers.Advance(milliseconds(1000));
    EXPECT_THAT(Told(), ElementsAre("WATCHDOG=1"));
}

}  // namespace
