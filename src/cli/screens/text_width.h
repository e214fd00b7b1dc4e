// SPDX-License-Identifier: Apache-2.0
// How wide texts are on a terminal.

#ifndef CLI_SCREENS_TEXT_WIDTH_H
#define CLI_SCREENS_TEXT_WIDTH_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

/// Blanks before the lines of a section, and between columns.
inline constexpr std::size_t kIndent = 2;
inline constexpr std::size_t kGap = 2;

/// Characters, not bytes, of UTF-8.
inline std::size_t Width(std::string_view text)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

/// The text, or as much of its end as has room in `width` characters with "..." before it: what tells names
/// apart often stands last.
inline std::string CutFront(std::string_view text, std::size_t width)
{
    constexpr std::string_view kMore = "...";
    if (Width(text) <= width) return std::string(text);
    const std::size_t gone = Width(text) - width + std::min(width, kMore.size());
    std::size_t bytes = 0;
    for (std::size_t count = 0; bytes < text.size(); ++bytes)
        if (Width(text.substr(bytes, 1)) == 1 && ++count > gone) break;
    return std::string(kMore.substr(0, width)).append(text.substr(bytes));
}

/// The text, or as much of its begin as has room in `width` characters with "..." behind it.
inline std::string Cut(std::string_view text, std::size_t width)
{
    constexpr std::string_view kMore = "...";
    if (Width(text) <= width) return std::string(text);
    const std::size_t kept = width - std::min(width, kMore.size());
    std::size_t bytes = 0;
    for (std::size_t count = 0; bytes < text.size(); ++bytes)
        if (Width(text.substr(bytes, 1)) == 1 && ++count > kept) break;
    return std::string(text.substr(0, bytes)).append(kMore.substr(0, width));
}

}  // namespace cli

#endif
