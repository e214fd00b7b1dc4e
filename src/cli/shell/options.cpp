// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/options.h"

#include <cstring>
#include <sstream>

#include "base/directories.h"
#include "base/options/options.h"
#include "cli/commands/command.h"
#include "cli/data/error.h"
#include "cli/shell/shell.h"

namespace cli {
namespace {

base::Options OptionsFor(Options& to)
{
    base::Options described(to.help, to.version);
    const auto add = [&](const char* name, const char* value, std::optional<std::string>& member,
                         const char* help) {
        described.Add(name, value, help, [&member, name](const std::string& text) {
            if (member)
                throw base::UsageError("option --" + std::string(name, std::strcspn(name, ",")) +
                                       " is given twice");
            member = text;
        });
    };
    add("command,c", "COMMANDS", to.commands, "run these commands; ';' separates them");
    add("file,f", "FILE", to.file, "run the commands of a file, one a line; '#' begins a comment");
    described.Add("exclusive", "lock the candidate; what is not committed in the end is taken back",
                  to.exclusive);
    described.Add(
        "socket", "PATH",
        "the database's NETCONF socket (default: netconf.sock in $SFLOW_RUN_DIR or /run/sflow-switch)",
        [&to](const std::string& path) { to.socket = path; });
    return described;
}

}  // namespace

Options ReadOptions(const std::vector<std::string>& arguments, const base::Variables& variables)
{
    Options options;
    options.socket = base::RunDirectory(variables) + "/netconf.sock";
    std::vector<std::string> words;
    try {
        OptionsFor(options).Read(arguments, &words);
    } catch (const base::UsageError& error) {
        throw Error(std::string(error.what()) + "; swcli --help lists the options");
    }
    if (options.commands && options.file) throw Error("-c and -f exclude each other; give one of them");
    // The only word that is understood.
    if (words == std::vector<std::string>{"help"})
        options.help = true;
    else if (!words.empty())
        throw Error("\"" + words[0] + "\" is no option; give commands with -c 'COMMAND; COMMAND'");
    return options;
}

std::string HelpText()
{
    Options unused;
    std::ostringstream text;
    text << "usage: swcli [-c COMMANDS | -f FILE] [--exclusive] [--socket PATH]\n\n"
            "Configures and shows the switch. Without -c and -f it reads commands from standard input,\n"
            "one a line; on a terminal it prompts for them. It stops at the first error, with status 1.\n\n"
         << OptionsFor(unused).Text() << "\nCommands:\n"
         << Help(Commands(), {}, Shell::kWidth)
         << "\nPaths are words without the root container: set oam sflow interface eth1 sampling-rate 512\n"
            "Edits go to the candidate; commit makes them effective.\n";
    return text.str();
}

}  // namespace cli
