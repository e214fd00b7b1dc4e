// SPDX-License-Identifier: Apache-2.0
// The full screen of "monitor sflow" as lines of styled text. Knows no terminal, no session and no clock.

#ifndef CLI_SCREENS_WATCH_SCREEN_H
#define CLI_SCREENS_WATCH_SCREEN_H

#include <cstddef>
#include <vector>

#include "cli/screens/rate_graph.h"
#include "cli/screens/styled_line.h"
#include "cli/screens/watch_scene.h"
#include "cli/screens/watch_view.h"

namespace cli {

/// Below this the screen says that it is too small.
inline constexpr ScreenSize kLeastScreen{30, 6};

/// How many rows of entries have room.
std::size_t RowsOfEntries(const WatchScene& scene, ScreenSize size);

/// At most `size.rows` lines of at most `size.columns` characters.
std::vector<StyledLine> WatchScreen(const WatchScene& scene, const WatchView& view, ScreenSize size,
                                    Charset charset);

}  // namespace cli

#endif
