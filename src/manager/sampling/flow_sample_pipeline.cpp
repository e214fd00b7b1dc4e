// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/flow_sample_pipeline.h"

#include <utility>

#include "manager/export/exporter.h"

namespace manager {

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
    if (source.talkers)
        source.talkers->Count(sample, HeaderProtocolOf(source.hardwareType, sample.etherType));
    if (source.StreamsOf(Kind::kFlow).empty()) {
        source.dropsNoCollector += sample.count;
        return;
    }
    DescribePacket(sample, source.hardwareType, m_flow);
    const bool ethernet = m_flow.protocol == wire::HeaderProtocol::kEthernet;
    const Tag tag = ethernet ? OuterTag(sample) : Tag{};
    m_flow.source = source.ifIndex;
    m_flow.maxHeader = source.sampledWith->headerSize;
    // Collectors see 32 bits of both counts.
    m_flow.pool = static_cast<std::uint32_t>(source.before.pool + sample.pool);
    m_flow.drops = static_cast<std::uint32_t>(source.before.drops + sample.drops);
    if (sample.segments > 1) {
        SegmentedHeader header(sample, ethernet);
        DescribePath(sample, tag, header.Lengths().each);
        return SendSegments(sample, header, source);
    }
    DescribePath(sample, tag, sample.length);
    for (std::uint16_t i = 0; i < sample.count; ++i) Send(source);
}

void FlowSamplePipeline::SendSegments(const capture::Sample& sample, SegmentedHeader& header,
                                      DataSource& source)
{
    const auto [each, last] = header.Lengths();
    DescribeSegment(header, each, m_flow);
    const bool all = sample.count == sample.segments;
    for (std::uint16_t i = 0; i < sample.count; ++i) {
        // Which of the segments were sampled is not known; if all were, one of them is the last.
        if (all && i + 1 == sample.count) DescribeSegment(header, last, m_flow);
        Send(source);
    }
}

void FlowSamplePipeline::DescribePath(const capture::Sample& sample, Tag tag, std::uint32_t length)
{
    const net::Entering packet{sample.ifIndex, sample.etherType, tag.vlan,
                               sample.header,  tag.protocol,     length};
    if (!sample.egress) {
        DescribeIngress(sample.ifIndex, tag, m_forwarding.Resolve(packet), m_flow);
        return;
    }
    std::optional<std::uint32_t> enteredBy;
    if (sample.origin != capture::kOriginUnknown) enteredBy = sample.origin;
    const std::uint16_t untagged = tag.vlan != 0 ? std::uint16_t{0} : m_forwarding.PortVlan(sample.ifIndex);
    DescribeEgress(sample.ifIndex, tag, untagged, m_forwarding.Trace(packet, enteredBy), m_flow);
}

void FlowSamplePipeline::Send(DataSource& source)
{
    m_flow.sequence = ++source.sequence;
    ++source.samples;
    source.sampledBytes += m_flow.frameLength;
    PutInAll(source.StreamsOf(Kind::kFlow), Stream::Sample::kFlow, m_encoded,
             [this](std::span<std::byte> room) { return wire::Encode(m_flow, m_encoding, room); });
}

}  // namespace manager
