// SPDX-License-Identifier: Apache-2.0
// The state of the system as text: what `show system` and `show version` print.
// A tree is the top-level container `state`, or null when the database has none.

#ifndef CLI_SCREENS_STATE_TEXT_H
#define CLI_SCREENS_STATE_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

struct lyd_node;

namespace cli {

/// "just now", "3 s ago", "2 min ago", "5 h ago", "8 d ago".
std::string AgeText(std::uint64_t seconds);

/// `width`: the characters of a line.
std::string ProcessesText(const lyd_node* state, std::size_t width);
std::string FaultsText(const lyd_node* state, std::size_t width);
/// This program's version is in it also without a tree.
std::string VersionsText(const lyd_node* state);

}  // namespace cli

#endif
