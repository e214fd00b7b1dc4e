// SPDX-License-Identifier: Apache-2.0
#include <ostream>
#include <vector>

#include "cli/commands/groups.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/screens/candidates_text.h"
#include "netconf/requests.h"

namespace cli {
namespace {

void ConfigurePrivate(Call& call)
{
    Request(call, netconf::OpenPrivateCandidate());
    call.shell.isPrivate = true;
}

void ConfigureShared(Call& call)
{
    if (!call.shell.isPrivate) return;
    call.shell.isPrivate = false;
    Request(call, netconf::ClosePrivateCandidate());
}

void Update(Call& call) { Request(call, netconf::UpdateCandidate(call.arguments.hasFlag)); }

void ShowCandidates(Call& call)
{
    ShowState(call, "<system><candidates xmlns=\"urn:switch:yang:switch-private-candidate\"/></system>",
              &CandidatesText);
}

void ShowHelp(Call& call) { call.out << Help(Commands(), call.arguments.words); }

/// Of a shell with a private candidate there is a session then.
void Exit(Call& call)
{
    if (call.shell.isPrivate) return ConfigureShared(call);
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
                kSession, Forms::kNone, &ConfigurePrivate},
        Command{"configure shared", {},
                "Drops this session's private candidate, and uses the shared one again.", kSession, Forms::kNone,
                &ConfigureShared},
        Command{"update", {{Kind::kFlag, "running", true}},
                "Takes what others have committed into the candidate; with running, also in the place of what was edited here.",
                kSession, Forms::kNone, &Update},
        Command{"show system candidates", {},
                "Shows who has edited the shared candidate, and who has a private one.", kBoth, Forms::kState, &ShowCandidates},
        Command{"help", {{Kind::kCommand, "COMMAND...", true}},
                "Lists the commands that begin with these words.", kNothing, Forms::kNone, &ShowHelp},
        Command{"exit", {}, "Drops a private candidate as configure shared does, else ends the shell.", kNothing, Forms::kNone, &Exit},
    };
    // clang-format on
}

}  // namespace cli
