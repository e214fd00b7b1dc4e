// SPDX-License-Identifier: Apache-2.0
#include <ostream>
#include <utility>
#include <vector>

#include "cli/commands/candidate_use.h"
#include "cli/commands/groups.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/error.h"
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

void ShowHelp(Call& call) { call.out << Help(Commands(), call.arguments.words, call.width); }

void Configure(Call& call)
{
    UseShared(call);
    call.shell.configures = true;
}

void ConfigurePrivate(Call& call)
{
    UsePrivate(call);
    call.shell.configures = true;
}

void ConfigureExclusive(Call& call)
{
    UseExclusive(call);
    call.shell.configures = true;
}

/// Leaves the innermost of: the place of edit, the candidate or the mode, the shell. Of a shell with a
/// private candidate there is a session then.
void Exit(Call& call)
{
    ShellState& shell = call.shell;
    if (!shell.place.empty()) return shell.place.clear();
    const bool hadMode = std::exchange(shell.configures, false);
    if (shell.candidate != CandidateUse::kShared) return UseShared(call);
    shell.left = !hadMode;
}

void RunWithout(Call& /*call*/) { throw Error("a command is missing behind run"); }

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
        Command{"configure", {},
                "Begins configuration mode, in which a prompt takes edits; edits go to the candidate that all sessions share.",
                kSession, Forms::kNone, &Configure},
        Command{"configure exclusive", {},
                "Locks the candidate for this session; what it has edited and not committed is taken back when it leaves.",
                kSession, Forms::kNone, &ConfigureExclusive},
        Command{"configure shared", {},
                "Leaves this session's private candidate or its lock, and uses the shared candidate as others do.", kSession, Forms::kNone,
                &Configure},
        Command{"update", {{Kind::kFlag, "running", true, "Also in the place of what was edited here."}},
                "Takes what others have committed into the candidate; with running, also in the place of what was edited here.",
                kSession | kMode, Forms::kNone, &Update},
        Command{"show system candidates", {},
                "Shows who has edited the shared candidate, and who has a private one.", kBoth, Forms::kState, &ShowCandidates},
        Command{"help", {{Kind::kCommand, "COMMAND...", true}},
                "Lists the commands that begin with these words.", kNothing, Forms::kNone, &ShowHelp},
        Command{"run", {{Kind::kCommand, "COMMAND..."}},
                "Runs a command as operational mode would; in configuration mode all work without it, too.", kNothing, Forms::kNone, &RunWithout},
        Command{"exit", {}, "Leaves the place of edit, else configuration mode with its candidate or lock, else the shell.", kNothing, Forms::kNone, &Exit},
        Command{"quit", {}, "The same as exit.", kNothing, Forms::kNone, &Exit},
    };
    // clang-format on
}

}  // namespace cli
