// SPDX-License-Identifier: Apache-2.0
// A rate in each of the last 60 seconds. Used by sflow_watch.

#ifndef CLI_SCREENS_RATE_HISTORY_H
#define CLI_SCREENS_RATE_HISTORY_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace cli {

class RateHistory {
public:
    static constexpr std::size_t kSeconds = 60;
    using Rate = std::optional<std::uint64_t>;  // nullopt: not known

    /// `second`: its number, which must not go down; a second that is given again has the newer rate.
    void Add(std::int64_t second, Rate rate)
    {
        const std::int64_t begin = std::max(m_newest + 1, second - static_cast<std::int64_t>(kSeconds) + 1);
        for (std::int64_t each = begin; each < second; ++each) At(each) = std::nullopt;
        At(second) = rate;
        m_newest = second;
    }

    /// The kSeconds seconds up to this one, which is not before the last that was added; the oldest first.
    [[nodiscard]] std::vector<Rate> Until(std::int64_t second) const
    {
        std::vector<Rate> rates;
        rates.reserve(kSeconds);
        for (std::int64_t each = second - static_cast<std::int64_t>(kSeconds) + 1; each <= second; ++each) {
            const bool isKept = each <= m_newest && each > m_newest - static_cast<std::int64_t>(kSeconds);
            rates.push_back(isKept ? m_rates.at(Slot(each)) : std::nullopt);
        }
        return rates;
    }

private:
    static std::size_t Slot(std::int64_t second)
    {
        constexpr auto kSlots = static_cast<std::int64_t>(kSeconds);
        return static_cast<std::size_t>((second % kSlots + kSlots) % kSlots);
    }
    Rate& At(std::int64_t second) { return m_rates.at(Slot(second)); }

    std::array<Rate, kSeconds> m_rates{};
    std::int64_t m_newest = 0;
};

}  // namespace cli

#endif
