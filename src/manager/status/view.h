// SPDX-License-Identifier: Apache-2.0
// What the manager shows of itself at one moment: reads the service's table and the own settings in place,
// and asks the other parts for the numbers of those entries that are asked for. Printed as state and as
// metrics, and read by the diagnosis. Knows no socket, no loop and no kernel.

#ifndef MANAGER_STATUS_VIEW_H
#define MANAGER_STATUS_VIEW_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "manager/discards/status.h"
#include "manager/export/exporter.h"
#include "manager/service/operation.h"
#include "manager/service/service.h"
#include "manager/service/service_table.h"
#include "manager/service/status.h"
#include "manager/settings/own_settings.h"
#include "manager/status/traffic_rates.h"

namespace net {
class Links;
}

namespace manager {

/// The manager as a whole.
struct ManagerStatus {
    std::int64_t pid = 0;
    Service::Session session = Service::Session::kNone;
    WallTime since;            // when `session` last changed
    bool hasOperated = false;  // the session has had operations since its load
    std::uint64_t operations = 0, refused = 0;
    struct JournalStatus {
        std::string path;
        std::uint64_t errors = 0;
    };
    std::optional<JournalStatus> journal;
    SourceStatus source;
    DiscardSource discards;
    TrafficCounts perSecond;
    std::optional<WallTime> countsSince;   // from when on the state counts
    std::vector<std::string> limitations;  // what can't be done here, for operators
};

/// The part of it that the service knows.
ManagerStatus StatusOf(const Service& service);

/// Where what is shown comes from. A function that is not set gives nothing: the records stay empty.
struct StatusSources {
    const ServiceTable& table;
    const OwnSettings& own;
    std::function<ManagerStatus()> manager = {};
    std::function<InterfaceStatus(const std::string& interface)> interface = {};
    /// Null if there is no stream of that name.
    std::function<const StreamStatus*(const std::string& collector)> collector = {};
    /// In ascending order of their names.
    std::function<std::vector<DropsAtInterface>()> drops = {};
    /// The kernel's interfaces; null: none are known.
    const net::Links* links = nullptr;
    /// The clock of all recorded times. One that is never set keeps ages true.
    std::function<WallTime()> now = {};
    /// The wall clock, if it is another: all times of the view are moved to it, so that what was recorded a
    /// second ago shows the time of a second ago, even if that clock has been set since.
    std::function<WallTime()> wall = {};
};

class View {
public:
    // Names and settings are the table's and the own settings': they stay good until their next change.
    struct Collector {
        const std::string& name;
        const CollectorSettings& settings;
        const OwnCollector& own;
        StreamStatus stream;
    };
    struct Interface {
        const std::string& name;
        const ServiceTable::Interface& held;
        InterfaceStatus status;
    };

    /// What the sources read must outlive it.
    explicit View(StatusSources sources);

    [[nodiscard]] const ServiceTable& Table() const { return m_sources.table; }
    [[nodiscard]] const OwnSettings& Own() const { return m_sources.own; }
    [[nodiscard]] const ManagerStatus& Manager() const { return m_manager; }
    [[nodiscard]] WallTime Now() const { return m_now; }
    /// An entry of the table with its numbers, which are read now.
    [[nodiscard]] Collector Of(const ServiceTable::Collectors::value_type& entry) const;
    [[nodiscard]] Interface Of(const ServiceTable::Interfaces::value_type& entry) const;
    /// Dropped packets by interface, which are read now.
    [[nodiscard]] std::vector<DropsAtInterface> Drops() const;

private:
    StatusSources m_sources;
    WallTime m_now;
    WallTime::duration m_shift{0};  // from the clock of events to the wall clock
    ManagerStatus m_manager;
};

}  // namespace manager

#endif
