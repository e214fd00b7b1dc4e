// SPDX-License-Identifier: Apache-2.0
// The state of sFlow as tables and lists of facts: what `show sflow` prints of its parts. A tree is the
// top-level container `state`, or null when the database has none. `width`: the characters of a line.

#ifndef CLI_SCREENS_SFLOW_TEXT_H
#define CLI_SCREENS_SFLOW_TEXT_H

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

struct lyd_node;

namespace cli {

/// What part "agent", "collectors", "interfaces", "drops" or "problems" is made of, as the content of a
/// filter's container `sflow`; empty if the part is: everything.
std::string SflowElements(std::string_view part);

std::string SflowText(const lyd_node* state, std::string_view part, std::size_t width);

/// The names of the entries of the list, "collector" or "interface".
std::set<std::string> EntryNames(const lyd_node* state, std::string_view list);

/// What the first problem says that the state has of that name; empty if it has none.
std::string ProblemOf(const lyd_node* state, std::string_view list, std::string_view name);

/// All that is known of each entry of the list, "collector" or "interface", and why it does not flow.
std::string SflowDetail(const lyd_node* state, std::string_view list, std::size_t width);

}  // namespace cli

#endif
