// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/text_table.h"

#include <algorithm>
#include <numeric>
#include <string_view>

#include "base/text.h"
#include "cli/screens/text_width.h"

namespace cli {
namespace {

using Row = std::vector<std::string>;
using Widths = std::vector<std::size_t>;

Widths WidthsOf(const std::vector<Row>& rows)
{
    Widths widths;
    for (const Row& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
    }
    return widths;
}

std::size_t Total(const Widths& widths, std::size_t indent)
{
    const std::size_t gaps = widths.empty() ? 0 : (widths.size() - 1) * kGap;
    return std::accumulate(widths.begin(), widths.end(), indent + gaps);
}

void AppendLine(const Row& cells, const Widths& widths, std::size_t indent, std::string& out)
{
    std::size_t owed = indent;  // blanks, written only before the next text
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (!cells[i].empty()) {
            out.append(owed, ' ');
            out += cells[i];
            owed = 0;
        }
        owed += widths[i] - Width(cells[i]) + kGap;
    }
    out += '\n';
}

void RemoveColumn(std::vector<Row>& rows, std::size_t column)
{
    for (Row& row : rows)
        if (column < row.size()) row.erase(row.begin() + static_cast<std::ptrdiff_t>(column));
}

}  // namespace

std::string TextTable::Text(std::size_t indent, std::size_t width) const
{
    std::vector<Row> rows;
    std::vector<unsigned> ranks;
    if (!m_columns.empty()) rows.emplace_back();
    for (const Column& column : m_columns) {
        rows.front().push_back(column.heading);
        ranks.push_back(column.rank);
    }
    for (const Row& row : m_rows)
        std::ranges::transform(row, std::back_inserter(rows.emplace_back()),
                               [](const std::string& cell) { return base::Printable(cell); });

    Widths widths = WidthsOf(rows);
    while (Total(widths, indent) > width && !ranks.empty()) {
        const auto least = std::ranges::max_element(ranks);
        if (*least == 0) break;
        RemoveColumn(rows, static_cast<std::size_t>(least - ranks.begin()));
        ranks.erase(least);
        widths = WidthsOf(rows);
    }

    const std::size_t total = Total(widths, indent);
    if (total > width && widths.size() > 1) {
        const std::size_t tooWide = std::min(total - width, widths.front());
        widths.front() = std::max(widths.front() - tooWide, kGap);
    }
    std::string out;
    for (Row& row : rows) {
        if (row.empty()) continue;
        if (Width(row.front()) > widths.front()) {
            out.append(indent, ' ').append(row.front()).append("\n");
            row.front().clear();
        }
        AppendLine(row, widths, indent, out);
    }
    return out;
}

}  // namespace cli
