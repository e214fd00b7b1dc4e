// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/state_text.h"

#include <libyang/libyang.h>

#include "base/version.h"
#include "cli/data/state_node.h"
#include "cli/screens/fact_list.h"
#include "cli/screens/text_table.h"

namespace cli {

std::string AgeText(std::uint64_t seconds)
{
    constexpr std::uint64_t kMinute = 60, kHour = 60 * kMinute, kDay = 24 * kHour;
    if (seconds == 0) return "just now";
    if (seconds < 2 * kMinute) return std::to_string(seconds) + " s ago";
    if (seconds < 2 * kHour) return std::to_string(seconds / kMinute) + " min ago";
    if (seconds < 2 * kDay) return std::to_string(seconds / kHour) + " h ago";
    return std::to_string(seconds / kDay) + " d ago";
}

std::string ProcessesText(const lyd_node* state, std::size_t width)
{
    TextTable table({"Name", {"Process", 1}, "State", {"Role", 2}, {"Missed", 3}, {"Since", 4}});
    TextTable times({"Name", {"Process", 2}, {"Connected since", 1}, "Last acknowledgement"});
    TextTable uses({"Name", {"Process", 1}, "Subscription or callpoint"});
    Children(state).Of("system").ForEach("process", [&](const lyd_node* node) {
        const Children process(node);
        const std::string name = process.Value("name");
        const std::string pid = process.Value("pid");
        const std::string health = process.Value("health");
        const bool late = health == "late" || health == "not-awaited";
        table.Add({name, pid, late ? (health == "late" ? "late" : "not waited for") : process.Value("state"),
                   process.Value("role"), process.Value("missed-commits"),
                   process.Time(late ? "health-since" : "connected-since")});
        times.Add({name, pid, process.Time("connected-since"), process.Time("last-acknowledgement")});
        for (const char* use : {"subscription", "callpoint"})
            process.ForEach(use, [&](const lyd_node* each) { uses.Add({name, pid, lyd_get_value(each)}); });
    });
    if (table.Empty()) return "No process is connected to the database.\n";
    return table.Text(0, width) + "\n" + times.Text(0, width) +
           (uses.Empty() ? "" : "\n" + uses.Text(0, width));
}

std::string VersionsText(const lyd_node* state)
{
    const Children system = Children(state).Of("system");
    TextTable table({"Program", "Version"});
    table.Add({"swcli", base::Version()});
    table.Add({"cdbd", system.Value("version")});
    system.ForEach("process", [&](const lyd_node* node) {
        const Children process(node);
        table.Add({process.Value("name"), process.Value("version")});
    });
    return table.Text(0);
}

std::string FaultsText(const lyd_node* state, std::size_t width)
{
    FactList faults;
    Children(state).Of("system").ForEach("fault", [&](const lyd_node* node) {
        const Children fault(node);
        const std::string kind = fault.Value("kind");
        const std::string text = fault.Value("text");
        const std::string what = kind == "0" ? "exception" : kind == "1" ? "failure" : "kind " + kind;
        faults.Add(fault.Value("number") + "  " + fault.Time("time") + "  " + fault.Value("process") + "[" +
                       fault.Value("pid") + "]",
                   what + " in " + fault.Value("function") + " (" + fault.Value("file") + ":" +
                       fault.Value("line") + ")" + (text.empty() ? "" : ": " + text));
    });
    return faults.Empty() ? "No fault was reported.\n" : faults.Text(0, width);
}

}  // namespace cli
