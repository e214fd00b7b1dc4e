// SPDX-License-Identifier: Apache-2.0
// The history's state as text for people: commits and checkpoints.

#ifndef CLI_SCREENS_HISTORY_TEXT_H
#define CLI_SCREENS_HISTORY_TEXT_H

#include <cstddef>
#include <string>

struct lyd_node;

namespace cli {

// `state`: the state's top-level container, or null.

/// Takes all commits but the newest `count` out of the tree.
void KeepNewest(lyd_node* state, std::size_t count);

/// What waits for its confirmation, in a sentence; empty if nothing does.
std::string PendingText(const lyd_node* state);
/// A table of the commits, the newest first, below what waits for its confirmation.
std::string HistoryText(const lyd_node* state, std::size_t width);
/// The commits of the tree, each with what is known of it, and an empty line.
std::string CommitText(const lyd_node* state);
std::string CheckpointsText(const lyd_node* state);

}  // namespace cli

#endif
