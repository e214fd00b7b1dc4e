// SPDX-License-Identifier: Apache-2.0
// All that the manager shows of itself, at one moment, as plain records. Made when somebody asks; printed
// as state and as metrics, and what the diagnosis looks at. Knows no socket, no loop and no kernel.

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
    WallTime since;  // when the session came to be as it is
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
    bool anyInterface = false;          // whether the manager has any, also where none is among these
    std::set<std::string> attached;     // collectors that interfaces name, of those that were asked about

    /// Null where there is none of that name.
    [[nodiscard]] const Collector* FindCollector(const std::string& name) const;
    [[nodiscard]] const Interface* FindInterface(const std::string& name) const;
};

/// Where the numbers come from. One that is not set gives none: the records stay empty.
struct StatusSources {
    /// The clock by which everything was noted. One that nobody sets keeps ages true.
    std::function<WallTime()> now = {};
    /// The clock that people read, where it is another: all times in the snapshot are moved to it, so that
    /// what was noted a second ago shows the time of a second ago, also when that clock has been set since.
    std::function<WallTime()> wall = {};
    std::function<SourceStatus()> source = {};
    std::function<InterfaceStatus(const std::string& interface)> interface = {};
    /// Null where there is no stream of that name.
    std::function<const StreamStatus*(const std::string& collector)> collector = {};
    /// What can't be done here, for people; none where everything can.
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
