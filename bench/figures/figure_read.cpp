// SPDX-License-Identifier: Apache-2.0
// Figure 4: get-config of everything, compared with printing the tree.

#include <stdexcept>

#include "figures/figures.h"
#include "figures/measured_switch.h"
#include "figures/references.h"
#include "figures/switch_data.h"
#include "netconf/requests.h"

namespace figures {

void MeasureRead(const Settings& settings, Table& table)
{
    MeasuredSwitch target(settings.many);
    YangReference yang;
    // What libyang prints is what the reply holds.
    yang.TimedParse(target.Client().Call(netconf::GetConfig("running")).data);
    const auto request = netconf::GetConfig("running");
    std::vector<double> times;
    std::vector<double> references;
    for (std::size_t run = 0; run < settings.runs; ++run) {
        const Stopwatch watch;
        target.Client().Send(request);
        const auto reply = target.Client().ReceiveMessage();
        times.push_back(watch.Milliseconds());
        if (reply.find(InterfaceName(settings.many - 1)) == std::string::npos)
            throw std::runtime_error("get-config did not give everything: " + reply.substr(0, 500));
        references.push_back(yang.TimedPrint());
    }
    const auto size = ", N = " + std::to_string(settings.many);
    table.Plain("4 libyang prints the tree as XML" + size, Median(references), "ms");
    table.Plain("4 get-config of everything" + size, Median(times), "ms");
    table.AtMost("4 ratio of the two", Median(times) / Median(references), 1.5, "");
}

}  // namespace figures
