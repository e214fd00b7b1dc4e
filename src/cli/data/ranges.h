// SPDX-License-Identifier: Apache-2.0
// Names that are written as one word with ranges of numbers in brackets: "gigabit-ethernet-1/1/[1-48,52]".

#ifndef CLI_DATA_RANGES_H
#define CLI_DATA_RANGES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The names that one command may mean.
inline constexpr std::size_t kMostNames = 4'096;

/// Whether there is a bracket in the word. No name of the model can have one.
inline bool HasRange(std::string_view word) { return word.find_first_of("[]") != std::string_view::npos; }

/// The names, in the order in which they are written, each once; the word itself if it has no bracket. A
/// number with leading zeros gives its width to all of its range. Throws Error for what is no range, and for
/// more than kMostNames.
std::vector<std::string> NamesOf(const std::string& word);

}  // namespace cli

#endif
