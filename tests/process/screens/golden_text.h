// SPDX-License-Identifier: Apache-2.0
// A terminal's transcript as a text that is the same in each run: colours as words in braces, what differs
// from run to run behind masks that leave the columns where they are.

#ifndef SCREENS_GOLDEN_TEXT_H
#define SCREENS_GOLDEN_TEXT_H

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace screens_tests {

/// "\033[31merror:\033[39m" becomes "{red}error:{/red}"; a colour ends with its line. Other escape sequences
/// are left out.
std::string WithNamedColours(const std::string& transcript);

/// The text without the names of colours.
std::string WithoutColours(const std::string& text);

/// Masks times, ages, rates and process ids, and the numbers in columns that count with the time. `words` are
/// replaced first: what there is, by what to write. Where two blanks or more stand behind what is
/// replaced, they take up the difference.
std::string Masked(const std::string& text, const std::map<std::string, std::string>& words);

/// The lines of more characters than that.
std::string LinesWiderThan(std::size_t width, const std::string& text);

/// With SFLOW_RENEW in the environment writes the file and returns an empty text; else what the first line
/// that differs is, or empty if the file has this text.
std::string CompareWithGolden(const std::filesystem::path& file, const std::string& text);

}  // namespace screens_tests

#endif
