// SPDX-License-Identifier: Apache-2.0
// The terminal on which people type as a Screen, by ncurses. Its only user is the program; only one may be
// there at a time.

#ifndef CLI_SHELL_FULL_SCREEN_H
#define CLI_SHELL_FULL_SCREEN_H

#include <memory>

#include "cli/commands/screen.h"

namespace cli {

/// Takes the terminal of standard input and output. Null if they are none, or if the terminal's description
/// is missing or has no cursor that moves. `colours`: whether tones may be colours.
std::unique_ptr<Screen> OpenFullScreen(bool colours);

}  // namespace cli

#endif
