// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/flow_sample.h"

#include <net/ethernet.h>
#include <net/if_arp.h>
#include <netinet/in.h>

#include <algorithm>
#include <optional>

namespace manager {
namespace {

constexpr std::size_t kLinkAddresses = 12;  // bytes before an Ethernet frame's first EtherType
constexpr std::uint16_t kVlanMask = 0x0FFF;
constexpr int kPriorityShift = 13;
constexpr std::uint16_t kOldQinq = 0x9100;

bool IsTag(std::uint16_t etherType)
{
    return etherType == ETHERTYPE_VLAN || etherType == 0x88A8 || etherType == kOldQinq;
}

/// Reads a header without ever leaving it.
class HeaderReader {
public:
    explicit HeaderReader(std::span<const std::byte> header) : m_header(header) {}

    [[nodiscard]] std::optional<std::uint8_t> Byte(std::size_t at) const
    {
        if (at >= m_header.size()) return std::nullopt;
        return std::to_integer<std::uint8_t>(m_header[at]);
    }
    [[nodiscard]] std::optional<std::uint16_t> Word(std::size_t at) const
    {
        if (at + 1 >= m_header.size()) return std::nullopt;
        return static_cast<std::uint16_t>(std::to_integer<unsigned>(m_header[at]) << 8 |
                                          std::to_integer<unsigned>(m_header[at + 1]));
    }

private:
    std::span<const std::byte> m_header;
};

/// Bytes before the payload that is split over segments; empty if the headers are unknown.
std::optional<std::size_t> BytesBeforePayload(std::span<const std::byte> header)
{
    const HeaderReader reader(header);
    std::size_t at = kLinkAddresses;
    auto type = reader.Word(at);
    for (int tags = 0; type && IsTag(*type) && tags < 2; ++tags) type = reader.Word(at += 4);
    if (!type) return std::nullopt;
    at += 2;
    std::optional<std::uint8_t> transport;
    if (*type == ETHERTYPE_IP) {
        const auto version = reader.Byte(at);
        transport = reader.Byte(at + 9);
        if (!version || !transport) return std::nullopt;
        at += std::size_t{*version & 0x0FU} * 4;
    } else if (*type == ETHERTYPE_IPV6) {
        transport = reader.Byte(at + 6);
        at += 40;
    }
    if (!transport) return std::nullopt;
    if (*transport == IPPROTO_UDP) return at + 8;
    if (*transport != IPPROTO_TCP) return std::nullopt;
    const auto offset = reader.Byte(at + 12);
    if (!offset) return std::nullopt;
    return at + static_cast<std::size_t>(*offset >> 4) * 4;
}

wire::Port Single(std::uint32_t ifIndex) { return {wire::Port::Format::kSingle, ifIndex}; }

wire::Port OutputOf(const net::Destination& destination)
{
    using Kind = net::Destination::Kind;
    switch (destination.kind) {
    case Kind::kInterface:
        return Single(destination.ifIndex);
    case Kind::kLocal:
        return wire::kInternalPort;
    case Kind::kSeveral:
        return {wire::Port::Format::kMultiple, destination.interfaces};
    case Kind::kDiscarded:
        return {wire::Port::Format::kDiscarded, wire::kReasonUnknown};
    case Kind::kUnknown:
        break;
    }
    return Single(0);
}

wire::Port InputOf(const net::Origin& origin)
{
    using Kind = net::Destination::Kind;
    if (origin.kind == Kind::kLocal) return wire::kInternalPort;
    return Single(origin.kind == Kind::kInterface ? origin.ifIndex : 0);
}

wire::ExtendedRouter RouterOf(const net::Destination::Route& route)
{
    wire::ExtendedRouter router;
    router.nextHop.size = route.nextHop.size;
    router.nextHop.bytes = route.nextHop.bytes;
    router.sourceBits = route.sourceBits;
    router.destinationBits = route.destinationBits;
    return router;
}

}  // namespace

wire::HeaderProtocol HeaderProtocolOf(std::uint16_t hardwareType, std::uint16_t etherType)
{
    switch (hardwareType) {
    case ARPHRD_ETHER:
    case ARPHRD_LOOPBACK:
    case ARPHRD_IEEE802:
        return wire::HeaderProtocol::kEthernet;
    case ARPHRD_PPP:
        // The kernel hands over what is behind the PPP header.
    default:
        return etherType == ETHERTYPE_IPV6 ? wire::HeaderProtocol::kIpv6 : wire::HeaderProtocol::kIpv4;
    }
}

SegmentLengths LengthsOf(const capture::Sample& sample)
{
    if (sample.segments <= 1) return {sample.length, sample.length};
    const std::uint32_t share = sample.length / sample.segments;
    const std::uint32_t before = (sample.segments - 1U) * sample.segmentSize;
    const auto headers = BytesBeforePayload(sample.header);
    if (!headers || sample.segmentSize == 0 || *headers + before >= sample.length) return {share, share};
    return {static_cast<std::uint32_t>(*headers) + sample.segmentSize, sample.length - before};
}

Tag OuterTag(const capture::Sample& sample)
{
    std::uint16_t control = sample.tagControl;
    if (sample.tagProtocol == 0) {
        const HeaderReader reader(sample.header);
        const auto type = reader.Word(kLinkAddresses);
        const auto behind = reader.Word(kLinkAddresses + 2);
        if (!type || !behind || !IsTag(*type)) return {};
        control = *behind;
    }
    return {static_cast<std::uint16_t>(control & kVlanMask),
            static_cast<std::uint8_t>(control >> kPriorityShift)};
}

void DescribePacket(const capture::Sample& sample, std::uint16_t hardwareType, wire::FlowSample& flow)
{
    flow.rate = sample.rate;
    flow.protocol = HeaderProtocolOf(hardwareType, sample.etherType);
    const bool ethernet = flow.protocol == wire::HeaderProtocol::kEthernet;
    flow.stripped = ethernet ? kFcs : 0;
    flow.header = sample.header;
    flow.tagProtocol = ethernet ? sample.tagProtocol : std::uint16_t{0};
    flow.tagControl = sample.tagControl;
    flow.frameLength = LengthsOf(sample).each + flow.stripped + (flow.tagProtocol != 0 ? 4U : 0U);
}

void DescribeEgress(std::uint32_t output, Tag tag, std::uint16_t untagged, const net::Origin& origin,
                    wire::FlowSample& flow)
{
    flow.input = InputOf(origin);
    flow.output = Single(output);
    flow.inputVlan = flow.outputVlan = tag.vlan != 0 ? tag.vlan : untagged;
    flow.inputPriority = flow.outputPriority = tag.priority;
    flow.router.reset();
    if (origin.route) flow.router = RouterOf(*origin.route);
}

void DescribeIngress(std::uint32_t input, Tag tag, const net::Destination& destination,
                     wire::FlowSample& flow)
{
    flow.input = Single(input);
    flow.output = OutputOf(destination);
    flow.inputVlan = tag.vlan != 0 ? tag.vlan : destination.inputVlan;
    flow.inputPriority = tag.priority;
    flow.outputVlan = destination.outputVlan;
    flow.outputPriority = tag.priority;
    flow.router.reset();
    if (destination.route) flow.router = RouterOf(*destination.route);
}

}  // namespace manager
