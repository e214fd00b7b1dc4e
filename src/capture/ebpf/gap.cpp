// SPDX-License-Identifier: Apache-2.0
// Table and scale of the gaps. Not on any packet's path: computed at a start and at a change of settings.

#include "capture/ebpf/gap.h"

#include <cmath>
#include <cstddef>

namespace capture {
namespace {

constexpr int kPointBits = 32;       // fraction bits of a logarithm
constexpr int kMultiplierBits = 26;  // 38 bits of a logarithm and these fit into 64

}  // namespace

LogTable MakeLogTable()
{
    LogTable table{};
    for (std::size_t i = 0; i + 1 < table.size(); ++i) {
        const long double x = 1 + static_cast<long double>(i) / (1 << kLogTableBits);
        table[i] = static_cast<std::uint32_t>(std::llround(std::ldexp(std::log2(x), kPointBits)));
    }
    return table;  // the last is 2^32, cut to 0
}

GapScale MakeGapScale(std::uint32_t rate)
{
    if (rate <= 1) return {.multiplier = 0, .shift = kPointBits};
    const long double lambda = -std::log1p(-1.0L / rate);
    int exponent = 0;
    const long double fraction = std::frexp(std::log(2.0L) / lambda, &exponent);  // in [0.5, 1)
    auto multiplier = static_cast<std::uint32_t>(std::llround(std::ldexp(fraction, kMultiplierBits)));
    if (multiplier == 1U << kMultiplierBits) {
        multiplier >>= 1;
        ++exponent;
    }
    return {.multiplier = multiplier,
            .shift = static_cast<std::uint32_t>(kPointBits + kMultiplierBits - exponent)};
}

}  // namespace capture
