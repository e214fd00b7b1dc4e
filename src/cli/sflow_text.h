// SPDX-License-Identifier: Apache-2.0
// The state of sFlow as text: what `show sflow` prints for people, for terminals of 100 columns.

#ifndef CLI_SFLOW_TEXT_H
#define CLI_SFLOW_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

struct lyd_node;

namespace cli {

/// `part`: "agent", "collectors", "interfaces", "problems", or empty for these and the manager. The tree
/// is the top-level container `state`, or null when the database has none.
std::string SflowText(const lyd_node* state, std::string_view part);

/// "just now", "3 s ago", "2 min ago", "5 h ago", "8 d ago".
std::string AgeText(std::uint64_t seconds);

}  // namespace cli

#endif
