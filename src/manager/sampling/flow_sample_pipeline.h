// SPDX-License-Identifier: Apache-2.0
// The way of a sampled packet from the packet source to the streams: finds its data source, resolves where
// it goes, describes it (flow_sample.h), encodes it once. Everything here runs once a sample, at up
// to a million samples a second. The reconciler owns the pipeline and writes the data sources.

#ifndef MANAGER_SAMPLING_FLOW_SAMPLE_PIPELINE_H
#define MANAGER_SAMPLING_FLOW_SAMPLE_PIPELINE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "capture/packet_source.h"
#include "manager/sampling/flow_sample.h"
#include "manager/sampling/talker_table.h"
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
    std::uint64_t sampledBytes = 0;  // of these, as their frames are on the wire
    std::uint64_t dropsNoCollector = 0;
    std::optional<WallTime> lastSample;
    std::uint64_t grownTo = 0;             // the pool of all times, as of the last look
    WallTime grownAt;                      // when it was seen to have grown, or sampling began or changed
    std::unique_ptr<TalkerTable> talkers;  // while it is looked into

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
    /// `length` is that of the frame; of its longest, if the packet is several.
    void DescribePath(const capture::Sample& sample, Tag tag, std::uint32_t length);
    void SendSegments(const capture::Sample& sample, SegmentedHeader& header, DataSource& source);
    /// Sends m_flow as the source's next sample.
    void Send(DataSource& source);

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
