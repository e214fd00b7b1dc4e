// SPDX-License-Identifier: Apache-2.0
// swcli: the operator's shell. Wires the commands to the database's NETCONF socket and to the YANG
// modules, each only when a command needs it.

#include <sys/ioctl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/directories.h"
#include "base/environment.h"
#include "base/options/options.h"
#include "base/user.h"
#include "cdb/schema/schema.h"
#include "cli/commands/command.h"
#include "cli/shell/full_screen.h"
#include "cli/shell/line_editor.h"
#include "cli/shell/message_lines.h"
#include "cli/shell/options.h"
#include "cli/shell/pager.h"
#include "cli/shell/shell.h"
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

/// Lines end before the last column, where terminals differ in when they wrap.
std::size_t LineWidthOf(int file)
{
    winsize size{};
    if (::ioctl(file, TIOCGWINSZ, &size) != 0 || size.ws_col < 2) return cli::Shell::kWidth;
    return size.ws_col - 1U;
}

std::size_t LineWidth() { return LineWidthOf(STDOUT_FILENO); }

std::size_t MessageWidth() { return LineWidthOf(STDERR_FILENO); }

std::size_t ScreenHeight()
{
    constexpr std::size_t kHeight = 24;
    winsize size{};
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : kHeight;
}

bool RunInput(cli::Shell& shell)
{
    if (!::isatty(STDIN_FILENO)) {
        const bool done = shell.RunLines(std::cin, "standard input");
        if (!done || std::ferror(stdin) == 0) return done;
        std::cerr << "error: can't read standard input: it is closed or a directory" << std::endl;
        return false;
    }
    if (!::isatty(STDOUT_FILENO)) {
        cli::StreamLines lines(std::cin, std::cout);
        shell.Converse(lines);
        return true;
    }
    const std::string home = base::Variable("HOME").value_or("");
    cli::LineEditor lines([&shell](std::string_view line) { return shell.Complete(line); }, &LineWidth,
                          home.empty() ? home : home + "/.swcli_history");
    shell.Converse(lines);
    return true;
}

/// Whether there are colours on what is written there: only for a person who does not refuse them
/// (no-color.org).
cli::Style StyleOf(int file)
{
    const std::string terminal = base::Variable("TERM").value_or("dumb");
    return cli::Style(::isatty(file) && base::Variable("NO_COLOR").value_or("").empty() &&
                      terminal != "dumb" && !terminal.empty());
}

std::string HostName()
{
    utsname names{};
    if (::uname(&names) != 0) return "switch";
    const std::string_view name(names.nodename);
    return std::string(name.substr(0, name.find('.')));
}

/// The exit status.
int Run(const cli::Options& options)
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
    environment.width = &LineWidth;
    environment.who = base::UserName(::geteuid()) + "@" + HostName();
    if (::isatty(STDOUT_FILENO)) environment.page = &cli::Page;
    environment.height = &ScreenHeight;
    environment.openScreen = [] { return cli::OpenFullScreen(StyleOf(STDOUT_FILENO).HasColours()); };
    environment.asksStanding = ::isatty(STDIN_FILENO) && ::isatty(STDOUT_FILENO);
    environment.style = StyleOf(STDOUT_FILENO);
    cli::MessageLines lines(std::cerr, &MessageWidth, StyleOf(STDERR_FILENO));
    std::ostream messages(&lines);
    cli::Shell shell(cli::Commands(), environment, std::cout, ::isatty(STDERR_FILENO) ? messages : std::cerr);
    if (options.exclusive) shell.LockCandidate();
    const bool done = options.commands ? shell.RunAll(*options.commands)
                      : options.file   ? RunFile(shell, *options.file)
                                       : RunInput(shell);
    return done ? shell.Status() : std::max(EXIT_FAILURE, shell.Status());
}

}  // namespace

int main(int argc, char** argv)
{
    int status = EXIT_SUCCESS;
    try {
        const cli::Options options =
            cli::ReadOptions(std::vector<std::string>(argv + 1, argv + argc), &base::Variable);
        if (options.help)
            std::cout << cli::HelpText();
        else if (options.version)
            std::cout << base::VersionText("swcli");
        else
            status = Run(options);
    } catch (const std::exception& error) {
        std::cerr << "error: " << error.what() << std::endl;
        status = EXIT_FAILURE;
    }
    if (status == EXIT_SUCCESS && !std::cout.flush()) {
        std::cerr << "error: standard output can't be written" << std::endl;
        status = EXIT_FAILURE;
    }
    return status;
}
