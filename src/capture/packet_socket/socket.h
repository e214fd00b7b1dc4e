// SPDX-License-Identifier: Apache-2.0
// The two kinds of packet sockets of a sampled interface (packet(7)), without any policy: one with a ring
// that takes what is sampled, one that only counts. Both let nothing through until they are given a filter.
// Used by pair.h.
//
// The counting socket has the smallest receive buffer there is. The first three or four packets fill it for
// good; the kernel drops each further one at once, and counts it: the cheapest exact counter that a packet
// socket has.

#ifndef CAPTURE_PACKET_SOCKET_SOCKET_H
#define CAPTURE_PACKET_SOCKET_SOCKET_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "base/unique_fd.h"
#include "capture/packet_socket/filter.h"

namespace capture {

/// The counts of PACKET_STATISTICS, summed since the socket was made.
struct RingStatistics {
    std::uint64_t passed = 0;   // packets that the filter let through, drops included
    std::uint64_t dropped = 0;  // of these, without room
};

/// What both have in common. Constructors, Attach, DetachFilter, Bind and SetOption throw Unavailable with
/// the system's reason.
class PacketSocket {
public:
    void Attach(const RingFilter& filter);
    /// Everything passes.
    void DetachFilter();
    /// Begins to see the interface's packets.
    void Bind(std::uint32_t ifIndex);

    /// With `ignore`, the kernel does not even look at leaving packets. Returns whether that is so: a kernel
    /// before 4.20 can't.
    bool IgnoreOutgoing(bool ignore);
    /// Reading resets the kernel's counts of 32 bits: to be called before they overflow. On errors, as of the
    /// last time.
    const RingStatistics& Statistics();
    /// As of the last time.
    [[nodiscard]] const RingStatistics& Known() const { return m_statistics; }
    /// The error that waits at the socket, as ENETDOWN when its interface went down; 0: none.
    int TakeError();
    [[nodiscard]] int Get() const { return m_descriptor.Get(); }

protected:
    explicit PacketSocket(int type);
    void SetOption(int option, const void* value, std::size_t size, const std::string& what);

private:
    base::UniqueFd m_descriptor;
    RingStatistics m_statistics;
};

class CountingSocket : public PacketSocket {
public:
    CountingSocket();
};

/// Where the ring lies, and how.
struct RingArea {
    std::byte* memory = nullptr;
    std::size_t blockSize = 0;
    std::size_t blocks = 0;
};

class SamplingSocket : public PacketSocket {
public:
    /// For a ring of about `bytes` bytes.
    explicit SamplingSocket(std::size_t bytes);
    SamplingSocket(const SamplingSocket&) = delete;
    SamplingSocket& operator=(const SamplingSocket&) = delete;
    ~SamplingSocket();
    /// To be called before Bind; the kernel waits for all CPUs. Throws Unavailable.
    void MakeRing();
    /// Its memory is null until Map.
    [[nodiscard]] const RingArea& Area() const { return m_area; }
    /// Makes the ring part of the process's memory: to be done when there is something to read, so that a
    /// ring that never carried a packet does not count. False if that fails.
    bool Map();
    /// A virtio_net_hdr stands before each packet.
    [[nodiscard]] bool TellsSegments() const { return m_tellsSegments; }

private:
    RingArea m_area;
    bool m_tellsSegments = false;
    bool m_hasRing = false;
};

/// A number that the kernel gave to a group (PACKET_FANOUT), and its kind.
using RingGroup = int;

/// Makes a group of packet sockets at one interface, in which a program chooses the member that gets a
/// packet. The first member is bound already and gets all packets as before. Empty if the kernel can't, as
/// older ones while the interface is down.
std::optional<RingGroup> MakeGroup(PacketSocket& first, bool ignoreOutgoing);
/// The socket, bound to the same interface, becomes the last member, and gets what the program gives it.
/// Sockets must join in the order in which they were made: when an interface comes up again, the kernel
/// numbers them by that. False if the kernel can't.
bool JoinGroup(PacketSocket& socket, RingGroup group);
/// From the next packet on, the program chooses for the group that `member` belongs to. On return no packet
/// is under way that the last program had divided. False if the kernel refuses, as for lack of memory.
bool Divide(PacketSocket& member, const RingFilter& program);

}  // namespace capture

#endif
