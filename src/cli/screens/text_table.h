// SPDX-License-Identifier: Apache-2.0
// Aligned columns for people. Knows nothing of what stands in them.

#ifndef CLI_SCREENS_TEXT_TABLE_H
#define CLI_SCREENS_TEXT_TABLE_H

#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace cli {

/// Two blanks between columns, each as wide as its widest cell; no blanks at a line's end. Control
/// characters in a cell are escaped, so that a row stays one line.
class TextTable {
public:
    static constexpr std::size_t kLeastText = 20;

    struct Column {
        /// 0: always shown. Of the others, the highest rank goes first where there is no room for all.
        Column(const char* text, unsigned goes = 0, bool ends = false)
            : heading(text), rank(goes), mayEnd(ends)
        {
        }
        std::string heading;
        unsigned rank;
        bool mayEnd;  // in "...", down to kLeastText characters, before a column is left out
    };

    /// No columns: no heading line, and all is shown.
    explicit TextTable(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    void Add(std::vector<std::string> row) { m_rows.push_back(std::move(row)); }
    [[nodiscard]] bool Empty() const { return m_rows.empty(); }

    /// Every line begins with `indent` blanks and has at most `width` characters, if the columns that are
    /// always shown have room in these. Where the first column is what is too wide, its long cells stand on
    /// lines of their own, above the rest of their rows.
    [[nodiscard]] std::string Text(std::size_t indent,
                                   std::size_t width = std::numeric_limits<std::size_t>::max()) const;

private:
    std::vector<Column> m_columns;
    std::vector<std::vector<std::string>> m_rows;
};

}  // namespace cli

#endif
