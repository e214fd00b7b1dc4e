// SPDX-License-Identifier: Apache-2.0
// The table that the measurements end with (see the header).

#include "figures/table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace figures {

namespace {

std::string Number(double value, const std::string& unit)
{
    return unit.empty() ? fmt::format("{:.2f}", value) : fmt::format("{:.2f} {}", value, unit);
}

}  // namespace

void Table::AtMost(const std::string& figure, double measured, double bound, const std::string& unit)
{
    Bounded(figure, measured, unit, "at most " + Number(bound, unit), measured <= bound);
}

void Table::AtLeast(const std::string& figure, double measured, double bound, const std::string& unit)
{
    Bounded(figure, measured, unit, "at least " + Number(bound, unit), measured >= bound);
}

void Table::Plain(const std::string& figure, double measured, const std::string& unit)
{
    Add({figure, Number(measured, unit), "", ""});
}

void Table::Failed(const std::string& figure, const std::string& why)
{
    ++m_failures;
    Add({figure, "not measured: " + why, "", "FAILS"});
}

void Table::Bounded(const std::string& figure, double measured, const std::string& unit,
                    const std::string& bound, bool holds)
{
    m_failures += holds ? 0 : 1;
    Add({figure, Number(measured, unit), bound, holds ? "holds" : "FAILS"});
}

void Table::Add(Row row)
{
    // Seen at once, because the whole takes minutes.
    fmt::print(stderr, "{}: {} {}\n", row.figure, row.measured, row.verdict);
    m_rows.push_back(std::move(row));
}

void Table::Print() const
{
    std::size_t width = 0;
    for (const auto& row : m_rows) width = std::max(width, row.figure.size());
    fmt::print("\n{:<{}}  {:>12}  {:<18}  {}\n", "figure", width, "measured", "bound", "verdict");
    fmt::print("{:-<{}}\n", "", width + 44);
    for (const auto& row : m_rows)
        fmt::print("{:<{}}  {:>12}  {:<18}  {}\n", row.figure, width, row.measured, row.bound, row.verdict);
    if (m_failures == 0)
        fmt::print("\nAll bounds hold.\n");
    else
        fmt::print("\n{} bounds do not hold.\n", m_failures);
    std::fflush(stdout);
}

}  // namespace figures
