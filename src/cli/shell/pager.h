// SPDX-License-Identifier: Apache-2.0
// Long output for a person, a screen at a time.

#ifndef CLI_SHELL_PAGER_H
#define CLI_SHELL_PAGER_H

#include <string>

namespace cli {

/// Shows the text with the program of PAGER, or "less -FRX", which ends by itself where all fits on the
/// screen. less runs without its commands that start programs or write files, since the shell may be all that
/// a user has. False if there is no such program: nothing has been shown then.
bool Page(const std::string& text);

}  // namespace cli

#endif
