// SPDX-License-Identifier: Apache-2.0
// Figure 3: the daemon's initial load, from "found" to the last call in the journal, and the reads of
// the configuration that it makes, alone.

#include <stdexcept>

#include "figures/figures.h"
#include "figures/measured_switch.h"
#include "figures/process_usage.h"
#include "figures/switch_data.h"
#include "netconf/requests.h"

namespace figures {

namespace {

// CPU time of the three processes, in milliseconds.
double CpuMilliseconds(MeasuredSwitch& target)
{
    auto& world = target.World();
    return 1000 * (CpuSeconds(world.Cdbd().Pid()) + CpuSeconds(world.Daemon().Pid()) +
                   CpuSeconds(world.Manager().Pid()));
}

// A resync from the request to the end of the load, as the manager makes one by itself behind the last
// change.
double ResyncCpu(MeasuredSwitch& target, std::size_t runs)
{
    const std::size_t calls = 1 + kCollectors + 3 * target.Interfaces();
    std::vector<double> times;
    for (std::size_t run = 0; run < runs; ++run) {
        const double before = CpuMilliseconds(target);
        target.Do(netconf::SflowResync());
        target.Journal().AwaitLines(calls + 3);
        times.push_back(CpuMilliseconds(target) - before);
    }
    return Median(times);
}

// The median over sessions that the operator's resync makes: the old one is closed, the new one opened
// (that is when the daemon is told "found"), then come the calls.
double InitialLoad(MeasuredSwitch& target, std::size_t runs)
{
    const std::size_t calls = 1 + kCollectors + 3 * target.Interfaces();
    std::vector<double> times;
    for (std::size_t run = 0; run < runs; ++run) {
        target.Do(netconf::SflowResync());
        target.Journal().AwaitLines(2);
        const Stopwatch watch;
        target.Journal().AwaitLines(calls);
        times.push_back(watch.Milliseconds());
        target.Journal().AwaitLines(1);
    }
    return Median(times);
}

double ReadsAlone(MeasuredSwitch& target, std::size_t runs)
{
    const auto result =
        target.World().Run({support::World::Program("configuration_reads"), std::to_string(runs)});
    if (result.status != 0) throw std::runtime_error("configuration_reads: " + result.errors);
    return std::stod(result.output);
}

}  // namespace

void MeasureInitialLoad(const Settings& settings, Table& table)
{
    const auto tenth = settings.many / 10;
    MeasuredSwitch small(tenth);
    MeasuredSwitch large(settings.many);
    const double smallTime = InitialLoad(small, settings.runs);
    const double largeTime = InitialLoad(large, settings.runs);
    table.Plain("3 initial load, N = " + std::to_string(tenth), smallTime, "ms");
    table.AtMost("3 initial load, N = " + std::to_string(settings.many), largeTime, 400, "ms");
    table.AtMost("3 growth over ten times the interfaces, linear is 10", largeTime / smallTime, 12, "");
    table.AtMost("3 CPU time of a resync in all, N = " + std::to_string(settings.many),
                 ResyncCpu(large, settings.runs), 150, "ms");
    table.AtMost("3 the configuration reads alone, N = " + std::to_string(settings.many),
                 ReadsAlone(large, settings.runs), 60, "ms");
}

}  // namespace figures
