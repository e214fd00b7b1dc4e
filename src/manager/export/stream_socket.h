// SPDX-License-Identifier: Apache-2.0
// The UDP socket of one collector: connected, so that the ICMP errors on it are that collector's own, and
// never blocking. Hands datagrams to the kernel with as few system calls as possible and says exactly which
// of them were taken. UDP segmentation offload cuts a message into datagrams of one size, the last of which
// may be shorter. Counts and logs nothing; the stream that owns it does.

#ifndef MANAGER_EXPORT_STREAM_SOCKET_H
#define MANAGER_EXPORT_STREAM_SOCKET_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <system_error>

#include "base/unique_fd.h"
#include "manager/export/stream.h"
#include "manager/settings/own_settings.h"

namespace manager {

struct Datagram {
    std::uint16_t size = 0;                               // bytes of UDP payload
    std::uint16_t flows = 0, counters = 0, discards = 0;  // samples in it
    [[nodiscard]] std::uint32_t Samples() const { return std::uint32_t{flows} + counters + discards; }
};

/// The most datagrams that are sent at once, which is also the kernel's limit of segments a message.
inline constexpr std::size_t kMaxDatagrams = 64;
/// The largest UDP payload over IPv4, in segments or not.
inline constexpr std::size_t kMaxMessage = 65507;

struct Run {
    std::size_t datagrams = 0;
    std::size_t bytes = 0;
};

/// The first run of `datagrams`, which are not empty: as many as one message can carry.
inline Run FirstRun(std::span<const Datagram> datagrams)
{
    const std::size_t size = datagrams[0].size;
    Run run{1, size};
    while (run.datagrams < datagrams.size() && run.datagrams < kMaxDatagrams) {
        const std::size_t next = datagrams[run.datagrams].size;
        if (next > size || run.bytes + next > kMaxMessage) break;
        run.bytes += next;
        ++run.datagrams;
        if (next < size) break;
    }
    return run;
}

/// What became of the datagrams of one Send.
struct SendResult {
    std::uint64_t taken = 0;  // bit n: datagram n was taken by the kernel
    unsigned errors = 0;      // a datagram's repeated error counts once
    std::error_code error;    // the last of them
    bool earlier = false;     // the error waited already: one of the datagrams before these has caused it
    bool renew = false;       // the socket's route or source address is gone: connect anew
};

/// What a Connect came to: no error, or what failed.
struct Connecting {
    std::error_code error;
    Tried tried = Tried::kConnect;
};

class StreamSocket {
public:
    struct Options {
        std::uint32_t mark = 0;       // SO_MARK; 0: none
        int sendBuffer = 512 * 1024;  // bytes, which the kernel doubles for its own needs
    };

    explicit StreamSocket(const Options& options) : m_options(options) {}
    StreamSocket(const StreamSocket&) = delete;
    StreamSocket& operator=(const StreamSocket&) = delete;

    /// Opens a new socket, in place of one that is open, and connects it as the settings say: it is open
    /// only if all of them are in effect. Address in network byte order, port in the host's. Port 0 gives
    /// EDESTADDRREQ, a source address that this machine does not have EADDRNOTAVAIL, a device that is not
    /// there ENODEV. Before Linux 5.7 a device takes CAP_NET_RAW.
    Connecting Connect(std::uint32_t address, std::uint16_t port, const SendSettings& settings);
    void Close();
    [[nodiscard]] bool Connected() const { return m_connected; }

    /// Marks the datagrams that are sent from here on, on the socket that is open.
    std::error_code SetDscp(std::uint8_t dscp);

    /// Sends at most kMaxDatagrams datagrams that lie at `bytes` one behind the other. An error that an
    /// earlier datagram caused (ICMP) costs none of these. If the kernel refuses to cut messages, the same
    /// datagrams go one by one.
    [[nodiscard]] SendResult Send(const std::byte* bytes, std::span<const Datagram> datagrams);

    /// The error that the network has reported of datagrams since they were sent, once; no error if there is
    /// none. A further Send does not report it.
    [[nodiscard]] std::error_code TakeError();

    /// Whether messages of several datagrams are tried. False once the kernel has refused one: the
    /// device can't, or the datagrams are larger than the path's MTU.
    [[nodiscard]] bool Segments() const { return m_segments; }
    /// Tries them again, on a kernel that knows them.
    void TrySegments() { m_segments = m_kernelSegments; }

    /// The error of marking the socket at the last Connect.
    [[nodiscard]] const std::error_code& MarkError() const { return m_markError; }

    /// No error if this process may mark its datagrams.
    static std::error_code CheckMark(std::uint32_t mark);

private:
    class Messages;
    /// Sends the messages from the first on. Returns how many are done, taken or lost: fewer than there are
    /// if the next one is refused as a message of several datagrams, or if it gives up.
    std::size_t SendMessages(Messages& messages, std::size_t first, SendResult& result, bool& gaveUp);
    void DrainErrors() const;
    void SetOptions();
    [[nodiscard]] Connecting Bind(const SendSettings& settings);

    Options m_options;
    base::UniqueFd m_fd;
    bool m_connected = false;
    bool m_kernelSegments = false;
    bool m_segments = false;
    std::error_code m_markError;
};

}  // namespace manager

#endif
