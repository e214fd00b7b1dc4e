// SPDX-License-Identifier: Apache-2.0
// The sending half of the socket: datagrams become messages, messages become system calls, and each errno
// becomes what it means for the datagrams.

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "manager/export/stream_socket.h"

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

}  // namespace

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
