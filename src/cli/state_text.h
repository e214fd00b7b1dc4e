// SPDX-License-Identifier: Apache-2.0
// The switch's processes and faults as text: what `show system` prints for people.

#ifndef CLI_STATE_TEXT_H
#define CLI_STATE_TEXT_H

#include <string>

struct lyd_node;

namespace cli {

/// The tree is the top-level container `state`, or null when the database has none.
std::string ProcessesText(const lyd_node* state);
std::string FaultsText(const lyd_node* state);

}  // namespace cli

#endif
