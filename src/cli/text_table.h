// SPDX-License-Identifier: Apache-2.0
// Aligned columns for people. Knows nothing of what stands in them.

#ifndef CLI_TEXT_TABLE_H
#define CLI_TEXT_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

/// Two blanks between columns, each as wide as its widest cell; no blanks at a line's end. Control
/// characters in a cell are escaped, so that a row stays one line.
class TextTable {
public:
    /// Empty headings: no heading line.
    explicit TextTable(std::vector<std::string> headings) : m_headings(std::move(headings)) {}

    void Add(std::vector<std::string> row) { m_rows.push_back(std::move(row)); }
    [[nodiscard]] bool Empty() const { return m_rows.empty(); }

    /// Every line begins with that many blanks.
    [[nodiscard]] std::string Text(std::size_t indent) const;

private:
    std::vector<std::string> m_headings;
    std::vector<std::vector<std::string>> m_rows;
};

}  // namespace cli

#endif
