// SPDX-License-Identifier: Apache-2.0
// What is known of dropped packets, as plain records: made on request, printed as state and as metrics.

#ifndef MANAGER_DISCARDS_STATUS_H
#define MANAGER_DISCARDS_STATUS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "manager/service/status.h"
#include "wire/drop_reason.h"

namespace manager {

/// Packets that were dropped at one interface for one of the kernel's reasons.
struct DropsByReason {
    std::string name;  // the kernel's, such as "NO_SOCKET"
    std::uint64_t packets = 0;
    std::uint64_t rate = 0;  // packets a second, of the last 10 to 20 s
    WallTime last = {};      // when the newest was dropped
    /// Of the newest that collectors were told of; empty: of none yet.
    struct Told {
        wire::DropReason code = wire::DropReason::kUnknown;
        std::string function;  // of the kernel; empty: not known
    };
    std::optional<Told> told = {};
};

/// Packets that were dropped at one interface since they are looked at there.
struct DropsAtInterface {
    /// As the configuration has it, else the kernel's; "n/a" if packets had none.
    std::string name;
    std::uint32_t ifIndex = 0;
    std::uint64_t packets = 0;
    std::uint64_t untold = 0;  // of these, those over the limit or without room, and the manager's own
    std::vector<DropsByReason> reasons;  // in ascending order of their names
};

/// Where dropped packets are looked at.
struct DiscardSource {
    bool running = false;
    std::string reason;  // why it is not running
    /// Drops that no interface's counts have.
    std::uint64_t uncounted = 0;
};

}  // namespace manager

#endif
