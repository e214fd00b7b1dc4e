// SPDX-License-Identifier: Apache-2.0
// What a prompt shows of the database: whether the candidate has edits, and how long a commit waits for its
// confirmation.

#ifndef CLI_COMMANDS_STANDING_H
#define CLI_COMMANDS_STANDING_H

#include <string>

#include "cli/commands/command.h"

namespace cli {

struct Standing {
    bool known = false;
    bool isEdited = false;    // the candidate that the session uses
    std::string confirmIn{};  // seconds; empty if no commit waits for its confirmation
};

/// Asks the database. Throws netconf::ConnectionError; what it does not tell is missing.
Standing RequestStanding(Call& call);

}  // namespace cli

#endif
