// SPDX-License-Identifier: Apache-2.0
// The flows of one interface's samples that carry most, over the last seconds.

#ifndef MANAGER_SAMPLING_TALKER_TABLE_H
#define MANAGER_SAMPLING_TALKER_TABLE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <unordered_map>
#include <vector>

#include "capture/packet_source.h"
#include "manager/sampling/flow_key.h"

namespace manager {

/// What was sampled of a flow, and what that stands for: each sample for as many packets as its rate says.
struct TalkerCounts {
    std::uint64_t samples = 0;
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;  // of frames on the wire

    TalkerCounts& operator+=(const TalkerCounts& more)
    {
        samples += more.samples;
        packets += more.packets;
        bytes += more.bytes;
        return *this;
    }
};

struct Talker {
    FlowKey flow;
    TalkerCounts counts;
};

struct TopTalkers {
    std::chrono::milliseconds counted{0};  // the time that the counts are of; 0: they have just begun
    std::uint64_t samples = 0;             // of all flows in that time
    std::vector<Talker> talkers;           // most bytes first
};

/// Counts in two halves, the one of now and the one before, so that what it tells is at most ten seconds old.
/// Takes no time but at a look: a sample costs a look-up of its flow.
class TalkerTable {
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::size_t kMaxTalkers = 20;
    static constexpr std::chrono::seconds kHalf{5};
    /// Flows of a half. A flow too many puts out all but the `kFlowsThatStay` that carry most, so that a
    /// flood of flows of one packet each leaves those.
    static constexpr std::size_t kMaxFlows = 1024;
    static constexpr std::size_t kFlowsThatStay = kMaxFlows / 4;

    explicit TalkerTable(Time now)
        : m_now{Flows(&m_pool)}, m_before{Flows(&m_pool)}, m_begin(now), m_lastLook(now)
    {
    }

    void Count(const capture::Sample& sample, wire::HeaderProtocol protocol) noexcept;

    TopTalkers Look(Time now);
    [[nodiscard]] Time LastLook() const { return m_lastLook; }

private:
    using Flows = std::pmr::unordered_map<FlowKey, TalkerCounts, FlowKeyHash>;
    struct Half {
        Flows flows;
        std::uint64_t samples = 0;
    };

    void PutOut();

    std::pmr::unsynchronized_pool_resource m_pool;  // of the flows: in a flood they come and go
    Half m_now, m_before;
    Time m_begin;  // of the earlier half that there is
    Time m_turned = m_begin;
    Time m_lastLook;
};

}  // namespace manager

#endif
