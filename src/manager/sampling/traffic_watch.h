// SPDX-License-Identifier: Apache-2.0
// Since when has no packet been counted? Looks at the source's counts of all interfaces every few seconds,
// and notes what has grown. The reconciler owns it and asks it for the state; it samples nothing and logs
// nothing.

#ifndef MANAGER_SAMPLING_TRAFFIC_WATCH_H
#define MANAGER_SAMPLING_TRAFFIC_WATCH_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>

#include "capture/packet_source.h"
#include "manager/sampling/flow_sample_pipeline.h"
#include "manager/service/status.h"

namespace base {
class Timers;
}  // namespace base

namespace manager {

class TrafficWatch {
public:
    using Counts = std::unordered_map<std::uint32_t, capture::Counts>;  // by kernel interface

    /// Between two looks while something is sampled: the last packet may be this much older than noted.
    static constexpr std::chrono::seconds kEvery{10};

    /// Timers and sources must outlive it.
    TrafficWatch(base::Timers& timers, DataSources& sources, std::function<WallTime()> clock);

    /// The source of the counts; null: there is none, and the timer ends.
    void SetSource(capture::PacketSource* source);

    /// Packets are counted there from now on, or others than before: the quiet time begins anew.
    void Begin(DataSource& source);

    /// Looks at once. Returns what the source has counted.
    Counts Look();
    /// The same at one kernel interface; zeros if it is not sampled.
    capture::Counts Look(const DataSource& source);

    /// As of the last look: for how long at least no packet has been counted; 0 if nothing is sampled.
    [[nodiscard]] std::chrono::seconds QuietFor(const DataSource& source) const;

private:
    void WaitForNext();
    void Note(std::uint32_t ifIndex, const capture::Counts& counts);

    base::Timers& m_timers;
    DataSources& m_sources;
    const std::function<WallTime()> m_clock;
    capture::PacketSource* m_source = nullptr;
    std::shared_ptr<void> m_next;  // while there is something to look at
};

}  // namespace manager

#endif
