// SPDX-License-Identifier: Apache-2.0
// "monitor sflow" on a terminal: the full screen, its keys, and the requests that fill it.

#ifndef CLI_COMMANDS_MONITOR_SCREEN_H
#define CLI_COMMANDS_MONITOR_SCREEN_H

#include <functional>
#include <memory>

#include "cli/commands/command.h"
#include "cli/commands/screen.h"
#include "cli/screens/sflow_watch.h"

namespace cli {

/// Shows the watch until a key or SIGINT ends it; the other signals that end a process do so, once the
/// terminal is as it was. False without a terminal that can be filled. Throws Error, and
/// netconf::ConnectionError if there is no session at the start.
bool MonitorOnScreen(Call& call, const std::function<std::unique_ptr<Screen>()>& open, SflowWatch watch);

}  // namespace cli

#endif
