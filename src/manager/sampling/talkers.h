// SPDX-License-Identifier: Apache-2.0
// Counts the flows of interfaces that are looked into, and of no other: from the first look until none came
// for a while.

#ifndef MANAGER_SAMPLING_TALKERS_H
#define MANAGER_SAMPLING_TALKERS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/expected.h"
#include "base/timers.h"
#include "manager/sampling/flow_sample_pipeline.h"
#include "manager/sampling/talker_table.h"

namespace manager {

class Talkers {
public:
    static constexpr std::chrono::seconds kKept{5};  // since the last look
    /// Interfaces that are looked into at a time: each takes up to some 250 KB.
    static constexpr std::size_t kMaxInterfaces = 32;

    /// Both must outlive it.
    Talkers(DataSources& sources, base::Timers& timers) : m_sources(sources), m_timers(timers) {}

    /// What the interface's samples have been of. Its first look begins the counting. An error for operators
    /// if packets are not sampled there, or too many interfaces are looked into.
    base::expected<TopTalkers, std::string> Look(const std::string& name, const InterfaceStatus& status);

private:
    void EndUnwatched();

    DataSources& m_sources;
    base::Timers& m_timers;
    std::vector<std::uint32_t> m_watched;  // kernel interfaces, some of which may be gone
    std::shared_ptr<void> m_timer;         // while there are any
};

}  // namespace manager

#endif
