// SPDX-License-Identifier: Apache-2.0
// Figure 2: a large file in one edit and commit, each entry through the callpoint, delivered.

#include "figures/figures.h"
#include "figures/measured_switch.h"
#include "figures/references.h"
#include "figures/switch_data.h"
#include "netconf/requests.h"

namespace figures {

namespace {

constexpr std::size_t kCallsPerInterface = 3;

}  // namespace

void MeasureLoad(const Settings& settings, Table& table)
{
    MeasuredSwitch target(0);
    YangReference yang;
    const auto file = SwitchXml(settings.many);
    const auto empty = WithoutInterfacesXml();
    std::vector<double> times;
    std::vector<double> edits;
    std::vector<double> references;
    for (std::size_t run = 0; run < settings.runs; ++run) {
        const Stopwatch watch;
        target.Do(netconf::EditConfig(file));
        edits.push_back(watch.Milliseconds());
        target.Do(netconf::Commit());
        target.AwaitCalls(settings.many * kCallsPerInterface);
        times.push_back(watch.Milliseconds());
        target.TimedCommit(empty, settings.many);
        references.push_back(yang.TimedParse(file));
    }
    const auto size = ", N = " + std::to_string(settings.many);
    table.Plain("2 libyang parses and validates the file" + size, Median(references), "ms");
    table.Plain("2 the file loaded, committed, delivered" + size, Median(times), "ms");
    table.Plain("2 of that, until the edit was answered", Median(edits), "ms");
    table.AtMost("2 ratio of the two", Median(times) / Median(references), 3, "");
}

}  // namespace figures
