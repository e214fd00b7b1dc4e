// SPDX-License-Identifier: Apache-2.0
// A line of a full screen: texts, and how each of them stands out.

#ifndef CLI_SCREENS_STYLED_LINE_H
#define CLI_SCREENS_STYLED_LINE_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "cli/screens/style.h"
#include "cli/screens/text_width.h"

namespace cli {

struct TextStyle {
    Tone tone = Tone::kPlain;
    bool bold = false;
    bool reverse = false;
    friend bool operator==(const TextStyle&, const TextStyle&) = default;
};

struct StyledText {
    std::string text;  // one line, without control characters
    TextStyle style;
    friend bool operator==(const StyledText&, const StyledText&) = default;
};

using StyledLine = std::vector<StyledText>;

inline std::size_t Width(const StyledLine& line)
{
    std::size_t width = 0;
    for (const StyledText& each : line) width += Width(each.text);
    return width;
}

/// The line, with no more than `width` characters of it; "..." ends what is cut.
inline StyledLine Cut(StyledLine line, std::size_t width)
{
    std::size_t taken = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const std::size_t its = Width(line[i].text);
        if (taken + its > width) {
            line[i].text = Cut(line[i].text, width - taken);
            line.resize(i + 1);
            break;
        }
        taken += its;
    }
    return line;
}

/// The text with blanks behind it, or before it, up to `width` characters; cut where it is wider.
inline std::string ToLeft(std::string_view text, std::size_t width)
{
    std::string padded = Cut(text, width);
    return padded.append(width - std::min(width, Width(padded)), ' ');
}

inline std::string ToRight(std::string_view text, std::size_t width)
{
    const std::string cut = Cut(text, width);
    return std::string(width - std::min(width, Width(cut)), ' ') + cut;
}

}  // namespace cli

#endif
