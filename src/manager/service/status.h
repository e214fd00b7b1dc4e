// SPDX-License-Identifier: Apache-2.0
// What the parts of the manager know about themselves, as plain records: made on request, printed as state
// and as metrics.

#ifndef MANAGER_SERVICE_STATUS_H
#define MANAGER_SERVICE_STATUS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace manager {

using WallTime = std::chrono::system_clock::time_point;

/// The source of packets in use.
struct SourceStatus {
    std::string kind;        // "ebpf-tcx", "ebpf-clsact", "packet-socket", "none"
    std::string reason;      // why this one: what stood against the better ones; "" for the best
    bool permission = true;  // false: none, for lack of permission
};

/// What happens at one interface of the configuration.
struct InterfaceStatus {
    bool present = false;       // a kernel interface has that name
    std::uint32_t ifIndex = 0;  // of it
    std::string kernelName;     // of it
    bool adminUp = false, operUp = false;
    bool sampled = false;       // the source samples packets there
    bool pending = false;       // it will, and is not ready yet
    std::string samplingError;  // why it does not, if it should
    std::uint64_t packetsSeen = 0;
    std::chrono::seconds quiet{0};       // for how long at least that has not grown, while it is sampled
    std::uint64_t samples = 0;           // packets-sampled: handed to at least one collector
    std::uint64_t sampledBytes = 0;      // of these, as their frames are on the wire
    std::uint64_t dropsBuffer = 0;       // sampled, lost for lack of room between kernel and manager
    std::uint64_t dropsNoCollector = 0;  // sampled, while no collector took them
    std::optional<WallTime> lastSample;
    std::uint64_t countersSent = 0;
    std::optional<WallTime> lastCounters;
};

}  // namespace manager

#endif
