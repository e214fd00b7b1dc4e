// SPDX-License-Identifier: Apache-2.0
// A UDP socket that collectors receive by (see the header).

#include "support/datagram_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <system_error>

namespace support {
namespace {

constexpr std::size_t kLargest = 65536;  // of what one call can give

void Set(int socket, int level, int option, int value, const char* name)
{
    if (::setsockopt(socket, level, option, &value, sizeof value) != 0)
        throw std::system_error(errno, std::generic_category(), name);
}

void SetRoom(int socket, int size)
{
    if (::setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0)
        Set(socket, SOL_SOCKET, SO_RCVBUF, size, "SO_RCVBUF");
}

template <typename Value>
Value ValueOf(const cmsghdr& note)
{
    Value value{};
    std::memcpy(&value, CMSG_DATA(&note), sizeof value);
    return value;
}

}  // namespace

DatagramSocket::DatagramSocket(const Options& options)
    : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)), m_packet(kLargest)
{
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(options.port);
    socklen_t length = sizeof at;
    if (m_socket < 0 || ::inet_pton(AF_INET, options.address.c_str(), &at.sin_addr) != 1 ||
        ::bind(m_socket, reinterpret_cast<sockaddr*>(&at), sizeof at) != 0 ||
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&at), &length) != 0)
        throw std::system_error(errno, std::generic_category(), "collector at " + options.address);
    m_port = ntohs(at.sin_port);
    SetRoom(m_socket, options.bufferSize);
    Set(m_socket, SOL_SOCKET, SO_RXQ_OVFL, 1, "SO_RXQ_OVFL");
    if (options.merged) Set(m_socket, SOL_UDP, UDP_GRO, 1, "UDP_GRO");
    if (options.services) Set(m_socket, IPPROTO_IP, IP_RECVTOS, 1, "IP_RECVTOS");
    if (options.times) Set(m_socket, SOL_SOCKET, SO_TIMESTAMPNS, 1, "SO_TIMESTAMPNS");
}

DatagramSocket::~DatagramSocket() { ::close(m_socket); }

void DatagramSocket::AwaitDatagram(std::chrono::milliseconds within) const
{
    if (!m_rest.empty()) return;
    pollfd waiting{.fd = m_socket, .events = POLLIN, .revents = 0};
    ::poll(&waiting, 1, static_cast<int>(within.count()));
}

std::optional<DatagramSocket::Received> DatagramSocket::Receive()
{
    if (m_rest.empty() && !ReceivePacket()) return std::nullopt;
    const auto datagram = m_rest.first(std::min(m_each, m_rest.size()));
    m_rest = m_rest.subspan(datagram.size());
    return Received{datagram, m_time, m_from, m_tos};
}

bool DatagramSocket::ReceivePacket()
{
    alignas(cmsghdr) std::array<char, 128> control;
    iovec part{m_packet.data(), m_packet.size()};
    sockaddr_in from{};
    msghdr message{};
    message.msg_name = &from;
    message.msg_namelen = sizeof from;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t got = ::recvmsg(m_socket, &message, 0);
    if (got < 0 && errno != EAGAIN && errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "collector");
    if (got < 0) return false;
    m_rest = std::span(m_packet).first(static_cast<std::size_t>(got));
    m_each = m_rest.size();
    m_from = from.sin_addr.s_addr;
    for (cmsghdr* note = CMSG_FIRSTHDR(&message); note != nullptr; note = CMSG_NXTHDR(&message, note)) {
        if (note->cmsg_level == SOL_UDP && note->cmsg_type == UDP_GRO)
            m_each = static_cast<std::size_t>(std::max(1, ValueOf<int>(*note)));
        if (note->cmsg_level == IPPROTO_IP && note->cmsg_type == IP_TOS) m_tos = ValueOf<std::uint8_t>(*note);
        if (note->cmsg_level != SOL_SOCKET) continue;
        if (note->cmsg_type == SO_RXQ_OVFL) m_overflowed = ValueOf<std::uint32_t>(*note);
        if (note->cmsg_type == SCM_TIMESTAMPNS) {
            const auto time = ValueOf<timespec>(*note);
            m_time = WallTime(std::chrono::duration_cast<WallTime::duration>(
                std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec)));
        }
    }
    return true;
}

}  // namespace support
