// SPDX-License-Identifier: Apache-2.0
// The command "monitor events": a subscription (RFC 5277) in a session of its own, one line an event.

#ifndef CLI_COMMANDS_MONITOR_H
#define CLI_COMMANDS_MONITOR_H

#include <cstdint>
#include <string>
#include <string_view>

#include "cli/commands/command.h"

namespace cli {

/// Prints events until SIGINT, which it takes as the wish to end. Throws Error, and netconf::ConnectionError
/// when the session ends.
void MonitorEvents(Call& call);

/// When the replay begins, as YANG's date-and-time: the text itself, or that long before `nowS` (seconds
/// since the epoch) for "30s", "10m", "2h", "1d". Throws Error for another text.
std::string ReplayStart(std::string_view text, std::int64_t nowS);

/// One line, without its end, in the form asked for; empty for an event that is not shown in it. `xml`: the
/// <notification>. Throws Error.
std::string EventLine(const ly_ctx* yang, const std::string& xml, Format format);

}  // namespace cli

#endif
