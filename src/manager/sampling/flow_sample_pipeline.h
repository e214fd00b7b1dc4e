// SPDX-License-Identifier: Apache-2.0
// The way of a sampled packet from the packet source to the streams: finds its data source, resolves where
// it goes, encodes it once. Everything here runs once a sample, at up to a million samples a second.

#ifndef MANAGER_SAMPLING_FLOW_SAMPLE_PIPELINE_H
#define MANAGER_SAMPLING_FLOW_SAMPLE_PIPELINE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "capture/packet_source.h"
#include "manager/sampling/data_source.h"
#include "manager/sampling/flow_sample.h"
#include "wire/encode.h"

namespace net {
class Forwarding;
}

namespace manager {

class Exporter;

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
