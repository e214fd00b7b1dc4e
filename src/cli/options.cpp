// SPDX-License-Identifier: Apache-2.0
#include "cli/options.h"

#include <boost/program_options.hpp>
#include <sstream>

#include "base/directories.h"
#include "cli/command.h"
#include "cli/error.h"

namespace cli {
namespace {

namespace po = boost::program_options;

po::options_description Described()
{
    po::options_description described("Options", 100);
    auto add = described.add_options();
    add("command,c", po::value<std::string>()->value_name("COMMANDS"),
        "run these commands; ';' separates them");
    add("file,f", po::value<std::string>()->value_name("FILE"),
        "run the commands of a file, one a line; '#' begins a comment");
    add("socket", po::value<std::string>()->value_name("PATH"),
        "the database's NETCONF socket (default: netconf.sock in $SFLOW_RUN_DIR or /run/sflow-switch)");
    add("help,h", "print this text");
    add("version", "print the version");
    return described;
}

/// The only positional argument that is understood is the word "help".
po::variables_map Parse(const std::vector<std::string>& arguments)
{
    po::options_description described = Described();
    described.add_options()("words", po::value<std::vector<std::string>>());
    po::positional_options_description positional;
    positional.add("words", -1);
    po::variables_map values;
    try {
        const auto style = po::command_line_style::default_style & ~po::command_line_style::allow_guessing;
        po::store(
            po::command_line_parser(arguments).options(described).positional(positional).style(style).run(),
            values);
    } catch (const po::error& error) {
        throw Error(std::string(error.what()) + "; swcli --help lists the options");
    }
    return values;
}

std::optional<std::string> Text(const po::variables_map& values, const char* name)
{
    if (values.count(name) == 0) return std::nullopt;
    return values[name].as<std::string>();
}

}  // namespace

Options ReadOptions(const std::vector<std::string>& arguments, const base::Variables& variables)
{
    const po::variables_map values = Parse(arguments);
    Options options;
    options.commands = Text(values, "command");
    options.file = Text(values, "file");
    options.help = values.count("help") > 0;
    options.version = values.count("version") > 0;
    options.socket = Text(values, "socket").value_or(base::RunDirectory(variables) + "/netconf.sock");
    if (options.commands && options.file) throw Error("-c and -f exclude each other; give one of them");
    if (values.count("words") > 0) {
        const auto& words = values["words"].as<std::vector<std::string>>();
        if (words != std::vector<std::string>{"help"})
            throw Error("\"" + words[0] + "\" is no option; give commands with -c 'COMMAND; COMMAND'");
        options.help = true;
    }
    return options;
}

std::string HelpText()
{
    std::ostringstream text;
    text << "usage: swcli [-c COMMANDS | -f FILE] [--socket PATH]\n\n"
            "Configures and shows the switch. Without -c and -f it reads commands from standard input,\n"
            "one a line; on a terminal it prompts for them. It stops at the first error, with status 1.\n\n"
         << Described() << "\nCommands:\n"
         << Help(Commands(), {})
         << "\nPaths are words without the root container: set oam sflow interface eth1 sampling-rate 512\n"
            "Edits go to the candidate; commit makes them effective.\n";
    return text.str();
}

std::string VersionText() { return std::string("swcli ") + SFLOW_VERSION + "\n"; }

}  // namespace cli
