// SPDX-License-Identifier: Apache-2.0
// swcli: the operator's shell. Wires the commands to the database's NETCONF socket and to the YANG
// modules, each only when a command needs it.

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "base/directories.h"
#include "base/options/options.h"
#include "cdb/schema/schema.h"
#include "cli/command.h"
#include "cli/options.h"
#include "cli/shell.h"
#include "netconf/client.h"

namespace {

bool RunFile(cli::Shell& shell, const std::string& path)
{
    std::ifstream file(path);
    if (!file) {
        std::cerr << "error: can't read " << path << ": check that the file is there and readable"
                  << std::endl;
        return false;
    }
    return shell.RunLines(file, path);
}

bool RunInput(cli::Shell& shell)
{
    if (!::isatty(STDIN_FILENO)) return shell.RunLines(std::cin, "standard input");
    shell.Converse(std::cin);
    return true;
}

bool Run(const cli::Options& options)
{
    std::unique_ptr<cdb::Schema> schema;  // outlives the shell, which holds trees of its context
    cli::Environment environment;
    environment.connect = [&] {
        return std::make_unique<netconf::Client>(netconf::Client::Connect(options.socket));
    };
    environment.loadYang = [&] {
        schema =
            cdb::Schema::Load(base::YangDirectory(base::ProgramPath(), base::Variable("SFLOW_YANG_DIR")));
        return schema->Context();
    };
    cli::Shell shell(cli::Commands(), environment, std::cout, std::cerr);
    if (options.commands) return shell.RunAll(*options.commands);
    if (options.file) return RunFile(shell, *options.file);
    return RunInput(shell);
}

}  // namespace

int main(int argc, char** argv)
{
    bool done = true;
    try {
        const cli::Options options =
            cli::ReadOptions(std::vector<std::string>(argv + 1, argv + argc), &base::Variable);
        if (options.help)
            std::cout << cli::HelpText();
        else if (options.version)
            std::cout << base::VersionText("swcli");
        else
            done = Run(options);
    } catch (const std::exception& error) {
        std::cerr << "error: " << error.what() << std::endl;
        done = false;
    }
    if (done && !std::cout.flush()) {
        std::cerr << "error: standard output can't be written" << std::endl;
        done = false;
    }
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
