// SPDX-License-Identifier: Apache-2.0
// A capture file of UDP datagrams to the port of sFlow, for dissectors of other people's.

#ifndef TESTS_SUPPORT_PCAP_H
#define TESTS_SUPPORT_PCAP_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "support/hex.h"

/// Writes the file piece by piece; its numbers are big-endian, as its magic number says.
class Pcap {
public:
    Pcap() { Append("a1b2c3d4 00020004 00000000 00000000 00040000 00000001"); }

    /// A frame with Ethernet, IPv4 and UDP headers from 192.0.2.1 to 192.0.2.2, port 6343.
    void AddDatagram(std::span<const std::byte> payload)
    {
        constexpr std::size_t kEthernetSize = 14;
        constexpr std::size_t kIpv4Size = 20;
        constexpr std::size_t kUdpSize = 8;
        const std::size_t udpSize = kUdpSize + payload.size();
        const std::size_t ipSize = kIpv4Size + udpSize;
        Append("00000000 00000000");
        Number(kEthernetSize + ipSize, 4);
        Number(kEthernetSize + ipSize, 4);
        Append("020000000002 020000000001 0800");
        Append("4500");
        Number(ipSize, 2);
        Append("0000 4000 4011");
        Number(Checksum(ipSize), 2);
        Append("c0000201 c0000202");
        Append("18c7 18c7");
        Number(udpSize, 2);
        Append("0000");  // no checksum
        for (const std::byte byte : payload) m_text += static_cast<char>(byte);
    }

    [[nodiscard]] const std::string& Text() const { return m_text; }

private:
    void Append(std::string_view hex)
    {
        for (const std::byte byte : FromHex(hex)) m_text += static_cast<char>(byte);
    }

    void Number(std::size_t value, int size)
    {
        for (int i = size - 1; i >= 0; --i) m_text += static_cast<char>(value >> 8 * i & 0xff);
    }

    /// Of the IPv4 header above, in which only the size varies.
    static std::size_t Checksum(std::size_t ipSize)
    {
        std::size_t sum = 0x4500 + ipSize + 0x4000 + 0x4011 + 0xc000 + 0x0201 + 0xc000 + 0x0202;
        while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
        return 0xffff - sum;
    }

    std::string m_text;
};

#endif
