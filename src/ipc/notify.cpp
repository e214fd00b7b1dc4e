// SPDX-License-Identifier: Apache-2.0
#include "ipc/notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "base/number.h"
#include "log/log.h"

namespace ipc {
namespace {

/// A datagram socket connected to the path, or with @ in front to an abstract name. Logs and returns none
/// if that fails.
base::UniqueFd ConnectTo(const std::string& name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() < 2 || (name[0] != '/' && name[0] != '@') || name.size() >= sizeof address.sun_path) {
        slog::Error(
            "NOTIFY_SOCKET: \"{}\" is no path and no abstract socket; the service manager is not told", name);
        return {};
    }
    std::memcpy(address.sun_path, name.data(), name.size());
    const bool abstract = name[0] == '@';
    if (abstract) address.sun_path[0] = '\0';
    // The address's size ends an abstract name, a NUL ends a path.
    const auto size =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + (abstract ? 0 : 1));
    base::UniqueFd opened(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (opened && ::connect(opened.Get(), reinterpret_cast<const sockaddr*>(&address), size) == 0)
        return opened;
    slog::Error("NOTIFY_SOCKET: can't connect to {}: {}; the service manager is not told", name,
                std::strerror(errno));
    return {};
}

}  // namespace

ServiceNotifier::ServiceNotifier(base::Timers& timers, const base::Variables& variables) : m_timers(timers)
{
    const auto name = variables("NOTIFY_SOCKET");
    if (!name) return;
    m_socket = ConnectTo(*name);
    const auto watchdog = base::ToNumber<std::uint64_t>(variables("WATCHDOG_USEC").value_or(""));
    const auto watched = variables("WATCHDOG_PID");
    if (!watchdog || *watchdog == 0 || (watched && base::ToNumber<pid_t>(*watched) != ::getpid())) return;
    using namespace std::chrono;
    constexpr std::uint64_t kLongest = 86'400'000'000;  // a day, so that no timer overflows
    const microseconds half(static_cast<std::int64_t>(std::min(*watchdog, kLongest) / 2));
    m_interval = std::max(duration_cast<milliseconds>(half), milliseconds(1));
}

void ServiceNotifier::Ready()
{
    Tell("READY=1");
    if (m_socket && m_interval.count() > 0) Beat();
}

void ServiceNotifier::Beat()
{
    Tell("WATCHDOG=1");
    m_timer = m_timers.After(m_interval, [this] { Beat(); });
}

void ServiceNotifier::Tell(std::string_view state) const
{
    if (!m_socket) return;
    // A manager whose queue is full misses this beat; the next follows.
    if (::send(m_socket.Get(), state.data(), state.size(), MSG_NOSIGNAL) < 0 && errno != EAGAIN)
        slog::Debug("the service manager can't be told {}: {}", state, std::strerror(errno));
}

}  // namespace ipc
