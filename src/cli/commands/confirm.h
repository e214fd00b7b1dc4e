// SPDX-License-Identifier: Apache-2.0
// The commands on a confirmed commit (RFC 6241, section 8.4): committing, confirming, cancelling.
//
// In a conversation it belongs to the session, unless it is given an id, and is rolled back when the shell
// ends. A script's session ends with the script, so there it gets an id by itself, which each later swcli of
// the same user knows.

#ifndef CLI_COMMANDS_CONFIRM_H
#define CLI_COMMANDS_CONFIRM_H

#include "cli/commands/command.h"

namespace cli {

// Handlers of the command table. They throw Error.

void CommitConfirmed(Call& call);
void Confirm(Call& call);
void Cancel(Call& call);

}  // namespace cli

#endif
