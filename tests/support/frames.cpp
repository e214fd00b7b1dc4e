// SPDX-License-Identifier: Apache-2.0
// A peer that a test plays itself (see the header).

#include "support/frames.h"

#include <google/protobuf/message_lite.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace support {

sockaddr_un UnixAddress(const std::filesystem::path& socket)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = socket.string();
    if (path.size() >= sizeof address.sun_path) throw std::runtime_error("too long for a socket: " + path);
    std::copy(path.begin(), path.end(), address.sun_path);
    return address;
}

FrameClient::FrameClient(const std::filesystem::path& socket)
    : m_descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_un address = UnixAddress(socket);
    if (connect(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "connect to " + socket.string());
}

FrameClient::~FrameClient() { close(m_descriptor); }

std::string FrameLength(std::uint32_t length)
{
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>((length >> shift) & 0xffU);
    return bytes;
}

void FrameClient::Send(const google::protobuf::MessageLite& message)
{
    const auto content = message.SerializeAsString();
    SendBytes(FrameLength(static_cast<std::uint32_t>(content.size())) + content);
}

bool FrameClient::SendBytes(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = send(m_descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool FrameClient::AwaitReadable(std::chrono::milliseconds within) const
{
    pollfd waiting{.fd = m_descriptor, .events = POLLIN, .revents = 0};
    return poll(&waiting, 1, static_cast<int>(within.count())) == 1;
}

bool FrameClient::ReadBytes(char* into, std::size_t count)
{
    while (count > 0) {
        if (!AwaitReadable(kPatience)) throw TimedOut("no frame came in time");
        const ssize_t got = recv(m_descriptor, into, count, 0);
        if (got <= 0) return false;
        into += got;
        count -= static_cast<std::size_t>(got);
    }
    return true;
}

bool FrameClient::Receive(google::protobuf::MessageLite& message)
{
    std::array<char, 4> head{};
    if (!ReadBytes(head.data(), head.size())) return false;
    std::size_t length = 0;
    for (const char byte : head) length = length << 8U | static_cast<unsigned char>(byte);
    std::string content(length, '\0');
    return ReadBytes(content.data(), length) && message.ParseFromString(content);
}

bool FrameClient::AwaitEnd(std::chrono::milliseconds within)
{
    const auto deadline = std::chrono::steady_clock::now() + within;
    std::array<char, 4096> dropped{};
    while (std::chrono::steady_clock::now() < deadline) {
        if (!AwaitReadable(std::chrono::milliseconds(50))) continue;
        if (recv(m_descriptor, dropped.data(), dropped.size(), 0) <= 0) return true;
    }
    return false;
}

}  // namespace support
