// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/segmented_header.h"

#include <net/ethernet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>

#include "manager/sampling/header_reader.h"
#include "net/resolver/packet_header.h"
#include "wire/frame.h"

namespace manager {
namespace {

constexpr std::size_t kIpv6Header = 40;
constexpr std::size_t kUdpHeader = 8;
constexpr std::size_t kJumboOption = 8;  // bytes of the hop-by-hop header that the kernel adds

constexpr std::uint16_t kTransparentEthernet = 0x6558;  // ETH_P_TEB
constexpr std::uint16_t kVxlanPort = 4789;              // RFC 7348
constexpr std::uint16_t kLinuxVxlanPort = 8472;         // Linux's default, older than the registered one
constexpr std::uint16_t kGenevePort = 6081;             // RFC 8926

/// The checksum of RFC 1071 after one of its words has changed (RFC 1624, equation 3).
std::uint16_t ChecksumAfter(std::uint16_t checksum, std::uint16_t before, std::uint16_t after)
{
    std::uint32_t sum = (~std::uint32_t{checksum} & 0xFFFF) + (~std::uint32_t{before} & 0xFFFF) + after;
    sum = (sum & 0xFFFFU) + (sum >> 16);
    sum = (sum & 0xFFFFU) + (sum >> 16);
    return static_cast<std::uint16_t>(~sum);
}

}  // namespace

SegmentedHeader::SegmentedHeader(const capture::Sample& sample, bool ethernet)
    : m_size(std::min(sample.header.size(), m_bytes.size())),
      m_length(sample.length),
      m_segments(std::max<std::uint32_t>(sample.segments, 1)),
      m_segmentSize(sample.segmentSize)
{
    std::copy_n(sample.header.begin(), m_size, m_bytes.begin());
    if (ethernet)
        ReadLink(0);
    else
        ReadNetwork(sample.etherType, 0);
    if (m_payload && Fits(*m_payload)) {
        m_lengths.each = static_cast<std::uint32_t>(*m_payload) + m_segmentSize;
        m_lengths.last = std::min(m_length - (m_segments - 1) * m_segmentSize, m_lengths.each);
    } else {
        m_lengths = {m_length / m_segments, m_length / m_segments};
    }
}

/// Whether segments of that size, behind so many bytes of headers, make the whole length.
bool SegmentedHeader::Fits(std::size_t payload) const
{
    return m_segmentSize != 0 && payload + std::uint64_t{m_segments - 1} * m_segmentSize < m_length;
}

std::span<const std::byte> SegmentedHeader::Of(std::uint32_t frame)
{
    for (std::size_t i = 0; i < m_fieldCount; ++i) Write(m_fields[i], frame);
    return {m_bytes.data(), m_size};
}

void SegmentedHeader::Write(const LengthField& field, std::uint32_t frame)
{
    const std::size_t behind = frame > field.at ? frame - field.at : 0;
    const HeaderReader header({m_bytes.data(), m_size});
    switch (field.kind) {
    case Kind::kIpv4: {
        const auto before = header.Word(field.at + 2);
        const auto checksum = header.Word(field.at + 10);
        WriteWord(field.at + 2, behind);
        const auto after = header.Word(field.at + 2);
        if (before && after && checksum) WriteWord(field.at + 10, ChecksumAfter(*checksum, *before, *after));
        return;
    }
    case Kind::kIpv6:
        return WriteWord(field.at + 4, behind > kIpv6Header ? behind - kIpv6Header : 0);
    case Kind::kUdp:
        return WriteWord(field.at + 4, behind);
    }
}

/// Big-endian, at most what 16 bits hold; nothing beyond the end of the header.
void SegmentedHeader::WriteWord(std::size_t at, std::size_t value)
{
    if (at + 1 >= m_size) return;
    value = std::min<std::size_t>(value, 0xFFFF);
    m_bytes[at] = static_cast<std::byte>(value >> 8);
    m_bytes[at + 1] = static_cast<std::byte>(value & 0xFF);
}

/// False if there are too many: what follows stays as it is.
bool SegmentedHeader::Add(Kind kind, std::size_t at)
{
    if (m_fieldCount == m_fields.size()) return false;
    m_fields[m_fieldCount++] = {kind, at};
    return true;
}

void SegmentedHeader::ReadLink(std::size_t at)
{
    const HeaderReader header({m_bytes.data(), m_size});
    at += wire::kLinkAddresses;
    auto type = header.Word(at);
    for (int tags = 0; type && net::IsVlanType(*type) && tags < 2; ++tags)
        type = header.Word(at += wire::kTag);
    if (type) ReadNetwork(*type, at + 2);
}

void SegmentedHeader::ReadNetwork(std::uint16_t etherType, std::size_t at)
{
    if (etherType == ETHERTYPE_IP)
        ReadIpv4(at);
    else if (etherType == ETHERTYPE_IPV6)
        ReadIpv6(at);
    else if (etherType == kTransparentEthernet)
        ReadLink(at);
}

void SegmentedHeader::ReadIpv4(std::size_t at)
{
    const HeaderReader header({m_bytes.data(), m_size});
    const auto version = header.Byte(at);
    const auto protocol = header.Byte(at + 9);
    if (!version || !protocol || *version >> 4 != 4 || !Add(Kind::kIpv4, at)) return;
    ReadTransport(*protocol, at + std::size_t{*version & 0x0FU} * 4);
}

void SegmentedHeader::ReadIpv6(std::size_t at)
{
    RemoveJumboOption(at);
    const HeaderReader header({m_bytes.data(), m_size});
    const auto version = header.Byte(at);
    auto next = header.Byte(at + 6);
    if (!version || !next || *version >> 4 != 6 || !Add(Kind::kIpv6, at)) return;
    at += kIpv6Header;
    while (next && (*next == IPPROTO_HOPOPTS || *next == IPPROTO_ROUTING || *next == IPPROTO_DSTOPTS)) {
        const auto units = header.Byte(at + 1);
        if (!units) return;
        next = header.Byte(at);
        at += (std::size_t{*units} + 1) * 8;
    }
    if (next) ReadTransport(*next, at);
}

/// The kernel marks a packet that is too long for its payload length (BIG TCP) with a hop-by-hop header of
/// the one option of RFC 2675. The frames on the wire do not have it.
void SegmentedHeader::RemoveJumboOption(std::size_t ipv6)
{
    const HeaderReader header({m_bytes.data(), m_size});
    const std::size_t option = ipv6 + kIpv6Header;
    constexpr std::uint8_t kJumbo = 0xC2;
    if (header.Word(ipv6 + 4) != 0 || header.Byte(ipv6 + 6) != IPPROTO_HOPOPTS) return;
    if (option + kJumboOption > m_size || header.Byte(option + 1) != 0 || header.Byte(option + 2) != kJumbo)
        return;
    m_bytes[ipv6 + 6] = m_bytes[option];
    std::memmove(&m_bytes[option], m_bytes.data() + option + kJumboOption, m_size - option - kJumboOption);
    m_size -= kJumboOption;
    m_length -= std::min<std::uint32_t>(m_length, kJumboOption);
}

void SegmentedHeader::ReadTransport(std::uint8_t protocol, std::size_t at)
{
    switch (protocol) {
    case IPPROTO_TCP:
        if (const auto words = HeaderReader({m_bytes.data(), m_size}).Byte(at + 12))
            m_payload = at + static_cast<std::size_t>(*words >> 4) * 4;
        return;
    case IPPROTO_UDP:
        return ReadUdp(at);
    case IPPROTO_IPIP:
        return ReadIpv4(at);
    case IPPROTO_IPV6:
        return ReadIpv6(at);
    case IPPROTO_GRE:
        return ReadGre(at);
    default:
        return;
    }
}

/// RFC 2784 and 2890: checksum, key and sequence number are there if their bits are set.
void SegmentedHeader::ReadGre(std::size_t at)
{
    const HeaderReader header({m_bytes.data(), m_size});
    const auto flags = header.Word(at);
    const auto type = header.Word(at + 2);
    if (!flags || !type) return;
    at += 4;
    for (const unsigned present : {0x8000U, 0x2000U, 0x1000U})
        if ((*flags & present) != 0) at += 4;
    ReadNetwork(*type, at);
}

void SegmentedHeader::ReadUdp(std::size_t at)
{
    if (!Add(Kind::kUdp, at)) return;
    const std::size_t outer = m_fieldCount;
    const auto port = HeaderReader({m_bytes.data(), m_size}).Word(at + 2);
    if (port && ReadUdpTunnel(*port, at + kUdpHeader)) return;
    m_fieldCount = outer;
    m_payload = at + kUdpHeader;
}

/// The port alone does not make a tunnel: what is read there as one must agree with the packet's length.
bool SegmentedHeader::ReadUdpTunnel(std::uint16_t port, std::size_t at)
{
    const HeaderReader header({m_bytes.data(), m_size});
    const auto first = header.Byte(at);
    if (!first) return false;
    if (port == kVxlanPort || port == kLinuxVxlanPort) {
        ReadLink(at + 8);
    } else if (port == kGenevePort) {
        const auto type = header.Word(at + 2);
        if (type) ReadNetwork(*type, at + 8 + std::size_t{*first & 0x3FU} * 4);
    }
    if (!m_payload || !Fits(*m_payload)) return false;
    return m_length - *m_payload - std::uint64_t{m_segments - 1} * m_segmentSize <= m_segmentSize;
}

}  // namespace manager
