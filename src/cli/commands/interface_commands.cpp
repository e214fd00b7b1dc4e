// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "cli/commands/groups.h"
#include "cli/commands/show.h"
#include "cli/screens/interfaces_text.h"

namespace cli {
namespace {

void ShowInterfaces(Call& call)
{
    ShowState(call, std::string(kInterfacesState),
              [&](const lyd_node* state) { return InterfacesTable(state, call.width); });
}

}  // namespace

std::vector<Command> InterfaceCommands()
{
    constexpr unsigned kBoth = kSession | kYang;
    // clang-format off
    return {
        Command{"show interfaces", {},
                "Shows the kernel's interfaces, those that are not configured among them, and whether each is sampled or why not.", kBoth, Forms::kState, &ShowInterfaces},
    };
    // clang-format on
}

}  // namespace cli
