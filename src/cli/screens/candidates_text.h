// SPDX-License-Identifier: Apache-2.0
// The state of the candidates as text: what `show system candidates` prints.

#ifndef CLI_SCREENS_CANDIDATES_TEXT_H
#define CLI_SCREENS_CANDIDATES_TEXT_H

#include <string>

struct lyd_node;

namespace cli {

/// `state`: the top-level container, or null.
std::string CandidatesText(const lyd_node* state);

}  // namespace cli

#endif
