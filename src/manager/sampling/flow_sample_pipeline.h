// SPDX-License-Identifier: Apache-2.0
// The way of a sampled packet from the packet source to the streams: finds its data source, resolves where
// it goes, says what it is in the terms of sFlow, encodes it once. Everything here runs once a sample, at up
// to a million samples a second. The reconciler owns the pipeline and writes the data sources.

#ifndef MANAGER_SAMPLING_FLOW_SAMPLE_PIPELINE_H
#define MANAGER_SAMPLING_FLOW_SAMPLE_PIPELINE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "capture/packet_source.h"
#include "manager/service/operation.h"
#include "manager/service/status.h"
#include "net/routes/forwarding.h"
#include "wire/encode.h"
#include "wire/sample.h"

namespace manager {

class Exporter;
class Stream;

/// A kernel interface that is bound to one of the table, or was: its sequence and its counts continue while
/// it exists, however often its sampling begins and ends.
struct DataSource {
    std::uint32_t ifIndex = 0;
    std::uint16_t hardwareType = 0;
    std::string boundTo;  // its name in the table; empty: none
    std::array<std::vector<Stream*>, kKinds>
        streams;                                   // of the collectors that exist; none if it is not bound
    std::optional<capture::Settings> sampledWith;  // empty: nothing is sampled there
    bool changeRefused = false;                    // the last change failed: not all of it is in effect
    std::string error;                             // why it is not sampled, if it should be
    std::uint32_t sequence = 0;                    // of the last flow sample
    capture::Counts before;                        // of all the times it was sampled earlier
    std::uint64_t samples = 0;
    std::uint64_t dropsNoCollector = 0;
    std::optional<WallTime> lastSample;
    std::uint64_t grownTo = 0;  // the pool of all times, as of the last look
    WallTime grownAt;           // when it was seen to have grown, or sampling began or changed

    [[nodiscard]] const std::vector<Stream*>& StreamsOf(Kind kind) const
    {
        return streams[static_cast<std::size_t>(kind)];
    }
    [[nodiscard]] std::vector<Stream*>& StreamsOf(Kind kind)
    {
        return streams[static_cast<std::size_t>(kind)];
    }
};

using DataSources = std::unordered_map<std::uint32_t, DataSource>;  // by kernel interface; pointers are kept

/// Bytes of the Ethernet frame check sequence: on the wire, never in what the kernel hands over.
inline constexpr std::uint32_t kFcs = 4;

/// By the device's type (ARPHRD_*) and the packet's EtherType.
wire::HeaderProtocol HeaderProtocolOf(std::uint16_t hardwareType, std::uint16_t etherType);

/// Bytes without FCS of the frames that a segmented packet is on the wire: all but the last have the first
/// length. If its headers can't be read, an even share of its length.
struct SegmentLengths {
    std::uint32_t each = 0, last = 0;
    friend bool operator==(const SegmentLengths&, const SegmentLengths&) = default;
};
SegmentLengths LengthsOf(const capture::Sample& sample);

/// The outermost 802.1Q or 802.1ad tag, wherever it is: taken away by the kernel, or in the header. Zeros if
/// there is none.
struct Tag {
    std::uint16_t vlan = 0;
    std::uint8_t priority = 0;
};
Tag OuterTag(const capture::Sample& sample);

/// Fills what the packet itself tells: header, lengths, tag.
void DescribePacket(const capture::Sample& sample, std::uint16_t hardwareType, wire::FlowSample& flow);

/// Fills where a packet that leaves by `output` has come from. `untagged` is the VLAN of packets without a
/// tag at that interface; 0: none.
void DescribeEgress(std::uint32_t output, Tag tag, std::uint16_t untagged, const net::Origin& origin,
                    wire::FlowSample& flow);

/// Fills where a packet that enters by `input` goes: both interfaces, VLANs and next hop.
void DescribeIngress(std::uint32_t input, Tag tag, const net::Destination& destination,
                     wire::FlowSample& flow);

class FlowSamplePipeline : public capture::SampleSink {
public:
    /// Both must outlive it.
    FlowSamplePipeline(net::Forwarding& forwarding, Exporter& exporter, std::function<WallTime()> clock);

    void OnSamples(std::span<const capture::Sample> samples) noexcept override;
    void OnDrained() noexcept override;
    void OnRefused(std::uint32_t ifIndex, const capture::Unavailable& reason) noexcept override;
    /// Calls `refused` when the source tells that a data source can't be sampled as it was asked to.
    void WhenRefused(std::function<void(DataSource& source, const std::string& reason)> refused);

    [[nodiscard]] DataSources& Sources() { return m_sources; }
    /// Null if there is none.
    [[nodiscard]] const DataSource* Find(std::uint32_t ifIndex) const;
    [[nodiscard]] wire::Encoding Encoding() const { return m_encoding; }
    /// Encodes so from the next sample on; the sequences of all data sources begin anew.
    void Restart(wire::Encoding encoding);

private:
    void Take(const capture::Sample& sample, DataSource& source);
    void DescribePath(const capture::Sample& sample, Tag tag);
    void Send(const std::vector<Stream*>& streams);

    net::Forwarding& m_forwarding;
    Exporter& m_exporter;
    std::function<WallTime()> m_clock;
    std::function<void(DataSource&, const std::string&)> m_refused;
    DataSources m_sources;
    wire::Encoding m_encoding = wire::Encoding::kCompact;
    wire::FlowSample m_flow;  // made once: its fields are filled anew for each sample
    std::array<std::byte, wire::kMaxFlowSample> m_encoded{};
};

}  // namespace manager

#endif
