// SPDX-License-Identifier: Apache-2.0
// What a person has chosen to see of a watch, and what keys change of it. Knows no terminal.

#ifndef CLI_SCREENS_WATCH_VIEW_H
#define CLI_SCREENS_WATCH_VIEW_H

#include <cstddef>
#include <string>
#include <vector>

#include "cli/screens/sflow_watch.h"

namespace cli {

enum class Key {
    kCharacter,
    kUp,
    kDown,
    kPageUp,
    kPageDown,
    kHome,
    kEnd,
    kEnter,
    kEscape,
    kBackspace,
    kInterrupt,
    kOther,
};

struct KeyPress {
    Key key = Key::kOther;
    std::string text;  // of kCharacter: one character in UTF-8
};

enum class SortOrder { kName, kPackets, kBits, kSamples };

/// "name", "packets", "bits", "samples".
std::string NameOf(SortOrder order);

struct WatchView {
    SortOrder order = SortOrder::kName;
    std::string filter;     // text that the names shown have
    bool filters = false;   // the filter is being typed
    bool helps = false;     // help is shown
    bool paused = false;    // nothing is asked for
    std::string selected;   // empty: the first
    std::size_t first = 0;  // row at the top
    std::string inside;     // the one that is looked into; empty: all are shown
    bool beganInside = false;
    bool left = false;
};

using Rows = std::vector<const WatchedEntry*>;

/// What is shown of the look, in order: broken ones first.
Rows RowsOf(const Watched& watched, const WatchView& view);

/// The selected row's index; 0 if there is none.
std::size_t SelectedRow(const Rows& rows, const WatchView& view);

/// The row at the top, so that the selected one is among the `height` that have room.
std::size_t TopRow(const Rows& rows, const WatchView& view, std::size_t height);

/// `rows`: what is shown now; `page`: how many have room.
void OnKey(WatchView& view, const KeyPress& press, const Rows& rows, std::size_t page);

}  // namespace cli

#endif
