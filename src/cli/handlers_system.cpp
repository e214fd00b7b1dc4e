// SPDX-License-Identifier: Apache-2.0
#include <ostream>
#include <string>

#include "cli/data.h"
#include "cli/handlers.h"
#include "cli/output.h"
#include "cli/request.h"
#include "cli/sflow_text.h"
#include "cli/state_text.h"
#include "netconf/requests.h"

namespace cli {
namespace {

/// The top-level container of the state with this content, as a filter.
std::string StateFilter(const std::string& content)
{
    return "<state xmlns=\"urn:switch:yang:switch-state\">" + content + "</state>";
}

void ShowState(Call& call, const std::string& filter, const TextOf& text)
{
    const Tree tree = RequestState(call, netconf::Get(StateFilter(filter)));
    call.output.Show(tree.get(), text);
}

std::string SflowElements(const std::string& part)
{
    if (part == "agent") return "<sflow><agent-address/></sflow>";
    if (part == "collectors") return "<sflow><collector/></sflow>";
    if (part == "interfaces") return "<sflow><interface/></sflow>";
    // With the session, for without a manager there are no problems either.
    if (part == "problems") return "<sflow><manager><session/></manager><problem/></sflow>";
    return "<sflow/>";
}

}  // namespace

void Validate(Call& call) { Request(call, netconf::Validate()); }

void Commit(Call& call) { Request(call, netconf::Commit(call.arguments.text)); }

void Discard(Call& call) { Request(call, netconf::DiscardChanges()); }

void ShowSflow(Call& call)
{
    const std::string& part = call.arguments.choice;
    ShowState(call, "<oam>" + SflowElements(part) + "</oam>",
              [&](const lyd_node* state) { return SflowText(state, part); });
}

void ShowProcesses(Call& call) { ShowState(call, "<system><process/></system>", &ProcessesText); }

void ShowFaults(Call& call) { ShowState(call, "<system><fault/></system>", &FaultsText); }

void ShowVersion(Call& call)
{
    ShowState(call, "<system><version/><process><name/><version/></process></system>", &VersionsText);
}

void RequestHa(Call& call)
{
    Request(call, netconf::HaTransition(call.arguments.choice == "go-active" ? "active" : "standby"));
}

void RequestResync(Call& call) { Request(call, netconf::SflowResync()); }

void RequestBackup(Call& call) { Request(call, netconf::Backup(call.arguments.text)); }

void ShowHelp(Call& call) { call.out << Help(Commands(), call.arguments.words); }

void Exit(Call& call) { call.leave = true; }

}  // namespace cli
