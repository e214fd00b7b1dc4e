// SPDX-License-Identifier: Apache-2.0
// The table that the measurements end with: figure, what was measured, its bound, and whether it holds.

#ifndef FIGURES_TABLE_H
#define FIGURES_TABLE_H

#include <string>
#include <vector>

namespace figures {

class Table {
public:
    /// A value that must be at most `bound`, in the unit given ("ms", "MB", "" for a ratio or a count).
    void AtMost(const std::string& figure, double measured, double bound, const std::string& unit);
    /// A value that must be at least `bound`.
    void AtLeast(const std::string& figure, double measured, double bound, const std::string& unit);
    /// A value that is printed without a bound.
    void Plain(const std::string& figure, double measured, const std::string& unit);
    /// A measurement that could not be made, and why: counts as one that fails.
    void Failed(const std::string& figure, const std::string& why);

    void Print() const;
    [[nodiscard]] std::size_t Failures() const { return m_failures; }

private:
    struct Row {
        std::string figure;
        std::string measured;
        std::string bound;
        std::string verdict;
    };
    void Bounded(const std::string& figure, double measured, const std::string& unit,
                 const std::string& bound, bool holds);
    void Add(Row row);

    std::vector<Row> m_rows;
    std::size_t m_failures = 0;
};

}  // namespace figures

#endif
