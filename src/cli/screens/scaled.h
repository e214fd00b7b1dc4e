// SPDX-License-Identifier: Apache-2.0
// Large figures in few characters.

#ifndef CLI_SCREENS_SCALED_H
#define CLI_SCREENS_SCALED_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include <fmt/format.h>

namespace cli {

/// "0", "999", "1.2k", "12.3k", "123k", "1.2M", up to "18E": at most five characters, in powers of 1,000.
inline std::string Scaled(std::uint64_t figure)
{
    constexpr double kUnit = 1000;
    constexpr double kMostWithTenth = 99.95;
    constexpr double kMost = 999.5;
    if (figure < static_cast<std::uint64_t>(kUnit)) return std::to_string(figure);
    constexpr std::array kUnits = {'k', 'M', 'G', 'T', 'P', 'E'};
    auto scaled = static_cast<double>(figure) / kUnit;
    std::size_t unit = 0;
    for (; scaled >= kMost && unit + 1 < kUnits.size(); ++unit) scaled /= kUnit;
    return fmt::format("{:.{}f}{}", scaled, scaled < kMostWithTenth ? 1 : 0, kUnits.at(unit));
}

/// The same; "-" for what is not known.
inline std::string Scaled(const std::optional<std::uint64_t>& figure)
{
    return figure ? Scaled(*figure) : "-";
}

}  // namespace cli

#endif
