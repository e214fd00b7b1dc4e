// SPDX-License-Identifier: Apache-2.0
// Rates drawn with block characters, or with those of ASCII. Knows nothing of what they are of.

#ifndef CLI_SCREENS_RATE_GRAPH_H
#define CLI_SCREENS_RATE_GRAPH_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/screens/rate_history.h"

namespace cli {

/// What a terminal can show.
enum class Charset { kUtf8, kAscii };

/// A bar for a part of the whole, `width` characters with the blanks behind it.
std::string Bar(std::uint64_t part, std::uint64_t whole, std::size_t width, Charset charset);

/// The widest line of at most `room` characters of which each stands for as many seconds; 0 if there is none
/// of ten characters at least.
std::size_t HistoryWidth(std::size_t room);

/// One character for each of `width` spans of time, the newest last: the span's highest rate as a part of the
/// highest of all; a blank where none is known, and the lowest mark from the least packet on.
std::string HistoryLine(const std::vector<RateHistory::Rate>& rates, std::size_t width, Charset charset);

/// The same, in that many lines of that many characters, the top one first. `width`: what HistoryWidth gives,
/// or a multiple of the rates' number.
std::vector<std::string> HistoryGraph(const std::vector<RateHistory::Rate>& rates, std::size_t width,
                                      std::size_t height, Charset charset);

/// The highest that is known; 0 if none is.
std::uint64_t Highest(const std::vector<RateHistory::Rate>& rates);

}  // namespace cli

#endif
