// SPDX-License-Identifier: Apache-2.0
// The header of a packet that the kernel holds as several segments of one flow (GSO, GRO, BIG TCP), made into
// that of the frames that it is on the wire: collectors read lengths there. Knows Ethernet, VLAN tags, IPv4,
// IPv6, TCP, UDP, and these in GRE, IP, VXLAN and Geneve tunnels.

#ifndef MANAGER_SAMPLING_SEGMENTED_HEADER_H
#define MANAGER_SAMPLING_SEGMENTED_HEADER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "capture/packet_source.h"

namespace manager {

/// Bytes of the frames, without FCS and without the tag that the kernel took away: all but the last have the
/// first length.
struct SegmentLengths {
    std::uint32_t each = 0, last = 0;
    friend bool operator==(const SegmentLengths&, const SegmentLengths&) = default;
};

class SegmentedHeader {
public:
    /// Copies the header of a sample with more than one segment. With `ethernet` it begins with the link
    /// header, else with what the sample's EtherType says.
    SegmentedHeader(const capture::Sample& sample, bool ethernet);

    /// If the header does not tell where the payload begins, or contradicts the sample: an even share of its
    /// length.
    [[nodiscard]] const SegmentLengths& Lengths() const { return m_lengths; }

    /// The header of a frame of so many bytes. Total length and checksum of IPv4 (RFC 791), payload length
    /// of IPv6 (RFC 8200) and length of UDP (RFC 768) are those of that frame. Identification, sequence
    /// number and transport checksum stay those of the whole packet. Valid until the next call.
    [[nodiscard]] std::span<const std::byte> Of(std::uint32_t frame);

private:
    enum class Kind : std::uint8_t { kIpv4, kIpv6, kUdp };
    /// A header with a length of its own, at this offset.
    struct LengthField {
        Kind kind{};
        std::size_t at = 0;
    };
    static constexpr std::size_t kMaxFields = 8;

    void ReadLink(std::size_t at);
    void ReadNetwork(std::uint16_t etherType, std::size_t at);
    void ReadIpv4(std::size_t at);
    void ReadIpv6(std::size_t at);
    void ReadTransport(std::uint8_t protocol, std::size_t at);
    void ReadGre(std::size_t at);
    void ReadUdp(std::size_t at);
    bool ReadUdpTunnel(std::uint16_t port, std::size_t at);
    void RemoveJumboOption(std::size_t ipv6);
    [[nodiscard]] bool Add(Kind kind, std::size_t at);
    void Write(const LengthField& field, std::uint32_t frame);
    void WriteWord(std::size_t at, std::size_t value);
    [[nodiscard]] bool Fits(std::size_t payload) const;

    std::array<std::byte, capture::kMaxHeader> m_bytes;
    std::size_t m_size;
    std::uint32_t m_length;
    std::uint32_t m_segments, m_segmentSize;
    std::array<LengthField, kMaxFields> m_fields{};
    std::size_t m_fieldCount = 0;
    std::optional<std::size_t> m_payload;  // where the segments' payload begins
    SegmentLengths m_lengths;
};

}  // namespace manager

#endif
