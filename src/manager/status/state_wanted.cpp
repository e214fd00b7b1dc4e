// SPDX-License-Identifier: Apache-2.0
#include "manager/status/state_wanted.h"

#include <algorithm>

#include "ipc/cdb.pb.h"

namespace manager {
namespace {

using ipc::cdb::StateSelection;

WantedLeaves LeavesOf(const StateSelection& selection)
{
    WantedLeaves leaves;
    leaves.all = selection.children().empty();
    for (const StateSelection& child : selection.children()) leaves.names.insert(child.name());
    return leaves;
}

/// Null if the selection does not name one.
const std::string* KeyOf(const StateSelection& selection, std::string_view name)
{
    for (const auto& key : selection.keys())
        if (key.name() == name) return &key.value();
    return nullptr;
}

void Add(const StateSelection& selection, WantedEntries& entries)
{
    const WantedLeaves leaves = LeavesOf(selection);
    if (const std::string* name = KeyOf(selection, "name"))
        entries.named[*name].Add(leaves);
    else if (entries.every)
        entries.every->Add(leaves);
    else
        entries.every = leaves;
}

/// What is wanted of every entry is wanted of the named ones too.
void Spread(WantedEntries& entries)
{
    if (!entries.every) return;
    for (auto& [name, leaves] : entries.named) leaves.Add(*entries.every);
}

void AddProblems(const StateSelection& selection, WantedState& wanted)
{
    const std::string* subject = KeyOf(selection, "subject");
    const std::string* name = KeyOf(selection, "name");
    const auto is = [subject](std::string_view one) { return subject == nullptr || *subject == one; };
    const auto add = [name](WantedNames& names) {
        if (name == nullptr)
            names.all = true;
        else
            names.names.insert(*name);
    };
    if (is("agent") && (name == nullptr || *name == "agent")) wanted.problems.agent = true;
    if (is("collector")) add(wanted.problems.collectors);
    if (is("interface")) add(wanted.problems.interfaces);
}

}  // namespace

void WantedLeaves::Add(const WantedLeaves& more)
{
    all = all || more.all;
    names.insert(more.names.begin(), more.names.end());
}

const WantedLeaves* WantedEntries::Of(const std::string& name) const
{
    if (const auto at = named.find(name); at != named.end()) return &at->second;
    return every ? &*every : nullptr;
}

bool WantedEntries::Has(std::string_view leaf) const
{
    return (every && every->Has(leaf)) ||
           std::any_of(named.begin(), named.end(), [leaf](const auto& one) { return one.second.Has(leaf); });
}

WantedState WantedState::Everything()
{
    WantedState wanted;
    wanted.manager = wanted.collectors.every = wanted.interfaces.every = wanted.kernelInterfaces.every =
        WantedLeaves{true, {}};
    wanted.agentAddress = wanted.subAgent = wanted.drops = true;
    wanted.problems = {true, {true, {}}, {true, {}}};
    return wanted;
}

WantedState WantedState::From(const ipc::cdb::StateRequest_Part& part)
{
    if (part.children().empty()) return Everything();
    WantedState wanted;
    for (const StateSelection& child : part.children()) {
        if (child.name() == "manager") {
            if (!wanted.manager) wanted.manager.emplace();
            wanted.manager->Add(LeavesOf(child));
        }
        wanted.agentAddress = wanted.agentAddress || child.name() == "agent-address";
        wanted.subAgent = wanted.subAgent || child.name() == "sub-agent";
        wanted.drops = wanted.drops || child.name() == "drops";
        if (child.name() == "collector") Add(child, wanted.collectors);
        if (child.name() == "interface") Add(child, wanted.interfaces);
        if (child.name() == "kernel-interface") Add(child, wanted.kernelInterfaces);
        if (child.name() == "problem") AddProblems(child, wanted);
    }
    Spread(wanted.collectors);
    Spread(wanted.interfaces);
    Spread(wanted.kernelInterfaces);
    return wanted;
}

}  // namespace manager
