// SPDX-License-Identifier: Apache-2.0
// Figure 5: resident memory and the store's file, at once and over many one-leaf commits.

#include <sys/stat.h>

#include <stdexcept>

#include "figures/figures.h"
#include "figures/measured_switch.h"
#include "figures/process_usage.h"
#include "figures/switch_data.h"

namespace figures {

namespace {

struct Sizes {
    double database = 0;
    double daemon = 0;
    double store = 0;  // what the file takes on the disk; its reserved size means nothing
};

Sizes Measure(MeasuredSwitch& target)
{
    Sizes sizes;
    sizes.database = ResidentMegabytes(target.World().Cdbd().Pid());
    sizes.daemon = ResidentMegabytes(target.World().Daemon().Pid());
    for (const auto& entry : std::filesystem::recursive_directory_iterator(target.World().StateDir())) {
        struct stat status {};
        if (entry.is_regular_file() && stat(entry.path().c_str(), &status) == 0)
            sizes.store += static_cast<double>(status.st_blocks) * 512 / 1e6;
    }
    return sizes;
}

// Twice the history's limit, after which nothing has a reason to grow any more.
constexpr std::size_t kSettled = 2;
constexpr double kFlat = 1.02;

// The same configuration, but come in over NETCONF in one edit: what that took is not given back.
void MeasureAfterLoad(const Settings& settings, Table& table)
{
    MeasuredSwitch target(0);
    target.TimedCommit(SwitchXml(settings.many), settings.many * 3);
    const auto sizes = Measure(target);
    const auto loaded = ", N = " + std::to_string(settings.many) + ", after its load over NETCONF";
    table.AtMost("5 resident cdbd" + loaded, sizes.database, 120, "MB");
    table.AtMost("5 resident sflow-app" + loaded, sizes.daemon, 40, "MB");
}

}  // namespace

void MeasureMemory(const Settings& settings, Table& table)
{
    MeasureAfterLoad(settings, table);
    MeasuredSwitch target(settings.many);
    const auto size = ", N = " + std::to_string(settings.many);
    const auto start = Measure(target);
    table.AtMost("5 resident cdbd" + size, start.database, 120, "MB");
    table.AtMost("5 resident sflow-app" + size, start.daemon, 40, "MB");
    table.Plain("5 the store's file" + size, start.store, "MB");

    const auto settled = settings.historyLimit * kSettled;
    Sizes before;
    for (std::size_t commit = 0; commit < settled + settings.commits; ++commit) {
        if (commit == settled) before = Measure(target);
        target.TimedCommit(RateXml((commit * 37) % settings.many, 2000 + commit % 997), 1);
    }
    const auto after = Measure(target);
    const auto over = " after " + std::to_string(settings.commits) + " commits";
    table.AtMost("5 resident cdbd" + over, after.database, 120, "MB");
    table.AtMost("5 resident sflow-app" + over, after.daemon, 40, "MB");
    table.AtMost("5 growth of cdbd" + over, after.database / before.database, kFlat, "");
    table.AtMost("5 growth of sflow-app" + over, after.daemon / before.daemon, kFlat, "");
    table.AtMost("5 growth of the store's file" + over, after.store / before.store, kFlat, "");
}

}  // namespace figures
