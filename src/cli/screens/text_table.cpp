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

/// The cells of a table while it is made to fit.
struct Grid {
    std::vector<TextTable::Column> columns;  // none: all is shown
    std::vector<Row> rows;                   // the first has the headings, if there are columns
    Widths widths = WidthsOf(rows);

    void Remove(std::size_t column)
    {
        columns.erase(columns.begin() + static_cast<std::ptrdiff_t>(column));
        for (Row& row : rows)
            if (column < row.size()) row.erase(row.begin() + static_cast<std::ptrdiff_t>(column));
        widths = WidthsOf(rows);
    }

    /// Cuts the texts that may end early, as far as that is of use.
    void CutTexts(std::size_t indent, std::size_t width)
    {
        for (std::size_t at = 0; at < columns.size(); ++at) {
            const std::size_t total = Total(widths, indent);
            if (total <= width) return;
            if (!columns[at].mayEnd) continue;
            const std::size_t least = std::min(widths[at], TextTable::kLeastText);
            const std::size_t room = widths[at] - std::min(total - width, widths[at] - least);
            for (Row& row : rows)
                if (at < row.size()) row[at] = Cut(row[at], room);
            widths[at] = room;
        }
    }

    /// How wide it could be made without leaving out a column.
    [[nodiscard]] std::size_t LeastTotal(std::size_t indent) const
    {
        Widths least = widths;
        for (std::size_t at = 0; at < columns.size(); ++at)
            if (columns[at].mayEnd) least[at] = std::min(least[at], TextTable::kLeastText);
        return Total(least, indent);
    }

    void Fit(std::size_t indent, std::size_t width)
    {
        while (LeastTotal(indent) > width && !columns.empty()) {
            const auto least = std::ranges::max_element(columns, {}, &TextTable::Column::rank);
            if (least->rank == 0) break;
            Remove(static_cast<std::size_t>(least - columns.begin()));
        }
        CutTexts(indent, width);
    }
};

}  // namespace

std::string TextTable::Text(std::size_t indent, std::size_t width) const
{
    std::vector<Row> all;
    if (!m_columns.empty()) all.emplace_back();
    for (const Column& column : m_columns) all.front().push_back(column.heading);
    for (const Row& row : m_rows)
        std::ranges::transform(row, std::back_inserter(all.emplace_back()),
                               [](const std::string& cell) { return base::Printable(cell); });

    Grid grid{m_columns, std::move(all)};
    grid.Fit(indent, width);
    auto& [columns, rows, widths] = grid;
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
