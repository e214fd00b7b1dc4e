// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/flow_sample_pipeline.h"

#include <net/ethernet.h>
#include <net/if_arp.h>
#include <netinet/in.h>

#include <algorithm>
#include <utility>

#include "manager/export/exporter.h"
#include "net/resolver/packet_header.h"

namespace manager {
namespace {

constexpr std::size_t kLinkAddresses = 12;  // bytes before an Ethernet frame's first EtherType
constexpr std::uint16_t kVlanMask = 0x0FFF;
constexpr int kPriorityShift = 13;

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
    for (int tags = 0; type && net::IsVlanType(*type) && tags < 2; ++tags) type = reader.Word(at += 4);
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
        if (!type || !behind || !net::IsVlanType(*type)) return {};
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

FlowSamplePipeline::FlowSamplePipeline(net::Forwarding& forwarding, Exporter& exporter,
                                       std::function<WallTime()> clock)
    : m_forwarding(forwarding), m_exporter(exporter), m_clock(std::move(clock))
{
}

void FlowSamplePipeline::OnSamples(std::span<const capture::Sample> samples) noexcept
{
    const WallTime now = m_clock();
    DataSource* source = nullptr;
    for (const capture::Sample& sample : samples) {
        if (source == nullptr || source->ifIndex != sample.ifIndex) {
            const auto at = m_sources.find(sample.ifIndex);
            source = at == m_sources.end() ? nullptr : &at->second;
        }
        if (source == nullptr || !source->sampledWith) continue;
        source->lastSample = now;
        Take(sample, *source);
    }
}

void FlowSamplePipeline::OnDrained() noexcept { m_exporter.Flush(); }

void FlowSamplePipeline::OnRefused(std::uint32_t ifIndex, const capture::Unavailable& reason) noexcept
{
    const auto at = m_sources.find(ifIndex);
    if (at != m_sources.end() && m_refused) m_refused(at->second, reason.what());
}

void FlowSamplePipeline::WhenRefused(std::function<void(DataSource&, const std::string&)> refused)
{
    m_refused = std::move(refused);
}

void FlowSamplePipeline::Restart(wire::Encoding encoding)
{
    m_encoding = encoding;
    for (auto& [ifIndex, source] : m_sources) source.sequence = 0;
}

const DataSource* FlowSamplePipeline::Find(std::uint32_t ifIndex) const
{
    const auto at = m_sources.find(ifIndex);
    return at == m_sources.end() ? nullptr : &at->second;
}

void FlowSamplePipeline::Take(const capture::Sample& sample, DataSource& source)
{
    const std::vector<Stream*>& streams = source.StreamsOf(Kind::kFlow);
    if (streams.empty()) {
        source.dropsNoCollector += sample.count;
        return;
    }
    DescribePacket(sample, source.hardwareType, m_flow);
    DescribePath(sample, OuterTag(sample));
    m_flow.source = source.ifIndex;
    m_flow.maxHeader = source.sampledWith->headerSize;
    // Collectors see 32 bits of both counts.
    m_flow.pool = static_cast<std::uint32_t>(source.before.pool + sample.pool);
    m_flow.drops = static_cast<std::uint32_t>(source.before.drops + sample.drops);
    const bool all = sample.segments > 1 && sample.count == sample.segments;
    for (std::uint16_t i = 0; i < sample.count; ++i) {
        // Which of the segments were sampled is not known; if all were, one of them is the last.
        if (all && i + 1 == sample.count)
            m_flow.frameLength -=
                LengthsOf(sample).each - std::min(LengthsOf(sample).last, LengthsOf(sample).each);
        m_flow.sequence = ++source.sequence;
        ++source.samples;
        Send(streams);
    }
}

void FlowSamplePipeline::DescribePath(const capture::Sample& sample, Tag tag)
{
    const net::Entering packet{sample.ifIndex, sample.etherType, tag.vlan, sample.header};
    if (!sample.egress) {
        DescribeIngress(sample.ifIndex, tag, m_forwarding.Resolve(packet), m_flow);
        return;
    }
    std::optional<std::uint32_t> enteredBy;
    if (sample.origin != capture::kOriginUnknown) enteredBy = sample.origin;
    const std::uint16_t untagged = tag.vlan != 0 ? std::uint16_t{0} : m_forwarding.PortVlan(sample.ifIndex);
    DescribeEgress(sample.ifIndex, tag, untagged, m_forwarding.Trace(packet, enteredBy), m_flow);
}

void FlowSamplePipeline::Send(const std::vector<Stream*>& streams)
{
    const std::size_t size = wire::Encode(m_flow, m_encoding, m_encoded);
    bool cut = false;
    for (Stream* stream : streams) {
        if (stream->Room() < size)
            cut = true;
        else
            stream->Put({m_encoded.data(), size}, Stream::Sample::kFlow);
    }
    if (!cut) return;
    // Collectors with datagrams too small for it get it with less of the packet's header.
    for (Stream* stream : streams) {
        if (stream->Room() >= size) continue;
        std::array<std::byte, wire::kMaxFlowSample> shorter;
        const std::size_t fits = wire::Encode(m_flow, m_encoding, std::span(shorter).first(stream->Room()));
        stream->Put({shorter.data(), fits}, Stream::Sample::kFlow);
    }
}

}  // namespace manager
