// SPDX-License-Identifier: Apache-2.0
// Unix sockets as such: connecting, listening, and one blocking write.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include <google/protobuf/message_lite.h>

#include <boost/asio/io_context.hpp>

#include "base/unique_fd.h"
#include "ipc/frame.h"
#include "log/log.h"

namespace ipc {
namespace {

using Clock = std::chrono::steady_clock;

/// Returns false if the path is empty or too long for a socket address.
bool MakeAddress(const std::string& path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

int Bind(int descriptor, const sockaddr_un& address)
{
    return ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int Connect(int descriptor, const sockaddr_un& address)
{
    return ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

/// Lets the next send or connect on the socket block until `deadline` at most. Returns false if it has
/// passed.
bool LimitSending(int descriptor, Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    timeval limit{};
    limit.tv_sec = left.count() / 1'000'000;
    limit.tv_usec = left.count() % 1'000'000;
    return ::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
}

bool SendAll(int descriptor, std::string_view bytes, Clock::time_point deadline)
{
    while (!bytes.empty()) {
        if (!LimitSending(descriptor, deadline)) return false;
        const ssize_t sent = ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

[[noreturn]] void Fail(int error, const std::string& text)
{
    throw std::system_error(error, std::generic_category(), text);
}

/// Removes a socket file on which no process listens. Throws std::system_error if one does, or if the file is
/// no socket.
void RemoveStale(const std::string& path, const sockaddr_un& address)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode))
        Fail(EEXIST, "cannot listen on " + path + ": a file that is no socket is there; move it away");
    const base::UniqueFd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int connected = Connect(probe.Get(), address);
    // EAGAIN: a process listens, with a full backlog.
    if (connected == 0 || errno == EAGAIN)
        Fail(EADDRINUSE, "cannot listen on " + path + ": another process listens there already; stop it");
    if (errno != ECONNREFUSED && errno != ENOENT) Fail(errno, "cannot listen on " + path);
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) Fail(errno, "cannot replace " + path);
}

}  // namespace

std::shared_ptr<Channel> Connect(boost::asio::io_context& loop, base::Timers& timers, const std::string& path,
                                 std::string& reason)
{
    sockaddr_un address;
    if (!MakeAddress(path, address)) {
        reason = "the path is too long for a socket";
        return nullptr;
    }
    base::UniqueFd peer(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!peer || Connect(peer.Get(), address) != 0) {
        reason = std::strerror(errno);
        return nullptr;
    }
    Channel::Socket socket(loop);
    socket.assign(boost::asio::local::stream_protocol(), peer.Release());
    return Channel::Create(std::move(socket), timers);
}

bool SendBlocking(const std::string& socketPath, const google::protobuf::MessageLite& message,
                  std::chrono::milliseconds timeout)
{
    const Clock::time_point deadline = Clock::now() + timeout;
    sockaddr_un address;
    std::string frame(sizeof(std::uint32_t), '\0');
    if (!MakeAddress(socketPath, address) || message.ByteSizeLong() > kMaxFrame) return false;
    const std::uint32_t header = htonl(static_cast<std::uint32_t>(message.ByteSizeLong()));
    std::memcpy(frame.data(), &header, sizeof header);
    if (!message.AppendToString(&frame)) return false;

    const base::UniqueFd peer(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return peer && LimitSending(peer.Get(), deadline) && Connect(peer.Get(), address) == 0 &&
           SendAll(peer.Get(), frame, deadline);
}

boost::asio::local::stream_protocol::acceptor Listen(boost::asio::io_context& loop, const std::string& path,
                                                     unsigned permissions, std::optional<std::uint32_t> group)
{
    sockaddr_un address;
    if (!MakeAddress(path, address))
        Fail(ENAMETOOLONG, "cannot listen on " + path + ": a socket's path has 1 to " +
                               std::to_string(sizeof address.sun_path - 1) + " bytes");
    base::UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!listener) Fail(errno, "cannot listen on " + path);
    // The file is made with the socket's own mode, less the umask: only its owner may use it until it has its
    // group.
    if (::fchmod(listener.Get(), permissions & S_IRWXU) != 0) Fail(errno, "cannot listen on " + path);
    if (Bind(listener.Get(), address) != 0) {
        if (errno != EADDRINUSE) Fail(errno, "cannot listen on " + path);
        RemoveStale(path, address);
        if (Bind(listener.Get(), address) != 0) Fail(errno, "cannot listen on " + path);
    }
    if (const std::string problem = group ? GiveToGroup(path, *group) : ""; !problem.empty())
        slog::Notice("{}", problem);
    if (::chmod(path.c_str(), permissions) != 0) Fail(errno, "cannot set the permissions of " + path);
    if (::listen(listener.Get(), SOMAXCONN) != 0) Fail(errno, "cannot listen on " + path);
    boost::asio::local::stream_protocol::acceptor acceptor(loop);
    acceptor.assign(boost::asio::local::stream_protocol(), listener.Release());
    return acceptor;
}

}  // namespace ipc
