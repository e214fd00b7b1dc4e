// SPDX-License-Identifier: Apache-2.0
// Figure 8: a hundred thousand interfaces: the load in one edit and commit, one leaf, memory, and the start,
// also behind a history full of bulk commits.

#include <stdexcept>
#include <vector>

#include "figures/figures.h"
#include "figures/measured_switch.h"
#include "figures/process_usage.h"
#include "figures/references.h"
#include "figures/switch_data.h"
#include "netconf/requests.h"

namespace figures {
namespace {

constexpr std::size_t kCallsEach = 3;
constexpr std::size_t kBulkCommits = 6;

double OneLeaf(MeasuredSwitch& target, std::size_t interfaces, std::size_t runs)
{
    std::vector<double> times;
    for (std::size_t run = 0; run < runs; ++run)
        times.push_back(target.TimedCommit(RateXml(run * 37 % interfaces, 2000 + run % 1000), 1));
    return Median(times);
}

}  // namespace

void MeasureLarge(const Settings& settings, Table& table)
{
    const auto interfaces = settings.most;
    const auto size = ", N = " + std::to_string(interfaces);
    MeasuredSwitch small(settings.few);
    MeasuredSwitch large(0);
    const auto file = SwitchXml(interfaces);
    const double load = large.TimedCommit(file, interfaces * kCallsEach);
    const double reference = YangReference().TimedParse(file);
    table.Plain("8 libyang parses and validates the file" + size, reference, "ms");
    table.Plain("8 the file loaded, committed, delivered" + size, load, "ms");
    table.AtMost("8 ratio of the two", load / reference, 3, "");
    table.AtMost("8 resident cdbd after it" + size, ResidentMegabytes(large.World().Cdbd().Pid()), 450, "MB");
    const double few = OneLeaf(small, settings.few, settings.runs * 4);
    const double most = OneLeaf(large, interfaces, settings.runs * 4);
    table.AtMost("8 one rate" + size, most, 1.5, "ms");
    table.AtMost("8 ratio to one rate, N = " + std::to_string(settings.few), most / few, 1.3, "");
    const double fresh = large.MedianRestart();
    table.AtMost("8 restart until the first answer" + size, fresh, 1500, "ms");

    for (std::size_t run = 0; run < kBulkCommits; ++run) {
        large.Do(netconf::EditConfig(run % 2 == 0 ? WithoutInterfacesXml() : SwitchXml(interfaces)));
        // The daemon may not be back yet: that is a warning.
        if (!large.Client().Call(netconf::Commit()).ok) throw std::runtime_error("a bulk commit is refused");
    }
    table.AtMost("8 restart behind bulk commits, to the one before", large.MedianRestart() / fresh, 1.3, "");
}

}  // namespace figures
