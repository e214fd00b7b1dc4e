// SPDX-License-Identifier: Apache-2.0
#include "cli/state_text.h"

#include "base/version.h"
#include "cli/state_tree.h"
#include "cli/text_table.h"

namespace cli {

std::string ProcessesText(const lyd_node* state)
{
    TextTable table({"Name", "Process", "State", "Role", "Connected since", "Callpoints", "Subscriptions"});
    Children(state).Of("system").ForEach("process", [&](const lyd_node* node) {
        const Children process(node);
        table.Add({process.Value("name"), process.Value("pid"), process.Value("state"), process.Value("role"),
                   process.Time("connected-since"), process.Values("callpoint"),
                   process.Values("subscription")});
    });
    return table.Empty() ? "No process is connected to the database.\n" : table.Text(0);
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
