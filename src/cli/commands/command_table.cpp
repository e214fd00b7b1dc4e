// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <iterator>
#include <vector>

#include "cli/commands/command.h"
#include "cli/commands/groups.h"

namespace cli {

std::span<const Command> Commands()
{
    static const std::vector<Command> commands = [] {
        std::vector<Command> all;
        for (const auto& group : {&ConfigurationCommands, &CommitCommands, &HistoryCommands, &SflowCommands,
                                  &InterfaceCommands, &SystemCommands, &SessionCommands}) {
            std::vector<Command> rows = group();
            std::move(rows.begin(), rows.end(), std::back_inserter(all));
        }
        return all;
    }();
    return commands;
}

}  // namespace cli
