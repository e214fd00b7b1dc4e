// SPDX-License-Identifier: Apache-2.0
// Parts of the full screen of "monitor sflow". Used by watch_screen.cpp alone.

#ifndef CLI_SCREENS_WATCH_PARTS_H
#define CLI_SCREENS_WATCH_PARTS_H

#include <cstddef>
#include <string>
#include <vector>

#include "cli/screens/rate_graph.h"
#include "cli/screens/styled_line.h"
#include "cli/screens/watch_scene.h"
#include "cli/screens/watch_view.h"

namespace cli {

using StyledLines = std::vector<StyledLine>;

inline constexpr TextStyle kPlain{};
inline constexpr TextStyle kBold{Tone::kPlain, true, false};
inline constexpr TextStyle kBrokenStyle{Tone::kBroken, false, false};
inline constexpr TextStyle kWarningStyle{Tone::kWarning, false, false};

inline TextStyle StyleOf(Severity severity)
{
    return severity == Severity::kBroken ? kBrokenStyle : kWarningStyle;
}

/// The first of these texts that has room, else as much of the last as has.
std::string Fitting(const std::vector<std::string>& texts, std::size_t width);

/// Where, when, what flows, and what is broken.
StyledLines HealthLines(const WatchScene& scene, const WatchView& view, std::size_t width);

/// The heading and a row for each of these.
StyledLines EntryLines(const WatchScene& scene, const WatchView& view, const Rows& rows, ScreenSize size,
                       Charset charset);

/// One port or collector.
StyledLines InsideLines(const WatchScene& scene, const WatchView& view, ScreenSize size, Charset charset);

StyledLines HelpLines();

}  // namespace cli

#endif
