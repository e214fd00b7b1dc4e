// SPDX-License-Identifier: Apache-2.0
// The rows of the table by what they are about; a row's handler stands in the same source.

#ifndef CLI_COMMANDS_GROUPS_H
#define CLI_COMMANDS_GROUPS_H

#include <vector>

#include "cli/commands/command.h"

namespace cli {

/// The commands that edit, show and check the candidate.
std::vector<Command> ConfigurationCommands();

/// The commands that make the candidate effective, and take it back.
std::vector<Command> CommitCommands();

/// The commands about which candidate the shell uses, and about the shell itself.
std::vector<Command> SessionCommands();

/// The commands about commits and checkpoints.
std::vector<Command> HistoryCommands();

/// The commands about what samples.
std::vector<Command> SflowCommands();

/// The commands about the interfaces of the switch.
std::vector<Command> InterfaceCommands();

/// The commands about the processes of the switch.
std::vector<Command> SystemCommands();

}  // namespace cli

#endif
