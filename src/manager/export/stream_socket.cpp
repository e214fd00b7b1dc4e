// SPDX-License-Identifier: Apache-2.0
#include "manager/export/stream_socket.h"

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace manager {
namespace {

constexpr int kAttempts = 4;  // of a message, while each send reports an error of an earlier one
constexpr int kMaxQueuedErrors = 16;

/// The kernel or the device can't cut this message: larger segments than the MTU, no checksums in
/// hardware, IPsec on the route.
bool RefusesSegments(int error)
{
    return error == EINVAL || error == EIO || error == EMSGSIZE || error == EOPNOTSUPP;
}

/// Errors that are this very message's; any other may have been caused by an earlier datagram.
bool IsOwn(int error) { return error == EAGAIN || error == ENOBUFS || error == EPERM || error == EMSGSIZE; }

/// Nothing more passes on this socket. A connected socket keeps the source address that it began with; once
/// that is gone, each send fails with EINVAL.
bool NeedsNewSocket(int error)
{
    return error == ENETUNREACH || error == EHOSTUNREACH || error == EINVAL || error == EADDRNOTAVAIL ||
           error == ENETDOWN || error == ENODEV || error == ENXIO || error == EACCES || error == ENOTCONN ||
           error == EDESTADDRREQ || error == EBADF;
}

std::uint64_t Bits(std::size_t first, std::size_t count)
{
    const std::uint64_t bits = count >= kMaxDatagrams ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1;
    return bits << first;
}

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

/// The address in network byte order, the port in the host's.
sockaddr_in SocketAddress(std::uint32_t address, std::uint16_t port)
{
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    at.sin_addr.s_addr = address;
    return at;
}

bool ConnectTo(int fd, std::uint32_t address, std::uint16_t port)
{
    const sockaddr_in to = SocketAddress(address, port);
    return ::connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
}

/// Also refuses what the kernel takes and then does not send from: addresses of groups and broadcast
/// addresses. The latter show when the socket, which may not send broadcasts, is connected to one.
std::error_code BindTo(int fd, std::uint32_t address)
{
    constexpr std::uint16_t kAnyPort = 9;  // nothing is sent there
    const auto notAvailable = std::make_error_code(std::errc::address_not_available);
    if (IN_MULTICAST(ntohl(address)) || address == INADDR_BROADCAST) return notAvailable;
    const sockaddr_in from = SocketAddress(address, 0);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from) < 0) return LastError();
    if (!ConnectTo(fd, address, kAnyPort) && errno == EACCES) return notAvailable;
    return {};
}

}  // namespace

Connecting StreamSocket::Connect(std::uint32_t address, std::uint16_t port, const SendSettings& settings)
{
    Close();
    // The kernel would send to port 0.
    if (port == 0) return {std::make_error_code(std::errc::destination_address_required)};
    m_fd = Open();
    if (!m_fd) return {LastError()};
    SetOptions();
    Connecting made = Bind(settings);
    if (!made.error && !ConnectTo(m_fd.Get(), address, port)) made = {LastError()};
    if (made.error) {
        Close();
        return made;
    }
    m_connected = true;
    return {};
}

/// The device comes first: an address of a VRF can be taken only by a socket that is bound to the VRF.
Connecting StreamSocket::Bind(const SendSettings& settings)
{
    const std::string& device = settings.device;
    if (!device.empty() && ::setsockopt(m_fd.Get(), SOL_SOCKET, SO_BINDTODEVICE, device.c_str(),
                                        static_cast<socklen_t>(device.size() + 1)) < 0)
        return {LastError(), Tried::kDevice};
    if (settings.sourceAddress != 0)
        if (const std::error_code error = BindTo(m_fd.Get(), settings.sourceAddress))
            return {error, Tried::kSource};
    if (settings.dscp != 0)
        if (const std::error_code error = SetDscp(settings.dscp)) return {error, Tried::kDscp};
    return {};
}

std::error_code StreamSocket::SetDscp(std::uint8_t dscp)
{
    constexpr int kEcnBits = 2;  // below it in the octet (RFC 3168)
    const int octet = dscp << kEcnBits;
    return ::setsockopt(m_fd.Get(), IPPROTO_IP, IP_TOS, &octet, sizeof octet) < 0 ? LastError()
                                                                                  : std::error_code();
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

/// Datagrams as the messages of one sendmmsg. Points into itself: neither copied nor moved.
class StreamSocket::Messages {
public:
    Messages(const std::byte* bytes, std::span<const Datagram> datagrams, bool segments)
    {
        while (!datagrams.empty()) {
            const Run run = segments ? FirstRun(datagrams) : Run{1, datagrams[0].size};
            Add(bytes, run, datagrams[0].size);
            bytes += run.bytes;
            datagrams = datagrams.subspan(run.datagrams);
        }
    }
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    [[nodiscard]] std::size_t Count() const { return m_count; }
    [[nodiscard]] mmsghdr* At(std::size_t at) { return &m_headers[at]; }
    [[nodiscard]] const Run& RunAt(std::size_t at) const { return m_runs[at]; }

private:
    union Control {
        cmsghdr align;
        std::array<std::byte, CMSG_SPACE(sizeof(std::uint16_t))> space;
    };

    void Add(const std::byte* bytes, const Run& run, std::uint16_t segment)
    {
        m_runs[m_count] = run;
        iovec& vector = m_vectors[m_count];
        vector.iov_base = const_cast<std::byte*>(bytes);
        vector.iov_len = run.bytes;
        mmsghdr& header = m_headers[m_count];
        std::memset(&header, 0, sizeof header);
        header.msg_hdr.msg_iov = &vector;
        header.msg_hdr.msg_iovlen = 1;
        if (run.datagrams > 1) {
            Control& control = m_controls[m_count];
            header.msg_hdr.msg_control = &control;
            header.msg_hdr.msg_controllen = sizeof control.space;
            cmsghdr* const part = CMSG_FIRSTHDR(&header.msg_hdr);
            part->cmsg_level = IPPROTO_UDP;
            part->cmsg_type = UDP_SEGMENT;
            part->cmsg_len = CMSG_LEN(sizeof segment);
            std::memcpy(CMSG_DATA(part), &segment, sizeof segment);
        }
        ++m_count;
    }

    // Filled as far as m_count says, and no further: most batches are one message.
    std::array<Run, kMaxDatagrams> m_runs;
    std::array<iovec, kMaxDatagrams> m_vectors;
    std::array<mmsghdr, kMaxDatagrams> m_headers;
    std::array<Control, kMaxDatagrams> m_controls;
    std::size_t m_count = 0;
};

SendResult StreamSocket::Send(const std::byte* bytes, std::span<const Datagram> datagrams)
{
    SendResult result;
    std::size_t first = 0;
    bool gaveUp = false;
    while (first < datagrams.size() && !gaveUp) {
        Messages messages(bytes, datagrams.subspan(first), m_segments);
        const std::size_t done = SendMessages(messages, first, result, gaveUp);
        for (std::size_t at = 0; at < done; ++at) {
            bytes += messages.RunAt(at).bytes;
            first += messages.RunAt(at).datagrams;
        }
    }
    return result;
}

std::size_t StreamSocket::SendMessages(Messages& messages, std::size_t first, SendResult& result,
                                       bool& gaveUp)
{
    std::size_t at = 0;
    int attempts = 0;
    while (at < messages.Count()) {
        // The kernel does not report an error behind the first message: it says how many it took, and forgets
        // the error.
        const int taken =
            ::sendmmsg(m_fd.Get(), messages.At(at), static_cast<unsigned>(messages.Count() - at),
                       MSG_DONTWAIT | MSG_NOSIGNAL);
        if (taken > 0) {
            for (const std::size_t end = at + static_cast<std::size_t>(taken); at < end; ++at) {
                result.taken |= Bits(first, messages.RunAt(at).datagrams);
                first += messages.RunAt(at).datagrams;
            }
            attempts = 0;
            continue;
        }
        const int error = taken < 0 ? errno : EIO;
        if (error == EINTR) continue;
        if (messages.RunAt(at).datagrams > 1 && RefusesSegments(error)) {
            m_segments = false;
            return at;
        }
        if (attempts++ == 0) ++result.errors;
        result.error = std::error_code(error, std::generic_category());
        result.earlier = first == 0 && attempts == 1 && result.errors == 1 && !IsOwn(error);
        if (!IsOwn(error)) {
            DrainErrors();
            if (attempts < kAttempts) continue;
        }
        result.renew = NeedsNewSocket(error);
        gaveUp = result.renew || error == EAGAIN;
        if (gaveUp) return at;
        first += messages.RunAt(at).datagrams;
        ++at;
        attempts = 0;
    }
    return at;
}

std::error_code StreamSocket::TakeError()
{
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(m_fd.Get(), SOL_SOCKET, SO_ERROR, &error, &size) < 0 || error == 0) return {};
    DrainErrors();
    return {error, std::generic_category()};
}

void StreamSocket::DrainErrors() const
{
    // Each queued error would be reported by a send of its own, long after what caused it.
    std::array<std::byte, 512> unused{};
    for (int n = 0; n < kMaxQueuedErrors; ++n)
        if (::recv(m_fd.Get(), unused.data(), unused.size(), MSG_ERRQUEUE | MSG_DONTWAIT) < 0) return;
}

}  // namespace manager
