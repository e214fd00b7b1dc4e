// SPDX-License-Identifier: Apache-2.0
// How many packets a second are dropped, by interface and reason: from counts that are looked at now and
// then. A value: knows no clock and no source. Used by the discards.

#ifndef MANAGER_DISCARDS_DROP_RATES_H
#define MANAGER_DISCARDS_DROP_RATES_H

#include <chrono>
#include <cstdint>
#include <span>
#include <unordered_map>

#include "capture/drop_source.h"

namespace manager {

class DropRates {
public:
    using Time = std::chrono::steady_clock::time_point;
    /// Between two looks: a rate is that of once to twice this time, less only at the beginning.
    static constexpr std::chrono::seconds kEvery{10};

    /// The counts begin at 0 now.
    explicit DropRates(Time now) : m_base{now, {}}, m_newest{now, {}} {}

    /// To be called every kEvery, with all counts of now.
    void Look(std::span<const capture::InterfaceDrops> drops, Time now);

    /// Packets a second, if there are `count.drops` in all now; rounded.
    [[nodiscard]] std::uint64_t Of(std::uint32_t ifIndex, const capture::ReasonCount& count, Time now) const;

private:
    struct Counts {
        Time time;
        std::unordered_map<std::uint64_t, std::uint64_t> drops;  // by interface and reason
    };
    Counts m_base, m_newest;
};

}  // namespace manager

#endif
