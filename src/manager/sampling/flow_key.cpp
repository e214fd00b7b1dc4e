// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/flow_key.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <linux/if_ether.h>
#include <netinet/in.h>
#include <algorithm>
#include <random>
#include <type_traits>

// Without the shared library, which this process needs for nothing else.
#define XXH_INLINE_ALL
#include <xxhash.h>

#include "manager/sampling/header_reader.h"
#include "wire/frame.h"

namespace manager {
namespace {

constexpr std::size_t kLinkAddress = 6;
constexpr std::size_t kMaxTags = 8;        // of one frame
constexpr std::size_t kMaxExtensions = 8;  // headers between IPv6 and what it carries
constexpr std::uint16_t kFirstEtherType = 1536;
constexpr std::uint16_t kFragmentOffset = 0x1FFF;   // of IPv4, RFC 791
constexpr std::uint16_t kFragmentOffset6 = 0xFFF8;  // RFC 8200, section 4.5

struct Name {
    std::uint16_t number;
    const char* text;
};

constexpr Name kEtherTypes[] = {
    {ETH_P_ARP, "arp"},       {ETH_P_LLDP, "lldp"},   {ETH_P_MPLS_UC, "mpls"}, {ETH_P_PPP_DISC, "pppoe"},
    {ETH_P_PPP_SES, "pppoe"}, {ETH_P_SLOW, "slow"},   {ETH_P_PAE, "eapol"},    {ETH_P_1588, "ptp"},
    {ETH_P_8021Q, "vlan"},    {ETH_P_8021AD, "vlan"}, {ETH_P_IP, "ipv4"},      {ETH_P_IPV6, "ipv6"},
};

constexpr Name kProtocols[] = {
    {IPPROTO_ICMP, "icmp"}, {IPPROTO_IGMP, "igmp"}, {IPPROTO_IPIP, "ipip"},    {IPPROTO_TCP, "tcp"},
    {IPPROTO_UDP, "udp"},   {IPPROTO_DCCP, "dccp"}, {IPPROTO_IPV6, "ipv6"},    {IPPROTO_GRE, "gre"},
    {IPPROTO_ESP, "esp"},   {IPPROTO_AH, "ah"},     {IPPROTO_ICMPV6, "icmp6"}, {89, "ospf"},
    {IPPROTO_PIM, "pim"},   {112, "vrrp"},          {IPPROTO_SCTP, "sctp"},    {IPPROTO_UDPLITE, "udplite"},
};

const char* NameOf(std::span<const Name> names, std::uint16_t number)
{
    const auto at = std::ranges::find(names, number, &Name::number);
    return at == names.end() ? nullptr : at->text;
}

/// Fills the key from the header; each step leaves what it can't read.
class Reading {
public:
    Reading(std::span<const std::byte> header, FlowKey& key) : m_header(header), m_reader(header), m_key(key)
    {
    }

    bool Link()
    {
        if (!Addresses(kLinkAddress, 0, kLinkAddress)) return false;
        std::swap(m_key.source, m_key.destination);  // the destination stands first
        std::size_t at = 2 * kLinkAddress;
        auto type = m_reader.Word(at);
        for (std::size_t tags = 0; tags < kMaxTags && type && IsTag(*type); ++tags) {
            at += wire::kTag;
            type = m_reader.Word(at);
        }
        m_key.protocol = type.value_or(0);
        // Without its addresses an IP packet stays a flow of the link.
        if (m_key.protocol == ETH_P_IP) Ipv4(at + 2);
        if (m_key.protocol == ETH_P_IPV6) Ipv6(at + 2);
        return true;
    }

    bool Ipv4(std::size_t at)
    {
        const auto first = m_reader.Byte(at);
        const auto fragment = m_reader.Word(at + 6);
        const auto protocol = m_reader.Byte(at + 9);
        const std::size_t size = first ? std::size_t{*first & 0xFU} * 4 : 0;
        if (!first || *first >> 4 != 4 || size < 20 || !Addresses(4, at + 12, at + 16)) return false;
        m_key.kind = FlowKey::Kind::kIpv4;
        m_key.protocol = *protocol;
        if ((*fragment & kFragmentOffset) == 0) Ports(*protocol, at + size);
        return true;
    }

    bool Ipv6(std::size_t at)
    {
        const auto first = m_reader.Byte(at);
        auto next = m_reader.Byte(at + 6);
        if (!first || *first >> 4 != 6 || !next || !Addresses(16, at + 8, at + 24)) return false;
        m_key.kind = FlowKey::Kind::kIpv6;
        at += 40;
        bool isFirst = true;  // not a later fragment
        for (std::size_t seen = 0; seen < kMaxExtensions && next && IsExtension(*next); ++seen) {
            m_key.protocol = *next;
            const auto length = m_reader.Byte(at + 1);
            const auto following = m_reader.Byte(at);
            if (!following || !length) return true;
            if (*next == IPPROTO_FRAGMENT) {
                isFirst = (m_reader.Word(at + 2).value_or(kFragmentOffset6) & kFragmentOffset6) == 0;
                at += 8;
            } else {
                at += *next == IPPROTO_AH ? (std::size_t{*length} + 2) * 4 : (std::size_t{*length} + 1) * 8;
            }
            next = following;
            if (!isFirst) break;
        }
        m_key.protocol = *next;
        if (isFirst) Ports(*next, at);
        return true;
    }

private:
    static bool IsTag(std::uint16_t type)
    {
        return type == ETH_P_8021Q || type == ETH_P_8021AD || type == ETH_P_QINQ1;
    }

    static bool IsExtension(std::uint8_t protocol)
    {
        return protocol == IPPROTO_HOPOPTS || protocol == IPPROTO_ROUTING || protocol == IPPROTO_DSTOPTS ||
               protocol == IPPROTO_FRAGMENT || protocol == IPPROTO_AH;
    }

    bool Addresses(std::size_t size, std::size_t source, std::size_t destination)
    {
        if (std::max(source, destination) + size > m_header.size()) return false;
        m_key.source = m_key.destination = {};
        std::ranges::copy(m_header.subspan(source, size), m_key.source.begin());
        std::ranges::copy(m_header.subspan(destination, size), m_key.destination.begin());
        return true;
    }

    void Ports(std::uint8_t protocol, std::size_t at)
    {
        if (protocol != IPPROTO_TCP && protocol != IPPROTO_UDP && protocol != IPPROTO_SCTP &&
            protocol != IPPROTO_DCCP && protocol != IPPROTO_UDPLITE)
            return;
        const auto source = m_reader.Word(at);
        const auto destination = m_reader.Word(at + 2);
        if (!source || !destination) return;
        m_key.sourcePort = *source;
        m_key.destinationPort = *destination;
        m_key.hasPorts = true;
    }

    std::span<const std::byte> m_header;
    HeaderReader m_reader;
    FlowKey& m_key;
};

std::string AddressText(FlowKey::Kind kind, const FlowKey::Address& address)
{
    if (kind == FlowKey::Kind::kLink) {
        std::string text;
        for (std::size_t i = 0; i < kLinkAddress; ++i)
            text += fmt::format("{}{:02x}", i == 0 ? "" : ":", std::to_integer<unsigned>(address.at(i)));
        return text;
    }
    char text[INET6_ADDRSTRLEN] = {};
    ::inet_ntop(kind == FlowKey::Kind::kIpv4 ? AF_INET : AF_INET6, address.data(), text, sizeof text);
    return text;
}

}  // namespace

std::size_t FlowKeyHash::operator()(const FlowKey& key) const
{
    static_assert(std::has_unique_object_representations_v<FlowKey>, "all of its bytes are values");
    // What is sampled comes from strangers, who must not know which keys meet in a bucket.
    static const std::uint64_t seed = (std::uint64_t{std::random_device{}()} << 32) | std::random_device{}();
    return XXH3_64bits_withSeed(&key, sizeof key, seed);
}

std::optional<FlowKey> FlowKeyOf(wire::HeaderProtocol protocol, std::span<const std::byte> header)
{
    FlowKey key;
    Reading reading(header, key);
    bool known = false;
    if (protocol == wire::HeaderProtocol::kEthernet) known = reading.Link();
    if (protocol == wire::HeaderProtocol::kIpv4) known = reading.Ipv4(0);
    if (protocol == wire::HeaderProtocol::kIpv6) known = reading.Ipv6(0);
    return known ? std::optional(key) : std::nullopt;
}

std::string SourceText(const FlowKey& key) { return AddressText(key.kind, key.source); }

std::string DestinationText(const FlowKey& key) { return AddressText(key.kind, key.destination); }

std::string ProtocolText(const FlowKey& key)
{
    const bool isLink = key.kind == FlowKey::Kind::kLink;
    const char* const name = isLink ? NameOf(kEtherTypes, key.protocol) : NameOf(kProtocols, key.protocol);
    if (name != nullptr) return name;
    if (!isLink) return fmt::format("proto-{}", key.protocol);
    return key.protocol < kFirstEtherType ? "llc" : fmt::format("0x{:04x}", key.protocol);
}

}  // namespace manager
