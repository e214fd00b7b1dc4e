// SPDX-License-Identifier: Apache-2.0
#include "cli/state_text.h"

#include <libyang/libyang.h>

#include "base/version.h"
#include "cli/state_node.h"
#include "cli/text_table.h"

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

std::string ProcessesText(const lyd_node* state)
{
    TextTable table({"Name", "Process", "State", "Role", "Missed", "Since"});
    TextTable times({"Name", "Process", "Connected since", "Last acknowledgement"});
    TextTable uses({"Name", "Process", "Subscription or callpoint"});
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
    return table.Text(0) + "\n" + times.Text(0) + (uses.Empty() ? "" : "\n" + uses.Text(0));
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

std::string FaultsText(const lyd_node* state)
{
    TextTable table({"Number", "Time", "Process", "Kind", "Reported by", "Text"});
    Children(state).Of("system").ForEach("fault", [&](const lyd_node* node) {
        const Children fault(node);
        const std::string kind = fault.Value("kind");
        table.Add({fault.Value("number"), fault.Time("time"),
                   fault.Value("process") + "[" + fault.Value("pid") + "]",
                   kind == "0"   ? "0 exception"
                   : kind == "1" ? "1 failure"
                                 : kind,
                   fault.Value("function") + " (" + fault.Value("file") + ":" + fault.Value("line") + ")",
                   fault.Value("text")});
    });
    return table.Empty() ? "No fault was reported.\n" : table.Text(0);
}

}  // namespace cli
