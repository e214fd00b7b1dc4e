// SPDX-License-Identifier: Apache-2.0
// What the service manager hears of the three processes: that they serve, that their loops run, and nothing
// more from one that hangs.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>

#include "system/system_test.h"

namespace system_tests {
namespace {

using std::chrono::milliseconds;

/// The service manager's end of NOTIFY_SOCKET.
class NotifySocket {
public:
    /// A path, or with @ in front an abstract name.
    explicit NotifySocket(const std::string& name)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path - 1);
        const bool abstract = name[0] == '@';
        if (abstract) address.sun_path[0] = '\0';
        const auto size =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + (abstract ? 0 : 1));
        m_descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        EXPECT_EQ(::bind(m_descriptor, reinterpret_cast<const sockaddr*>(&address), size), 0);
    }
    ~NotifySocket() { ::close(m_descriptor); }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    /// The next message; empty if there is none now.
    std::string Take() const
    {
        std::array<char, 256> text{};
        const ssize_t got = ::recv(m_descriptor, text.data(), text.size(), 0);
        return got > 0 ? std::string(text.data(), static_cast<std::size_t>(got)) : std::string();
    }

    void Await(const std::string& message) const
    {
        support::Await("the message " + message, [&] { return Take() == message; });
    }

    void Drop() const
    {
        while (!Take().empty()) {
        }
    }

private:
    int m_descriptor = -1;
};

constexpr milliseconds kWatchdog{200};

struct Row {
    const char* program;
    bool abstract;
};

class Watchdog : public SystemTest, public testing::WithParamInterface<Row> {};

TEST_P(Watchdog, IsFedWhileTheLoopTurns)
{
    const auto name = GetParam().abstract ? "@sflow-watchdog-" + std::to_string(::getpid())
                                          : (TheWorld().Dir() / "notify").string();
    const NotifySocket manager(name);
    support::Command command{.argv = {World::Program(GetParam().program)},
                             .environment = TheWorld().Environment("watched"),
                             .errors = TheWorld().Dir() / "watched.err"};
    command.environment["NOTIFY_SOCKET"] = name;
    command.environment["WATCHDOG_USEC"] = std::to_string(std::chrono::microseconds(kWatchdog).count());
    Process watched(command);
    // Nothing is said before it serves.
    std::string first;
    Await("a first message", [&] { return !(first = manager.Take()).empty(); });
    EXPECT_EQ(first, "READY=1");
    if (GetParam().program == std::string("cdbd")) {
        EXPECT_TRUE(Accepts(TheWorld().NetconfSocket()));
    }
    if (GetParam().program == std::string("sflow-mgr")) {
        EXPECT_TRUE(Accepts(TheWorld().ManagerSocket()));
    }
    for (int beat = 0; beat < 3; ++beat) manager.Await("WATCHDOG=1");

    watched.Freeze();
    manager.Drop();
    // Silence for far longer than a loop that turns would leave.
    EXPECT_FALSE(Becomes([&manager] { return !manager.Take().empty(); }, 5 * kWatchdog));

    watched.Thaw();
    manager.Await("WATCHDOG=1");
    EXPECT_EQ(watched.Terminate(), 0);
    manager.Await("STOPPING=1");
}

INSTANTIATE_TEST_SUITE_P(Programs, Watchdog,
                         testing::Values(Row{"cdbd", false}, Row{"sflow-mgr", false}, Row{"sflow-app", false},
                                         Row{"cdbd", true}, Row{"sflow-mgr", true}, Row{"sflow-app", true}),
                         [](const auto& each) {
                             std::string name = each.param.program;
                             std::erase(name, '-');
                             return name + (each.param.abstract ? "Abstract" : "");
                         });

}  // namespace
}  // namespace system_tests
