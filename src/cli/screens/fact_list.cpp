// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/fact_list.h"

#include <algorithm>

#include "base/text.h"
#include "cli/screens/text_width.h"
#include "cli/screens/wrapped_text.h"

namespace cli {
namespace {

/// Of a column of texts.
constexpr std::size_t kNarrowest = 40;

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
