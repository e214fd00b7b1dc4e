// The two packet sockets of a sampled interface (packet(7)), without any policy: one with a ring that
// takes what a filter draws, one that only counts what its filter passes. Both let nothing through until
// they are given a filter. Used by ring_source.cpp.
//
// The counting socket has a ring of one page whose frames are all marked as taken, so that the kernel
// finds no room, drops each packet at once, and counts it: the cheapest exact counter that a packet socket
// has, and it keeps no packet.

#ifndef CAPTURE_RING_SOCKET_H
#define CAPTURE_RING_SOCKET_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "capture/ring_filter.h"

namespace capture {

/// A file descriptor with an owner.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : m_descriptor(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : m_descriptor(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();
    [[nodiscard]] int Get() const { return m_descriptor; }
    [[nodiscard]] int Release();

private:
    int m_descriptor;
};

/// What PACKET_STATISTICS told, summed since the socket was made.
struct RingStatistics {
    std::uint64_t passed = 0;   // packets that the filter let through, drops included
    std::uint64_t dropped = 0;  // of these, without room
};

/// What both have in common. Every member throws Unavailable with the system's reason.
class PacketSocket {
public:
    PacketSocket();
    void Attach(const RingFilter& filter);
    /// Begins to see the interface's packets.
    void Bind(std::uint32_t ifIndex);
    /// Leaving packets are not even looked at. False where the kernel (before 4.20) can't.
    bool IgnoreOutgoing(bool ignore);
    /// Reading resets the kernel's 32 bits: to be called before they overflow.
    const RingStatistics& Statistics();
    /// The same without asking the kernel.
    [[nodiscard]] const RingStatistics& LastStatistics() const { return m_statistics; }
    /// The error that waits at the socket, as ENETDOWN when its interface went down; 0: none.
    int TakeError();
    [[nodiscard]] int Get() const { return m_descriptor.Get(); }

protected:
    void SetOption(int option, const void* value, std::size_t size, const std::string& what);

private:
    Descriptor m_descriptor;
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
    /// A ring of about so many bytes.
    explicit SamplingSocket(std::size_t bytes);
    SamplingSocket(SamplingSocket&& other) noexcept;
    SamplingSocket& operator=(SamplingSocket&&) = delete;
    ~SamplingSocket();
    [[nodiscard]] const RingArea& Area() const { return m_area; }
    /// A virtio_net_hdr stands before each packet.
    [[nodiscard]] bool TellsSegments() const { return m_tellsSegments; }

private:
    RingArea m_area;
    bool m_tellsSegments = false;
};

}  // namespace capture

#endif
