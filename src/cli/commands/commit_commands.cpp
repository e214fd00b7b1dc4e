// SPDX-License-Identifier: Apache-2.0
#include <ostream>
#include <vector>

#include "cli/commands/committed.h"
#include "cli/commands/confirm.h"
#include "cli/commands/groups.h"
#include "cli/commands/request.h"
#include "cli/screens/counted.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace cli {
namespace {

void Commit(Call& call)
{
    const netconf::Reply reply =
        RequestReply(call, netconf::Commit(call.arguments.Named("comment")), Warnings::kLeft);
    call.shell.waits = false;
    Committed(call, reply);
}

void Discard(Call& call)
{
    const netconf::Reply reply = RequestReply(call, netconf::DiscardChanges());
    call.shell.edits = 0;
    if (!reply.changes)
        call.err << "all edits taken back\n";
    else
        call.err << (*reply.changes == 0 ? "nothing to take back"
                                         : Counted(*reply.changes, "change") + " taken back")
                 << '\n';
}

void Validate(Call& call)
{
    Request(call, netconf::Validate());
    call.err << "the candidate is valid\n";
}

}  // namespace

std::vector<Command> CommitCommands()
{
    using Kind = ArgumentKind;
    constexpr unsigned kBoth = kSession | kYang;
    // Two lines a row read better than one line an element.
    // clang-format off
    return {
        Command{"commit", {{Kind::kText, "comment TEXT", true, "A text that the history keeps."}},
                "Makes the candidate the running configuration, which takes effect at once.", kBoth | kMode,
                Forms::kReport, &Commit},
        Command{"commit confirmed", {{Kind::kNumber, "SECONDS", true}, {Kind::kText, "persist ID", true, "Any session may confirm it, by this id."}, {Kind::kText, "comment TEXT", true, "A text that the history keeps."}},
                "Commits, and rolls back unless confirm comes within that time (600 seconds without a number); again, it prolongs the time.",
                kBoth | kMode, Forms::kReport, &CommitConfirmed},
        Command{"confirm", {{Kind::kName, "ID", true}},
                "Confirms the commit that waits for it, and leaves the candidate alone.", kBoth, Forms::kNone, &Confirm},
        Command{"cancel", {{Kind::kName, "ID", true}},
                "Rolls the commit that waits for its confirmation back at once.", kBoth, Forms::kReport, &Cancel},
        Command{"validate", {}, "Checks the candidate as a commit would.", kSession, Forms::kNone, &Validate},
        Command{"commit check", {}, "The same as validate: nothing is committed.", kSession | kMode, Forms::kNone, &Validate},
        Command{"discard", {},
                "Takes back everything that was edited since the last commit.", kSession | kMode, Forms::kNone, &Discard},
    };
    // clang-format on
}

}  // namespace cli
