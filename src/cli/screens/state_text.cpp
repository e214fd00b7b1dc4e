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

namespace {

/// Lines about the node's role and an empty one; nothing where none has been asked for.
std::string RoleText(const Children& system)
{
    const std::string role = system.Value("role");
    if (role != "active" && role != "standby") return {};
    return "This node is " + role + " since " + system.Time("role-since") + ".\nThe role was asked for by " +
           system.Value("role-by") + ".\n\n";
}

}  // namespace

std::string ProcessesText(const lyd_node* state, std::size_t width)
{
    TextTable table({"Name", {"Process", 1}, "State", {"Role", 2}, {"Missed", 3}, {"Since", 4}});
    TextTable times({"Name", {"Process", 2}, {"Connected since", 1}, "Last acknowledgement"});
    TextTable uses({"Name", {"Process", 1}, "Subscription or callpoint"});
    const Children system = Children(state).Of("system");
    system.ForEach("process", [&](const lyd_node* node) {
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
    const std::string role = RoleText(system);
    if (table.Empty()) return role + "No process is connected to the database.\n";
    return role + table.Text(0, width) + "\n" + times.Text(0, width) +
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
