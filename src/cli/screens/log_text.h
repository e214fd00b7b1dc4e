// SPDX-License-Identifier: Apache-2.0
// Lines of the processes' logs for people.

#ifndef CLI_SCREENS_LOG_TEXT_H
#define CLI_SCREENS_LOG_TEXT_H

#include <string>

struct lyd_node;

namespace cli {

/// One line an entry, the newest last, with the time of this machine's zone. Texts are never cut: a terminal
/// breaks the lines that are too long for it, and filters see each entry whole. `output`: the node of
/// get-log; `process`: whose lines were asked for, empty for all.
std::string LogText(const lyd_node* output, const std::string& process);

}  // namespace cli

#endif
