// SPDX-License-Identifier: Apache-2.0
#include "manager/export/stream_socket.h"

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include <cerrno>

namespace manager {
namespace {

std::error_code LastError() { return {errno, std::generic_category()}; }

/// For options without which datagrams are sent all the same.
void SetInt(int fd, int level, int option, int value)
{
    static_cast<void>(::setsockopt(fd, level, option, &value, sizeof value));
}

std::error_code Mark(int fd, std::uint32_t mark)
{
    if (mark == 0 || ::setsockopt(fd, SOL_SOCKET, SO_MARK, &mark, sizeof mark) == 0) return {};
    return LastError();
}

base::UniqueFd Open()
{
    return base::UniqueFd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_UDP));
}

}  // namespace

std::error_code StreamSocket::Connect(std::uint32_t address, std::uint16_t port)
{
    Close();
    // The kernel would send to port 0.
    if (port == 0) return std::make_error_code(std::errc::destination_address_required);
    m_fd = Open();
    if (!m_fd) return LastError();
    SetOptions();
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = address;
    if (::connect(m_fd.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) < 0) {
        const std::error_code error = LastError();
        Close();
        return error;
    }
    m_connected = true;
    return {};
}

void StreamSocket::Close()
{
    m_fd.Close();
    m_connected = false;
}

std::error_code StreamSocket::CheckMark(std::uint32_t mark)
{
    const base::UniqueFd fd = Open();
    return fd ? Mark(fd.Get(), mark) : LastError();
}

void StreamSocket::SetOptions()
{
    m_markError = Mark(m_fd.Get(), m_options.mark);
    // Beyond the system's limit if that is allowed.
    if (::setsockopt(m_fd.Get(), SOL_SOCKET, SO_SNDBUFFORCE, &m_options.sendBuffer,
                     sizeof m_options.sendBuffer) < 0)
        SetInt(m_fd.Get(), SOL_SOCKET, SO_SNDBUF, m_options.sendBuffer);
    // Nothing is ever received: the least that the kernel gives, which also holds a few queued errors.
    SetInt(m_fd.Get(), SOL_SOCKET, SO_RCVBUF, 0);
    // Never DF: datagrams larger than the path's MTU are cut into fragments.
    SetInt(m_fd.Get(), IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DONT);
    // All errors, not only the fatal ones: a host that does not answer ARP, a full queue of the device.
    SetInt(m_fd.Get(), IPPROTO_IP, IP_RECVERR, 1);
    // A kernel that does not know the option would ignore it in a message, and send that whole.
    int segment = 0;
    socklen_t size = sizeof segment;
    m_kernelSegments = ::getsockopt(m_fd.Get(), IPPROTO_UDP, UDP_SEGMENT, &segment, &size) == 0;
    m_segments = m_kernelSegments;
}

}  // namespace manager
