// SPDX-License-Identifier: Apache-2.0
// What a prompt shows of the database: whether the candidate has edits, and how long a commit waits for its
// confirmation.

#ifndef CLI_COMMANDS_STANDING_H
#define CLI_COMMANDS_STANDING_H

#include <string>

#include "cli/commands/command.h"

namespace netconf {
struct Reply;
}

namespace cli {

struct Standing {
    bool isAway = false;      // there is no connection to the database
    bool isLate = false;      // the reply has not come in time, or one before it has not
    bool isEdited = false;    // the candidate that the session uses
    std::string confirmIn{};  // seconds; empty if no commit waits for its confirmation
};

/// The request.
std::string StandingRequest();

/// What its reply says; what it does not tell is missing.
Standing StandingOf(const Call& call, const netconf::Reply& reply);

}  // namespace cli

#endif
