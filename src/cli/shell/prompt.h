// SPDX-License-Identifier: Apache-2.0
// The text before each line that a person types.

#ifndef CLI_SHELL_PROMPT_H
#define CLI_SHELL_PROMPT_H

#include <string>

#include "cli/commands/command.h"
#include "cli/commands/standing.h"
#include "cli/screens/style.h"

namespace cli {

/// "ann@sw1> "; in configuration mode "ann@sw1 (config oam sflow)*> ", with the candidate's kind in the place
/// of "config", the place of edit, and * where something is not committed; "[confirm in 54 s]" while a commit
/// waits. A long place is cut at its begin.
std::string PromptText(const std::string& who, const ShellState& state, const Standing& standing,
                       const Style& style = Style());

}  // namespace cli

#endif
