// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/wrapped_text.h"

#include <algorithm>

#include "cli/screens/text_width.h"

namespace cli {
namespace {

/// Where the first line of the text ends that has at most `width` characters, if there is a blank.
std::size_t EndOfLine(std::string_view text, std::size_t width)
{
    const std::size_t remedy = text.rfind("; ", width - 1);
    if (remedy != std::string_view::npos) return remedy + 1;
    const std::size_t blank = text.rfind(' ', width);
    if (blank != std::string_view::npos && blank != 0) return blank;
    return std::min(text.find(' ', 1), text.size());
}

}  // namespace

void AppendWrapped(std::string_view text, std::size_t from, std::size_t width, std::string& out)
{
    while (Width(text) > width) {
        const std::size_t end = EndOfLine(text, width);
        out.append(text.substr(0, end)).append("\n");
        text.remove_prefix(std::min(text.size(), end + 1));
        if (text.empty()) return;
        out.append(from, ' ');
    }
    out.append(text).append("\n");
}

std::string Wrapped(std::string_view line, std::size_t from, std::size_t width)
{
    constexpr std::size_t kLeastRoom = 20;
    if (from + kLeastRoom > width || from > line.size()) return std::string(line);
    std::string out(line.substr(0, from));
    AppendWrapped(line.substr(from), from, width - from, out);
    out.pop_back();
    return out;
}

}  // namespace cli
