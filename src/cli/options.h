// SPDX-License-Identifier: Apache-2.0
// The command line of swcli and the places that its environment names.

#ifndef CLI_OPTIONS_H
#define CLI_OPTIONS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace cli {

struct Options {
    std::optional<std::string> commands;  // -c
    std::optional<std::string> file;      // -f
    std::string socket;
    bool help = false;
    bool version = false;
};

/// The value of an environment variable; nullopt when it is not set.
using Variables = std::function<std::optional<std::string>(const char* name)>;

/// Reads the arguments behind the program's name. Throws Error.
Options ReadOptions(const std::vector<std::string>& arguments, const Variables& environment);

/// What --help prints: usage, options, the commands.
std::string HelpText();

/// What --version prints.
std::string VersionText();

}  // namespace cli

#endif
