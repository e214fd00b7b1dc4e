// SPDX-License-Identifier: Apache-2.0
// All that the manager shows of itself, at one moment, as plain records. Made on request; printed as state
// and as metrics, and read by the diagnosis. Knows no socket, no loop and no kernel.

#ifndef MANAGER_STATUS_SNAPSHOT_H
#define MANAGER_STATUS_SNAPSHOT_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "manager/export/exporter.h"
#include "manager/service/operation.h"
#include "manager/service/service.h"
#include "manager/service/status.h"

namespace manager {

struct Snapshot {
    WallTime now;
    std::int64_t pid = 0;  // the manager's own

    Service::Session session = Service::Session::kNone;
    WallTime since;  // when `session` last changed
    std::uint64_t operations = 0, refused = 0;
    struct JournalStatus {
        std::string path;
        std::uint64_t errors = 0;
    };
    std::optional<JournalStatus> journal;

    SourceStatus source;
    std::optional<Direction> addedDirection;
    std::vector<std::string> limitations;

    std::optional<std::uint32_t> agentAddress;  // network byte order in memory, as in_addr

    struct Collector {
        std::string name;
        CollectorSettings settings;
        StreamStatus stream;
    };
    struct Interface {
        std::string name;
        InterfaceSettings settings;
        std::array<std::vector<std::string>, kKinds> collectors;  // attached, ascending
        InterfaceStatus status;
        [[nodiscard]] const std::vector<std::string>& Of(Kind kind) const
        {
            return collectors[static_cast<std::size_t>(kind)];
        }
    };
    std::vector<Collector> collectors;  // by ascending name
    std::vector<Interface> interfaces;  // by ascending name
    bool anyInterface = false;          // whether the manager has any, even if none is among these
    std::set<std::string> attached;     // collectors that interfaces name, of those that were asked about

    /// Null if there is none of that name.
    [[nodiscard]] const Collector* FindCollector(const std::string& name) const;
    [[nodiscard]] const Interface* FindInterface(const std::string& name) const;
};

/// Where the numbers come from. A function that is not set gives none: the records stay empty.
struct StatusSources {
    /// The clock of all recorded times. One that is never set keeps ages true.
    std::function<WallTime()> now = {};
    /// The wall clock, if it is another: all times in the snapshot are moved to it, so that what was recorded
    /// a second ago shows the time of a second ago, even if that clock has been set since.
    std::function<WallTime()> wall = {};
    std::function<SourceStatus()> source = {};
    std::function<InterfaceStatus(const std::string& interface)> interface = {};
    /// Null if there is no stream of that name.
    std::function<const StreamStatus*(const std::string& collector)> collector = {};
    /// What can't be done here, for operators; empty if everything can.
    std::function<std::vector<std::string>()> limitations = {};
    std::optional<Direction> addedDirection = {};
    std::int64_t pid = 0;  // the manager's own
};

/// Everything.
Snapshot TakeSnapshot(const Service& service, const StatusSources& sources);

/// The manager, and of collectors and interfaces those named, in ascending order. Names that the manager does
/// not have are passed over.
Snapshot TakeSnapshot(const Service& service, const StatusSources& sources,
                      const std::vector<std::string>& collectors, const std::vector<std::string>& interfaces);

}  // namespace manager

#endif
