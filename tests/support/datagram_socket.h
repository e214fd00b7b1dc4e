// SPDX-License-Identifier: Apache-2.0
// A UDP socket that collectors of the tests and measurements receive by: bound, with room for a second of
// everything, and one datagram after the other. It does not look into them, and does not wait by
// itself.

#ifndef TESTS_SUPPORT_DATAGRAM_SOCKET_H
#define TESTS_SUPPORT_DATAGRAM_SOCKET_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace support {

using WallTime = std::chrono::system_clock::time_point;

class DatagramSocket {
public:
    struct Options {
        std::string address = "127.0.0.1";
        std::uint16_t port = 0;     // 0: one that the kernel chooses
        int bufferSize = 64 << 20;  // bytes, or as much of that as the process may have
        bool merged = false;        // what was sent as one segmented packet stays one until Receive
        bool times = false;         // the kernel notes them: at a cost for all that the machine receives
        bool services = false;      // the kernel tells each one's type of service
    };
    struct Received {
        std::span<const std::byte> bytes;  // until the next call
        WallTime time{};                   // when the kernel got it, with Options::times
        std::uint32_t from = 0;            // IPv4 address, network byte order
        std::uint8_t tos = 0;              // the whole octet, with Options::services
    };

    /// In the namespace that the calling thread is in. Throws std::system_error.
    explicit DatagramSocket(const Options& options);
    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;
    ~DatagramSocket();

    [[nodiscard]] std::uint16_t Port() const { return m_port; }

    /// The next datagram; nullopt if there is none. Throws std::system_error.
    std::optional<Received> Receive();
    /// Returns when there is one, or when the time is over.
    void AwaitDatagram(std::chrono::milliseconds within) const;

    /// Datagrams that found no room here, as far as one that came later has told.
    [[nodiscard]] std::uint32_t Overflowed() const { return m_overflowed; }

private:
    bool ReceivePacket();

    int m_socket;
    std::uint16_t m_port = 0;
    std::vector<std::byte> m_packet;
    std::span<const std::byte> m_rest;  // of the packet
    std::size_t m_each = 0;             // the size of its datagrams, the last of which may be shorter
    WallTime m_time{};
    std::uint32_t m_from = 0;
    std::uint8_t m_tos = 0;
    std::uint32_t m_overflowed = 0;
};

}  // namespace support

#endif
