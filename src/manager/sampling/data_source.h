// SPDX-License-Identifier: Apache-2.0
// What is in effect at one kernel interface: how it is sampled, for which streams, and the numbers of its
// data source. Plain records of sampling: the reconciler writes them, the pipeline reads them for each
// sample.

#ifndef MANAGER_SAMPLING_DATA_SOURCE_H
#define MANAGER_SAMPLING_DATA_SOURCE_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "capture/packet_source.h"
#include "manager/service/operation.h"
#include "manager/service/status.h"

namespace manager {

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

}  // namespace manager

#endif
