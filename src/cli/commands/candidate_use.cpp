// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/candidate_use.h"

#include <ostream>
#include <string>

#include "base/number.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/state_node.h"
#include "cli/screens/counted.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace cli {
namespace {

Tree RequestEditors(Call& call)
{
    return RequestState(
        call, netconf::Get(StateFilter("<system><candidates "
                                       "xmlns=\"urn:switch:yang:switch-private-candidate\"><editor/>"
                                       "</candidates></system>")));
}

/// Makes the requests by which the session comes to `use`, or leaves it. Where their replies are not waited
/// for, it is unknown which candidate the session has: then the session ends, and `use` with it. Throws what
/// the requests throw, and netconf::ConnectionError.
template <typename Requests>
void Switch(Call& call, CandidateUse use, const Requests& requests)
{
    try {
        requests();
    } catch (const netconf::Stopped& stopped) {
        call.shell.candidate = use;
        throw netconf::ConnectionError(stopped.what());
    }
}

void LeaveExclusive(Call& call)
{
    const netconf::Reply reply = RequestReply(call, netconf::DiscardChanges());
    if (reply.changes.value_or(0) > 0) call.err << Counted(*reply.changes, "change") << " taken back\n";
    call.shell.edits = 0;
    Request(call, netconf::Unlock("candidate"));
}

}  // namespace

void UsePrivate(Call& call)
{
    if (call.shell.candidate == CandidateUse::kExclusive) UseShared(call);
    Switch(call, CandidateUse::kPrivate, [&] { Request(call, netconf::OpenPrivateCandidate()); });
    call.shell.candidate = CandidateUse::kPrivate;
}

void UseExclusive(Call& call)
{
    if (call.shell.candidate == CandidateUse::kExclusive) return;
    UseShared(call);
    Switch(call, CandidateUse::kExclusive, [&] { Request(call, netconf::Lock("candidate")); });
    call.shell.candidate = CandidateUse::kExclusive;
}

void UseShared(Call& call)
{
    const CandidateUse left = call.shell.candidate;
    call.shell.candidate = CandidateUse::kShared;
    Switch(call, left, [&] {
        if (left == CandidateUse::kPrivate) Request(call, netconf::ClosePrivateCandidate());
        if (left == CandidateUse::kExclusive) LeaveExclusive(call);
    });
}

std::size_t UncommittedEdits(Call& call)
{
    const std::string own = std::to_string(call.session->SessionId());
    std::size_t edits = 0;
    const Tree state = RequestEditors(call);
    Children(state.get()).Of("system").Of("candidates").ForEach("editor", [&](const lyd_node* node) {
        const Children editor(node);
        if (editor.Value("session-id") == own)
            edits += base::ToNumber<std::size_t>(editor.Value("edits")).value_or(0);
    });
    return edits;
}

void TellOfLostEdits(Call& call, std::size_t edits)
{
    const Tree state = RequestEditors(call);
    const bool kept = Children(state.get()).Of("system").Of("candidates").First("editor") != nullptr;
    call.err << "warning: connected again; "
             << (kept ? "the candidate is still edited: show system candidates lists who does\n"
                      : "the candidate has no edits any more, " + Counted(edits, "edit") +
                            " of this shell went with the session before\n");
}

}  // namespace cli
