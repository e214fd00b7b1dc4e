// SPDX-License-Identifier: Apache-2.0
#include "cli/text_table.h"

#include <algorithm>
#include <string_view>

#include "base/text.h"

namespace cli {
namespace {

constexpr std::string_view kGap = "  ";

/// Characters, not bytes, of UTF-8.
std::size_t Width(std::string_view text)
{
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

void AppendLine(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths,
                std::size_t indent, std::string& out)
{
    std::size_t owed = indent;  // blanks, written only before the next text
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string cell = base::Printable(cells[i]);
        if (!cell.empty()) {
            out.append(owed, ' ');
            out += cell;
            owed = 0;
        }
        owed += widths[i] - Width(cell) + kGap.size();
    }
    out += '\n';
}

}  // namespace

std::string TextTable::Text(std::size_t indent) const
{
    std::vector<std::size_t> widths;
    const auto measure = [&](const std::vector<std::string>& cells) {
        widths.resize(std::max(widths.size(), cells.size()));
        for (std::size_t i = 0; i < cells.size(); ++i)
            widths[i] = std::max(widths[i], Width(base::Printable(cells[i])));
    };
    measure(m_headings);
    for (const auto& row : m_rows) measure(row);

    std::string out;
    if (!m_headings.empty()) AppendLine(m_headings, widths, indent, out);
    for (const auto& row : m_rows) AppendLine(row, widths, indent, out);
    return out;
}

}  // namespace cli
