// SPDX-License-Identifier: Apache-2.0
#include <ostream>
#include <vector>

#include "cli/commands/candidate_use.h"
#include "cli/commands/groups.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/screens/candidates_text.h"
#include "netconf/requests.h"

namespace cli {
namespace {

void Update(Call& call)
{
    Request(call, netconf::UpdateCandidate(call.arguments.hasFlag));
    call.err << "the candidate has what others have committed\n";
}

void ShowCandidates(Call& call)
{
    ShowState(call, "<system><candidates xmlns=\"urn:switch:yang:switch-private-candidate\"/></system>",
              &CandidatesText);
}

void ShowHelp(Call& call) { call.out << Help(Commands(), call.arguments.words); }

/// Of a shell with a private candidate there is a session then.
void Exit(Call& call)
{
    if (call.shell.candidate != CandidateUse::kShared) return UseShared(call);
    call.shell.left = true;
}

}  // namespace

std::vector<Command> SessionCommands()
{
    using Kind = ArgumentKind;
    constexpr unsigned kBoth = kSession | kYang;
    // Two lines a row read better than one line an element.
    // clang-format off
    return {
        Command{"configure private", {},
                "Gives this session a candidate of its own, equal to the running configuration, for all commands from here on.",
                kSession, Forms::kNone, &UsePrivate},
        Command{"configure exclusive", {},
                "Locks the candidate for this session; what it has edited and not committed is taken back when it leaves.",
                kSession, Forms::kNone, &UseExclusive},
        Command{"configure shared", {},
                "Leaves this session's private candidate or its lock, and uses the shared candidate as others do.", kSession, Forms::kNone,
                &UseShared},
        Command{"update", {{Kind::kFlag, "running", true}},
                "Takes what others have committed into the candidate; with running, also in the place of what was edited here.",
                kSession, Forms::kNone, &Update},
        Command{"show system candidates", {},
                "Shows who has edited the shared candidate, and who has a private one.", kBoth, Forms::kState, &ShowCandidates},
        Command{"help", {{Kind::kCommand, "COMMAND...", true}},
                "Lists the commands that begin with these words.", kNothing, Forms::kNone, &ShowHelp},
        Command{"exit", {}, "Leaves a private candidate or a lock as configure shared does, else ends the shell.", kNothing, Forms::kNone, &Exit},
    };
    // clang-format on
}

}  // namespace cli
