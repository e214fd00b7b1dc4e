// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/standing.h"

#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/state_node.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace cli {

std::string StandingRequest()
{
    return netconf::Get(StateFilter(
        "<system><candidates xmlns=\"urn:switch:yang:switch-private-candidate\"/>"
        "<history xmlns=\"urn:switch:yang:switch-history\"><pending-confirmation/></history></system>"));
}

Standing StandingOf(const Call& call, const netconf::Reply& reply)
{
    Standing standing;
    if (!reply.ok) return standing;
    const Tree state = ParseReply(call.yang, reply.data);
    const Children system = Children(state.get()).Of("system");
    const std::string own = std::to_string(call.session->SessionId());
    const Children candidates = system.Of("candidates");
    if (call.shell.candidate != CandidateUse::kPrivate)
        standing.isEdited = candidates.First("editor") != nullptr;
    else
        candidates.ForEach("private", [&](const lyd_node* node) {
            const Children each(node);
            if (each.Value("session-id") == own) standing.isEdited = each.Value("edits") != "0";
        });
    const Children pending = system.Of("history").Of("pending-confirmation");
    if (!pending.None()) standing.confirmIn = pending.Value("time-left");
    return standing;
}

}  // namespace cli
