// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/fact_list.h"

#include <algorithm>

#include "base/text.h"
#include "cli/screens/text_width.h"

namespace cli {
namespace {

/// Of a column of texts.
constexpr std::size_t kNarrowest = 40;

/// Where the first line of the text ends that has at most `width` characters, if there is a blank.
std::size_t EndOfLine(std::string_view text, std::size_t width)
{
    const std::size_t remedy = text.rfind("; ", width - 1);
    if (remedy != std::string_view::npos) return remedy + 1;
    const std::size_t blank = text.rfind(' ', width);
    if (blank != std::string_view::npos && blank != 0) return blank;
    return std::min(text.find(' ', 1), text.size());
}

/// The first line begins where `out` ends, the others at the column `from`.
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

}  // namespace

void FactList::Add(std::string_view label, std::string_view text)
{
    m_facts.emplace_back(base::Printable(label), base::Printable(text));
}

std::string FactList::Text(std::size_t indent, std::size_t width) const
{
    std::size_t widest = 0;
    for (const auto& [label, text] : m_facts) widest = std::max(widest, Width(label));
    const bool below = indent + widest + kGap + kNarrowest > width;
    const std::size_t from = indent + kGap + (below ? 0 : widest);
    const std::size_t room = std::max(kNarrowest, width - std::min(width, from));
    std::string out;
    for (const auto& [label, text] : m_facts) {
        out.append(indent, ' ').append(label);
        if (below)
            out.append("\n").append(from, ' ');
        else
            out.append(from - indent - Width(label), ' ');
        AppendWrapped(text, from, room, out);
    }
    return out;
}

}  // namespace cli
