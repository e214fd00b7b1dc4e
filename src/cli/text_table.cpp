// SPDX-License-Identifier: Apache-2.0
#include "cli/text_table.h"

#include <algorithm>

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
        const std::string cell = Printable(cells[i]);
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
            widths[i] = std::max(widths[i], Width(Printable(cells[i])));
    };
    measure(m_headings);
    for (const auto& row : m_rows) measure(row);

    std::string out;
    if (!m_headings.empty()) AppendLine(m_headings, widths, indent, out);
    for (const auto& row : m_rows) AppendLine(row, widths, indent, out);
    return out;
}

std::string Printable(std::string_view text)
{
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n')
            out += "\\n";
        else if (c == '\t')
            out += "\\t";
        else if (byte < 0x20 || byte == 0x7f) {
            constexpr std::string_view kDigits = "0123456789abcdef";
            out += "\\x";
            out += kDigits[byte >> 4U];
            out += kDigits[byte & 0x0FU];
        } else
            out += c;
    }
    return out;
}

}  // namespace cli
