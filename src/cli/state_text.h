// The switch's state as text: what `show sflow` and `show system` print for people.

#ifndef CLI_STATE_TEXT_H
#define CLI_STATE_TEXT_H

#include <string>
#include <string_view>

struct lyd_node;

namespace cli {

/// `part`: "agent", "collectors", "interfaces", or empty for these and the manager. The tree is the
/// top-level container `state`, or null when the database has none.
std::string SflowText(const lyd_node* state, std::string_view part);

std::string ProcessesText(const lyd_node* state);
std::string FaultsText(const lyd_node* state);

}  // namespace cli

#endif
