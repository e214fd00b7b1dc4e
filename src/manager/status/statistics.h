// SPDX-License-Identifier: Apache-2.0
// From where on the counts that operators compare are told: what they were when an operator last cleared
// them. The counts themselves, sequence numbers and metrics go on; only what the state shows is less by
// these.

#ifndef MANAGER_STATUS_STATISTICS_H
#define MANAGER_STATUS_STATISTICS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "manager/discards/status.h"
#include "manager/export/stream.h"
#include "manager/service/service_table.h"
#include "manager/service/status.h"
#include "manager/status/view.h"

namespace manager {

class Statistics {
public:
    /// `since`: the manager's start.
    explicit Statistics(WallTime since) : m_since(since) {}

    /// When counting began: at the start, or when it was last cleared.
    [[nodiscard]] WallTime Since() const { return m_since; }

    /// From here on all counts of what the sources have begin at zero.
    void Clear(const StatusSources& sources, WallTime now);

    /// Forgets what is not in the table any more: what comes under its name counts from zero.
    void Forget(const Touched& touched, const ServiceTable& table);

    /// Takes off what was counted before. An entry that counts less than it did is another of that name, and
    /// keeps its counts.
    void Reduce(const std::string& collector, StreamStatus& status) const;
    void Reduce(const std::string& interface, InterfaceStatus& status) const;
    /// Likewise. Reasons and interfaces without a drop since then go.
    void Reduce(std::vector<DropsAtInterface>& drops) const;

private:
    WallTime m_since;
    std::map<std::string, StreamStatus> m_collectors;
    std::map<std::string, InterfaceStatus> m_interfaces;
    std::map<std::uint32_t, DropsAtInterface> m_drops;  // by ifindex, since names change
};

}  // namespace manager

#endif
