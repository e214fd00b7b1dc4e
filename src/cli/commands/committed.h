// SPDX-License-Identifier: Apache-2.0
// What the shell says after a commit, and what it warns of.

#ifndef CLI_COMMANDS_COMMITTED_H
#define CLI_COMMANDS_COMMITTED_H

#include <string_view>

#include "cli/commands/command.h"

namespace netconf {
struct Reply;
}

namespace cli {

/// Writes what was committed to the call's error stream, or as JSON to its results if that was asked for;
/// then warnings: the answer's, of other sessions' edits that were committed too, of interfaces that were
/// committed and are not in the kernel, of a manager that is away. `before`: what to write before the report;
/// `nothing`: in its place if nothing was committed.
void Committed(Call& call, const netconf::Reply& reply, std::string_view before = {},
               std::string_view nothing = "nothing to commit");

}  // namespace cli

#endif
