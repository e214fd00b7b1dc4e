// SPDX-License-Identifier: Apache-2.0
// Which candidate the shell's session uses, and what becomes of its edits when it leaves. What is done is
// written to the call's error stream.

#ifndef CLI_COMMANDS_CANDIDATE_USE_H
#define CLI_COMMANDS_CANDIDATE_USE_H

#include <cstddef>

#include "cli/commands/command.h"

namespace cli {

/// Opens a private candidate. Throws Error if the database refuses it.
void UsePrivate(Call& call);

/// Locks the candidate for this session. Throws Error if another session has a lock, or the candidate has
/// edits.
void UseExclusive(Call& call);

/// Back to the shared candidate: closes the private one, or takes the session's edits back and unlocks.
void UseShared(Call& call);

/// How many edits of this session the shared candidate keeps, by the database's word; 0 if it does not say.
std::size_t UncommittedEdits(Call& call);

/// After the session before this one was lost with `edits`: says whether the candidate still has them.
void TellOfLostEdits(Call& call, std::size_t edits);

}  // namespace cli

#endif
