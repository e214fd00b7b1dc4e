// SPDX-License-Identifier: Apache-2.0
// What the full screen of "monitor sflow" is made of.

#ifndef CLI_SCREENS_WATCH_SCENE_H
#define CLI_SCREENS_WATCH_SCENE_H

#include <cstddef>
#include <string>

#include "cli/screens/sflow_watch.h"
#include "cli/screens/talkers.h"

namespace cli {

/// What is known at a moment.
struct WatchScene {
    const SflowWatch& watch;
    const Watched& watched;  // the last look
    SflowWatch::Time now;    // of the last look while the view is paused
    std::string time;        // for people
    std::string host;
    std::string failure;      // why no figure is known now; empty: all are of the last second
    std::string pausedSince;  // for people; empty: is not paused
    const Talkers& talkers;   // of the one that is looked into
};

struct ScreenSize {
    std::size_t columns = 0, rows = 0;
};

}  // namespace cli

#endif
