// SPDX-License-Identifier: Apache-2.0
// The command "monitor sflow": the state once a second, in a session of its own, on the full screen of a
// terminal (monitor_screen.h) or else one line each time.

#ifndef CLI_COMMANDS_MONITOR_SFLOW_H
#define CLI_COMMANDS_MONITOR_SFLOW_H

#include "cli/commands/command.h"

namespace cli {

/// Prints lines, or fills the screen, until SIGINT, which it takes as the wish to end. A database or manager
/// that does not answer has its line, too, and is asked again. Throws Error.
void MonitorSflow(Call& call);

}  // namespace cli

#endif
