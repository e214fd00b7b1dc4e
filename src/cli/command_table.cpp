// SPDX-License-Identifier: Apache-2.0
#include <array>

#include "cli/command.h"
#include "cli/handlers.h"

namespace cli {

std::span<const Command> Commands()
{
    using Kind = ArgumentKind;
    constexpr unsigned kBoth = kSession | kYang;
    // Two lines a row read better than one line an element.
    // clang-format off
    static const std::array kCommands = {
        Command{"set", {{Kind::kPath, "PATH... [VALUE]"}},
                "Gives a leaf the value behind its path, or creates a list's entry.", kBoth, Forms::kNone, &Set},
        Command{"delete", {{Kind::kPath, "PATH..."}},
                "Deletes a leaf, a list's entry, or all that is below a path.", kBoth, Forms::kNone, &Delete},
        Command{"load merge", {{Kind::kFile, "FILE"}},
                "Adds a file's configuration (JSON or XML) to the candidate.", kBoth, Forms::kNone, &LoadMerge},
        Command{"load replace", {{Kind::kFile, "FILE"}},
                "Replaces the candidate's configuration by a file's (JSON or XML).", kBoth, Forms::kNone,
                &LoadReplace},
        Command{"show configuration", {{Kind::kPath, "PATH...", true}},
                "Shows the candidate: the running configuration with what was edited since.", kBoth,
                Forms::kConfiguration, &ShowConfiguration},
        Command{"compare", {},
                "Shows what a commit would change: + what comes, - what goes.", kBoth, Forms::kNone, &Compare},
        Command{"validate", {}, "Checks the candidate as a commit would.", kSession, Forms::kNone, &Validate},
        Command{"commit", {{Kind::kText, "comment TEXT", true}},
                "Makes the candidate the running configuration, which takes effect at once.", kSession,
                Forms::kNone, &Commit},
        Command{"discard", {},
                "Takes back everything that was edited since the last commit.", kSession, Forms::kNone, &Discard},
        Command{"show sflow", {{Kind::kChoice, "collectors|interfaces|agent|problems", true}},
                "Shows sFlow as it is in effect in the sFlow manager, what has flowed, and why nothing flows.", kBoth, Forms::kState, &ShowSflow},
        Command{"show system processes", {},
                "Shows the processes that are connected to the database.", kBoth, Forms::kState, &ShowProcesses},
        Command{"show system faults", {},
                "Shows the faults that processes reported.", kBoth, Forms::kState, &ShowFaults},
        Command{"show version", {},
                "Shows the versions of this shell, of the database and of the processes that are connected to it.", kBoth, Forms::kState, &ShowVersion},
        Command{"request ha", {{Kind::kChoice, "go-active|go-standby"}},
                "Tells every process to become active or to stand by.", kSession, Forms::kNone, &RequestHa},
        Command{"request sflow resync", {},
                "Has everything sent to the sFlow manager again; what is unchanged stays undisturbed.", kSession,
                Forms::kNone, &RequestResync},
        Command{"request backup", {{Kind::kFile, "FILE"}},
                "Copies the database into a new file on the switch, given by its absolute path.", kSession,
                Forms::kNone, &RequestBackup},
        Command{"help", {{Kind::kCommand, "COMMAND...", true}},
                "Lists the commands that begin with these words.", kNothing, Forms::kNone, &ShowHelp},
        Command{"exit", {}, "Ends the shell.", kNothing, Forms::kNone, &Exit},
    };
    // clang-format on
    return kCommands;
}

}  // namespace cli
