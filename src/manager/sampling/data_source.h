// SPDX-License-Identifier: Apache-2.0
// One interface of the configuration with what is in effect for it: the kernel interface it is bound to, the
// streams of its collectors, and the numbers of its data source. Plain records of sampling.

#ifndef MANAGER_SAMPLING_CONFIGURED_INTERFACE_H
#define MANAGER_SAMPLING_CONFIGURED_INTERFACE_H

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "capture/packet_source.h"
#include "manager/service/operation.h"
#include "manager/service/status.h"

namespace manager {

class Stream;
struct DataSource;

struct ConfiguredInterface {
    std::string name;
    InterfaceSettings settings;
    std::array<std::set<std::string>, kKinds> collectors;  // names, also of those that do not exist
    std::array<std::vector<Stream*>, kKinds> streams;      // of those that do
    DataSource* source = nullptr;                          // null: no kernel interface has its name
    std::uint32_t waitsFor = 0;  // the kernel interface that has its name but serves another; 0: none

    [[nodiscard]] std::set<std::string>& Of(Kind kind) { return collectors[static_cast<std::size_t>(kind)]; }
    [[nodiscard]] std::vector<Stream*>& StreamsOf(Kind kind)
    {
        return streams[static_cast<std::size_t>(kind)];
    }
    [[nodiscard]] const std::vector<Stream*>& StreamsOf(Kind kind) const
    {
        return streams[static_cast<std::size_t>(kind)];
    }
};

/// A kernel interface that is bound to a configured one, or was: its sequence and its counts continue while
/// it exists, however often its sampling begins and ends.
struct DataSource {
    std::uint32_t ifIndex = 0;
    std::uint16_t hardwareType = 0;
    ConfiguredInterface* boundTo = nullptr;
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
};

}  // namespace manager

#endif
