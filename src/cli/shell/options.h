// SPDX-License-Identifier: Apache-2.0
// The command line of swcli and the places that its environment names.

#ifndef CLI_SHELL_OPTIONS_H
#define CLI_SHELL_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "base/environment.h"

namespace cli {

struct Options {
    std::optional<std::string> commands;  // -c
    std::optional<std::string> file;      // -f
    std::string socket;
    bool exclusive = false;
    bool help = false;
    bool version = false;
};

/// Reads the arguments behind the program's name. Throws Error.
Options ReadOptions(const std::vector<std::string>& arguments, const base::Variables& variables);

/// What --help prints: usage, options, the commands.
std::string HelpText();

}  // namespace cli

#endif
