// SPDX-License-Identifier: Apache-2.0
// What there is, for completion: the entries of lists, and what commands' arguments name. The database is not
// waited for longer than a person at a Tab would like; what it does not tell until then is not offered.

#ifndef CLI_COMMANDS_KEYS_H
#define CLI_COMMANDS_KEYS_H

#include <vector>

#include "cli/commands/command.h"
#include "cli/data/schema_choices.h"

namespace cli {

/// The first keys of the candidate's entries, in natural order. Of sFlow's interfaces, then the names and
/// aliases of the kernel's that have no entry. Throws netconf::ConnectionError.
std::vector<Choice> RequestKeys(Call& call, const Place& list);

/// What may be named. Commits are those of the history, the newest first; sessions are the others'. Throws
/// netconf::ConnectionError.
std::vector<Choice> RequestNames(Call& call, Nameable names);

}  // namespace cli

#endif
