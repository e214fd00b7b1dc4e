// SPDX-License-Identifier: Apache-2.0
// Figure 9: taking a commit back costs what the commit has cost.

#include <cstdio>
#include <string>
#include <vector>

#include "figures/figures.h"
#include "figures/measured_switch.h"
#include "figures/switch_data.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace figures {

namespace {

/// Milliseconds until the last commit is taken back, its reply and its calls are there.
double TimedRollBack(MeasuredSwitch& target, std::size_t calls)
{
    const Stopwatch watch;
    target.Do(netconf::RollBack({.text = "1"}));
    target.Do(netconf::Commit());
    target.AwaitCalls(calls);
    return watch.Milliseconds();
}

/// Commits one rate and takes it back, turn by turn.
void MeasureLeaf(MeasuredSwitch& target, std::size_t runs, Table& table)
{
    std::vector<double> commits;
    std::vector<double> rollBacks;
    for (std::size_t run = 0; run < runs * 4; ++run) {
        const auto interface = (run * 37) % target.Interfaces();
        commits.push_back(target.TimedCommit(RateXml(interface, 6000 + run % 1000), 1));
        rollBacks.push_back(TimedRollBack(target, 1));
    }
    const auto size = ", N = " + std::to_string(target.Interfaces());
    table.Plain("9 one rate" + size, Median(commits), "ms");
    table.Plain("9 one rate taken back" + size, Median(rollBacks), "ms");
    table.AtMost("9 ratio of the two", Median(rollBacks) / Median(commits), 3, "");
}

/// Commits another rate of every interface and takes it back, turn by turn.
void MeasureBulk(MeasuredSwitch& target, std::size_t runs, Table& table)
{
    std::vector<double> commits;
    std::vector<double> rollBacks;
    const std::size_t all = target.Interfaces();
    for (std::size_t run = 0; run < runs; ++run) {
        commits.push_back(target.TimedCommit(RatesXml(all, 7000 + run), all));
        rollBacks.push_back(TimedRollBack(target, all));
    }
    const auto size = ", N = " + std::to_string(all);
    table.Plain("9 the rate of all interfaces" + size, Median(commits), "ms");
    table.Plain("9 that taken back" + size, Median(rollBacks), "ms");
    table.AtMost("9 ratio of the two, all interfaces", Median(rollBacks) / Median(commits), 1.5, "");
}

}  // namespace

void MeasureHistory(const Settings& settings, Table& table)
{
    MeasuredSwitch target(settings.many);
    MeasureLeaf(target, settings.runs, table);
    MeasureBulk(target, settings.runs / 5 + 1, table);
}

}  // namespace figures
