// SPDX-License-Identifier: Apache-2.0
#include "manager/discards/drop_rates.h"

#include <cmath>
#include <utility>

namespace manager {
namespace {

std::uint64_t KeyOf(std::uint32_t ifIndex, std::uint32_t reason)
{
    return std::uint64_t{ifIndex} << 32U | reason;
}

}  // namespace

void DropRates::Look(std::span<const capture::InterfaceDrops> drops, Time now)
{
    m_base = std::exchange(m_newest, {now, {}});
    for (const capture::InterfaceDrops& interface : drops)
        for (const capture::ReasonCount& count : interface.reasons)
            m_newest.drops.emplace(KeyOf(interface.ifIndex, count.reason), count.drops);
}

std::uint64_t DropRates::Of(std::uint32_t ifIndex, const capture::ReasonCount& count, Time now) const
{
    const double seconds = std::chrono::duration<double>(now - m_base.time).count();
    const auto at = m_base.drops.find(KeyOf(ifIndex, count.reason));
    const std::uint64_t before = at == m_base.drops.end() ? 0 : at->second;
    // An interface that was taken out and has come again counts from 0.
    if (seconds <= 0 || before > count.drops) return 0;
    return static_cast<std::uint64_t>(std::llround(static_cast<double>(count.drops - before) / seconds));
}

}  // namespace manager
