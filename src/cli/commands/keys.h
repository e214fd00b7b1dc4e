// SPDX-License-Identifier: Apache-2.0
// The entries of a list, for completion.

#ifndef CLI_COMMANDS_KEYS_H
#define CLI_COMMANDS_KEYS_H

#include <vector>

#include "cli/commands/command.h"
#include "cli/data/schema_choices.h"

namespace cli {

/// The first keys of the candidate's entries, in natural order. Of sFlow's interfaces, then the names and
/// aliases of the kernel's that have no entry. Throws netconf::ConnectionError.
std::vector<Choice> RequestKeys(Call& call, const Place& list);

}  // namespace cli

#endif
